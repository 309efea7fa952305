// Labels: memory threads
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/velmora_hub_producer_host.h"
#include "host_parts.h"

namespace velmora_test {
namespace {

using hub::host::IHostedProducer;
using hub::host::VelmoraHubProducerHost;
using ::testing::ElementsAre;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

// Writes "start SIGNAL", and by whom it is to be started if that is another than expected.
class RecordingHosted : public IHostedProducer {
  public:
    RecordingHosted(int32_t signal_id, std::shared_ptr<Record> record,
                    const hub::IVelmoraHubProducerManager* expected)
            : descriptor_(MakeDescriptor(signal_id)),
              record_(std::move(record)),
              expected_(expected) {}

    const hub::SignalDescriptor& GetDescriptor() const override { return descriptor_; }
    std::shared_ptr<hub::IVelmoraHubProducer> GetProducerInterface() override { return nullptr; }
    void OnStart(const std::shared_ptr<hub::IVelmoraHubProducerManager>& manager) override {
        record_->Add("start " + std::to_string(descriptor_.signalId) +
                     (manager.get() == expected_ ? "" : " with another manager"));
    }
    void OnStop() override { record_->Add("stop"); }

  private:
    const hub::SignalDescriptor descriptor_;
    const std::shared_ptr<Record> record_;
    const hub::IVelmoraHubProducerManager* const expected_;
};

TEST(ProducerHost, StartsEachProducerOnceWhenTheManagerIsPublished) {
    android::base::SetMinimumLogSeverity(android::base::DEBUG);
    const auto record = std::make_shared<Record>();
    LogCapture log;
    {
        const Hub hub;
        VelmoraHubProducerHost host;
        const auto add = [&](int32_t id) {
            host.AddProducer(std::make_shared<RecordingHosted>(id, record, hub.producers.get()));
        };
        add(7);
        add(5);
        host.StartAll();
        host.StartAll();
        EXPECT_EQ(log.Texts("Adding").size(), 2u);
        record->Add("publish");
        EXPECT_EQ(hub.Publish(), EX_NONE);
        record->WaitFor(3);
        const pid_t worker = log.lines().back().thread;
        add(9);
        host.StartAll();
        // Asleep with nothing in its queue.
        EXPECT_TRUE(host::testing::Eventually(
                [&] { return host::testing::ProcessState(worker) == 'S'; }));
    }
    EXPECT_THAT(record->lines(), ElementsAre("publish", "start 7", "start 5"));
    EXPECT_THAT(Lines(log), ElementsAre("I base Adding producer for signal 7",
                                        "I base Adding producer for signal 5",
                                        "I base Starting producer for signal 7",
                                        "I base Starting producer for signal 5",
                                        "I base Adding producer for signal 9"));
}

TEST(ProducerHost, StartsNothingWhileTheManagerIsNotDeclared) {
    const auto record = std::make_shared<Record>();
    LogCapture log;
    HubHost::WithManifest("touch_input.xml", [&] {
        VelmoraHubProducerHost host;
        host.AddProducer(std::make_shared<RecordingHosted>(5, record, nullptr));
        host.StartAll();
        EXPECT_TRUE(log.WaitForText("not declared"));
    });
    EXPECT_THAT(record->lines(), ElementsAre());
    EXPECT_THAT(Lines(log),
                ElementsAre("I base Adding producer for signal 5",
                            "E base Producer manager service not declared: "
                            "vendor.quorin.velmora_hub.IVelmoraHubProducerManager/default"));
}

}  // namespace
}  // namespace velmora_test
