// The one place where a test asks again and again whether something has become true, for facts that
// nothing announces (a count in /proc, say). Any thread.
#pragma once

#include <chrono>
#include <functional>

namespace host::testing {

inline constexpr std::chrono::milliseconds kTestLimit{20'000};

// True as soon as the predicate is; false if it is still not when the time is up. Asks at least
// once, first in quick succession, then every 20 ms.
bool Eventually(const std::function<bool()>& predicate,
                std::chrono::milliseconds limit = kTestLimit);

}  // namespace host::testing
