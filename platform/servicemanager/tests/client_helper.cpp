#include "client_helper.h"

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <android/binder_stability.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <sstream>
#include <thread>

#include "host/service_list.h"

namespace host {
namespace {

constexpr transaction_code_t kSay = FIRST_CALL_TRANSACTION;

// A service whose user data is the text that it says, with its pid.
const AIBinder_Class* SayerClass() {
    static const AIBinder_Class* clazz = AIBinder_Class_define(
            "test.ISayer", [](void* text) { return text; },
            [](void* text) { delete static_cast<std::string*>(text); },
            [](AIBinder* binder, transaction_code_t code, const AParcel*, AParcel* out) {
                if (code != kSay) return binder_status_t{STATUS_UNKNOWN_TRANSACTION};
                const auto* text = static_cast<std::string*>(AIBinder_getUserData(binder));
                return ndk::AParcel_writeString(out, std::to_string(getpid()) + " says " + *text);
            });
    return clazz;
}

std::string Ask(const ndk::SpAIBinder& binder) {
    if (binder == nullptr) return "null";
    if (!AIBinder_associateClass(binder.get(), SayerClass())) return "of another class";
    if (!AIBinder_isRemote(binder.get())) {
        return "own " + *static_cast<std::string*>(AIBinder_getUserData(binder.get()));
    }
    ndk::ScopedAParcel out;
    AParcel* in = nullptr;
    binder_status_t status = AIBinder_prepareTransaction(binder.get(), &in);
    if (status == STATUS_OK) {
        status = AIBinder_transact(binder.get(), kSay, &in, out.getR(), 0);
    }
    std::string text;
    if (status == STATUS_OK) status = ndk::AParcel_readString(out.get(), &text);
    return status == STATUS_OK ? text : "status " + std::to_string(status);
}

class Client {
  public:
    std::string Handle(const std::string& line) {
        std::istringstream words(line);
        std::string command, name, text;
        words >> command >> name >> text;
        if (command == "publish" || command == "stable") {
            return Publish(name, text, command == "stable");
        }
        if (command == "republish") return Republish(name, text);
        if (command == "begin") {
            thread_ = std::thread([this, name] { outcome_ = LookUp("wait", name); });
            return "begun";
        }
        if (command == "end") {
            thread_.join();
            return outcome_;
        }
        if (command == "keep") {
            kept_ = ndk::SpAIBinder(AServiceManager_checkService(name.c_str()));
            return Ask(kept_);
        }
        if (command == "ask") return Ask(kept_);
        if (command == "fail") {
            fault_ = std::make_unique<testing::FailNthCall>(name.c_str(), std::stoi(text), EMFILE);
            return "armed";
        }
        if (command == "failed") return fault_->fired() ? "yes" : "no";
        if (command == "declared") return AServiceManager_isDeclared(name.c_str()) ? "yes" : "no";
        if (command == "list") return List();
        return LookUp(command, name);
    }

  private:
    static std::string Publish(const std::string& name, const std::string& text, bool stable) {
        ndk::SpAIBinder binder(AIBinder_new(SayerClass(), new std::string(text)));
        if (stable) AIBinder_markVintfStability(binder.get());
        return std::to_string(AServiceManager_addService(binder.get(), name.c_str()));
    }

    static std::string Republish(const std::string& from, const std::string& to) {
        ndk::SpAIBinder binder(AServiceManager_checkService(from.c_str()));
        return std::to_string(AServiceManager_addService(binder.get(), to.c_str()));
    }

    static std::string LookUp(const std::string& how, const std::string& name) {
        auto* function = how == "wait"  ? AServiceManager_waitForService
                         : how == "get" ? AServiceManager_getService
                                        : AServiceManager_checkService;
        return Ask(ndk::SpAIBinder(function(name.c_str())));
    }

    static std::string List() {
        std::vector<ServiceInfo> services;
        std::string error;
        if (!ListServices(&services, &error)) return "error: " + error;
        std::string text;
        for (const ServiceInfo& info : services) {
            text += info.name + (info.declared ? " declared " : " undeclared ") +
                    (info.published ? std::to_string(info.pid) : "-") + "; ";
        }
        return text;
    }

    ndk::SpAIBinder kept_;
    std::unique_ptr<testing::FailNthCall> fault_;
    std::thread thread_;
    std::string outcome_;
};

}  // namespace
}  // namespace host

// Without a thread pool if an argument says so: looking up needs none.
HOST_HELPER(Client) {
    if (channel.arguments().empty()) ABinderProcess_startThreadPool();
    host::Client client;
    channel.Serve([&client](const std::string& line) { return client.Handle(line); });
    return 0;
}
