// Bytes to tokens. Stateless.

#pragma once

#include <string_view>
#include <vector>

#include "diagnostics.h"
#include "source.h"

namespace host::aidl {

struct Token {
    enum class Kind { kName, kNumber, kString, kChar, kPunctuation, kEnd };
    Kind kind = Kind::kEnd;
    // As written; a string or character constant without its quotes. Points into the source.
    std::string_view text;
    Span span;
    // The documentation comment right before the token, `/**` and `*/` included; or empty.
    std::string_view doc;
};

// The tokens of a file, the last one kEnd. On the first byte that belongs to no token the error is
// noted and the list is empty. Refuses text that is not UTF-8 and characters that
// would make source or generated code read differently from what it says.
std::vector<Token> Tokenize(const SourceSet& sources, uint32_t file, Diagnostics* diagnostics);

}  // namespace host::aidl
