#include "token_stream.h"

#include <algorithm>

namespace host::aidl {
namespace {

std::string_view Trim(std::string_view text) {
    const size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

}  // namespace

const Token& TokenStream::Peek(size_t ahead) const {
    return tokens_[failed_ ? tokens_.size() - 1 : std::min(at_ + ahead, tokens_.size() - 1)];
}

bool TokenStream::Is(std::string_view text, size_t ahead) const {
    const Token& token = Peek(ahead);
    return (token.kind == Token::Kind::kName || token.kind == Token::Kind::kPunctuation) &&
           token.text == text;
}

bool TokenStream::Take(std::string_view text) {
    if (!Is(text)) return false;
    Next();
    return true;
}

void TokenStream::Expect(std::string_view text) {
    if (!Take(text)) FailExpected("'" + std::string(text) + "'");
}

Token TokenStream::Next() {
    const Token token = Peek();
    if (at_ + 1 < tokens_.size()) ++at_;
    return token;
}

Identifier TokenStream::ExpectName(const char* what) {
    if (Peek().kind != Token::Kind::kName) {
        FailExpected(what);
        return {};
    }
    const Token token = Next();
    return {std::string(token.text), token.span};
}

std::string TokenStream::ExpectDottedName(const char* what, Span* span) {
    Identifier part = ExpectName(what);
    *span = part.span;
    std::string name = std::move(part.text);
    while (Take(".")) {
        part = ExpectName("a name after '.'");
        name += "." + part.text;
        span->end = part.span.end;
    }
    return name;
}

void TokenStream::Fail(Span where, const std::string& text) {
    if (!failed_) diagnostics_->Error(where, text);
    failed_ = true;
}

void TokenStream::FailExpected(const std::string& what) {
    const Token& token = Peek();
    std::string found = "the end of the file";
    if (token.kind == Token::Kind::kString) {
        found = "\"" + std::string(token.text) + "\"";
    } else if (token.kind != Token::Kind::kEnd) {
        found = "'" + std::string(token.text) + "'";
    }
    Fail(token.span, "expected " + what + ", found " + found);
}

std::string CleanDoc(std::string_view comment) {
    if (comment.size() < 5) return {};
    comment = comment.substr(3, comment.size() - 5);
    std::string out;
    while (!comment.empty()) {
        const size_t end = std::min(comment.find('\n'), comment.size());
        std::string_view line = Trim(comment.substr(0, end));
        while (!line.empty() && line.front() == '*')
            line = Trim(line.substr(1));
        if (!out.empty() || !line.empty()) out.append(line).push_back('\n');
        comment.remove_prefix(std::min(end + 1, comment.size()));
    }
    while (!out.empty() && out.back() == '\n')
        out.pop_back();
    return out;
}

}  // namespace host::aidl
