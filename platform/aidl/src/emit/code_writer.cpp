#include "code_writer.h"

#include <algorithm>

namespace host::aidl {
namespace {

constexpr int kStep = 4;

void ReplaceAll(std::string* text, std::string_view what, std::string_view with) {
    for (size_t at = text->find(what); at != std::string::npos; at = text->find(what, at)) {
        text->replace(at, what.size(), with);
        at += with.size();
    }
}

// What a compiler would warn about inside a comment is taken apart.
std::string SafeComment(std::string_view text) {
    std::string out(text);
    ReplaceAll(&out, "/*", "/ *");
    ReplaceAll(&out, "?\?/", "? ?/");
    return out;
}

}  // namespace

void CodeWriter::Line(std::string_view text) {
    if (!text.empty()) text_.append(static_cast<size_t>(depth_) * kStep, ' ').append(text);
    text_ += '\n';
}

void CodeWriter::Open(std::string_view text) {
    Line(text);
    ++depth_;
}

void CodeWriter::Close(std::string_view text) {
    --depth_;
    Line(text);
}

void CodeWriter::Access(std::string_view text) {
    text_.append(static_cast<size_t>(depth_ - 1) * kStep + kStep / 2, ' ').append(text) += '\n';
}

void CodeWriter::Doc(std::string_view text) {
    if (text.empty()) return;
    const std::string safe = SafeComment(text);
    if (safe.find('\n') == std::string::npos) return Line("/** " + safe + " */");
    Line("/**");
    for (size_t at = 0; at <= safe.size();) {
        const size_t end = std::min(safe.find('\n', at), safe.size());
        Line(end == at ? " *" : " * " + safe.substr(at, end - at));
        at = end + 1;
    }
    Line(" */");
}

}  // namespace host::aidl
