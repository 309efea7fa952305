#include "ndk_names.h"
#include "ndk_types.h"

namespace host::aidl {
namespace {

void DeclareTag(const TypeDecl& type, CodeWriter* out) {
    out->Open("enum class Tag : int32_t {");
    int value = 0;
    for (const Variable& member : type.fields) {
        out->Doc(member.doc);
        out->Line(member.name.text + " = " + std::to_string(value++) + ",");
    }
    out->Close("};");
    out->Blank();
}

void DeclareMake(const std::string& name, CodeWriter* out) {
    out->Line("template <Tag _aidl_tag, typename... _aidl_Args>");
    out->Open("static " + name + " make(_aidl_Args&&... _aidl_args) {");
    out->Line(name + " _aidl_union;");
    out->Line("_aidl_union.template set<_aidl_tag>(std::forward<_aidl_Args>(_aidl_args)...);");
    out->Line("return _aidl_union;");
    out->Close("}");
    out->Line("template <Tag _aidl_tag, typename _aidl_Element>");
    out->Open("static " + name + " make(std::initializer_list<_aidl_Element> _aidl_list) {");
    out->Line(name + " _aidl_union;");
    out->Line(
            "_aidl_union._aidl_value.template emplace<static_cast<size_t>(_aidl_tag)>("
            "_aidl_list);");
    out->Line("return _aidl_union;");
    out->Close("}");
}

void DeclareAccess(CodeWriter* out) {
    out->Line("Tag getTag() const { return static_cast<Tag>(_aidl_value.index()); }");
    out->Line("// Ends the process if another member is held.");
    for (const char* qualifier : {" const", ""}) {
        const std::string result = qualifier[0] == '\0' ? "auto&" : "const auto&";
        out->Line("template <Tag _aidl_tag>");
        out->Open(result + " get()" + qualifier + " {");
        out->Line(
                "auto* _aidl_held = "
                "std::get_if<static_cast<size_t>(_aidl_tag)>(&_aidl_value);");
        out->Line("if (_aidl_held == nullptr) _aidl_wrong_tag();");
        out->Line("return *_aidl_held;");
        out->Close("}");
    }
    out->Line("template <Tag _aidl_tag, typename... _aidl_Args>");
    out->Open("void set(_aidl_Args&&... _aidl_args) {");
    out->Line(
            "_aidl_value.template emplace<static_cast<size_t>(_aidl_tag)>("
            "std::forward<_aidl_Args>(_aidl_args)...);");
    out->Close("}");
}

std::string VariantType(const TypeDecl& type) {
    std::string out;
    for (const Variable& member : type.fields) {
        out += (out.empty() ? "" : ", ") + CppType(member.type);
    }
    return "std::variant<" + out + ">";
}

// The first member with what it starts as.
std::string InitialValue(const TypeDecl& type) {
    const Variable& first = type.fields.front();
    const std::string initializer = CppInitializer(first, type.vintf);
    if (initializer.empty()) return "";
    const std::string value = initializer.substr(3);
    const bool list = value.front() == '{';
    return "{std::in_place_index<0>, " + (list ? CppType(first.type) + value : value) + "}";
}

void DefineWrite(const TypeDecl& type, CodeWriter* out) {
    out->Open("binder_status_t " + LocalName(type) +
              "::writeToParcel(AParcel* _aidl_parcel) const {");
    out->Line(
            "const binder_status_t _aidl_status = "
            "AParcel_writeInt32(_aidl_parcel, static_cast<int32_t>(getTag()));");
    ReturnIfFailed(out);
    out->Open("switch (getTag()) {");
    for (const Variable& member : type.fields) {
        const std::string tag = "Tag::" + member.name.text;
        out->Line("case " + tag + ":");
        out->Line("    return " + WriteCall(member.type, "_aidl_parcel", "get<" + tag + ">()") +
                  ";");
    }
    out->Close("}");
    out->Line("return STATUS_BAD_VALUE;");
    out->Close("}");
    out->Blank();
}

void DefineRead(const TypeDecl& type, CodeWriter* out) {
    out->Open("binder_status_t " + LocalName(type) +
              "::readFromParcel(const AParcel* _aidl_parcel) {");
    out->Line("int32_t _aidl_tag = 0;");
    out->Line("const binder_status_t _aidl_status = AParcel_readInt32(_aidl_parcel, &_aidl_tag);");
    ReturnIfFailed(out);
    out->Open("switch (static_cast<Tag>(_aidl_tag)) {");
    for (const Variable& member : type.fields) {
        const std::string tag = "Tag::" + member.name.text;
        out->Line("case " + tag + ":");
        out->Line("    set<" + tag + ">();");
        out->Line("    return " + ReadCall(member.type, "_aidl_parcel", "&get<" + tag + ">()") +
                  ";");
    }
    out->Close("}");
    out->Line("return STATUS_BAD_VALUE;");
    out->Close("}");
    out->Blank();
}

void DefineToString(const TypeDecl& type, CodeWriter* out) {
    out->Open("std::string " + LocalName(type) + "::toString() const {");
    out->Line("std::ostringstream _aidl_os;");
    out->Line("_aidl_os << \"" + type.name.text + "{\";");
    out->Open("switch (getTag()) {");
    for (const Variable& member : type.fields) {
        const std::string tag = "Tag::" + member.name.text;
        out->Open("case " + tag + ":");
        out->Line("_aidl_os << \"" + member.name.text + ": \";");
        PrintValue(member.type, "get<" + tag + ">()", out);
        out->Line("break;");
        out->Close("");
    }
    out->Close("}");
    out->Line("_aidl_os << \"}\";");
    out->Line("return _aidl_os.str();");
    out->Close("}");
    out->Blank();
}

}  // namespace

void DeclareUnion(const TypeDecl& type, const EmitOptions& options, CodeWriter* out) {
    const std::string& name = type.name.text;
    out->Doc(type.doc);
    out->Open("class " + name + " {");
    out->Access("public:");
    out->Line("using fixed_size = std::false_type;");
    out->Line("static const char* descriptor;");
    out->Line(std::string("static constexpr ::ndk::parcel_stability_t ") +
              "_aidl_parcelable_stability = " +
              (type.vintf ? "::ndk::STABILITY_VINTF;" : "::ndk::STABILITY_LOCAL;"));
    out->Blank();
    DeclareTag(type, out);
    DeclareNested(type, options, out);
    DeclareMake(name, out);
    DeclareAccess(out);
    out->Blank();
    DeclareConstructor(type, out);
    out->Line("binder_status_t readFromParcel(const AParcel* _aidl_parcel);");
    out->Line("binder_status_t writeToParcel(AParcel* _aidl_parcel) const;");
    out->Line("std::string toString() const;");
    DeclareComparison(type, "std::tie(_aidl_value)", out);
    out->Blank();
    out->Access("private:");
    out->Line("[[noreturn]] static void _aidl_wrong_tag();");
    out->Blank();
    out->Line(VariantType(type) + " _aidl_value" + InitialValue(type) + ";");
    out->Close("};");
}

void DefineUnion(const TypeDecl& type, CodeWriter* out) {
    out->Line("const char* " + LocalName(type) + "::descriptor = \"" + QualifiedName(type) + "\";");
    DefineConstructor(type, out);
    out->Blank();
    out->Open("void " + LocalName(type) + "::_aidl_wrong_tag() {");
    out->Line(
            "__android_log_print(ANDROID_LOG_FATAL, \"aidl\", \"%s\", "
            "\"bad access: a wrong tag\");");
    out->Line("std::abort();");
    out->Close("}");
    out->Blank();
    DefineRead(type, out);
    DefineWrite(type, out);
    DefineToString(type, out);
}

}  // namespace host::aidl
