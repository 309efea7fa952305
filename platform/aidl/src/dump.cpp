#include "dump.h"

#include <cstdio>

#include "emit/code_writer.h"
#include "resolver.h"

namespace host::aidl {
namespace {

std::string DumpRef(const TypeRef& type) {
    std::string out = type.nullable ? "@nullable " : "";
    out += type.declared != nullptr ? QualifiedName(*type.declared) : BuiltinName(type.builtin);
    return out + (type.array ? "[]" : "");
}

std::string DumpReal(double value, Builtin type) {
    char text[64];
    std::snprintf(text, sizeof text, type == Builtin::kFloat ? "%.9g" : "%.17g", value);
    std::string out = text;
    if (out.find_first_of(".e") == std::string::npos) out += ".0";
    return out;
}

// The smallest 64-bit value has no literal: a literal has no sign.
std::string DumpWhole(int64_t value) {
    return value == INT64_MIN ? "-9223372036854775807 - 1" : std::to_string(value);
}

std::string DumpValue(const Value& value, const TypeRef& type) {
    if (value.list.has_value()) {
        std::string out;
        for (const Value& element : *value.list) {
            out += (out.empty() ? "" : ", ") + DumpValue(element, type);
        }
        return "{" + out + "}";
    }
    if (const auto* truth = std::get_if<bool>(&value.one)) return *truth ? "true" : "false";
    if (const auto* whole = std::get_if<int64_t>(&value.one)) return DumpWhole(*whole);
    if (const auto* real = std::get_if<double>(&value.one)) return DumpReal(*real, type.builtin);
    if (const auto* text = std::get_if<std::string>(&value.one)) return "\"" + *text + "\"";
    if (const auto* letter = std::get_if<char16_t>(&value.one)) {
        return std::string("'") + static_cast<char>(*letter) + "'";
    }
    const auto& named = std::get<EnumeratorValue>(value.one);
    return QualifiedName(*named.type) + "." + named.enumerator->name.text;
}

void DumpVariable(const char* prefix, const Variable& variable, CodeWriter* out) {
    std::string line = prefix + DumpRef(variable.type) + " " + variable.name.text;
    if (variable.expression != nullptr) line += " = " + DumpValue(variable.value, variable.type);
    out->Line(line + ";");
}

std::string DumpParameter(const Parameter& parameter) {
    const char* direction = "in ";
    if (parameter.direction == Parameter::Direction::kOut) direction = "out ";
    if (parameter.direction == Parameter::Direction::kInOut) direction = "inout ";
    return direction + DumpRef(parameter.type) + " " + parameter.name.text;
}

void DumpMethod(const Method& method, CodeWriter* out) {
    std::string parameters;
    for (const Parameter& parameter : method.parameters) {
        parameters += (parameters.empty() ? "" : ", ") + DumpParameter(parameter);
    }
    out->Line((method.oneway ? "oneway " : "") + DumpRef(method.result) + " " + method.name.text +
              "(" + parameters + ");");
}

void DumpType(const TypeDecl& type, CodeWriter* out) {
    std::string head;
    // A nested type takes its stability from the one around it.
    if (type.vintf && (type.outer == nullptr || !type.outer->vintf)) head += "@VintfStability ";
    if (type.kind == TypeDecl::Kind::kEnum) {
        head += std::string("@Backing(type=\"") + BuiltinName(type.backing) + "\") ";
    }
    out->Open(head + KindName(type.kind) + " " + type.name.text + " {");
    for (const auto& nested : type.nested)
        DumpType(*nested, out);
    for (const Variable& constant : type.constants)
        DumpVariable("const ", constant, out);
    for (const Variable& field : type.fields)
        DumpVariable("", field, out);
    for (const Method& method : type.methods)
        DumpMethod(method, out);
    for (const Enumerator& enumerator : type.enumerators) {
        out->Line(enumerator.name.text + " = " + DumpWhole(enumerator.value) + ",");
    }
    out->Close("}");
}

}  // namespace

std::string Dump(const Document& document) {
    CodeWriter out;
    out.Line("package " + document.package + ";");
    DumpType(*document.type, &out);
    return out.Take();
}

}  // namespace host::aidl
