#include "eventually.h"

#include <poll.h>

#include <algorithm>

namespace host::testing {

bool Eventually(const std::function<bool()>& predicate, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (int pause = 1; !predicate(); pause = std::min(pause * 2, 20)) {
        if (std::chrono::steady_clock::now() >= end) return false;
        poll(nullptr, 0, pause);
    }
    return true;
}

}  // namespace host::testing
