// Any sequence of parcels leaves the service manager at work: each is answered or refused, and what
// was published under a valid name is found under it. An input is a row of calls, each a code, a
// kind and a length, then so many bytes of the parcel.

#include <android-base/logging.h>
#include <android/binder_parcel.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <string_view>

#include "protocol.h"
#include "service_manager.h"

namespace {

using host::kAddService;

// The first bytes of the input, as many as there are, which it then lacks.
std::string Take(std::string_view* input, size_t count) {
    const std::string taken(input->substr(0, count));
    input->remove_prefix(taken.size());
    return taken;
}

// Zero behind the end.
uint8_t TakeByte(std::string_view* input) {
    return static_cast<uint8_t>(Take(input, 1)[0]);
}

// Raw bytes, or the bytes as a name, then an object, which bytes alone cannot stand for.
void Fill(AParcel* parcel, bool raw, const std::string& bytes, const ndk::SpAIBinder& object) {
    if (raw) {
        (void)AParcel_unmarshal(parcel, reinterpret_cast<const uint8_t*>(bytes.data()),
                                bytes.size());
        return;
    }
    (void)host::WriteName(bytes, parcel);
    (void)host::WriteService(object, parcel);
    (void)AParcel_setDataPosition(parcel, 0);
}

void CheckPublished(host::ServiceManager* manager, const std::string& name,
                    const ndk::SpAIBinder& object) {
    ndk::ScopedAParcel in(AParcel_create()), out(AParcel_create());
    ndk::SpAIBinder found;
    if (host::WriteName(name, in.get()) != STATUS_OK) abort();
    AParcel_setDataPosition(in.get(), 0);
    if (manager->OnTransact(host::kCheckService, in.get(), out.get()) != STATUS_OK) abort();
    AParcel_setDataPosition(out.get(), 0);
    if (host::ReadService(out.get(), &found) != STATUS_OK || found != object) abort();
}

void OneCall(host::ServiceManager* manager, std::string_view* input,
             const ndk::SpAIBinder& object) {
    const transaction_code_t code = TakeByte(input);
    const bool raw = (TakeByte(input) & 1) != 0;
    const std::string bytes = Take(input, TakeByte(input));
    ndk::ScopedAParcel in(AParcel_create()), out(AParcel_create());
    Fill(in.get(), raw, bytes, object);
    const binder_status_t status = manager->OnTransact(code, in.get(), out.get());
    if (status != STATUS_OK || code != kAddService || raw) return;
    host::AddReply reply;
    AParcel_setDataPosition(out.get(), 0);
    if (host::ReadAddReply(out.get(), &reply) != STATUS_OK) abort();
    if (reply.exception == EX_NONE) CheckPublished(manager, bytes, object);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    [[maybe_unused]] static const auto quiet =
            android::base::SetMinimumLogSeverity(android::base::ERROR);
    host::Manifest manifest;
    std::string error;
    manifest.AddText("m.xml",
                     "<manifest><hal format=\"aidl\"><name>p</name><fqname>I/d</fqname></hal>"
                     "</manifest>",
                     &error);
    host::ServiceManager manager(std::move(manifest));
    const ndk::SpAIBinder object = manager.NewBinder();
    std::string_view input(reinterpret_cast<const char*>(data), size);
    while (!input.empty())
        OneCall(&manager, &input, object);
    return 0;
}
