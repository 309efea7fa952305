#include "hub_model.h"

#include <algorithm>

namespace velmora_test {

namespace {

constexpr char kBadProducerToken[] = "-3 Invalid token.";
constexpr char kBadConsumerToken[] = "-3 Invalid token state.";

std::string Issued(int32_t signal_id, int32_t token_id) {
    return "OK " + std::to_string(signal_id) + "::" + std::to_string(token_id);
}

}  // namespace

std::string HubModel::Register(int32_t signal_id, int64_t ttl_ms, const std::string& producer,
                               bool full) {
    if (full) return kBadProducerToken;
    if (registrations_.count(signal_id) != 0) return "-5 Signal already registered.";
    Queue(To::kConsumers, signal_id, "available " + std::to_string(signal_id));
    registrations_[signal_id] = {next_producer_token_, ttl_ms, producer};
    return Issued(signal_id, next_producer_token_++);
}

std::string HubModel::Update(const Token& token, const std::string& event) {
    if (!token) return kBadProducerToken;
    if (!rules_.updates_end_with_the_registration || registrations_.count(token->first) != 0)
        Queue(To::kConsumers, token->first, event);
    return "OK";
}

std::string HubModel::Unregister(const Token& token) {
    if (!token) return kBadProducerToken;
    const auto [signal_id, token_id] = *token;
    const auto found = registrations_.find(signal_id);
    if (found != registrations_.end() &&
        (!rules_.only_the_newest_token_unregisters || found->second.token_id == token_id))
        registrations_.erase(found);
    Queue(To::kConsumers, signal_id, "unavailable " + std::to_string(signal_id) + " UNREGISTERED");
    return "OK";
}

std::string HubModel::Subscribe(int32_t signal_id, const std::string& consumer, bool full) {
    if (full) return kBadConsumerToken;
    auto& signal = subscriptions_[signal_id];
    if (std::any_of(signal.begin(), signal.end(),
                    [&](const auto& entry) { return entry.second == consumer; }))
        return "-3 Already subscribed";
    if (signal.empty()) Queue(To::kProducer, signal_id, "clients");
    if (rules_.subscribers_hear_of_earlier_producers && registrations_.count(signal_id) != 0)
        Queue(To::kConsumers, signal_id, "available " + std::to_string(signal_id));
    signal[next_consumer_token_] = consumer;
    return Issued(signal_id, next_consumer_token_++);
}

std::string HubModel::Unsubscribe(const Token& token) {
    if (!token) return kBadConsumerToken;
    const auto signal = subscriptions_.find(token->first);
    if (signal == subscriptions_.end() || signal->second.erase(token->second) == 0) return "OK";
    if (signal->second.empty()) {
        Queue(To::kProducer, token->first, "no clients");
        if (rules_.signals_without_subscribers_are_forgotten) subscriptions_.erase(signal);
    }
    return "OK";
}

std::string HubModel::Request(const Token& token) {
    if (!token) return kBadConsumerToken;
    Queue(To::kProducer, token->first, "nudge");
    return "OK";
}

void HubModel::Queue(To to, int32_t signal_id, const std::string& text) {
    if (queue_.size() < rules_.queue_bound) queue_.push_back({to, signal_id, text});
}

std::vector<HubModel::Told> HubModel::RunQueue() {
    std::vector<Told> all;
    for (const auto& [to, signal_id, text] : queue_) {
        Told& told = all.emplace_back();
        if (to == To::kConsumers) {
            for (const auto& [token_id, consumer] : subscriptions_[signal_id])
                told.insert(consumer + ": " + text);
        } else if (registrations_.count(signal_id) != 0) {
            told.insert(registrations_[signal_id].producer + ": " + text);
        }
    }
    queue_.clear();
    return all;
}

std::string HubModel::DumpProducers() const {
    std::string dump = "VelmoraHubProducerManager State:\n";
    if (registrations_.empty()) dump += "  No registered producers.\n";
    for (const auto& [signal_id, registration] : registrations_)
        dump += "  Signal ID: " + std::to_string(signal_id) +
                "\n    Producer Token ID: " + std::to_string(registration.token_id) +
                "\n    TTL: " + std::to_string(registration.ttl_ms) + " ms\n";
    return dump;
}

std::string HubModel::DumpConsumers() const {
    std::string dump = "VelmoraHubConsumerManager State:\n";
    if (subscriptions_.empty()) dump += "  No active subscriptions.\n";
    for (const auto& [signal_id, signal] : subscriptions_) {
        dump += "  Signal ID: " + std::to_string(signal_id) + "\n";
        for (const auto& [token_id, consumer] : signal)
            dump += "    Consumer Token ID: " + std::to_string(token_id) + "\n";
    }
    return dump;
}

}  // namespace velmora_test
