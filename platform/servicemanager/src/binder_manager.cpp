#define LOG_TAG "servicemanager"

#include <android-base/logging.h>
#include <android/binder_manager.h>

#include <string>
#include <utility>

#include "publications.h"
#include "service_name.h"

namespace host {
namespace {

bool IsUsable(const char* function, const char* instance) {
    if (instance != nullptr && IsValidServiceName(instance)) return true;
    LOG(ERROR) << function
               << ": not a service's name: " << (instance == nullptr ? "null" : instance);
    return false;
}

AIBinder* FindService(const char* function, transaction_code_t code, const char* instance) {
    if (!IsUsable(function, instance)) return nullptr;
    const std::string name = instance;
    ndk::SpAIBinder service;
    std::string error;
    const binder_status_t status = Publications::Get().connection().Call(
            std::string(function) + "(" + name + ")", code,
            [&name](AParcel* parcel) { return WriteName(name, parcel); },
            [&service](const AParcel* parcel) { return ReadService(parcel, &service); }, &error);
    if (status != STATUS_OK || service == nullptr) return nullptr;
    AIBinder_incStrong(service.get());
    return service.get();
}

}  // namespace
}  // namespace host

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (!host::IsUsable("addService", instance)) return EX_ILLEGAL_ARGUMENT;
    if (binder == nullptr) {
        LOG(ERROR) << "addService(" << instance << "): there is no object";
        return EX_ILLEGAL_ARGUMENT;
    }
    AIBinder_incStrong(binder);
    return host::Publications::Get().Publish(instance, ndk::SpAIBinder(binder));
}

AIBinder* AServiceManager_checkService(const char* instance) {
    return host::FindService("checkService", host::kCheckService, instance);
}

AIBinder* AServiceManager_getService(const char* instance) {
    return host::FindService("getService", host::kGetService, instance);
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    return host::FindService("waitForService", host::kWaitForService, instance);
}

bool AServiceManager_isDeclared(const char* instance) {
    if (!host::IsUsable("isDeclared", instance)) return false;
    const std::string name = instance;
    bool declared = false;
    std::string error;
    const binder_status_t status = host::Publications::Get().connection().Call(
            "isDeclared(" + name + ")", host::kIsDeclared,
            [&name](AParcel* parcel) { return host::WriteName(name, parcel); },
            [&declared](const AParcel* parcel) { return host::ReadFlag(parcel, &declared); },
            &error);
    return status == STATUS_OK && declared;
}
