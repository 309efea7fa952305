// Reads a parcel of arbitrary bytes in an arbitrary order, as a stub would that is called with
// them. The first byte of the input says how many of the next bytes choose a reader each; the rest
// is the parcel.

#include <android/binder_parcel_utils.h>
#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "parcel.h"

namespace {

// What a generated parcelable looks like from here, with a size in front, a holder and itself
// inside.
struct Record {
    int32_t number = 0;
    std::optional<std::string> text;
    std::vector<Record> records;
    ndk::AParcelableHolder holder{ndk::STABILITY_VINTF};

    static constexpr const char* descriptor = "fuzz.Record";

    binder_status_t readFromParcel(const AParcel* parcel) {
        const int32_t start = AParcel_getDataPosition(parcel);
        int32_t size;
        binder_status_t status = ndk::AParcel_readData(parcel, &size);
        if (status == STATUS_OK && size < 4) status = STATUS_BAD_VALUE;
        if (status == STATUS_OK) status = ndk::AParcel_readData(parcel, &number);
        if (status == STATUS_OK) status = ndk::AParcel_readNullableData(parcel, &text);
        if (status == STATUS_OK) status = ndk::AParcel_readData(parcel, &records);
        if (status == STATUS_OK) status = ndk::AParcel_readData(parcel, &holder);
        if (status == STATUS_OK && size > INT32_MAX - start) status = STATUS_BAD_VALUE;
        return status == STATUS_OK ? AParcel_setDataPosition(parcel, start + size) : status;
    }
};

template <typename T>
void ReadAs(const AParcel* parcel) {
    T value{};
    ndk::AParcel_readData(parcel, &value);
}

template <typename T>
void ReadNullableAs(const AParcel* parcel) {
    T value{};
    ndk::AParcel_readNullableData(parcel, &value);
}

void ReadHolder(const AParcel* parcel) {
    ndk::AParcelableHolder holder(ndk::STABILITY_VINTF);
    if (ndk::AParcel_readData(parcel, &holder) != STATUS_OK) return;
    const ndk::AParcelableHolder copy = holder;
    std::optional<Record> record;
    copy.getParcelable(&record);
    ndk::ScopedAParcel written(AParcel_create());
    if (copy.writeToParcel(written.get()) != STATUS_OK) __builtin_trap();
}

void ReadStatus(const AParcel* parcel) {
    ndk::ScopedAStatus status;
    if (AParcel_readStatusHeader(parcel, status.getR()) == STATUS_OK) status.getDescription();
}

// Jumps to where the next number says.
void Jump(const AParcel* parcel) {
    int32_t position;
    if (AParcel_readInt32(parcel, &position) == STATUS_OK) {
        AParcel_setDataPosition(parcel, position);
    }
}

// Copies what the next two numbers say, and what it copied once more.
void Append(const AParcel* parcel) {
    int32_t start;
    int32_t size;
    if (AParcel_readInt32(parcel, &start) != STATUS_OK) return;
    if (AParcel_readInt32(parcel, &size) != STATUS_OK) return;
    ndk::ScopedAParcel copy(AParcel_create());
    if (AParcel_appendFrom(parcel, copy.get(), start, size) != STATUS_OK) return;
    if (AParcel_getDataSize(copy.get()) % 4 != 0) __builtin_trap();
    AParcel_appendFrom(copy.get(), copy.get(), 0, AParcel_getDataSize(copy.get()));
}

// A string that was read is written and read the same.
void ReadString(const AParcel* parcel) {
    std::string text;
    if (ndk::AParcel_readString(parcel, &text) != STATUS_OK) return;
    ndk::ScopedAParcel written(AParcel_create());
    if (ndk::AParcel_writeString(written.get(), text) != STATUS_OK) __builtin_trap();
    AParcel_setDataPosition(written.get(), 0);
    std::string again;
    if (ndk::AParcel_readString(written.get(), &again) != STATUS_OK || again != text) {
        __builtin_trap();
    }
}

using Reader = void (*)(const AParcel*);
constexpr Reader kReaders[] = {
        ReadAs<bool>,
        ReadAs<int8_t>,
        ReadAs<char16_t>,
        ReadAs<int32_t>,
        ReadAs<int64_t>,
        ReadAs<double>,
        ReadString,
        ReadAs<ndk::SpAIBinder>,
        ReadAs<Record>,
        ReadAs<std::vector<bool>>,
        ReadAs<std::vector<uint8_t>>,
        ReadAs<std::vector<char16_t>>,
        ReadAs<std::vector<int32_t>>,
        ReadAs<std::vector<int64_t>>,
        ReadAs<std::vector<std::string>>,
        ReadAs<std::vector<Record>>,
        ReadNullableAs<std::optional<std::string>>,
        ReadNullableAs<std::optional<Record>>,
        ReadNullableAs<std::optional<std::vector<std::optional<std::string>>>>,
        ReadNullableAs<std::optional<std::vector<ndk::SpAIBinder>>>,
        ReadHolder,
        ReadStatus,
        Jump,
        Append,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size - 1 < data[0]) return 0;
    const size_t steps = data[0];
    const uint8_t* choices = data + 1;
    ndk::ScopedAParcel parcel(AParcel_create());
    AParcel_unmarshal(parcel.get(), choices + steps, size - 1 - steps);
    for (size_t i = 0; i < steps; ++i) {
        kReaders[choices[i] % std::size(kReaders)](parcel.get());
        if (parcel.get()->depth != 0 || parcel.get()->position() > parcel.get()->size()) {
            __builtin_trap();
        }
    }
    return 0;
}
