#include "ndk_names.h"
#include "ndk_types.h"

namespace host::aidl {
namespace {

std::string Tied(const TypeDecl& type) {
    std::string out;
    for (const Variable& field : type.fields) {
        out += (out.empty() ? "" : ", ") + field.name.text;
    }
    return "std::tie(" + out + ")";
}

void DefineWrite(const TypeDecl& type, CodeWriter* out) {
    out->Open("binder_status_t " + LocalName(type) +
              "::writeToParcel(AParcel* _aidl_parcel) const {");
    out->Line("const int32_t _aidl_start = AParcel_getDataPosition(_aidl_parcel);");
    out->Line("binder_status_t _aidl_status = AParcel_writeInt32(_aidl_parcel, 0);");
    ReturnIfFailed(out);
    for (const Variable& field : type.fields) {
        out->Line("_aidl_status = " + WriteCall(field.type, "_aidl_parcel", field.name.text) + ";");
        ReturnIfFailed(out);
    }
    out->Line("const int32_t _aidl_end = AParcel_getDataPosition(_aidl_parcel);");
    out->Line("_aidl_status = AParcel_setDataPosition(_aidl_parcel, _aidl_start);");
    ReturnIfFailed(out);
    out->Line("_aidl_status = AParcel_writeInt32(_aidl_parcel, _aidl_end - _aidl_start);");
    ReturnIfFailed(out);
    out->Line("return AParcel_setDataPosition(_aidl_parcel, _aidl_end);");
    out->Close("}");
    out->Blank();
}

void DefineRead(const TypeDecl& type, CodeWriter* out) {
    out->Open("binder_status_t " + LocalName(type) +
              "::readFromParcel(const AParcel* _aidl_parcel) {");
    out->Line("const int32_t _aidl_start = AParcel_getDataPosition(_aidl_parcel);");
    out->Line("int32_t _aidl_size = 0;");
    out->Line("binder_status_t _aidl_status = AParcel_readInt32(_aidl_parcel, &_aidl_size);");
    ReturnIfFailed(out);
    out->Open(
            "if (_aidl_size < 4 || _aidl_size > AParcel_getDataSize(_aidl_parcel) - _aidl_start) "
            "{");
    out->Line("return STATUS_BAD_VALUE;");
    out->Close("}");
    out->Line("// An older version may have sent fewer fields, a newer one more.");
    out->Line("const int32_t _aidl_end = _aidl_start + _aidl_size;");
    for (const Variable& field : type.fields) {
        out->Open("if (AParcel_getDataPosition(_aidl_parcel) < _aidl_end) {");
        out->Line("_aidl_status = " + ReadCall(field.type, "_aidl_parcel", "&" + field.name.text) +
                  ";");
        ReturnIfFailed(out);
        out->Close("}");
    }
    out->Line("if (AParcel_getDataPosition(_aidl_parcel) > _aidl_end) return STATUS_BAD_VALUE;");
    out->Line("return AParcel_setDataPosition(_aidl_parcel, _aidl_end);");
    out->Close("}");
    out->Blank();
}

void DefineToString(const TypeDecl& type, CodeWriter* out) {
    out->Open("std::string " + LocalName(type) + "::toString() const {");
    out->Line("std::ostringstream _aidl_os;");
    out->Line("_aidl_os << \"" + type.name.text + "{\";");
    const char* separator = "";
    for (const Variable& field : type.fields) {
        out->Line(std::string("_aidl_os << \"") + separator + field.name.text + ": \";");
        PrintValue(field.type, field.name.text, out);
        separator = ", ";
    }
    out->Line("_aidl_os << \"}\";");
    out->Line("return _aidl_os.str();");
    out->Close("}");
    out->Blank();
}

}  // namespace

void DeclareParcelable(const TypeDecl& type, const EmitOptions& options, CodeWriter* out) {
    out->Doc(type.doc);
    out->Open("class " + type.name.text + " {");
    out->Access("public:");
    out->Line("using fixed_size = std::false_type;");
    out->Line("static const char* descriptor;");
    out->Line(std::string("static constexpr ::ndk::parcel_stability_t ") +
              "_aidl_parcelable_stability = " +
              (type.vintf ? "::ndk::STABILITY_VINTF;" : "::ndk::STABILITY_LOCAL;"));
    out->Blank();
    DeclareNested(type, options, out);
    for (const Variable& field : type.fields) {
        out->Doc(field.doc);
        out->Line(CppType(field.type) + " " + field.name.text + CppInitializer(field, type.vintf) +
                  ";");
    }
    if (!type.fields.empty()) out->Blank();
    DeclareConstructor(type, out);
    out->Line("binder_status_t readFromParcel(const AParcel* _aidl_parcel);");
    out->Line("binder_status_t writeToParcel(AParcel* _aidl_parcel) const;");
    out->Line("std::string toString() const;");
    DeclareComparison(type, Tied(type), out);
    out->Close("};");
}

void DefineParcelable(const TypeDecl& type, CodeWriter* out) {
    out->Line("const char* " + LocalName(type) + "::descriptor = \"" + QualifiedName(type) + "\";");
    DefineConstructor(type, out);
    out->Blank();
    DefineRead(type, out);
    DefineWrite(type, out);
    DefineToString(type, out);
}

}  // namespace host::aidl
