#include "../names.h"
#include "ndk_names.h"
#include "ndk_types.h"

namespace host::aidl {
namespace {

void Step(const std::string& call, CodeWriter* out) {
    out->Line("if (_aidl_status == STATUS_OK) _aidl_status = " + call + ";");
}

// Prepares, writes the arguments and sends. Leaves the outcome in _aidl_status.
void Send(const Method& method, const std::string& code, CodeWriter* out) {
    out->Line("const ::ndk::SpAIBinder _aidl_binder = asBinder();");
    out->Line("::ndk::ScopedAParcel _aidl_in;");
    out->Line("::ndk::ScopedAParcel _aidl_out;");
    out->Line(
            "binder_status_t _aidl_status = "
            "AIBinder_prepareTransaction(_aidl_binder.get(), _aidl_in.getR());");
    for (const Parameter& parameter : method.parameters) {
        const std::string name = CppParameterName(parameter);
        if (IsIn(parameter)) {
            Step(WriteCall(parameter.type, "_aidl_in.get()", IsOut(parameter) ? "*" + name : name),
                 out);
        } else if (parameter.type.array) {
            Step("::ndk::AParcel_writeVectorSize(_aidl_in.get(), *" + name + ")", out);
        }
    }
    out->Open("if (_aidl_status == STATUS_OK) {");
    out->Line("_aidl_status = AIBinder_transact(_aidl_binder.get(), " + code +
              ", _aidl_in.getR(), _aidl_out.getR(), " + (method.oneway ? "FLAG_ONEWAY" : "0") +
              ");");
    out->Close("}");
}

void Receive(const Method& method, CodeWriter* out) {
    out->Line("::ndk::ScopedAStatus _aidl_answer;");
    Step("AParcel_readStatusHeader(_aidl_out.get(), _aidl_answer.getR())", out);
    out->Line("if (_aidl_status == STATUS_OK && !_aidl_answer.isOk()) return _aidl_answer;");
    if (method.result.builtin != Builtin::kVoid) {
        Step(ReadCall(method.result, "_aidl_out.get()", "_aidl_return"), out);
    }
    for (const Parameter& parameter : method.parameters) {
        if (!IsOut(parameter)) continue;
        Step(ReadCall(parameter.type, "_aidl_out.get()", CppParameterName(parameter)), out);
    }
}

void DefineMethod(const std::string& proxy, const Method& method, const std::string& code,
                  CodeWriter* out) {
    out->Open("::ndk::ScopedAStatus " + proxy + "::" + method.name.text + "(" +
              CppParameters(method) + ") {");
    Send(method, code, out);
    if (!method.oneway) Receive(method, out);
    out->Line("return ::ndk::ScopedAStatus::fromStatus(_aidl_status);");
    out->Close("}");
    out->Blank();
}

}  // namespace

void DefineProxy(const TypeDecl& type, CodeWriter* out) {
    const std::string name = ProxyName(type);
    out->Line(name + "::" + name + "(const ::ndk::SpAIBinder& binder) : BpCInterface(binder) {}");
    out->Line(name + "::~" + name + "() = default;");
    out->Blank();
    for (const Method& method : type.methods) {
        DefineMethod(name, method, "TRANSACTION_" + method.name.text, out);
    }
    DefineMethod(name, Question("getInterfaceVersion", Builtin::kInt), "_aidl_version_code", out);
    DefineMethod(name, Question("getInterfaceHash", Builtin::kString), "_aidl_hash_code", out);
}

}  // namespace host::aidl
