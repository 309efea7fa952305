// What clients that were built long ago rely on: codes, slots, layouts and values of version 1.

#include <aidl/vendor/quorin/velmora_hub/BnToken.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumer.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumerManager.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducer.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducerManager.h>
#include <aidl/vendor/quorin/velmora_hub/SignalDescriptor.h>
#include <aidl/vendor/quorin/velmora_hub/VelmoraEvent.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

using aidl::vendor::quorin::velmora_hub::BnToken;
using aidl::vendor::quorin::velmora_hub::BnVelmoraHubConsumer;
using aidl::vendor::quorin::velmora_hub::IToken;
using aidl::vendor::quorin::velmora_hub::IVelmoraHubConsumer;
using aidl::vendor::quorin::velmora_hub::IVelmoraHubConsumerManager;
using aidl::vendor::quorin::velmora_hub::IVelmoraHubProducer;
using aidl::vendor::quorin::velmora_hub::IVelmoraHubProducerManager;
using aidl::vendor::quorin::velmora_hub::SignalDescriptor;
using aidl::vendor::quorin::velmora_hub::VelmoraEvent;
using ndk::ScopedAStatus;

// Number of a virtual function in its class's table: the C++ ABI keeps its offset in the pointer.
template <typename Function>
size_t SlotOf(Function function) {
    size_t offset = 0;
    std::memcpy(&offset, &function, sizeof offset);
    return offset / sizeof(void*);
}

TEST(HubPackage, VirtualFunctionsStandInThePlatformsOrder) {
    // The two destructors come first.
    size_t slot = 2;
    EXPECT_EQ(SlotOf(&ndk::ICInterface::asBinder), slot++);
    EXPECT_EQ(SlotOf(&ndk::ICInterface::isRemote), slot++);
    EXPECT_EQ(SlotOf(&ndk::ICInterface::dump), slot++);
    EXPECT_EQ(SlotOf(&ndk::ICInterface::handleShellCommand), slot++);
    EXPECT_EQ(SlotOf(&IVelmoraHubProducerManager::registerProducer), slot++);
    EXPECT_EQ(SlotOf(&IVelmoraHubProducerManager::updateSignal), slot++);
    EXPECT_EQ(SlotOf(&IVelmoraHubProducerManager::unregisterProducer), slot++);
    EXPECT_EQ(SlotOf(&IVelmoraHubProducerManager::getInterfaceVersion), slot++);
    EXPECT_EQ(SlotOf(&IVelmoraHubProducerManager::getInterfaceHash), slot++);
    EXPECT_EQ(SlotOf(&IToken::getInterfaceVersion), 6u);
}

TEST(HubPackage, CodesFollowTheOrderOfTheMethods) {
    constexpr uint32_t kFirst = FIRST_CALL_TRANSACTION;
    EXPECT_EQ(IVelmoraHubProducerManager::TRANSACTION_registerProducer, kFirst);
    EXPECT_EQ(IVelmoraHubProducerManager::TRANSACTION_updateSignal, kFirst + 1);
    EXPECT_EQ(IVelmoraHubProducerManager::TRANSACTION_unregisterProducer, kFirst + 2);
    EXPECT_EQ(IVelmoraHubProducer::TRANSACTION_onClientsUpdated, kFirst);
    EXPECT_EQ(IVelmoraHubProducer::TRANSACTION_nudge, kFirst + 1);
    EXPECT_EQ(IVelmoraHubConsumerManager::TRANSACTION_subscribe, kFirst);
    EXPECT_EQ(IVelmoraHubConsumerManager::TRANSACTION_unsubscribe, kFirst + 1);
    EXPECT_EQ(IVelmoraHubConsumerManager::TRANSACTION_requestSignalUpdate, kFirst + 2);
    EXPECT_EQ(IVelmoraHubConsumer::TRANSACTION_onSignalAvailable, kFirst);
    EXPECT_EQ(IVelmoraHubConsumer::TRANSACTION_onSignalUpdate, kFirst + 1);
    EXPECT_EQ(IVelmoraHubConsumer::TRANSACTION_onSignalUnavailable, kFirst + 2);
}

TEST(HubPackage, DescriptorsNameThePackage) {
    EXPECT_STREQ(IVelmoraHubProducerManager::descriptor,
                 "vendor.quorin.velmora_hub.IVelmoraHubProducerManager");
    EXPECT_STREQ(IVelmoraHubConsumerManager::descriptor,
                 "vendor.quorin.velmora_hub.IVelmoraHubConsumerManager");
    EXPECT_STREQ(VelmoraEvent::descriptor, "vendor.quorin.velmora_hub.VelmoraEvent");
}

TEST(HubPackage, ReasonsKeepTheirValues) {
    using Error = IVelmoraHubConsumer::SignalError;
    std::vector<int32_t> values;
    for (Error error : ndk::enum_range<Error>())
        values.push_back(static_cast<int32_t>(error));
    EXPECT_EQ(values, (std::vector<int32_t>{0, 1, 2, 3}));
    EXPECT_EQ(toString(Error::UNKNOWN), "UNKNOWN");
    EXPECT_EQ(toString(static_cast<Error>(3)), "UNREGISTERED");
}

TEST(HubPackage, VersionAndHashAreThoseOfTheFrozenFiles) {
    std::ifstream file(HUB_API_DIR "/.hash");
    std::string frozen;
    ASSERT_TRUE(std::getline(file, frozen));
    EXPECT_EQ(frozen.size(), 40u);
    class Token : public BnToken {};
    const auto token = ndk::SharedRefBase::make<Token>();
    int32_t version = 0;
    std::string hash;
    ASSERT_TRUE(token->getInterfaceVersion(&version).isOk());
    ASSERT_TRUE(token->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(version, 1);
    EXPECT_EQ(hash, frozen);
    EXPECT_EQ(IVelmoraHubProducer::hash, frozen);
}

TEST(HubPackage, AllTypesAreStable) {
    EXPECT_EQ(SignalDescriptor::_aidl_parcelable_stability, ndk::STABILITY_VINTF);
    EXPECT_EQ(VelmoraEvent::_aidl_parcelable_stability, ndk::STABILITY_VINTF);
    EXPECT_EQ(VelmoraEvent().payload.getStability(), ndk::STABILITY_VINTF);
}

std::vector<int32_t> WordsOf(const AParcel* parcel) {
    std::vector<int32_t> words(static_cast<size_t>(AParcel_getDataSize(parcel)) / 4);
    EXPECT_EQ(
            AParcel_marshal(parcel, reinterpret_cast<uint8_t*>(words.data()), 0, words.size() * 4),
            STATUS_OK);
    return words;
}

TEST(HubPackage, DescriptorHasItsFieldsInOrderBehindItsSize) {
    SignalDescriptor descriptor;
    descriptor.signalId = 2;
    descriptor.ttlMs = 0x100000003;
    const ndk::ScopedAParcel parcel(AParcel_create());
    ASSERT_EQ(descriptor.writeToParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(WordsOf(parcel.get()), (std::vector<int32_t>{20, 2, 0, 3, 1}));
}

TEST(HubPackage, EventHasItsFieldsInOrderBehindItsSize) {
    VelmoraEvent event;
    event.signalId = 2;
    event.timestampMs = 0x500000004;
    const ndk::ScopedAParcel parcel(AParcel_create());
    ASSERT_EQ(event.writeToParcel(parcel.get()), STATUS_OK);
    // The holder: not null, its stability, no bytes.
    EXPECT_EQ(WordsOf(parcel.get()), (std::vector<int32_t>{28, 2, 4, 5, 1, 1, 0}));
}

class Consumer : public BnVelmoraHubConsumer {
  public:
    ScopedAStatus onSignalAvailable(int32_t) override { return Refuse(); }
    ScopedAStatus onSignalUpdate(const VelmoraEvent&) override { return Refuse(); }
    ScopedAStatus onSignalUnavailable(int32_t, SignalError) override { return Refuse(); }

    int calls = 0;

  private:
    ScopedAStatus Refuse() {
        ++calls;
        return ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);
    }
};

TEST(HubPackage, ConsumersAreCalledOneway) {
    const auto consumer = ndk::SharedRefBase::make<Consumer>();
    const ndk::SpAIBinder binder = consumer->asBinder();
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), in.getR()), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(in.get(), 2), STATUS_OK);
    ASSERT_EQ(AIBinder_transact(binder.get(), IVelmoraHubConsumer::TRANSACTION_onSignalAvailable,
                                in.getR(), out.getR(), 0),
              STATUS_OK);
    // What a consumer answers is no part of the reply, which is empty.
    EXPECT_EQ(consumer->calls, 1);
    EXPECT_TRUE(out.get() == nullptr || AParcel_getDataSize(out.get()) == 0);
}

}  // namespace
