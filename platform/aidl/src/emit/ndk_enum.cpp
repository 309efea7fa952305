#include <set>
#include <vector>

#include "ndk_names.h"
#include "ndk_types.h"

namespace host::aidl {
namespace {

std::string BackingName(Builtin backing) {
    switch (backing) {
        case Builtin::kByte:
            return "int8_t";
        case Builtin::kLong:
            return "int64_t";
        default:
            return "int32_t";
    }
}

std::string Literal(int64_t value) {
    return value == INT64_MIN ? "INT64_MIN" : std::to_string(value);
}

// An enum of the generated code: a declared one, or the tags of a union.
struct GeneratedEnum {
    const TypeDecl* type;
    std::string suffix;
    // Names with values; the first name of a value speaks for it.
    std::vector<std::pair<std::string, int64_t>> values;
};

GeneratedEnum Describe(const TypeDecl& type) {
    GeneratedEnum out{&type, "", {}};
    for (const Enumerator& enumerator : type.enumerators) {
        out.values.emplace_back(enumerator.name.text, enumerator.value);
    }
    if (type.kind != TypeDecl::Kind::kUnion) return out;
    out.suffix = "::Tag";
    int64_t tag = 0;
    for (const Variable& member : type.fields)
        out.values.emplace_back(member.name.text, tag++);
    return out;
}

void Collect(const TypeDecl& type, std::vector<GeneratedEnum>* out) {
    if (type.kind == TypeDecl::Kind::kEnum || type.kind == TypeDecl::Kind::kUnion) {
        out->push_back(Describe(type));
    }
    for (const auto& nested : type.nested)
        Collect(*nested, out);
}

std::vector<GeneratedEnum> EnumsOf(const TypeDecl& type) {
    std::vector<GeneratedEnum> out;
    Collect(type, &out);
    return out;
}

}  // namespace

void DeclareEnum(const TypeDecl& type, CodeWriter* out) {
    out->Doc(type.doc);
    out->Open("enum class " + type.name.text + " : " + BackingName(type.backing) + " {");
    for (const Enumerator& enumerator : type.enumerators) {
        out->Doc(enumerator.doc);
        out->Line(enumerator.name.text + " = " + Literal(enumerator.value) + ",");
    }
    out->Close("};");
}

bool HasEnums(const TypeDecl& type) {
    return !EnumsOf(type).empty();
}

void DeclareEnumToStrings(const TypeDecl& type, CodeWriter* out) {
    for (const GeneratedEnum& one : EnumsOf(type)) {
        out->Line("[[nodiscard]] std::string toString(" + LocalName(*one.type) + one.suffix +
                  " value);");
    }
}

void DefineEnumToString(const TypeDecl& type, CodeWriter* out) {
    const GeneratedEnum one = Describe(type);
    const std::string name = LocalName(type) + one.suffix;
    out->Open("std::string toString(" + name + " value) {");
    out->Open("switch (value) {");
    std::set<int64_t> seen;
    for (const auto& [text, value] : one.values) {
        if (!seen.insert(value).second) continue;
        out->Line("case " + name + "::" + text + ":");
        out->Line("    return \"" + text + "\";");
    }
    out->Close("}");
    const std::string backing =
            type.kind == TypeDecl::Kind::kUnion ? "int32_t" : BackingName(type.backing);
    out->Line("return std::to_string(static_cast<" + backing + ">(value));");
    out->Close("}");
    out->Blank();
}

void SpecializeEnumValues(const TypeDecl& type, CodeWriter* out) {
    out->Line("namespace ndk::internal {");
    out->Blank();
    for (const GeneratedEnum& one : EnumsOf(type)) {
        const std::string name = CppName(*one.type) + one.suffix;
        out->Line("template <>");
        out->Line("constexpr inline std::array<" + name + ", " + std::to_string(one.values.size()) +
                  "> enum_values<" + name + "> = {");
        for (const auto& [text, value] : one.values)
            out->Line("        " + name + "::" + text + ",");
        out->Line("};");
        out->Blank();
    }
    out->Line("}  // namespace ndk::internal");
}

}  // namespace host::aidl
