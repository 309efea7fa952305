// Any text as a peer may send it: however it is made, it must come out as lines that hold no
// character with which a line could be forged, and nothing of it may be lost.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "line_format.h"
#include "log_filter.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

void CheckLine(std::string_view line) {
    std::string printed;
    host::AppendPrintable(line, &printed);
    Require(printed.size() >= line.size());
    for (const char character : printed) {
        const auto byte = static_cast<unsigned char>(character);
        Require((byte >= 0x20 || byte == '\t') && byte != 0x7f);
    }
    Require(printed.find("\xc2\x85") == std::string::npos);
    Require(printed.find("\xe2\x80\xa8") == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(data, data + size);
    std::string_view rest = text;
    size_t taken = 0;
    do {
        const size_t before = rest.size();
        const std::string_view line = host::TakeLine(&rest);
        CheckLine(line);
        taken += before - rest.size();
    } while (!rest.empty());
    Require(taken == size);
    if (const auto filter = host::LogFilter::Parse(text)) filter->Passes("tag", 4);
    return 0;
}
