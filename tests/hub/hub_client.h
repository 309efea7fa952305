// A client of the hub in a process of its own, and how tests write dumps. Everything
// belongs to one thread.

#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "hub_processes.h"
#include "test_object.h"

namespace velmora_test {

using host::testing::InParallel;
using host::testing::Letter;
using host::testing::ProcessCounts;
using host::testing::RemoteObject;
using host::testing::Rounds;

// By signal id, the token numbers that a dump of either manager lists. Fails the test if there is
// none, or if it lists a signal or a number twice.
using Table = std::map<int32_t, std::set<int32_t>>;
Table TableOf(hub::IVelmoraHubProducerManager& manager);
Table TableOf(hub::IVelmoraHubConsumerManager& manager);

// The same without the signals that have no token.
Table Subscriptions(hub::IVelmoraHubConsumerManager& manager);

// A process with two consumers, "a" and "b", and a producer. Commands, answered as by Answer():
//     subscribe ID NAME, unsubscribe ID NAME, register ID, unregister ID
//     churn ID ROUNDS   all four of these, so many times; the first answer that is not OK, or OK
//     lines COUNT       what the clients were told, joined by ";", once there is so much
class HubClient {
  public:
    HubClient() : remote_("HubClient") {}

    std::string Do(const std::string& command) { return remote_.helper().Command(command); }
    Helper& helper() { return remote_.helper(); }
    Child& process() { return remote_.process(); }

  private:
    RemoteObject remote_;
};

// A hub with clients in the test's own process, each with a record that may be shared.
class HubTest : public ::testing::Test {
  protected:
    std::shared_ptr<hub::IToken> Register(int32_t id, const std::shared_ptr<Record>& record) {
        return velmora_test::Register(producers_, MakeDescriptor(id), MakeProducer(record));
    }
    std::shared_ptr<hub::IToken> Subscribe(int32_t id, const std::shared_ptr<Record>& record) {
        return velmora_test::Subscribe(consumers_, id, MakeConsumer(record));
    }

    HubProcess hub_;
    hub::IVelmoraHubProducerManager& producers_ = *hub_.producers();
    hub::IVelmoraHubConsumerManager& consumers_ = *hub_.consumers();
    const std::shared_ptr<Record> first_ = std::make_shared<Record>();
    const std::shared_ptr<Record> second_ = std::make_shared<Record>();
};

}  // namespace velmora_test
