// The hub in a process of its own, and clients in theirs: what the hub's tests across processes are
// written with. Objects belong to one thread unless they say otherwise.
//
// A test program that uses these links hub_processes and has, once per program,
//     [[maybe_unused]] const auto* const kHost =
//             ::testing::AddGlobalTestEnvironment(new velmora_test::HubHost);

#pragma once

#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubConsumerManager.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubProducerManager.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "host_testing.h"
#include "hub_parts.h"

namespace velmora_test {

// The words that all of these tests use.
using host::testing::Child;
using host::testing::ChildLog;
using host::testing::ContextSwitches;
using host::testing::Eventually;
using host::testing::ExitStatus;
using host::testing::Helper;
using host::testing::kTestLimit;
using host::testing::LaunchOptions;
using host::testing::LaunchProgram;
using host::testing::LineChannel;
using host::testing::LogCapture;
using host::testing::OpenDescriptors;
using host::testing::ProcessState;
using host::testing::ResidentKib;
using host::testing::ScopedHost;
using host::testing::Threads;
using host::testing::WaitForRest;

// The published managers, as any client process finds them; waits until both are there.
std::shared_ptr<hub::IVelmoraHubProducerManager> WaitForProducerManager();
std::shared_ptr<hub::IVelmoraHubConsumerManager> WaitForConsumerManager();

// A process with a worker, both managers and the broker, published. One at a time.
class HubProcess {
  public:
    // Returns when both managers are published. `environment` comes beside what this process has;
    // with HUB_LOG_FILE in it, standard error is appended to that file instead of log(). The hub is
    // always of this build, whatever build the other helpers are taken from.
    explicit HubProcess(const std::map<std::string, std::string>& environment = {});

    pid_t pid() const { return helper_.pid(); }
    Child& process() { return helper_.process(); }
    ChildLog& log() { return helper_.log(); }

    const std::shared_ptr<hub::IVelmoraHubProducerManager>& producers() const { return producers_; }
    const std::shared_ptr<hub::IVelmoraHubConsumerManager>& consumers() const { return consumers_; }

    // Returns when the hub has run every task that it had queued.
    void Fence();

    // Ends it as its owner does, without waiting for its clients.
    std::optional<ExitStatus> Finish() { return helper_.Finish(); }

  private:
    Helper helper_;
    std::shared_ptr<hub::IVelmoraHubProducerManager> producers_;
    std::shared_ptr<hub::IVelmoraHubConsumerManager> consumers_;
};

}  // namespace velmora_test
