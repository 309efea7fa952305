// How types, values and files of a package are called in generated code. Stateless.

#pragma once

#include <string>
#include <vector>

#include "../ast.h"

namespace host::aidl {

// "aidl::a::b" for package a.b.
std::string Namespace(const Document& document);
// "Outer::Inner", as named from inside the namespace; and from everywhere, "::aidl::a::b::...".
std::string LocalName(const TypeDecl& type);
std::string CppName(const TypeDecl& type);
// The same for the function that prints an enum's values.
std::string CppToString(const TypeDecl& type);

// "aidl/a/b/Name.h" and "a/b/Name.cpp".
std::string HeaderPath(const Document& document, const std::string& name);
std::string SourcePath(const Document& document, const std::string& name);

// The type of a field, local or result.
std::string CppType(const TypeRef& type);
// The type of one element of an array type.
std::string CppElementType(const TypeRef& type);
// The parameter, its type and its name with the prefix of its direction.
std::string CppParameter(const Parameter& parameter);
std::string CppParameterName(const Parameter& parameter);
bool IsOut(const Parameter& parameter);
bool IsIn(const Parameter& parameter);
// "int32_t in_a, std::string* _aidl_return".
std::string CppParameters(const Method& method);

// The value as an expression of the type, "" for a list of none.
std::string CppValue(const Value& value, const TypeRef& type);
// What a field starts as, with " = " or braces; "" for types that start empty by themselves.
std::string CppInitializer(const Variable& field, bool vintf);

// "AParcel_writeData(parcel, value)" or its nullable form, and the same for reading.
std::string WriteCall(const TypeRef& type, const std::string& parcel, const std::string& value);
std::string ReadCall(const TypeRef& type, const std::string& parcel, const std::string& target);

}  // namespace host::aidl
