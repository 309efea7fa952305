#include "hub_client.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <sstream>

namespace velmora_test {

using ::testing::ContainsRegex;

namespace {

// What one process does to the hub.
class Client {
  public:
    std::string Obey(const std::string& command) {
        std::istringstream words(command);
        std::string verb, name;
        int number = 0;
        words >> verb >> number >> name;
        if (verb == "lines") return Lines(static_cast<size_t>(number));
        if (verb == "churn") return Churn(number, std::stoi(name));
        return Change(verb, number, name);
    }

  private:
    std::string Change(const std::string& verb, int id, const std::string& name) {
        auto& token = tokens_[std::to_string(id) + name];
        if (verb == "unsubscribe") return Answer(consumers_->unsubscribe(token));
        if (verb == "unregister") return Answer(producers_->unregisterProducer(token));
        token = nullptr;
        if (verb == "subscribe")
            return Answer(consumers_->subscribe(id, name == "b" ? b_ : a_, &token));
        return Answer(producers_->registerProducer(MakeDescriptor(id), producer_, &token));
    }

    std::string Churn(int id, int rounds) {
        for (int i = 0; i < rounds; ++i) {
            for (const char* verb : {"subscribe", "register", "unsubscribe", "unregister"}) {
                const std::string name = std::string(verb).ends_with("register") ? "" : "a";
                const std::string answer = Change(verb, id, name);
                if (answer != "OK") return verb + (" " + answer);
            }
            record_->Clear();
        }
        return "OK";
    }

    std::string Lines(size_t count) const {
        std::string all;
        for (const std::string& line : record_->WaitFor(count))
            all += line + ";";
        return all;
    }

    const std::shared_ptr<Record> record_ = std::make_shared<Record>();
    const std::shared_ptr<RecordingConsumer> a_ = MakeConsumer(record_, "a");
    const std::shared_ptr<RecordingConsumer> b_ = MakeConsumer(record_, "b");
    const std::shared_ptr<RecordingProducer> producer_ = MakeProducer(record_);
    const std::shared_ptr<hub::IVelmoraHubProducerManager> producers_ = WaitForProducerManager();
    const std::shared_ptr<hub::IVelmoraHubConsumerManager> consumers_ = WaitForConsumerManager();
    std::map<std::string, std::shared_ptr<hub::IToken>> tokens_;
};

HOST_HELPER(HubClient) {
    Client client;
    return Serve(
            channel, [](int, const Letter&, Letter*) { return binder_status_t{STATUS_OK}; },
            [&](const std::string& line) { return client.Obey(line); });
}

Table Parse(const std::string& dump) {
    EXPECT_NE(dump, "");
    Table table;
    std::set<int32_t> seen, *tokens = &seen;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        int32_t number = 0;
        if (sscanf(line.c_str(), " Signal ID: %d", &number) == 1) {
            const auto [signal, is_new] = table.try_emplace(number);
            EXPECT_TRUE(is_new) << line;
            tokens = &signal->second;
        } else if (sscanf(line.c_str(), " %*s Token ID: %d", &number) == 1) {
            EXPECT_TRUE(seen.insert(number).second) << line;
            tokens->insert(number);
        } else {
            EXPECT_THAT(line, ContainsRegex("State:|TTL:|No "));
        }
    }
    return table;
}

}  // namespace

Table TableOf(hub::IVelmoraHubProducerManager& manager) {
    return Parse(DumpOf(manager));
}

Table TableOf(hub::IVelmoraHubConsumerManager& manager) {
    return Parse(DumpOf(manager));
}

Table Subscriptions(hub::IVelmoraHubConsumerManager& manager) {
    Table table = TableOf(manager);
    std::erase_if(table, [](const auto& signal) { return signal.second.empty(); });
    return table;
}

}  // namespace velmora_test
