// The tables that the hub's managers dump as text. Free functions, any thread.

#pragma once

#include <android/binder_interface_utils.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velmoractl {

struct SignalRow {
    int32_t signal = 0;
    std::vector<int32_t> tokens;    // of its producer, or of its consumers
    std::optional<int64_t> ttl_ms;  // of producers only
};
using SignalTable = std::vector<SignalRow>;

// What the manager writes on a dump; nothing if it cannot be asked. Waits for the hub.
std::optional<std::string> DumpOf(ndk::ICInterface& manager);

// The rows of a dump, by signal. Lines of no known form are passed over.
SignalTable ParseTable(const std::string& dump);

// Null if the table has no row of the signal.
const SignalRow* FindSignal(const SignalTable& table, int32_t signal);

}  // namespace velmoractl
