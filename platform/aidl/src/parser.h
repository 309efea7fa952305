// Tokens to a syntax tree. Stateless.

#pragma once

#include <memory>

#include "ast.h"
#include "diagnostics.h"
#include "source.h"

namespace host::aidl {

// How deep types may be nested in types and operands in parentheses or signs, and how many
// operators with two sides one expression may have: together the bound of every recursion over a
// tree.
inline constexpr int kMaxTypeDepth = 8;
inline constexpr int kMaxExpressionDepth = 64;
inline constexpr int kMaxOperators = 256;

// The tree of one file, nothing resolved. Null after the first syntax error, which is noted.
std::unique_ptr<Document> Parse(const SourceSet& sources, uint32_t file, Diagnostics* diagnostics);

}  // namespace host::aidl
