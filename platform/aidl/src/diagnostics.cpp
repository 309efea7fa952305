#include "diagnostics.h"

#include <algorithm>
#include <utility>

namespace host::aidl {
namespace {

// A terminal must not be driven by the bytes of a broken file.
std::string Printable(std::string_view line) {
    std::string out(line);
    for (char& c : out) {
        const auto byte = static_cast<unsigned char>(c);
        if (c != '\t' && (byte < 0x20 || byte == 0x7f)) c = '?';
    }
    return out;
}

// Blanks as wide as `prefix` is printed; tabs stay tabs.
std::string Indent(std::string_view prefix) {
    std::string out;
    for (char c : prefix) {
        const bool continuation = (static_cast<unsigned char>(c) & 0xc0) == 0x80;
        if (!continuation) out += c == '\t' ? '\t' : ' ';
    }
    return out;
}

}  // namespace

void Diagnostics::Error(Span where, const std::string& text) {
    // To find the line takes as long as the file is: not for a message that nobody sees.
    if (count_ >= kMaxErrors) {
        ++count_;
        return;
    }
    const std::string_view source = sources_.Text(where.file);
    const size_t at = std::min<size_t>(where.begin, source.size());
    const size_t before = at == 0 ? std::string_view::npos : source.rfind('\n', at - 1);
    const size_t begin = before == std::string_view::npos ? 0 : before + 1;
    const size_t end = std::min(source.find('\n', at), source.size());
    const auto line = std::count(source.begin(), source.begin() + at, '\n') + 1;
    Note(sources_.Path(where.file) + ":" + std::to_string(line) + ":" +
         std::to_string(at - begin + 1) + ": error: " + text + "\n" +
         Printable(source.substr(begin, end - begin)) + "\n" +
         Indent(source.substr(begin, at - begin)) + "^\n");
}

void Diagnostics::Error(const std::string& text) {
    Note("aidl: error: " + text + "\n");
}

void Diagnostics::Note(std::string message) {
    if (count_++ < kMaxErrors) messages_.push_back(std::move(message));
}

std::string Diagnostics::Render() const {
    std::string out;
    for (const std::string& message : messages_)
        out += message;
    if (count_ > kMaxErrors) {
        out += "aidl: error: " + std::to_string(count_ - kMaxErrors) + " more errors\n";
    }
    return out;
}

}  // namespace host::aidl
