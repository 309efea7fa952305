#include "signal_table.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <sstream>

namespace velmoractl {

namespace {

// The number behind the label; nothing if the line begins with another one.
std::optional<int64_t> NumberBehind(const std::string& line, const std::string& label) {
    int64_t number = 0;
    if (line.compare(0, label.size(), label) != 0) return std::nullopt;
    const char* begin = line.data() + label.size();
    const auto [end, error] = std::from_chars(begin, line.data() + line.size(), number);
    return error == std::errc() && end != begin ? std::optional(number) : std::nullopt;
}

std::optional<int32_t> TokenIn(const std::string& line) {
    std::optional<int64_t> token = NumberBehind(line, "    Producer Token ID: ");
    if (!token) token = NumberBehind(line, "    Consumer Token ID: ");
    return token ? std::optional(static_cast<int32_t>(*token)) : std::nullopt;
}

}  // namespace

std::optional<std::string> DumpOf(ndk::ICInterface& manager) {
    const int file = memfd_create("dump", MFD_CLOEXEC);
    if (file < 0) return std::nullopt;
    std::optional<std::string> text;
    if (manager.dump(file, nullptr, 0) == STATUS_OK) {
        text.emplace(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
        const ssize_t size = pread(file, text->data(), text->size(), 0);
        text->resize(size < 0 ? 0 : static_cast<size_t>(size));
    }
    close(file);
    return text;
}

SignalTable ParseTable(const std::string& dump) {
    SignalTable table;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        if (const auto signal = NumberBehind(line, "  Signal ID: ")) {
            table.push_back({static_cast<int32_t>(*signal), {}, std::nullopt});
        } else if (table.empty()) {
            continue;
        } else if (const auto token = TokenIn(line)) {
            table.back().tokens.push_back(*token);
        } else if (const auto ttl_ms = NumberBehind(line, "    TTL: ")) {
            table.back().ttl_ms = ttl_ms;
        }
    }
    std::sort(table.begin(), table.end(),
              [](const SignalRow& a, const SignalRow& b) { return a.signal < b.signal; });
    return table;
}

const SignalRow* FindSignal(const SignalTable& table, int32_t signal) {
    const auto row = std::find_if(table.begin(), table.end(), [signal](const SignalRow& candidate) {
        return candidate.signal == signal;
    });
    return row == table.end() ? nullptr : &*row;
}

}  // namespace velmoractl
