// What tests of the hub are written with: a wired hub, a place to publish it, and clients that
// write down what they are told. Functions may be called from any thread unless they say otherwise.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/BnToken.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumer.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducer.h>
#include <android-base/thread_annotations.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "log_capture.h"
#include "scoped_host.h"
#include "signal_broker.h"

namespace velmora_test {

namespace hub = ::aidl::vendor::quorin::velmora_hub;
using ::aidl::android::hardware::biometrics::WorkerThread;
using Strings = std::vector<std::string>;

// Lines in the order in which they were added.
class Record {
  public:
    void Add(const std::string& line);
    Strings lines() const;
    void Clear();

    // All lines, once there are at least so many; fewer if the time limit passes before.
    Strings WaitFor(size_t count) const;

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable added_;
    Strings lines_ GUARDED_BY(mutex_);
};

// A client that writes lines, "NAME: TEXT", then calls the hook, if there is one, with the line.
template <typename Bn>
class Recorder : public Bn {
  public:
    using Hook = std::function<void(const std::string& line)>;

  protected:
    Recorder(std::shared_ptr<Record> record, std::string name, Hook hook)
            : record_(std::move(record)), name_(std::move(name)), hook_(std::move(hook)) {}

    ::ndk::ScopedAStatus Add(const std::string& text) {
        const std::string line = name_ + ": " + text;
        record_->Add(line);
        if (hook_) hook_(line);
        return ::ndk::ScopedAStatus::ok();
    }

  private:
    const std::shared_ptr<Record> record_;
    const std::string name_;
    const Hook hook_;
};

// Writes "available 5", "update 5 @TIMESTAMP [PAYLOAD TAG]", "unavailable 5 UNREGISTERED".
class RecordingConsumer : public Recorder<hub::BnVelmoraHubConsumer> {
  public:
    explicit RecordingConsumer(std::shared_ptr<Record> record = std::make_shared<Record>(),
                               std::string name = "consumer", Hook hook = {})
            : Recorder(std::move(record), std::move(name), std::move(hook)) {}

    ::ndk::ScopedAStatus onSignalAvailable(int32_t signalId) override;
    ::ndk::ScopedAStatus onSignalUpdate(const hub::VelmoraEvent& event) override;
    ::ndk::ScopedAStatus onSignalUnavailable(int32_t signalId, SignalError error) override;
};

// Writes "clients", "no clients", "nudge".
class RecordingProducer : public Recorder<hub::BnVelmoraHubProducer> {
  public:
    explicit RecordingProducer(std::shared_ptr<Record> record = std::make_shared<Record>(),
                               std::string name = "producer", Hook hook = {})
            : Recorder(std::move(record), std::move(name), std::move(hook)) {}

    ::ndk::ScopedAStatus onClientsUpdated(bool hasClients) override;
    ::ndk::ScopedAStatus nudge() override;
};

template <typename... Arguments>
std::shared_ptr<RecordingConsumer> MakeConsumer(Arguments&&... arguments) {
    return ::ndk::SharedRefBase::make<RecordingConsumer>(std::forward<Arguments>(arguments)...);
}
template <typename... Arguments>
std::shared_ptr<RecordingProducer> MakeProducer(Arguments&&... arguments) {
    return ::ndk::SharedRefBase::make<RecordingProducer>(std::forward<Arguments>(arguments)...);
}

// A token of no manager.
class TestToken : public hub::BnToken {};

// An event with a payload that carries `tag`, or without one if the tag is empty.
hub::VelmoraEvent MakeEvent(int32_t signal_id, int64_t timestamp_ms = 0,
                            const std::string& tag = "");

hub::SignalDescriptor MakeDescriptor(int32_t signal_id, int64_t ttl_ms = 0);

// The token that the manager answers with; null if it refuses.
std::shared_ptr<hub::IToken> Register(hub::IVelmoraHubProducerManager& manager,
                                      const hub::SignalDescriptor& descriptor,
                                      const std::shared_ptr<hub::IVelmoraHubProducer>& producer);
std::shared_ptr<hub::IToken> Subscribe(hub::IVelmoraHubConsumerManager& manager, int32_t signal_id,
                                       const std::shared_ptr<hub::IVelmoraHubConsumer>& consumer);

// "OK", "EXCEPTION MESSAGE", or "status N" for a call that failed on its way.
std::string Answer(const ::ndk::ScopedAStatus& status);

// What the object writes on a dump.
std::string DumpOf(::ndk::ICInterface& object);

// The product's own lines so far, as "D base TEXT" or "W print TEXT", those of the hub behind
// "velmora_hal ".
Strings Lines(const ::host::testing::LogCapture& log);

// A folder and its service manager, which knows the product's manifests.
std::unique_ptr<::host::testing::ScopedHost> StartHubHost();

// The same and this process's pool: the environment of a whole test program.
class HubHost : public ::testing::Environment {
  public:
    void SetUp() override;
    void TearDown() override { Host().reset(); }

    // Runs `what` beside a service manager that knows the one fragment only.
    static void WithManifest(const std::string& fragment, const std::function<void()>& what);

  private:
    static std::unique_ptr<::host::testing::ScopedHost>& Host();
};

// Both managers and the broker on a worker of their own, as the daemon has them.
class Hub {
  public:
    Hub();
    // Waits for what is queued, then takes the parts from each other.
    ~Hub();

    // Returns when every task scheduled before has run; not from a task.
    void Fence() const;

    // Publishes both managers under their names in the manifest; not OK if one is refused.
    binder_exception_t Publish() const;

    const std::shared_ptr<WorkerThread> worker;
    const std::shared_ptr<hub::VelmoraHubConsumerManager> consumers;
    const std::shared_ptr<hub::VelmoraHubProducerManager> producers;
};

// Returns when every task that the worker had accepted has run; not from a task.
void Fence(WorkerThread& worker);

// Keeps the worker in a task while it lives; not made from a task. At its end everything that was
// queued has run.
class HeldWorker {
  public:
    explicit HeldWorker(WorkerThread& worker);
    ~HeldWorker();

  private:
    WorkerThread& worker_;
    std::promise<void> released_;
};

}  // namespace velmora_test
