// The hosted producer of signal 2: the user's engagement with the touch panels. Registers with the
// hub, keeps a listener registered for every panel of the touch-input service, and turns the
// gestures that it hears of into events.
//
// Threads: the host's thread calls OnStart; the hub's worker calls onClientsUpdated and nudge;
// binder threads call HandleBinderDeath and the listeners; a thread of the producer's own looks
// for the service. The last reference may go on any of them, its own thread included. No call to
// the hub or to the service is made, and nothing of theirs released, with the mutex held.

#pragma once

#include <aidl/com/quorin/input/BnSkeldaNotificationListener.h>
#include <aidl/com/quorin/input/ISkeldaNotificationService.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducer.h>
#include <android-base/thread_annotations.h>
#include <android/binder_ibinder.h>
#include <touch_gesture.pb.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "death_handler.h"
#include "host/hosted_producer.h"

namespace aidl::vendor::quorin::velmora_hub::host {

// The packet in the bytes; nothing, after an error line, if they hold none.
std::optional<touch_gesture::TouchGesturePacket> DeserializeBytesToGesturePacket(
        const std::vector<uint8_t>& bytes);

class SkeldaProducer : public BnVelmoraHubProducer, public IHostedProducer, public DeathHandler {
  public:
    class ListenerImpl;

    // How long after a failure the next attempt to connect begins.
    static constexpr std::chrono::steady_clock::duration kRetryInterval = std::chrono::seconds(5);

    // Use ndk::SharedRefBase::make. Lets every line of the process down to DEBUG through to the
    // log.
    explicit SkeldaProducer(std::chrono::steady_clock::duration retry_interval = kRetryInterval);

    // Stops, then waits until the last callback about the service's death has returned, unless it
    // is this very thread that is inside it.
    ~SkeldaProducer() override;

    ::ndk::ScopedAStatus onClientsUpdated(bool hasClients) override;
    // There is nothing to send between two gestures.
    ::ndk::ScopedAStatus nudge() override;

    const SignalDescriptor& GetDescriptor() const override;
    std::shared_ptr<IVelmoraHubProducer> GetProducerInterface() override;

    // Once until OnStop. Without a registration the service is listened to all the same.
    void OnStart(const std::shared_ptr<IVelmoraHubProducerManager>& manager) override;

    // Waits for the producer's own thread: for a call to the service that is under way, and while
    // the service is declared but not published until it is.
    void OnStop() override;

    // The service has died. The argument is not looked at. A link whose service is known to be dead
    // may still have its death to tell when the next one stands: that costs the next one a search.
    void HandleBinderDeath(const std::shared_ptr<IToken>& token) override;

  private:
    using PanelID = ::aidl::com::quorin::input::PanelID;
    using Service = ::aidl::com::quorin::input::ISkeldaNotificationService;
    using Listeners = std::vector<std::pair<PanelID, std::shared_ptr<ListenerImpl>>>;

    // The way of an event to the hub, at one moment.
    struct Link {
        std::shared_ptr<IVelmoraHubProducerManager> manager;
        std::shared_ptr<IToken> token;
        bool has_clients;
    };
    Link GetLink();

    // Logs the gesture in the bytes and, while the signal has consumers, sends it to the hub.
    void PushGesture(const std::vector<uint8_t>& bytes, PanelID panel);

    // The thread: connects, then waits, until it is stopped.
    void MonitorConnection();
    bool IsListening();
    // One attempt to be listening.
    void Connect();
    bool FindService(const std::string& name);
    bool TrackService(const std::shared_ptr<Service>& service);
    void RegisterListeners();
    bool RegisterAll(Service& service);
    // The panels with their listeners, in the service's order; empty, after an error line, if the
    // service tells of none.
    Listeners FindPanels(Service& service);
    // Until there is something to do again: for the retry interval, or as long as the producer
    // listens.
    void WaitForChange();

    std::shared_ptr<Service> service_ GUARDED_BY(mutex_);
    // One for every panel ever seen; the next instance of the service gets the same.
    std::map<PanelID, std::shared_ptr<ListenerImpl>> listeners_ GUARDED_BY(mutex_);
    std::thread monitor_thread_;
    // Written with the mutex held, so that the wait cannot miss it.
    std::atomic<bool> running_{false};
    // Guards the base's registration_token_ and producer_manager_ too.
    std::mutex mutex_;
    // The last pass registered every listener with service_.
    bool listening_ GUARDED_BY(mutex_) = false;
    bool has_clients_ GUARDED_BY(mutex_) = false;
    SignalDescriptor descriptor_;
    std::condition_variable cv_;
    // Identifies the link to the service in the death tracking.
    std::shared_ptr<IToken> death_token_;
    // The last link that was made, until its death is told.
    AIBinder_DeathRecipient* death_recipient_ GUARDED_BY(mutex_) = nullptr;
    // Deaths of services that were heard of.
    uint64_t deaths_ GUARDED_BY(mutex_) = 0;
    const std::chrono::steady_clock::duration retry_interval_;
};

// Hears of one panel. Called on binder threads, several at once; never fails. The service holds it
// as long as it likes: without its producer it does nothing.
class SkeldaProducer::ListenerImpl
        : public ::aidl::com::quorin::input::BnSkeldaNotificationListener {
  public:
    using Message = ::aidl::com::quorin::input::SkeldaNotificationMsg;

    explicit ListenerImpl(std::weak_ptr<SkeldaProducer> producer)
            : producer_(std::move(producer)) {}

    ::ndk::ScopedAStatus onNotificationReceived(const Message& msg) override;
    // False: nothing is ever dealt with here.
    ::ndk::ScopedAStatus onHandleNotification(const Message& msg, bool* out) override;

  private:
    const std::weak_ptr<SkeldaProducer> producer_;
};

}  // namespace aidl::vendor::quorin::velmora_hub::host
