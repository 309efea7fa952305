// Reads arbitrary bytes as generated types: the first byte chooses the type, the rest is the
// parcel. What can be read is written again, and what was written reads back to the same bytes.

#include <aidl/velmora/sample/Carrier.h>
#include <aidl/velmora/sample/Choice.h>
#include <aidl/velmora/sample/Everything.h>
#include <aidl/velmora/sample/InnerNext.h>
#include <aidl/vendor/quorin/velmora_hub/SignalDescriptor.h>
#include <aidl/vendor/quorin/velmora_hub/VelmoraEvent.h>
#include <android/binder_parcel_utils.h>
#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "parcel.h"

namespace {

template <typename T>
std::vector<uint8_t> Written(const T& value) {
    AParcel parcel;
    if (value.writeToParcel(&parcel) != STATUS_OK) __builtin_trap();
    return {parcel.data(), parcel.data() + parcel.size()};
}

template <typename T>
void ReadAs(const AParcel& parcel) {
    T value{};
    if (value.readFromParcel(&parcel) != STATUS_OK) return;
    const std::vector<uint8_t> written = Written(value);
    AParcel again;
    T same{};
    if (!again.Assign(written.data(), written.size(), {})) __builtin_trap();
    if (same.readFromParcel(&again) != STATUS_OK || Written(same) != written) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace sample = aidl::velmora::sample;
    namespace hub = aidl::vendor::quorin::velmora_hub;
    constexpr void (*kReaders[])(const AParcel&) = {
            &ReadAs<sample::Everything>,    &ReadAs<sample::Carrier>,
            &ReadAs<sample::Choice>,        &ReadAs<sample::InnerNext>,
            &ReadAs<hub::SignalDescriptor>, &ReadAs<hub::VelmoraEvent>};
    AParcel parcel;
    if (size == 0 || !parcel.Assign(data + 1, size - 1, {})) return 0;
    kReaders[data[0] % std::size(kReaders)](parcel);
    return 0;
}
