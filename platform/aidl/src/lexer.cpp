#include "lexer.h"

#include <array>
#include <cstddef>

#include "utf8.h"

namespace host::aidl {
namespace {

bool IsNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsNamePart(char c) {
    return IsNameStart(c) || IsDigit(c);
}

constexpr std::array<std::string_view, 8> kPairs = {"<<", ">>", "<=", ">=", "==", "!=", "&&", "||"};
constexpr std::string_view kSingles = "{}()[]<>;,.=@+-*/%&|^~!";

class Lexer {
  public:
    Lexer(std::string_view text, uint32_t file, Diagnostics* diagnostics)
            : text_(text), file_(file), diagnostics_(diagnostics) {}

    std::vector<Token> Run() {
        if (!CheckText()) return {};
        while (SkipBlanks() && at_ < text_.size()) {
            if (!Next()) return {};
        }
        if (at_ < text_.size()) return {};
        const auto end = static_cast<uint32_t>(at_);
        tokens_.push_back({Token::Kind::kEnd, {}, {file_, end, end}, doc_});
        return std::move(tokens_);
    }

  private:
    bool Fail(size_t begin, const char* message) {
        diagnostics_->Error({file_, static_cast<uint32_t>(begin), static_cast<uint32_t>(begin)},
                            message);
        return false;
    }

    bool CheckText() {
        size_t bad = 0;
        switch (CheckUtf8(text_, &bad)) {
            case Utf8Fault::kNone:
                return true;
            case Utf8Fault::kInvalid:
                return Fail(bad, "the file is not UTF-8 text");
            case Utf8Fault::kControl:
                return Fail(bad, "control characters are not allowed");
        }
        return false;
    }

    bool StartsWith(std::string_view what) const { return text_.substr(at_, what.size()) == what; }

    // False after an unterminated comment.
    bool SkipBlanks() {
        while (at_ < text_.size()) {
            const char c = text_[at_];
            if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
                ++at_;
            } else if (StartsWith("//")) {
                at_ = std::min(text_.find('\n', at_), text_.size());
            } else if (StartsWith("/*")) {
                if (!SkipComment()) return false;
            } else {
                break;
            }
        }
        return true;
    }

    bool SkipComment() {
        const size_t end = text_.find("*/", at_ + 2);
        if (end == std::string_view::npos) return Fail(at_, "this comment does not end");
        const std::string_view comment = text_.substr(at_, end + 2 - at_);
        if (comment.size() > 4 && comment[2] == '*') doc_ = comment;
        at_ = end + 2;
        return true;
    }

    bool Next() {
        const char c = text_[at_];
        if (IsNameStart(c)) {
            size_t end = at_;
            while (end < text_.size() && IsNamePart(text_[end]))
                ++end;
            return Push(Token::Kind::kName, end);
        }
        if (IsDigit(c)) return Push(Token::Kind::kNumber, NumberEnd());
        if (c == '"') return Quoted(Token::Kind::kString, '"', "this string does not end");
        if (c == '\'') return Quoted(Token::Kind::kChar, '\'', "this character does not end");
        for (std::string_view pair : kPairs) {
            if (StartsWith(pair)) return Push(Token::Kind::kPunctuation, at_ + 2);
        }
        if (kSingles.find(c) != std::string_view::npos) {
            return Push(Token::Kind::kPunctuation, at_ + 1);
        }
        return Fail(at_, "unexpected character");
    }

    size_t NumberEnd() const {
        const bool hex = StartsWith("0x") || StartsWith("0X");
        size_t end = at_;
        while (end < text_.size()) {
            const char c = text_[end];
            const bool sign = (c == '+' || c == '-') && !hex && (text_[end - 1] | 0x20) == 'e';
            if (!IsNamePart(c) && c != '.' && !sign) break;
            ++end;
        }
        return end;
    }

    bool Quoted(Token::Kind kind, char quote, const char* unterminated) {
        size_t end = at_ + 1;
        while (end < text_.size() && text_[end] != quote && text_[end] != '\n') {
            const auto byte = static_cast<unsigned char>(text_[end]);
            if (text_[end] == '\\') return Fail(end, "escape sequences are not supported");
            if (byte < 0x20 || byte > 0x7e) return Fail(end, "constants are printable ASCII only");
            ++end;
        }
        if (end >= text_.size() || text_[end] != quote) return Fail(at_, unterminated);
        Push(kind, end + 1);
        Token& token = tokens_.back();
        token.text = token.text.substr(1, token.text.size() - 2);
        return true;
    }

    bool Push(Token::Kind kind, size_t end) {
        tokens_.push_back({kind,
                           text_.substr(at_, end - at_),
                           {file_, static_cast<uint32_t>(at_), static_cast<uint32_t>(end)},
                           doc_});
        doc_ = {};
        at_ = end;
        return true;
    }

    const std::string_view text_;
    const uint32_t file_;
    Diagnostics* const diagnostics_;
    size_t at_ = 0;
    std::string_view doc_;
    std::vector<Token> tokens_;
};

}  // namespace

std::vector<Token> Tokenize(const SourceSet& sources, uint32_t file, Diagnostics* diagnostics) {
    return Lexer(sources.Text(file), file, diagnostics).Run();
}

}  // namespace host::aidl
