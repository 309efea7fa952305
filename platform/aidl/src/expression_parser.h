// Constant expressions. Stateless.

#pragma once

#include <memory>

#include "ast.h"
#include "token_stream.h"

namespace host::aidl {

// Null exactly if the stream has failed.
std::unique_ptr<Expr> ParseExpression(TokenStream* tokens);

}  // namespace host::aidl
