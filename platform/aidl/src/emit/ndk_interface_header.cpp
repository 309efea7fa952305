#include "../names.h"
#include "ndk_names.h"
#include "ndk_types.h"

namespace host::aidl {
namespace {

std::string Signature(const Method& method) {
    return "::ndk::ScopedAStatus " + method.name.text + "(" + CppParameters(method) + ")";
}

constexpr const char* kVersionSignature =
        "::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return)";
constexpr const char* kHashSignature =
        "::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return)";

void DeclareCodes(const TypeDecl& type, CodeWriter* out) {
    int code = 0;
    for (const Method& method : type.methods) {
        out->Line("static constexpr uint32_t TRANSACTION_" + method.name.text +
                  " = FIRST_CALL_TRANSACTION + " + std::to_string(code++) + ";");
    }
}

void DeclareMethods(const TypeDecl& type, CodeWriter* out) {
    for (const Method& method : type.methods) {
        out->Doc(method.doc);
        out->Line("virtual " + Signature(method) + " = 0;");
    }
    out->Line(std::string("virtual ") + kVersionSignature + " = 0;");
    out->Line(std::string("virtual ") + kHashSignature + " = 0;");
}

}  // namespace

void DeclareInterface(const TypeDecl& type, const EmitOptions& options, CodeWriter* out) {
    const std::string& name = type.name.text;
    out->Doc(type.doc);
    out->Open("class " + name + " : public ::ndk::ICInterface {");
    out->Access("public:");
    out->Line("static const char* descriptor;");
    out->Line(name + "();");
    out->Line("~" + name + "() override;");
    out->Blank();
    DeclareNested(type, options, out);
    DeclareCodes(type, out);
    out->Line("static inline const int32_t version = " + std::to_string(options.version) + ";");
    out->Line("static inline const std::string hash = \"" + options.hash + "\";");
    out->Blank();
    const std::string pointer = "std::shared_ptr<" + name + ">";
    out->Line("static " + pointer + " fromBinder(const ::ndk::SpAIBinder& binder);");
    out->Line("static binder_status_t writeToParcel(AParcel* parcel, const " + pointer +
              "& instance);");
    out->Line("static binder_status_t readFromParcel(const AParcel* parcel, " + pointer +
              "* instance);");
    out->Blank();
    DeclareMethods(type, out);
    out->Close("};");
}

void DeclareStub(const TypeDecl& type, CodeWriter* out) {
    const std::string name = StubName(type);
    out->Open("class " + name + " : public ::ndk::BnCInterface<" + type.name.text + "> {");
    out->Access("public:");
    out->Line(name + "();");
    out->Line("~" + name + "() override;");
    out->Line(std::string(kVersionSignature) + " override;");
    out->Line(std::string(kHashSignature) + " override;");
    out->Blank();
    out->Access("protected:");
    out->Line("::ndk::SpAIBinder createBinder() override;");
    out->Close("};");
}

void DeclareProxy(const TypeDecl& type, CodeWriter* out) {
    const std::string name = ProxyName(type);
    out->Open("class " + name + " : public ::ndk::BpCInterface<" + type.name.text + "> {");
    out->Access("public:");
    out->Line("explicit " + name + "(const ::ndk::SpAIBinder& binder);");
    out->Line("~" + name + "() override;");
    out->Blank();
    for (const Method& method : type.methods)
        out->Line(Signature(method) + " override;");
    out->Line(std::string(kVersionSignature) + " override;");
    out->Line(std::string(kHashSignature) + " override;");
    out->Close("};");
}

}  // namespace host::aidl
