// Parcels as tests make them and look into them.
//
// Threads: any; a parcel belongs to one at a time.

#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <gtest/gtest.h>

#include <vector>

#include "../src/parcel.h"

inline ndk::ScopedAParcel NewParcel() {
    return ndk::ScopedAParcel(AParcel_create());
}

// To be read from the begin.
inline ndk::ScopedAParcel ParcelOfWords(const std::vector<int32_t>& words) {
    ndk::ScopedAParcel parcel = NewParcel();
    for (int32_t word : words)
        AParcel_writeInt32(parcel.get(), word);
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

// The same, whatever the bytes are.
inline ndk::ScopedAParcel ParcelOfBytes(const std::vector<uint8_t>& bytes) {
    ndk::ScopedAParcel parcel = NewParcel();
    EXPECT_EQ(AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size()), STATUS_OK);
    return parcel;
}

inline std::vector<uint8_t> Bytes(const ndk::ScopedAParcel& parcel) {
    return std::vector<uint8_t>(parcel.get()->data(), parcel.get()->data() + parcel.get()->size());
}
