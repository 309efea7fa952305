#include "../names.h"
#include "ndk_names.h"
#include "ndk_types.h"

namespace host::aidl {
namespace {

void Check(const std::string& call, CodeWriter* out) {
    out->Line("_aidl_status = " + call + ";");
    ReturnIfFailed(out);
}

void ReadArguments(const Method& method, CodeWriter* out) {
    for (const Parameter& parameter : method.parameters) {
        const std::string name = CppParameterName(parameter);
        out->Line(CppType(parameter.type) + " " + name + "{};");
        if (IsIn(parameter)) {
            Check(ReadCall(parameter.type, "_aidl_in", "&" + name), out);
        } else if (parameter.type.array) {
            Check("::ndk::AParcel_resizeVector(_aidl_in, &" + name + ")", out);
        }
    }
}

std::string Arguments(const Method& method) {
    std::string arguments;
    for (const Parameter& parameter : method.parameters) {
        arguments += arguments.empty() ? "" : ", ";
        arguments += (IsOut(parameter) ? "&" : "") + CppParameterName(parameter);
    }
    if (method.result.builtin != Builtin::kVoid) {
        arguments += arguments.empty() ? "&_aidl_return" : ", &_aidl_return";
    }
    return arguments;
}

void Call(const Method& method, CodeWriter* out) {
    if (method.result.builtin != Builtin::kVoid) {
        out->Line(CppType(method.result) + " _aidl_return{};");
    }
    out->Line("const ::ndk::ScopedAStatus _aidl_answer = _aidl_impl." + method.name.text + "(" +
              Arguments(method) + ");");
}

// A failed call answers its status and nothing else.
void WriteReply(const Method& method, CodeWriter* out) {
    Check("AParcel_writeStatusHeader(_aidl_out, _aidl_answer.get())", out);
    out->Line("if (!_aidl_answer.isOk()) return STATUS_OK;");
    if (method.result.builtin != Builtin::kVoid) {
        Check(WriteCall(method.result, "_aidl_out", "_aidl_return"), out);
    }
    for (const Parameter& parameter : method.parameters) {
        if (!IsOut(parameter)) continue;
        Check(WriteCall(parameter.type, "_aidl_out", CppParameterName(parameter)), out);
    }
}

bool ReadsAnything(const Method& method) {
    for (const Parameter& parameter : method.parameters) {
        if (IsIn(parameter) || parameter.type.array) return true;
    }
    return false;
}

void DefineHandler(const TypeDecl& type, const Method& method, CodeWriter* out) {
    const bool reads = ReadsAnything(method);
    out->Open("binder_status_t _aidl_call_" + method.name.text + "(" + type.name.text +
              "& _aidl_impl, const AParcel*" + (reads ? " _aidl_in" : "") + ", AParcel*" +
              (method.oneway ? "" : " _aidl_out") + ") {");
    if (reads || !method.oneway) out->Line("binder_status_t _aidl_status = STATUS_OK;");
    ReadArguments(method, out);
    Call(method, out);
    if (!method.oneway) WriteReply(method, out);
    out->Line("return STATUS_OK;");
    out->Close("}");
    out->Blank();
}

void Case(const std::string& code, const std::string& method, CodeWriter* out) {
    out->Line("case " + code + ":");
    out->Line("    return _aidl_call_" + method + "(*_aidl_impl, _aidl_in, _aidl_out);");
}

void DefineDispatch(const TypeDecl& type, CodeWriter* out) {
    out->Line(
            "binder_status_t _aidl_on_transact(AIBinder* _aidl_binder, transaction_code_t "
            "_aidl_code,");
    out->Open("                                  const AParcel* _aidl_in, AParcel* _aidl_out) {");
    out->Line("const auto _aidl_impl = std::static_pointer_cast<" + type.name.text +
              ">(::ndk::ICInterface::asInterface(_aidl_binder));");
    out->Line("if (_aidl_impl == nullptr) return STATUS_DEAD_OBJECT;");
    out->Open("switch (_aidl_code) {");
    for (const Method& method : type.methods) {
        Case(type.name.text + "::TRANSACTION_" + method.name.text, method.name.text, out);
    }
    Case("_aidl_version_code", "getInterfaceVersion", out);
    Case("_aidl_hash_code", "getInterfaceHash", out);
    out->Line("default:");
    out->Line("    return STATUS_UNKNOWN_TRANSACTION;");
    out->Close("}");
    out->Close("}");
    out->Blank();
}

void DefineInterfaceStatics(const TypeDecl& type, CodeWriter* out) {
    const std::string& name = type.name.text;
    const std::string pointer = "std::shared_ptr<" + name + ">";
    out->Line("const char* " + name + "::descriptor = \"" + QualifiedName(type) + "\";");
    out->Line(name + "::" + name + "() = default;");
    out->Line(name + "::~" + name + "() = default;");
    out->Blank();
    out->Open(pointer + " " + name + "::fromBinder(const ::ndk::SpAIBinder& binder) {");
    out->Line("if (!AIBinder_associateClass(binder.get(), _aidl_class())) return nullptr;");
    out->Line("const auto local = ::ndk::ICInterface::asInterface(binder.get());");
    out->Line("if (local != nullptr) return std::static_pointer_cast<" + name + ">(local);");
    out->Line("return ::ndk::SharedRefBase::make<" + ProxyName(type) + ">(binder);");
    out->Close("}");
    out->Blank();
    out->Open("binder_status_t " + name + "::writeToParcel(AParcel* parcel, const " + pointer +
              "& instance) {");
    out->Line(
            "const ::ndk::SpAIBinder binder = "
            "instance == nullptr ? ::ndk::SpAIBinder() : instance->asBinder();");
    out->Line("return AParcel_writeStrongBinder(parcel, binder.get());");
    out->Close("}");
    out->Blank();
    out->Open("binder_status_t " + name + "::readFromParcel(const AParcel* parcel, " + pointer +
              "* instance) {");
    out->Line("::ndk::SpAIBinder binder;");
    out->Line("const binder_status_t status = AParcel_readStrongBinder(parcel, binder.getR());");
    out->Line("if (status != STATUS_OK) return status;");
    out->Line("*instance = fromBinder(binder);");
    out->Line(
            "return binder.get() != nullptr && *instance == nullptr ? STATUS_BAD_TYPE : "
            "STATUS_OK;");
    out->Close("}");
    out->Blank();
}

void DefineStubClass(const TypeDecl& type, const EmitOptions& options, CodeWriter* out) {
    const std::string name = StubName(type);
    out->Line(name + "::" + name + "() = default;");
    out->Line(name + "::~" + name + "() = default;");
    out->Blank();
    out->Open("::ndk::SpAIBinder " + name + "::createBinder() {");
    out->Line(
            "::ndk::SpAIBinder binder("
            "AIBinder_new(_aidl_class(), static_cast<::ndk::ICInterface*>(this)));");
    if (type.vintf) out->Line("AIBinder_markVintfStability(binder.get());");
    out->Line("return binder;");
    out->Close("}");
    out->Blank();
    out->Open("::ndk::ScopedAStatus " + name + "::getInterfaceVersion(int32_t* _aidl_return) {");
    out->Line("*_aidl_return = " + std::to_string(options.version) + ";");
    out->Line("return ::ndk::ScopedAStatus::ok();");
    out->Close("}");
    out->Blank();
    out->Open("::ndk::ScopedAStatus " + name + "::getInterfaceHash(std::string* _aidl_return) {");
    out->Line("*_aidl_return = \"" + options.hash + "\";");
    out->Line("return ::ndk::ScopedAStatus::ok();");
    out->Close("}");
    out->Blank();
}

}  // namespace

void DefineStub(const TypeDecl& type, const EmitOptions& options, CodeWriter* out) {
    out->Line("namespace {");
    out->Blank();
    for (const auto& [name, code] :
         {std::pair("_aidl_version_code", kVersionCode), std::pair("_aidl_hash_code", kHashCode)}) {
        out->Line(std::string("constexpr transaction_code_t ") + name +
                  " = FIRST_CALL_TRANSACTION + " + std::to_string(code) + ";");
    }
    out->Blank();
    for (const Method& method : type.methods)
        DefineHandler(type, method, out);
    DefineHandler(type, Question("getInterfaceVersion", Builtin::kInt), out);
    DefineHandler(type, Question("getInterfaceHash", Builtin::kString), out);
    DefineDispatch(type, out);
    out->Open("AIBinder_Class* _aidl_class() {");
    out->Line("static AIBinder_Class* const clazz = ::ndk::ICInterface::defineClass(" +
              type.name.text + "::descriptor, _aidl_on_transact);");
    out->Line("return clazz;");
    out->Close("}");
    out->Blank();
    out->Line("}  // namespace");
    out->Blank();
    DefineInterfaceStatics(type, out);
    DefineStubClass(type, options, out);
}

}  // namespace host::aidl
