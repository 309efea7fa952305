// What clients that were built long ago rely on: what the parcelables of version 1 are as bytes.
// Codes and names are the frozen files' and the generator's.

#include <aidl/vendor/quorin/velmora_hub/SignalDescriptor.h>
#include <aidl/vendor/quorin/velmora_hub/VelmoraEvent.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using aidl::vendor::quorin::velmora_hub::SignalDescriptor;
using aidl::vendor::quorin::velmora_hub::VelmoraEvent;

template <typename T>
std::vector<int32_t> WordsOf(const T& value) {
    const ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(value.writeToParcel(parcel.get()), STATUS_OK);
    std::vector<int32_t> words(static_cast<size_t>(AParcel_getDataSize(parcel.get())) / 4);
    EXPECT_EQ(AParcel_marshal(parcel.get(), reinterpret_cast<uint8_t*>(words.data()), 0,
                              words.size() * 4),
              STATUS_OK);
    return words;
}

TEST(HubPackage, HasItsFieldsInOrderBehindTheirSize) {
    SignalDescriptor descriptor;
    descriptor.signalId = 2;
    descriptor.ttlMs = 0x100000003;
    EXPECT_EQ(WordsOf(descriptor), (std::vector<int32_t>{20, 2, 0, 3, 1}));
    VelmoraEvent event;
    event.signalId = 2;
    event.timestampMs = 0x500000004;
    // The holder: not null, its stability, no bytes.
    EXPECT_EQ(WordsOf(event), (std::vector<int32_t>{28, 2, 4, 5, 1, 1, 0}));
}

}  // namespace
