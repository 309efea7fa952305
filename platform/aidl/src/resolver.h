// Ties every name in a program to what it names. Not thread-safe.

#pragma once

#include <string>

#include "ast.h"
#include "program.h"

namespace host::aidl {

// Fills TypeRef::builtin and declared, TypeDecl::vintf and backing, in all documents, and loads
// those that are imported. Unknown and unsupported names and misused annotations are noted.
void Resolve(Program* program);

// The type that a dotted name means inside `scope`, or null: a type nested in the scope or around
// it, an imported one, one of the same package, a qualified name; in this order.
const TypeDecl* FindType(Program* program, const std::string& name, const TypeDecl& scope);

// The source word of a builtin type.
const char* BuiltinName(Builtin builtin);

}  // namespace host::aidl
