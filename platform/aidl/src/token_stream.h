// A position in a list of tokens and what parsers ask there. Not thread-safe.

#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ast.h"
#include "diagnostics.h"
#include "lexer.h"

namespace host::aidl {

// After the first error every question is answered as at the end of the file, so that a parser
// unwinds without further messages.
class TokenStream {
  public:
    // The last token is kEnd.
    TokenStream(std::vector<Token> tokens, Diagnostics* diagnostics)
            : tokens_(std::move(tokens)), diagnostics_(diagnostics) {}

    const Token& Peek(size_t ahead = 0) const;
    bool failed() const { return failed_; }
    bool AtEnd() const { return Peek().kind == Token::Kind::kEnd; }

    // Is the next token this word or punctuation; Take also steps over it.
    bool Is(std::string_view text, size_t ahead = 0) const;
    bool Take(std::string_view text);
    // Notes "expected ..." if it is something else.
    void Expect(std::string_view text);
    Token Next();

    Identifier ExpectName(const char* what);
    // a.b.c, without blanks in the result. *span covers all of it.
    std::string ExpectDottedName(const char* what, Span* span);

    void Fail(Span where, const std::string& text);
    void FailExpected(const std::string& what);

  private:
    std::vector<Token> tokens_;
    Diagnostics* const diagnostics_;
    size_t at_ = 0;
    bool failed_ = false;
};

// A documentation comment without its marks: lines joined by '\n', no blanks at their ends.
std::string CleanDoc(std::string_view comment);

}  // namespace host::aidl
