// Names that cannot be used because the generated code could not. Stateless.

#pragma once

#include <string>
#include <string_view>

#include "ast.h"

namespace host::aidl {

// Why a name cannot be declared, as "'x' is ..." would go on; empty if it can.
std::string RefuseName(std::string_view name);

// Is the name one that the generated class of this kind has itself?
bool IsTakenMember(TypeDecl::Kind kind, std::string_view name);

// "IFoo" is served by "BnFoo" and called through "BpFoo"; a name without the I gets the prefix.
std::string StubName(const TypeDecl& type);
std::string ProxyName(const TypeDecl& type);

}  // namespace host::aidl
