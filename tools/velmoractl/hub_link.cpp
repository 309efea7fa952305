#include "hub_link.h"

#include <android/binder_manager.h>

namespace velmoractl {

namespace {

template <typename Manager>
std::string NameOf() {
    return std::string(Manager::descriptor) + "/default";
}

template <typename Manager>
std::shared_ptr<Manager> Find() {
    const std::string name = NameOf<Manager>();
    return Manager::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(name.c_str())));
}

template <typename Manager>
std::shared_ptr<Manager> WaitFor(const Output& output) {
    if (const std::shared_ptr<Manager> found = Find<Manager>()) return found;
    const std::string name = NameOf<Manager>();
    output.Talk("waiting for the hub: " + name + " is not published");
    const ndk::SpAIBinder binder(AServiceManager_waitForService(name.c_str()));
    const std::shared_ptr<Manager> manager = Manager::fromBinder(binder);
    if (manager == nullptr) output.Talk("cannot use what is published as " + name);
    return manager;
}

void OnDied(void* cookie) {
    (*static_cast<std::function<void()>*>(cookie))();
}

void OnUnlinked(void* cookie) {
    delete static_cast<std::function<void()>*>(cookie);
}

}  // namespace

Hub FindHub() {
    return {Find<hub::IVelmoraHubProducerManager>(), Find<hub::IVelmoraHubConsumerManager>()};
}

Hub WaitForHub(const Output& output) {
    Hub found;
    // The one that is published last comes first: it stands for both.
    found.producers = WaitFor<hub::IVelmoraHubProducerManager>(output);
    if (found.producers == nullptr) return {};
    found.consumers = WaitFor<hub::IVelmoraHubConsumerManager>(output);
    return found.consumers == nullptr ? Hub() : found;
}

SignalTable ProducersOf(const Hub& hub) {
    return ParseTable(DumpOf(*hub.producers).value_or(""));
}

SignalTable ConsumersOf(const Hub& hub) {
    return ParseTable(DumpOf(*hub.consumers).value_or(""));
}

DeathWatch::DeathWatch(const Hub& hub, std::function<void()> on_death)
        : recipient_(AIBinder_DeathRecipient_new(OnDied)) {
    AIBinder_DeathRecipient_setOnUnlinked(recipient_.get(), OnUnlinked);
    auto cookie = std::make_unique<std::function<void()>>(std::move(on_death));
    alive_ = AIBinder_linkToDeath(hub.producers->asBinder().get(), recipient_.get(),
                                  cookie.get()) == STATUS_OK;
    // An accepted link ends its cookie itself.
    // NOLINTNEXTLINE(bugprone-unused-return-value)
    if (alive_) static_cast<void>(cookie.release());
}

}  // namespace velmoractl
