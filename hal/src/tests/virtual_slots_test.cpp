// Callers that were built apart go by a virtual function's place in its class's table.

#include <gmock/gmock.h>

#include <cstring>

#include "hub_parts.h"
#include "worker/callable.h"

namespace velmora_test {
namespace {

using ::testing::ElementsAre;
using Task = aidl::android::hardware::biometrics::Callable;
using Producers = hub::VelmoraHubProducerManager;
using Consumers = hub::VelmoraHubConsumerManager;

// The C++ ABI keeps a function's offset in the pointer to it.
template <typename... Functions>
std::vector<size_t> SlotsOf(Functions... functions) {
    std::vector<size_t> offsets(sizeof...(functions));
    size_t* next = offsets.data();
    (std::memcpy(next++, &functions, sizeof *next), ...);
    for (size_t& offset : offsets)
        offset /= sizeof(void*);
    return offsets;
}

// A destructor has two slots, in the place where it is declared.
TEST(VirtualSlots, StandInTheirFixedOrder) {
    using OnProducers = hub::ProducerManagerListener;
    using OnConsumers = hub::ConsumerManagerListener;
    EXPECT_THAT(SlotsOf(&Task::operator(), &WorkerThread::schedule), ElementsAre(0, 2));
    EXPECT_THAT(SlotsOf(&hub::DeathHandler::HandleBinderDeath), ElementsAre(2));
    EXPECT_THAT(SlotsOf(&OnProducers::OnSignalAdded, &OnProducers::OnSignalRemoved,
                        &OnProducers::OnSignalUpdated),
                ElementsAre(0, 1, 2));
    EXPECT_THAT(SlotsOf(&OnConsumers::OnSignalUpdateRequested,
                        &OnConsumers::OnConsumerSubscriptionChanged),
                ElementsAre(0, 1));
    // The generated base's from dump to the hash, then the managers' own.
    EXPECT_THAT(SlotsOf(&Producers::dump, &Producers::registerProducer, &Producers::updateSignal,
                        &Producers::unregisterProducer, &Producers::getInterfaceVersion,
                        &Producers::getInterfaceHash, &Producers::HandleBinderDeath,
                        &Producers::RegisterListener, &Producers::RequestSignalUpdate,
                        &Producers::UpdateSubscriptionState),
                ElementsAre(4, 6, 7, 8, 9, 10, 12, 13, 14, 15));
    EXPECT_THAT(SlotsOf(&Consumers::getInterfaceHash, &Consumers::HandleBinderDeath,
                        &Consumers::DispatchSignalAvailable, &Consumers::DispatchSignalUnavailable,
                        &Consumers::DispatchSignalUpdate),
                ElementsAre(10, 12, 13, 14, 15));
}

}  // namespace
}  // namespace velmora_test
