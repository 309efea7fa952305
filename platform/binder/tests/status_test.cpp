// Labels: memory
// Statuses by themselves and on their way through a parcel.

#include <android/binder_auto_utils.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/parcels.h"

namespace {

using ndk::ScopedAStatus;

struct Facts {
    binder_exception_t exception;
    int32_t service_error;
    binder_status_t status;
    std::string message;

    bool operator==(const Facts&) const = default;
};

Facts FactsOf(const ScopedAStatus& status) {
    EXPECT_EQ(status.isOk(), status.getExceptionCode() == EX_NONE);
    return {status.getExceptionCode(), status.getServiceSpecificError(), status.getStatus(),
            status.getMessage()};
}

// The status that the other side reads, or the outcome of the whole call.
ScopedAStatus Sent(const ScopedAStatus& status) {
    ndk::ScopedAParcel parcel(AParcel_create());
    binder_status_t result = AParcel_writeStatusHeader(parcel.get(), status.get());
    if (result != STATUS_OK) return ScopedAStatus::fromStatus(result);
    AParcel_setDataPosition(parcel.get(), 0);
    ScopedAStatus received;
    EXPECT_EQ(AParcel_readStatusHeader(parcel.get(), received.getR()), STATUS_OK);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));
    return received;
}

TEST(StatusTest, EachKindKeepsItsPartsAlsoAcrossAParcel) {
    const auto with_message = ScopedAStatus::fromExceptionCodeWithMessage;
    const auto with_error = ScopedAStatus::fromServiceSpecificErrorWithMessage;
    std::vector<std::pair<ScopedAStatus, Facts>> cases;
    const auto add = [&](ScopedAStatus status, const Facts& facts) {
        cases.emplace_back(std::move(status), facts);
    };
    add(ScopedAStatus::ok(), {EX_NONE, 0, STATUS_OK, ""});
    add(ScopedAStatus::fromStatus(STATUS_OK), {EX_NONE, 0, STATUS_OK, ""});
    add(with_message(EX_NONE, "ignored"), {EX_NONE, 0, STATUS_OK, ""});
    add(with_message(EX_ILLEGAL_ARGUMENT, "Invalid token."),
        {EX_ILLEGAL_ARGUMENT, 0, STATUS_OK, "Invalid token."});
    add(with_message(EX_ILLEGAL_STATE, "\xE2\x82\xAC"),
        {EX_ILLEGAL_STATE, 0, STATUS_OK, "\xE2\x82\xAC"});
    add(ScopedAStatus::fromExceptionCode(EX_SECURITY), {EX_SECURITY, 0, STATUS_OK, ""});
    add(with_message(EX_PARCELABLE, nullptr), {EX_PARCELABLE, 0, STATUS_OK, ""});
    add(with_error(42, "why"), {EX_SERVICE_SPECIFIC, 42, STATUS_OK, "why"});
    add(ScopedAStatus::fromServiceSpecificError(-7), {EX_SERVICE_SPECIFIC, -7, STATUS_OK, ""});
    add(ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT),
        {EX_TRANSACTION_FAILED, 0, STATUS_DEAD_OBJECT, ""});
    add(ScopedAStatus::fromStatus(-12345), {EX_TRANSACTION_FAILED, 0, STATUS_UNKNOWN_ERROR, ""});
    add(ScopedAStatus::fromExceptionCode(77),
        {EX_TRANSACTION_FAILED, 0, STATUS_FAILED_TRANSACTION, ""});
    for (const auto& [status, facts] : cases) {
        SCOPED_TRACE(status.getDescription());
        EXPECT_TRUE(FactsOf(status) == facts);
        EXPECT_TRUE(FactsOf(Sent(status)) == facts);
    }
}

TEST(StatusTest, AnAbsentStatusHasFailed) {
    const ScopedAStatus absent;
    EXPECT_TRUE(FactsOf(absent) == (Facts{EX_TRANSACTION_FAILED, 0, STATUS_UNKNOWN_ERROR, ""}));
    EXPECT_EQ(absent.getDescription(), "(no status)");
}

TEST(StatusTest, ADescriptionNamesCodeAndMessage) {
    const auto busy = ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_STATE, "busy");
    const auto dead = ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_EQ(busy.getDescription(), "EX_ILLEGAL_STATE (-5): busy");
    EXPECT_EQ(dead.getDescription(), "EX_TRANSACTION_FAILED (-129), STATUS_DEAD_OBJECT (-32)");
    EXPECT_EQ(ScopedAStatus::fromServiceSpecificError(9).getDescription(),
              "EX_SERVICE_SPECIFIC (-8), error 9");
}

TEST(StatusTest, HeadersThatAreCutOrOddAreRefused) {
    ndk::ScopedAParcel whole(AParcel_create());
    const ScopedAStatus sent = ScopedAStatus::fromServiceSpecificErrorWithMessage(1, "ab");
    ASSERT_EQ(AParcel_writeStatusHeader(whole.get(), sent.get()), STATUS_OK);
    std::vector<uint8_t> bytes = Bytes(whole);
    AStatus* never_set = nullptr;
    for (size_t length = 0; length < bytes.size(); ++length) {
        const auto cut = ParcelOfBytes({bytes.begin(), bytes.begin() + static_cast<int>(length)});
        EXPECT_EQ(AParcel_readStatusHeader(cut.get(), &never_set), STATUS_NOT_ENOUGH_DATA);
    }
    bytes[bytes.size() - 8] = 1;
    EXPECT_EQ(AParcel_readStatusHeader(ParcelOfBytes(bytes).get(), &never_set), STATUS_BAD_VALUE);
    EXPECT_EQ(never_set, nullptr);
}

}  // namespace
