#include "ndk_names.h"

#include <cstdio>
#include <string_view>

namespace host::aidl {
namespace {

std::string Replace(const std::string& text, char what, std::string_view with) {
    std::string out;
    for (char c : text) {
        if (c == what) {
            out += with;
        } else {
            out += c;
        }
    }
    return out;
}

bool IsInterface(const TypeRef& type) {
    return type.declared != nullptr && type.declared->kind == TypeDecl::Kind::kInterface;
}

// Do values of the type say themselves whether they are there?
bool IsPointer(const TypeRef& type) {
    return type.builtin == Builtin::kBinder || IsInterface(type);
}

bool IsParcelable(const TypeRef& type) {
    return type.declared != nullptr && (type.declared->kind == TypeDecl::Kind::kParcelable ||
                                        type.declared->kind == TypeDecl::Kind::kUnion);
}

const char* BuiltinCppName(Builtin builtin) {
    switch (builtin) {
        case Builtin::kBoolean:
            return "bool";
        case Builtin::kByte:
            return "int8_t";
        case Builtin::kChar:
            return "char16_t";
        case Builtin::kInt:
            return "int32_t";
        case Builtin::kLong:
            return "int64_t";
        case Builtin::kFloat:
            return "float";
        case Builtin::kDouble:
            return "double";
        case Builtin::kString:
            return "std::string";
        case Builtin::kBinder:
            return "::ndk::SpAIBinder";
        case Builtin::kParcelableHolder:
            return "::ndk::AParcelableHolder";
        case Builtin::kVoid:
        case Builtin::kNone:
            break;
    }
    return "void";
}

std::string SingleType(const TypeRef& type) {
    if (type.declared == nullptr) return BuiltinCppName(type.builtin);
    const std::string name = CppName(*type.declared);
    return IsInterface(type) ? "std::shared_ptr<" + name + ">" : name;
}

std::string Optional(const std::string& type) {
    return "std::optional<" + type + ">";
}

std::string Quote(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        // A question mark could begin a trigraph.
        if (c == '"' || c == '\\' || c == '?') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string CharLiteral(char16_t c) {
    const char plain = static_cast<char>(c);
    const bool escape = plain == '\'' || plain == '\\';
    return std::string(escape ? "u'\\" : "u'") + plain + "'";
}

std::string IntegerLiteral(int64_t value, Builtin type) {
    if (type != Builtin::kLong) return std::to_string(value);
    // The smallest value is no literal: a literal has no sign.
    if (value == INT64_MIN) return "INT64_MIN";
    return "INT64_C(" + std::to_string(value) + ")";
}

std::string RealLiteral(double value, bool is_float) {
    char text[64];
    // The shortest form that gives the same value again.
    for (int digits = 1; digits <= 17; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, value);
        double again = 0;
        std::sscanf(text, "%lf", &again);
        if (is_float ? static_cast<float>(again) == static_cast<float>(value) : again == value) {
            break;
        }
    }
    std::string out = text;
    if (out.find_first_of(".e") == std::string::npos) out += ".0";
    return is_float ? out + "f" : out;
}

}  // namespace

std::string Namespace(const Document& document) {
    return "aidl::" + Replace(document.package, '.', "::");
}

std::string LocalName(const TypeDecl& type) {
    return Replace(NestedName(type), '.', "::");
}

std::string CppName(const TypeDecl& type) {
    return "::" + Namespace(*type.document) + "::" + LocalName(type);
}

std::string CppToString(const TypeDecl& type) {
    return "::" + Namespace(*type.document) + "::toString";
}

std::string HeaderPath(const Document& document, const std::string& name) {
    return "aidl/" + Replace(document.package, '.', "/") + "/" + name + ".h";
}

std::string SourcePath(const Document& document, const std::string& name) {
    return Replace(document.package, '.', "/") + "/" + name + ".cpp";
}

std::string CppElementType(const TypeRef& type) {
    if (type.builtin == Builtin::kByte) return "uint8_t";
    const std::string single = SingleType(type);
    const bool may_be_null =
            type.nullable && (type.builtin == Builtin::kString || IsParcelable(type));
    return may_be_null ? Optional(single) : single;
}

std::string CppType(const TypeRef& type) {
    if (type.array) {
        const std::string vector = "std::vector<" + CppElementType(type) + ">";
        return type.nullable ? Optional(vector) : vector;
    }
    const std::string single = SingleType(type);
    return type.nullable && !IsPointer(type) ? Optional(single) : single;
}

bool IsOut(const Parameter& parameter) {
    return parameter.direction == Parameter::Direction::kOut ||
           parameter.direction == Parameter::Direction::kInOut;
}

bool IsIn(const Parameter& parameter) {
    return parameter.direction != Parameter::Direction::kOut;
}

std::string CppParameterName(const Parameter& parameter) {
    switch (parameter.direction) {
        case Parameter::Direction::kOut:
            return "out_" + parameter.name.text;
        case Parameter::Direction::kInOut:
            return "inout_" + parameter.name.text;
        default:
            return "in_" + parameter.name.text;
    }
}

std::string CppParameter(const Parameter& parameter) {
    const std::string type = CppType(parameter.type);
    const std::string name = CppParameterName(parameter);
    if (IsOut(parameter)) return type + "* " + name;
    const bool is_enum = parameter.type.declared != nullptr &&
                         parameter.type.declared->kind == TypeDecl::Kind::kEnum;
    const bool scalar = is_enum || (parameter.type.declared == nullptr &&
                                    parameter.type.builtin >= Builtin::kBoolean &&
                                    parameter.type.builtin <= Builtin::kDouble);
    return scalar && !parameter.type.array ? type + " " + name : "const " + type + "& " + name;
}

std::string CppParameters(const Method& method) {
    std::string out;
    for (const Parameter& parameter : method.parameters) {
        out += (out.empty() ? "" : ", ") + CppParameter(parameter);
    }
    if (method.result.builtin != Builtin::kVoid) {
        out += (out.empty() ? "" : ", ") + CppType(method.result) + "* _aidl_return";
    }
    return out;
}

std::string CppValue(const Value& value, const TypeRef& type) {
    if (value.list.has_value()) {
        std::string out;
        for (const Value& element : *value.list) {
            if (!out.empty()) out += ", ";
            const bool unsigned_byte = type.builtin == Builtin::kByte;
            if (unsigned_byte) out += "static_cast<uint8_t>(";
            out += CppValue(element, type);
            if (unsigned_byte) out += ")";
        }
        return out;
    }
    if (const auto* truth = std::get_if<bool>(&value.one)) return *truth ? "true" : "false";
    if (const auto* text = std::get_if<std::string>(&value.one)) return Quote(*text);
    if (const auto* letter = std::get_if<char16_t>(&value.one)) return CharLiteral(*letter);
    if (const auto* whole = std::get_if<int64_t>(&value.one)) {
        return IntegerLiteral(*whole, type.builtin);
    }
    if (const auto* real = std::get_if<double>(&value.one)) {
        return RealLiteral(*real, type.builtin == Builtin::kFloat);
    }
    const auto& named = std::get<EnumeratorValue>(value.one);
    return CppName(*named.type) + "::" + named.enumerator->name.text;
}

std::string CppInitializer(const Variable& field, bool vintf) {
    const TypeRef& type = field.type;
    if (type.nullable) return "";
    if (field.expression != nullptr) {
        const std::string value = CppValue(field.value, type);
        return type.array ? " = {" + value + "}" : " = " + value;
    }
    if (type.array || IsPointer(type) || IsParcelable(type)) return "";
    if (type.declared != nullptr) return " = static_cast<" + CppName(*type.declared) + ">(0)";
    switch (type.builtin) {
        case Builtin::kBoolean:
            return " = false";
        case Builtin::kString:
            return "";
        case Builtin::kFloat:
            return " = 0.0f";
        case Builtin::kDouble:
            return " = 0.0";
        case Builtin::kParcelableHolder:
            return vintf ? "{::ndk::STABILITY_VINTF}" : "{::ndk::STABILITY_LOCAL}";
        default:
            return " = 0";
    }
}

std::string WriteCall(const TypeRef& type, const std::string& parcel, const std::string& value) {
    return std::string("::ndk::AParcel_write") + (type.nullable ? "Nullable" : "") + "Data(" +
           parcel + ", " + value + ")";
}

std::string ReadCall(const TypeRef& type, const std::string& parcel, const std::string& target) {
    return std::string("::ndk::AParcel_read") + (type.nullable ? "Nullable" : "") + "Data(" +
           parcel + ", " + target + ")";
}

}  // namespace host::aidl
