#define LOG_TAG "velmora_producer_host"

#include "host/skelda_producer.h"

#include <aidl/vendor/quorin/velmora_hub/BnToken.h>
#include <android-base/logging.h>
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/log.h>

#include "binder_death_manager.h"
#include "host/engagement_signal.h"

namespace aidl::vendor::quorin::velmora_hub::host {

namespace {

using ::aidl::com::quorin::input::PanelInfo;
using ::ndk::ScopedAStatus;

// The three kinds of notifications of which a listener is told, a bit each.
constexpr int32_t kNotificationFlags = 7;

class DeathToken : public BnToken {};

}  // namespace

SkeldaProducer::SkeldaProducer(std::chrono::steady_clock::duration retry_interval)
        : retry_interval_(retry_interval) {
    android::base::SetMinimumLogSeverity(android::base::DEBUG);
    descriptor_.signalId = kEngagementSignalId;
    death_token_ = ::ndk::SharedRefBase::make<DeathToken>();
}

SkeldaProducer::~SkeldaProducer() {
    SkeldaProducer::OnStop();
    // Still joinable on the thread itself, which let go of the last reference: it returns without
    // another look at the producer.
    if (monitor_thread_.joinable()) monitor_thread_.detach();
    BinderDeathManager::AwaitUnlinked(death_token_);
}

ScopedAStatus SkeldaProducer::onClientsUpdated(bool hasClients) {
    std::lock_guard lock(mutex_);
    has_clients_ = hasClients;
    LOG(INFO) << "SkeldaProducer clients updated: " << (hasClients ? 1 : 0);
    return ScopedAStatus::ok();
}

ScopedAStatus SkeldaProducer::nudge() {
    return ScopedAStatus::ok();
}

const SignalDescriptor& SkeldaProducer::GetDescriptor() const {
    return descriptor_;
}

std::shared_ptr<IVelmoraHubProducer> SkeldaProducer::GetProducerInterface() {
    return ref<SkeldaProducer>();
}

void SkeldaProducer::OnStart(const std::shared_ptr<IVelmoraHubProducerManager>& manager) {
    {
        std::lock_guard lock(mutex_);
        producer_manager_ = manager;
        running_ = true;
    }
    std::shared_ptr<IToken> token;
    const ScopedAStatus status =
            manager->registerProducer(descriptor_, GetProducerInterface(), &token);
    if (status.isOk()) {
        std::lock_guard lock(mutex_);
        registration_token_ = std::move(token);
        LOG(INFO) << "SkeldaProducer successfully registered with manager";
    } else {
        LOG(ERROR) << "SkeldaProducer failed to register with manager: " << status.getMessage();
    }
    monitor_thread_ = std::thread(&SkeldaProducer::MonitorConnection, this);
}

void SkeldaProducer::OnStop() {
    {
        std::lock_guard lock(mutex_);
        running_ = false;
    }
    cv_.notify_all();
    if (monitor_thread_.joinable() && monitor_thread_.get_id() != std::this_thread::get_id())
        monitor_thread_.join();

    // Taken out under the mutex; told, and released, without it.
    std::shared_ptr<IVelmoraHubProducerManager> manager;
    std::shared_ptr<IToken> token;
    std::shared_ptr<Service> service;
    std::map<PanelID, std::shared_ptr<ListenerImpl>> listeners;
    {
        std::lock_guard lock(mutex_);
        manager = producer_manager_;
        token = registration_token_;
        service = service_;
        listeners = listeners_;
    }
    if (manager != nullptr && token != nullptr) manager->unregisterProducer(token);
    if (service != nullptr)
        for (const auto& [panel, listener] : listeners)
            service->unregisterListener(panel, listener);

    ::ndk::ScopedAIBinder_DeathRecipient recipient;
    std::lock_guard lock(mutex_);
    listeners_.clear();
    registration_token_.reset();
    producer_manager_.reset();
    service_.reset();
    recipient.set(std::exchange(death_recipient_, nullptr));
    listening_ = false;
}

void SkeldaProducer::HandleBinderDeath(const std::shared_ptr<IToken>& /*token*/) {
    __android_log_print(ANDROID_LOG_WARN, LOG_TAG,
                        "skelda: service died, signaling for reconnection");
    // Both go after the mutex is released. The recipient is deleted, not just forgotten: it would
    // be lost with every life of the service.
    std::shared_ptr<Service> service;
    ::ndk::ScopedAIBinder_DeathRecipient recipient;
    std::lock_guard lock(mutex_);
    ++deaths_;
    listening_ = false;
    service.swap(service_);
    recipient.set(std::exchange(death_recipient_, nullptr));
    cv_.notify_all();
}

SkeldaProducer::Link SkeldaProducer::GetLink() {
    std::lock_guard lock(mutex_);
    return {producer_manager_, registration_token_, has_clients_};
}

void SkeldaProducer::MonitorConnection() {
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG,
                        "skelda: Starting SkeldaHandler monitoring thread");
    // While it connects, the thread keeps the producer: the service may call a listener on this
    // very thread, and that may let go of the last other reference. While it waits it keeps
    // nothing, so that the producer can go; whoever ends it joins the thread, unless it ends by the
    // thread's own letting go.
    std::shared_ptr<SkeldaProducer> self = ref<SkeldaProducer>();
    const std::weak_ptr<SkeldaProducer> weak = self;
    while (self != nullptr && running_) {
        if (!IsListening()) Connect();
        self.reset();
        if (weak.expired()) return;
        WaitForChange();
        self = weak.lock();
    }
}

bool SkeldaProducer::IsListening() {
    std::lock_guard lock(mutex_);
    return listening_;
}

void SkeldaProducer::Connect() {
    const std::string name = std::string(Service::descriptor) + "/default";
    LOG(DEBUG) << "skelda: checking for service: " << name;
    bool is_connected;
    {
        std::lock_guard lock(mutex_);
        is_connected = service_ != nullptr;
    }
    if (is_connected || FindService(name)) RegisterListeners();
}

bool SkeldaProducer::FindService(const std::string& name) {
    if (!AServiceManager_isDeclared(name.c_str())) {
        __android_log_print(ANDROID_LOG_WARN, LOG_TAG, "skelda: service NOT declared in manifest");
        return false;
    }
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "skelda: service declared, waiting for service...");
    const auto service =
            Service::fromBinder(::ndk::SpAIBinder(AServiceManager_waitForService(name.c_str())));
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "skelda: service retrieved: %p",
                        static_cast<void*>(service.get()));
    if (service == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, LOG_TAG, "skelda: Skelda service not found.");
        std::lock_guard lock(mutex_);
        listening_ = false;
        return false;
    }
    return TrackService(service);
}

bool SkeldaProducer::TrackService(const std::shared_ptr<Service>& service) {
    uint64_t deaths_before;
    {
        std::lock_guard lock(mutex_);
        deaths_before = deaths_;
    }
    ::ndk::ScopedAIBinder_DeathRecipient recipient(
            BinderDeathManager::TrackDeath(service->asBinder().get(), death_token_, this));
    if (recipient.get() == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "skelda: TrackDeath failed, service is likely dead.");
        return false;
    }
    std::lock_guard lock(mutex_);
    // A death since the link was made has been told already and will not be told again: nothing is
    // kept, and the pass finds no service.
    if (deaths_ == deaths_before) {
        service_ = service;
        recipient.set(std::exchange(death_recipient_, recipient.release()));
    }
    return true;
}

void SkeldaProducer::RegisterListeners() {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "skelda: attempting registration...");
    std::shared_ptr<Service> service;
    {
        std::lock_guard lock(mutex_);
        service = service_;
    }
    if (service == nullptr) return;
    const bool all_registered = RegisterAll(*service);
    const bool is_alive = AIBinder_isAlive(service->asBinder().get());

    std::lock_guard lock(mutex_);
    // The outcome is that of this instance: one that has died since is none of the next one's.
    if (service_ != service) return;
    listening_ = all_registered;
    // If it was dead before it was linked to, nobody will tell: the next attempt looks for a new
    // one. A link that was made stays, for its death is still to be told.
    if (!all_registered && !is_alive) service_.reset();
}

bool SkeldaProducer::RegisterAll(Service& service) {
    const Listeners listeners = FindPanels(service);
    bool all_registered = !listeners.empty();
    for (const auto& [panel, listener] : listeners) {
        const int id = static_cast<int>(panel);
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG,
                            "skelda: Attempting to register listener for Panel ID: %d", id);
        const ScopedAStatus status = service.registerListener(panel, kNotificationFlags, listener);
        if (status.isOk()) {
            __android_log_print(ANDROID_LOG_INFO, LOG_TAG,
                                "skelda: Successfully registered listener for Panel ID: %d", id);
        } else {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "skelda: Failed to register listener for Panel ID: %d, error: %s",
                                id, status.getMessage());
            all_registered = false;
        }
    }
    return all_registered;
}

SkeldaProducer::Listeners SkeldaProducer::FindPanels(Service& service) {
    std::vector<PanelInfo> panels;
    const ScopedAStatus status = service.getPanelInfo(&panels);
    if (!status.isOk() || panels.empty()) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "skelda: Failed to get panel info: %s",
                            status.getMessage());
        return {};
    }
    Listeners found;
    std::lock_guard lock(mutex_);
    for (const PanelInfo& panel : panels) {
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG,
                            "skelda: Found Panel ID: %d, Supported Flags: 0x%-16llx",
                            static_cast<int>(panel.panelId),
                            static_cast<unsigned long long>(panel.supportedFlags));
        auto& listener = listeners_[panel.panelId];
        if (listener == nullptr)
            listener = ::ndk::SharedRefBase::make<ListenerImpl>(ref<SkeldaProducer>());
        found.emplace_back(panel.panelId, listener);
    }
    return found;
}

// The analysis cannot follow a wait.
void SkeldaProducer::WaitForChange() NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock lock(mutex_);
    if (listening_)
        cv_.wait(lock, [this] {
            const ::android::base::ScopedLockAssertion held(mutex_);
            return !running_ || !listening_;
        });
    else
        // After a failure only stop cuts the wait short, so that a service that fails or dies again
        // and again is not asked without a pause; one that has died before this wait began has
        // failed.
        cv_.wait_for(lock, retry_interval_, [this] { return !running_; });
}

}  // namespace aidl::vendor::quorin::velmora_hub::host
