// The verb watch, on the verb's thread; the hub's calls are handed over to it.

#pragma once

#include <map>
#include <memory>

#include "hub_link.h"
#include "loop.h"
#include "options.h"

namespace velmoractl {

class Watch {
  public:
    // All three outlive the object.
    Watch(const Options& options, const Output& output, const std::shared_ptr<Loop>& loop)
            : options_(options), output_(output), loop_(loop) {}

    // Watches until the loop is stopped, and takes its leave of the hub.
    int Run();

  private:
    class Consumer;
    struct Subscription {
        std::shared_ptr<Consumer> consumer;
        std::shared_ptr<hub::IToken> token;
    };

    // Finds the hub and subscribes; false if it died meanwhile or was not to be had.
    bool Attach();
    bool Subscribe(int32_t signal);
    bool Unsubscribe(int32_t signal);
    void OnAvailable(int32_t signal);
    void OnEvent(int32_t signal, const hub::VelmoraEvent& event);
    // So that a producer that registered after the subscription hears of it.
    void Renew(int32_t signal);
    // False if the call failed, which stops the loop unless the hub has died.
    bool Check(const ndk::ScopedAStatus& status);

    const Options& options_;
    const Output& output_;
    const std::shared_ptr<Loop> loop_;
    Hub hub_;
    std::map<int32_t, Subscription> subscriptions_;
    uint64_t events_ = 0;
    // Of the hub that is attached to; what comes from an earlier one is passed over.
    uint64_t generation_ = 0;
    bool attached_ = false;
};

}  // namespace velmoractl
