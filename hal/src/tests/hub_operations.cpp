#include "hub_operations.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "hub_parts.h"

namespace velmora_test {

namespace {

constexpr int32_t kSignals[] = {2, 3, 0, -1, INT32_MIN, INT32_MAX};
constexpr int64_t kTtls[] = {0, 250, -1, INT64_MIN, INT64_MAX};
constexpr size_t kClients = 5;

enum Kind {
    kRegister,
    kSubscribe,
    kUpdate,
    kDump,
    kPause,
    kRequest,
    kUnsubscribe,
    kConsumerDies,
    kUnregister,
    kProducerDies,
    kKinds
};
constexpr const char* kNames[] = {"register",   "subscribe",    "update",      "dump",
                                  "pause",      "request",      "unsubscribe", "consumer dies",
                                  "unregister", "producer dies"};

template <typename Lines>
std::string Joined(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

// The dump's lines, each with its signal, in an order that does not depend on the table's.
std::string Sorted(const std::string& dump) {
    std::multiset<std::string> sorted;
    std::string signal;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("    ", 0) != 0) signal = line;
        sorted.insert(signal + line);
    }
    return Joined(sorted);
}

class Comparison {
  public:
    Comparison(const std::vector<uint8_t>& bytes, const HubModel::Rules& rules)
            : bytes_(bytes), model_(rules) {
        for (size_t i = 0; i < kClients; ++i) {
            producers_.push_back(MakeProducer(record_, Name(i)));
            consumers_.push_back(MakeConsumer(record_, Name(i)));
        }
    }

    std::string Run() {
        while (difference_.empty() && next_ < bytes_.size()) {
            ++operation_;
            Next();
            if (hold_ == nullptr && !model_.is_idle()) CompareTold();
        }
        hold_.reset();
        CompareTold();
        CompareDumps();
        return difference_;
    }

  private:
    struct Held {
        std::shared_ptr<hub::IToken> object;
        HubModel::Token model;
    };
    using Tokens = std::vector<Held>;

    static std::string Name(size_t client) { return "client " + std::to_string(client); }

    size_t Byte(size_t bound) { return next_ < bytes_.size() ? bytes_[next_++] % bound : 0; }

    // One of the manager's own, the newest first, whether or not it has ended; or null, one of no
    // manager, one of the other manager.
    Held PickToken(const Tokens& own, const Tokens& others) {
        const size_t choice = Byte(own.size() + 3);
        if (choice < own.size()) return own[own.size() - 1 - choice];
        if (choice == own.size()) return {};
        if (choice == own.size() + 1 || others.empty()) return {stranger_, {}};
        return {others.back().object, {}};
    }
    Held ProducerToken() { return PickToken(producer_tokens_, consumer_tokens_); }
    Held ConsumerToken() { return PickToken(consumer_tokens_, producer_tokens_); }

    void Next() {
        kind_ = static_cast<Kind>(Byte(kKinds));
        if (kind_ == kRegister) return Register();
        if (kind_ == kSubscribe) return Subscribe();
        if (kind_ == kUpdate) return Update();
        if (kind_ == kDump) return CompareDumps();
        if (kind_ == kPause) return TogglePause();
        if (kind_ < kUnregister) return UseConsumerToken(ConsumerToken());
        UseProducerToken(ProducerToken());
    }

    void TogglePause() {
        hold_ = hold_ == nullptr ? std::make_unique<HeldWorker>(*hub_.worker) : nullptr;
    }

    void UseConsumerToken(const Held& token) {
        if (kind_ == kRequest)
            return Compare(Answer(hub_.consumers->requestSignalUpdate(token.object)),
                           model_.Request(token.model));
        const std::string expected = model_.Unsubscribe(token.model);
        if (kind_ == kConsumerDies) return hub_.consumers->HandleBinderDeath(token.object);
        Compare(Answer(hub_.consumers->unsubscribe(token.object)), expected);
    }

    void UseProducerToken(const Held& token) {
        const std::string expected = model_.Unregister(token.model);
        if (kind_ == kProducerDies) return hub_.producers->HandleBinderDeath(token.object);
        Compare(Answer(hub_.producers->unregisterProducer(token.object)), expected);
    }

    void Register() {
        const int32_t signal_id = kSignals[Byte(std::size(kSignals))];
        const int64_t ttl_ms = kTtls[Byte(std::size(kTtls))];
        const size_t client = Byte(kClients);
        auto out = Byte(8) == 7 ? stranger_ : nullptr;
        const auto expected = model_.Register(signal_id, ttl_ms, Name(client), out != nullptr);
        const auto status = hub_.producers->registerProducer(MakeDescriptor(signal_id, ttl_ms),
                                                             producers_[client], &out);
        CompareIssued(status, hub::ProducerToken::From(out), expected, &producer_tokens_);
    }

    void Subscribe() {
        const int32_t signal_id = kSignals[Byte(std::size(kSignals))];
        const size_t client = Byte(kClients);
        auto out = Byte(8) == 7 ? stranger_ : nullptr;
        const auto expected = model_.Subscribe(signal_id, Name(client), out != nullptr);
        const auto status = hub_.consumers->subscribe(signal_id, consumers_[client], &out);
        CompareIssued(status, hub::ConsumerToken::From(out), expected, &consumer_tokens_);
    }

    // One update, or a row of them, each with a time of its own.
    void Update() {
        const Held token = ProducerToken();
        const int32_t signal_id = kSignals[Byte(std::size(kSignals))];
        const std::string tag = Byte(2) == 0 ? "" : "tag" + std::to_string(operation_);
        const size_t length = Byte(256);
        for (size_t left = length < 192 ? 1 : length - 191; left > 0; --left) {
            const auto event = MakeEvent(signal_id, ++updates_, tag);
            const std::string line = "update " + std::to_string(signal_id) + " @" +
                                     std::to_string(updates_) + (tag.empty() ? "" : " " + tag);
            Compare(Answer(hub_.producers->updateSignal(token.object, event)),
                    model_.Update(token.model, line));
        }
    }

    void CompareDumps() {
        Compare(Sorted(DumpOf(*hub_.producers)), Sorted(model_.DumpProducers()));
        Compare(Sorted(DumpOf(*hub_.consumers)), Sorted(model_.DumpConsumers()));
    }

    void CompareTold() {
        hub_.Fence();
        std::vector<std::string> told = record_->lines();
        record_->Clear();
        std::string expected;
        auto begin = told.begin();
        for (const HubModel::Told& lines : model_.RunQueue()) {
            const auto end =
                    begin + std::min(static_cast<ptrdiff_t>(lines.size()), told.end() - begin);
            std::sort(begin, end);
            begin = end;
            expected += Joined(lines);
        }
        Compare(Joined(told), expected);
    }

    template <typename T>
    void CompareIssued(const ndk::ScopedAStatus& status, const std::shared_ptr<T>& token,
                       const std::string& expected, Tokens* tokens) {
        if (token == nullptr) return Compare(Answer(status), expected);
        tokens->push_back({token, {{token->signal_id, token->token_id}}});
        Compare(Answer(status) + " " + std::to_string(token->signal_id) +
                        "::" + std::to_string(token->token_id),
                expected);
    }

    void Compare(const std::string& hub, const std::string& model) {
        if (hub == model || !difference_.empty()) return;
        difference_ = "operation " + std::to_string(operation_) + ", " + kNames[kind_] + ":\n" +
                      hub + "\nexpected:\n" + model;
    }

    const std::vector<uint8_t>& bytes_;
    size_t next_ = 0;
    size_t operation_ = 0;
    Kind kind_ = kDump;
    int64_t updates_ = 0;
    std::string difference_;

    HubModel model_;
    const Hub hub_;
    const std::shared_ptr<Record> record_ = std::make_shared<Record>();
    const std::shared_ptr<hub::IToken> stranger_ = ndk::SharedRefBase::make<TestToken>();
    std::vector<std::shared_ptr<RecordingProducer>> producers_;
    std::vector<std::shared_ptr<RecordingConsumer>> consumers_;
    Tokens producer_tokens_;
    Tokens consumer_tokens_;
    // Ends first: the hub waits for its worker.
    std::unique_ptr<HeldWorker> hold_;
};

}  // namespace

std::string FirstDifference(const std::vector<uint8_t>& bytes, const HubModel::Rules& rules) {
    return Comparison(bytes, rules).Run();
}

}  // namespace velmora_test
