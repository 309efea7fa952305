// The command line. One thread.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace velmoractl {

struct Options {
    std::string verb;
    bool json = false;
    std::optional<double> timeout;  // seconds
    std::optional<uint64_t> count;  // of events
    std::vector<int32_t> signals;   // at least one if the verb takes any; each once
    std::string table;              // of dump: "producers", "consumers" or both if empty
    std::string file;               // of push; standard input if empty
    std::optional<double> rate;     // of push, per second
    bool wait = false;              // of push: until there is demand
    int64_t ttl_ms = 0;             // of push
};

// The options, or the exit status after help or an error was printed.
std::variant<Options, int> ParseOptions(int argc, char** argv);

}  // namespace velmoractl
