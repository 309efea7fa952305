// The pieces of generated code, one per kind of type. Stateless.

#pragma once

#include <string>

#include "../ast.h"
#include "code_writer.h"
#include "ndk_emitter.h"

namespace host::aidl {

// The declaration of the type with all types nested in it, inside its namespace or outer class.
void DeclareType(const TypeDecl& type, const EmitOptions& options, CodeWriter* out);
void DeclareInterface(const TypeDecl& type, const EmitOptions& options, CodeWriter* out);
void DeclareParcelable(const TypeDecl& type, const EmitOptions& options, CodeWriter* out);
void DeclareUnion(const TypeDecl& type, const EmitOptions& options, CodeWriter* out);
void DeclareEnum(const TypeDecl& type, CodeWriter* out);

// Constants and nested types, which stand first in each class.
void DeclareNested(const TypeDecl& type, const EmitOptions& options, CodeWriter* out);

// toString of enums and of the tags of unions, in the namespace, for the type and all in it.
void DeclareEnumToStrings(const TypeDecl& type, CodeWriter* out);
void DefineEnumToString(const TypeDecl& type, CodeWriter* out);
// ndk::enum_range of the same.
void SpecializeEnumValues(const TypeDecl& type, CodeWriter* out);
bool HasEnums(const TypeDecl& type);

// What the source file holds for the type and all types nested in it, inside the namespace.
void DefineType(const TypeDecl& type, const EmitOptions& options, CodeWriter* out);
void DefineParcelable(const TypeDecl& type, CodeWriter* out);
void DefineUnion(const TypeDecl& type, CodeWriter* out);
void DefineProxy(const TypeDecl& type, CodeWriter* out);
void DefineStub(const TypeDecl& type, const EmitOptions& options, CodeWriter* out);

// The classes of BnX.h and BpX.h.
void DeclareStub(const TypeDecl& type, CodeWriter* out);
void DeclareProxy(const TypeDecl& type, CodeWriter* out);

// The default constructor of a parcelable or union, if it needs to be written. Inside the class
// around it, a nested class with initializers does not count as default-constructible unless it is;
// others stay aggregates.
void DeclareConstructor(const TypeDecl& type, CodeWriter* out);
void DefineConstructor(const TypeDecl& type, CodeWriter* out);

// Comparison of parcelables and unions: operators over `tied`, an expression for all the fields.
void DeclareComparison(const TypeDecl& type, const std::string& tied, CodeWriter* out);
// Statements that write a value of the type to the stream _aidl_os.
void PrintValue(const TypeRef& type, const std::string& value, CodeWriter* out);

// `if (status != STATUS_OK) return status;` for what a statement put into _aidl_status.
void ReturnIfFailed(CodeWriter* out);

// The two questions that every interface answers, seen as methods.
Method Question(const std::string& name, Builtin result);
// Their codes, after all that methods can have.
inline constexpr int kVersionCode = 16777214;
inline constexpr int kHashCode = 16777213;

}  // namespace host::aidl
