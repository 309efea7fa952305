#include "protocol.h"

#include <functional>
#include <initializer_list>

namespace host {
namespace {

constexpr int32_t kMaxText = 4096;

bool AllocateText(void* data, int32_t length, char** buffer) {
    // The length counts a terminating zero, which the string has by itself.
    if (length < 1 || length > kMaxText) return false;
    auto* text = static_cast<std::string*>(data);
    text->resize(static_cast<size_t>(length) - 1);
    *buffer = text->data();
    return true;
}

binder_status_t WriteText(const std::string& text, AParcel* parcel) {
    return AParcel_writeString(parcel, text.data(), static_cast<int32_t>(text.size()));
}

binder_status_t ReadText(const AParcel* parcel, std::string* text) {
    return AParcel_readString(parcel, text, AllocateText);
}

// Runs the steps up to the first that fails.
binder_status_t InOrder(std::initializer_list<std::function<binder_status_t()>> steps) {
    for (const auto& step : steps) {
        if (const binder_status_t status = step(); status != STATUS_OK) return status;
    }
    return STATUS_OK;
}

}  // namespace

binder_status_t WriteAddRequest(const AddRequest& request, AParcel* parcel) {
    return InOrder({[&] { return WriteText(request.name, parcel); },
                    [&] { return WriteService(request.service, parcel); }});
}

binder_status_t ReadAddRequest(const AParcel* parcel, AddRequest* request) {
    return InOrder({[&] { return ReadText(parcel, &request->name); },
                    [&] { return ReadService(parcel, &request->service); }});
}

binder_status_t WriteAddReply(const AddReply& reply, AParcel* parcel) {
    return InOrder({[&] { return AParcel_writeInt32(parcel, reply.exception); },
                    [&] { return WriteText(reply.reason, parcel); }});
}

binder_status_t ReadAddReply(const AParcel* parcel, AddReply* reply) {
    return InOrder({[&] { return AParcel_readInt32(parcel, &reply->exception); },
                    [&] { return ReadText(parcel, &reply->reason); }});
}

binder_status_t WriteName(const std::string& name, AParcel* parcel) {
    return WriteText(name, parcel);
}

binder_status_t ReadName(const AParcel* parcel, std::string* name) {
    return ReadText(parcel, name);
}

binder_status_t WriteService(const ndk::SpAIBinder& service, AParcel* parcel) {
    return AParcel_writeStrongBinder(parcel, service.get());
}

binder_status_t ReadService(const AParcel* parcel, ndk::SpAIBinder* service) {
    return AParcel_readStrongBinder(parcel, service->getR());
}

binder_status_t WriteFlag(bool flag, AParcel* parcel) {
    return AParcel_writeBool(parcel, flag);
}

binder_status_t ReadFlag(const AParcel* parcel, bool* flag) {
    return AParcel_readBool(parcel, flag);
}

binder_status_t WritePage(const std::vector<ServiceInfo>& page, AParcel* parcel) {
    binder_status_t status = AParcel_writeInt32(parcel, static_cast<int32_t>(page.size()));
    for (size_t i = 0; status == STATUS_OK && i < page.size(); ++i) {
        status = InOrder({[&] { return WriteText(page[i].name, parcel); },
                          [&] { return AParcel_writeBool(parcel, page[i].declared); },
                          [&] { return AParcel_writeBool(parcel, page[i].published); },
                          [&] { return AParcel_writeInt32(parcel, page[i].pid); }});
    }
    return status;
}

binder_status_t ReadPage(const AParcel* parcel, std::vector<ServiceInfo>* page) {
    int32_t count = 0;
    binder_status_t status = AParcel_readInt32(parcel, &count);
    if (status != STATUS_OK) return status;
    if (count < 0 || count > static_cast<int32_t>(kPageEntries)) return STATUS_BAD_VALUE;
    page->assign(static_cast<size_t>(count), {});
    for (size_t i = 0; status == STATUS_OK && i < page->size(); ++i) {
        ServiceInfo& info = (*page)[i];
        status = InOrder({[&] { return ReadText(parcel, &info.name); },
                          [&] { return AParcel_readBool(parcel, &info.declared); },
                          [&] { return AParcel_readBool(parcel, &info.published); },
                          [&] { return AParcel_readInt32(parcel, &info.pid); }});
    }
    return status;
}

const AIBinder_Class* ServiceManagerClass() {
    static const AIBinder_Class* const clazz = AIBinder_Class_define(
            "servicemanager", [](void* stub) { return stub; }, [](void*) {},
            [](AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out) {
                auto* stub = static_cast<ServiceManagerStub*>(AIBinder_getUserData(binder));
                return stub->OnTransact(code, in, out);
            });
    return clazz;
}

}  // namespace host
