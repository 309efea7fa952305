// Construction, comparison and printing, which depend on what the fields allow.

#include <set>

#include "ndk_names.h"
#include "ndk_types.h"

namespace host::aidl {
namespace {

// `seen` holds the types that need no second look: one that is not comparable ends the search.
bool IsComparable(const TypeDecl& type, std::set<const TypeDecl*>* seen) {
    if (type.kind == TypeDecl::Kind::kInterface || type.kind == TypeDecl::Kind::kEnum) return true;
    if (!seen->insert(&type).second) return true;
    for (const Variable& field : type.fields) {
        if (field.type.builtin == Builtin::kParcelableHolder) return false;
        if (field.type.declared != nullptr && !IsComparable(*field.type.declared, seen)) {
            return false;
        }
    }
    return true;
}

void PrintSingle(const TypeRef& type, const std::string& value, CodeWriter* out) {
    const auto print = [out](const std::string& text) { out->Line("_aidl_os << " + text + ";"); };
    const std::string present = "(" + value + " == nullptr ? \"null\" : \"";
    switch (type.builtin) {
        case Builtin::kBoolean:
            return print("(" + value + " ? \"true\" : \"false\")");
        case Builtin::kByte:
        case Builtin::kChar:
            return print("static_cast<int>(" + value + ")");
        case Builtin::kBinder:
            return print("(" + value + ".get() == nullptr ? \"null\" : \"(binder)\")");
        case Builtin::kParcelableHolder:
            return print("\"(holder)\"");
        case Builtin::kNone:
            break;
        default:
            return print(value);
    }
    switch (type.declared->kind) {
        case TypeDecl::Kind::kInterface:
            return print(present + "(" + type.declared->name.text + ")\")");
        case TypeDecl::Kind::kEnum:
            return print(CppToString(*type.declared) + "(" + value + ")");
        default:
            return print(value + ".toString()");
    }
}

// A value that may be absent: an optional.
void PrintPresent(bool optional, const TypeRef& type, const std::string& value, CodeWriter* out) {
    if (!optional) return PrintSingle(type, value, out);
    out->Open("if (" + value + ".has_value()) {");
    PrintSingle(type, "(*" + value + ")", out);
    out->Close("} else {");
    out->Line("    _aidl_os << \"null\";");
    out->Line("}");
}

void PrintArray(const TypeRef& type, const std::string& value, CodeWriter* out) {
    const bool optional = CppElementType(type).rfind("std::optional<", 0) == 0;
    out->Line("_aidl_os << \"[\";");
    out->Open("for (size_t _aidl_i = 0; _aidl_i < " + value + ".size(); ++_aidl_i) {");
    out->Line("if (_aidl_i > 0) _aidl_os << \", \";");
    PrintPresent(optional, type, value + "[_aidl_i]", out);
    out->Close("}");
    out->Line("_aidl_os << \"]\";");
}

}  // namespace

void PrintValue(const TypeRef& type, const std::string& value, CodeWriter* out) {
    const bool optional = CppType(type).rfind("std::optional<", 0) == 0;
    if (!type.array) return PrintPresent(optional, type, value, out);
    if (!optional) return PrintArray(type, value, out);
    out->Open("if (" + value + ".has_value()) {");
    PrintArray(type, "(*" + value + ")", out);
    out->Close("} else {");
    out->Line("    _aidl_os << \"null\";");
    out->Line("}");
}

void DeclareConstructor(const TypeDecl& type, CodeWriter* out) {
    if (type.outer != nullptr) out->Line(type.name.text + "();");
}

void DefineConstructor(const TypeDecl& type, CodeWriter* out) {
    if (type.outer == nullptr) return;
    out->Line(LocalName(type) + "::" + type.name.text + "() = default;");
}

void DeclareComparison(const TypeDecl& type, const std::string& tied, CodeWriter* out) {
    std::set<const TypeDecl*> seen;
    if (!IsComparable(type, &seen)) return;
    const bool empty = type.fields.empty();
    out->Blank();
    if (!empty) {
        out->Access("private:");
        out->Line("auto _aidl_tie() const { return " + tied + "; }");
        out->Blank();
        out->Access("public:");
    }
    const char* rhs = empty ? "" : " _aidl_rhs";
    for (const char* op : {"==", "!=", "<", "<=", ">", ">="}) {
        const bool holds = std::string(op).find('=') != std::string::npos && op[0] != '!';
        const std::string result =
                empty ? (holds ? "true" : "false")
                      : "_aidl_tie() " + std::string(op) + " _aidl_rhs._aidl_tie()";
        out->Line(std::string("bool operator") + op + "(const " + type.name.text + "&" + rhs +
                  ") const { return " + result + "; }");
    }
}

}  // namespace host::aidl
