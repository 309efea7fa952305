// The daemon, the touch service and clients, each in a process of its own: what the tests of the
// daemon are written with. Objects belong to one thread.
//
// Tests whose own process makes binder calls use HubHost; the others make a ScopedHost each. The
// helper "ClientProcess" is a Client elsewhere: "subscribe", "fence", and "gestures N", which
// answers all of them, separated by " | ", once there are at least so many.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hub_processes.h"

namespace velmora_test {

// Nothing is awaited.
std::unique_ptr<Child> LaunchDaemon(const std::string& log_tags = "*:V");

// Returns when the touch producer is registered: from then on it hears of consumers.
std::unique_ptr<Child> StartDaemon(const std::string& log_tags = "*:V");

// The touch service; its script is what Touch writes to it, unless the arguments name another.
std::unique_ptr<Child> StartTouchsim(const std::vector<std::string>& arguments = {});

// True when both panels have a listener.
bool WaitForListeners(Child& touchsim, std::chrono::milliseconds limit = kTestLimit);

// Writes a line of the script.
void Touch(Child& touchsim, const std::string& line);

// The tap number `n`, as a line of a script, and as a consumer hears of it.
std::string TapLine(int n);
std::string TapHeard(int n);

// A client of the daemon: hears of gestures, and has a signal of its own by which it learns what
// the hub has done.
class Client {
  public:
    // Waits until the managers are published.
    Client();

    // To the gestures; return when the producer has been told.
    void Subscribe();
    void Unsubscribe();

    // True when an event of its own has come back: what the hub had for it before has come too.
    bool Fence();

    // In the order in which they came: "display 1 SINGLE_TAP (0.5 0.5 0.6 0.6)".
    const Record& gestures() const { return *gestures_; }

    // Whether the daemon that it was made with lives, as this process knows it.
    bool IsHubAlive() const { return AIBinder_isAlive(consumers_->asBinder().get()); }

  private:
    class Consumer;

    const std::shared_ptr<hub::IVelmoraHubProducerManager> producers_;
    const std::shared_ptr<hub::IVelmoraHubConsumerManager> consumers_;
    const std::shared_ptr<Record> gestures_;
    const std::shared_ptr<Record> fences_;
    const std::shared_ptr<hub::IVelmoraHubConsumer> consumer_;
    std::shared_ptr<hub::IToken> own_producer_;
    std::shared_ptr<hub::IToken> subscription_;
    size_t fence_count_ = 0;
};

// A daemon, its touch service and two consumers, one of them elsewhere; a gesture has come through.
struct Everything {
    Everything();

    const std::unique_ptr<Child> daemon = StartDaemon();
    const std::unique_ptr<Child> touchsim = StartTouchsim();
    Client here;
    Helper there{"ClientProcess", {}, {.echo_log = false}};
};

}  // namespace velmora_test
