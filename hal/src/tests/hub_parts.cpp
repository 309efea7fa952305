#include "hub_parts.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <utility>

#include "eventually.h"
#include "worker/callable.h"

namespace velmora_test {

using ::aidl::android::hardware::biometrics::Callable;
using ::host::testing::LogCapture;
using ::host::testing::ScopedHost;
using ::ndk::ScopedAStatus;

void Record::Add(const std::string& line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(line);
    added_.notify_all();
}

Strings Record::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

void Record::Clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
}

Strings Record::WaitFor(size_t count) const {
    std::unique_lock lock(mutex_);
    added_.wait_for(lock, host::testing::kTestLimit, [&] { return lines_.size() >= count; });
    return lines_;
}

ScopedAStatus RecordingConsumer::onSignalAvailable(int32_t signalId) {
    return Add("available " + std::to_string(signalId));
}

ScopedAStatus RecordingConsumer::onSignalUpdate(const hub::VelmoraEvent& event) {
    std::optional<hub::SignalDescriptor> payload;
    event.payload.getParcelable(&payload);
    return Add("update " + std::to_string(event.signalId) + " @" +
               std::to_string(event.timestampMs) +
               (payload && !payload->tags.empty() ? " " + payload->tags[0] : ""));
}

ScopedAStatus RecordingConsumer::onSignalUnavailable(int32_t signalId, SignalError error) {
    return Add("unavailable " + std::to_string(signalId) + " " + toString(error));
}

ScopedAStatus RecordingProducer::onClientsUpdated(bool hasClients) {
    return Add(hasClients ? "clients" : "no clients");
}

ScopedAStatus RecordingProducer::nudge() {
    return Add("nudge");
}

hub::VelmoraEvent MakeEvent(int32_t signal_id, int64_t timestamp_ms, const std::string& tag) {
    hub::VelmoraEvent event;
    event.signalId = signal_id;
    event.timestampMs = timestamp_ms;
    if (!tag.empty()) {
        hub::SignalDescriptor payload;
        payload.tags = {tag};
        event.payload.setParcelable(payload);
    }
    return event;
}

hub::SignalDescriptor MakeDescriptor(int32_t signal_id, int64_t ttl_ms) {
    hub::SignalDescriptor descriptor;
    descriptor.signalId = signal_id;
    descriptor.ttlMs = ttl_ms;
    return descriptor;
}

std::shared_ptr<hub::IToken> Register(hub::IVelmoraHubProducerManager& manager,
                                      const hub::SignalDescriptor& descriptor,
                                      const std::shared_ptr<hub::IVelmoraHubProducer>& producer) {
    std::shared_ptr<hub::IToken> token;
    manager.registerProducer(descriptor, producer, &token);
    return token;
}

std::shared_ptr<hub::IToken> Subscribe(hub::IVelmoraHubConsumerManager& manager, int32_t signal_id,
                                       const std::shared_ptr<hub::IVelmoraHubConsumer>& consumer) {
    std::shared_ptr<hub::IToken> token;
    manager.subscribe(signal_id, consumer, &token);
    return token;
}

std::string Answer(const ScopedAStatus& status) {
    if (status.isOk()) return "OK";
    if (status.getExceptionCode() == EX_TRANSACTION_FAILED)
        return "status " + std::to_string(status.getStatus());
    return std::to_string(status.getExceptionCode()) + " " + status.getMessage();
}

std::string DumpOf(::ndk::ICInterface& object) {
    std::FILE* file = std::tmpfile();
    object.dump(fileno(file), nullptr, 0);
    std::string text(static_cast<size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
    const ssize_t read = pread(fileno(file), text.data(), text.size(), 0);
    text.resize(read < 0 ? 0 : static_cast<size_t>(read));
    std::fclose(file);
    return text;
}

Strings Lines(const LogCapture& log) {
    Strings lines;
    for (const auto& line : log.lines()) {
        const bool is_hub = line.tag == "velmora_hal";
        if (!is_hub && line.tag != "velmora_producer_host") continue;
        const bool is_base = line.route == host::testing::LogRoute::kBase;
        lines.push_back((is_hub ? "velmora_hal " : "") + std::string(1, "??VDIWEF"[line.priority]) +
                        (is_base ? " base " : " print ") + line.text);
    }
    return lines;
}

std::unique_ptr<ScopedHost> StartHubHost() {
    return std::make_unique<ScopedHost>(host::testing::ScopedHostOptions{
            .manifests = {HUB_MANIFESTS "/velmora_hub.xml", HUB_MANIFESTS "/touch_input.xml"},
            .echo_log = false});
}

void HubHost::SetUp() {
    Host() = StartHubHost();
    ABinderProcess_startThreadPool();
}

void HubHost::WithManifest(const std::string& fragment, const std::function<void()>& what) {
    Host()->KillServiceManager();
    {
        const auto other =
                Host()->LaunchServiceManager({HUB_MANIFESTS "/" + fragment}, {.echo_log = false});
        what();
    }
    Host()->StartServiceManager();
}

std::unique_ptr<ScopedHost>& HubHost::Host() {
    static std::unique_ptr<ScopedHost> host;
    return host;
}

Hub::Hub()
        : worker(std::make_shared<WorkerThread>(100)),
          consumers(::ndk::SharedRefBase::make<hub::VelmoraHubConsumerManager>(worker)),
          producers(::ndk::SharedRefBase::make<hub::VelmoraHubProducerManager>(worker)) {
    const auto broker = std::make_shared<hub::SignalBroker>(producers, consumers);
    consumers->RegisterListener(broker);
    producers->RegisterListener(broker);
}

Hub::~Hub() {
    Fence();
    consumers->RegisterListener(nullptr);
    producers->RegisterListener(nullptr);
}

void Hub::Fence() const {
    velmora_test::Fence(*worker);
}

binder_exception_t Hub::Publish() const {
    const std::string suffix = "/default";
    const binder_exception_t status = AServiceManager_addService(
            consumers->asBinder().get(),
            (hub::IVelmoraHubConsumerManager::descriptor + suffix).c_str());
    if (status != EX_NONE) return status;
    return AServiceManager_addService(
            producers->asBinder().get(),
            (hub::IVelmoraHubProducerManager::descriptor + suffix).c_str());
}

void Fence(WorkerThread& worker) {
    std::promise<void> reached;
    // A full queue takes it as soon as a task has left.
    host::testing::Eventually(
            [&] { return worker.schedule(Callable::wrap([&] { reached.set_value(); })); });
    reached.get_future().wait();
}

HeldWorker::HeldWorker(WorkerThread& worker) : worker_(worker) {
    std::promise<void> inside;
    worker.schedule(Callable::wrap([&] {
        inside.set_value();
        released_.get_future().wait();
    }));
    inside.get_future().wait();
}

HeldWorker::~HeldWorker() {
    released_.set_value();
    Fence(worker_);
}

}  // namespace velmora_test
