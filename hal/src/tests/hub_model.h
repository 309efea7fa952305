// What the hub does, said once more as plain values: no threads, no binders, no time. Tests compare
// the hub with it.
//
// Threads: one at a time.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace velmora_test {

class HubModel {
  public:
    // What a test may bend, to see that a comparison notices.
    struct Rules {
        size_t queue_bound = 100;
        bool only_the_newest_token_unregisters = false;
        bool updates_end_with_the_registration = false;
        bool subscribers_hear_of_earlier_producers = false;
        bool signals_without_subscribers_are_forgotten = false;
    };
    // None stands for a token that is null or not of the manager.
    using Token = std::optional<std::pair<int32_t, int32_t>>;
    // The lines that one notification leads to; which client comes first is left open.
    using Told = std::multiset<std::string>;

    explicit HubModel(const Rules& rules) : rules_(rules) {}

    // The answers are "OK", "OK SIGNAL::NUMBER" with a token, or "EXCEPTION MESSAGE". Clients are
    // known by their names; `event` is what a consumer writes about it.
    std::string Register(int32_t signal_id, int64_t ttl_ms, const std::string& producer, bool full);
    std::string Update(const Token& token, const std::string& event);
    std::string Unregister(const Token& token);
    std::string Subscribe(int32_t signal_id, const std::string& consumer, bool full);
    std::string Unsubscribe(const Token& token);
    std::string Request(const Token& token);

    // Runs the notifications queued so far, oldest first, on the tables as they are now.
    std::vector<Told> RunQueue();
    bool is_idle() const { return queue_.empty(); }

    std::string DumpProducers() const;
    std::string DumpConsumers() const;

  private:
    enum class To { kProducer, kConsumers };
    struct Notification {
        To to;
        int32_t signal_id;
        std::string text;
    };
    struct Registration {
        int32_t token_id;
        int64_t ttl_ms;
        std::string producer;
    };

    // Lost if the queue is full.
    void Queue(To to, int32_t signal_id, const std::string& text);

    const Rules rules_;
    std::map<int32_t, Registration> registrations_;
    // By signal id, then by token number.
    std::map<int32_t, std::map<int32_t, std::string>> subscriptions_;
    int32_t next_producer_token_ = 1;
    int32_t next_consumer_token_ = 1;
    std::vector<Notification> queue_;
};

}  // namespace velmora_test
