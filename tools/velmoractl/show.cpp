#include "show.h"

#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumer.h>
#include <host/service_list.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "event_codec.h"
#include "hub_link.h"

namespace velmoractl {

namespace {

// Subscribes for the sake of asking, and hears nothing.
class SilentConsumer : public hub::BnVelmoraHubConsumer {
  public:
    ndk::ScopedAStatus onSignalAvailable(int32_t) override { return ndk::ScopedAStatus::ok(); }
    ndk::ScopedAStatus onSignalUpdate(const hub::VelmoraEvent&) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onSignalUnavailable(int32_t, SignalError) override {
        return ndk::ScopedAStatus::ok();
    }
};

void PrintServices(const Output& output, const std::vector<host::ServiceInfo>& services) {
    size_t width = 0;
    for (const host::ServiceInfo& service : services)
        width = std::max(width, service.name.size());
    for (const host::ServiceInfo& service : services) {
        const Json json = {{"kind", "service"},
                           {"name", service.name},
                           {"declared", service.declared},
                           {"published", service.published},
                           {"pid", service.published ? Json(service.pid) : Json()}};
        std::string name = service.name;
        name.resize(width, ' ');
        output.Print(json,
                     "service " + output.Strong(name) +
                             (service.declared ? "  declared" : "  undeclared") +
                             (service.published ? "  published by " + std::to_string(service.pid)
                                                : "  not published"));
    }
}

void PrintSignal(const Output& output, int32_t signal, const SignalRow* producer,
                 const SignalRow* consumers) {
    const size_t count = consumers == nullptr ? 0 : consumers->tokens.size();
    // The hub keeps the row of a signal that nobody has to do with any more.
    if (producer == nullptr && count == 0) return;
    Json json = {{"kind", "signal"}, {"signal", signal}, {"token", nullptr}, {"ttlMs", nullptr}};
    std::string text = "signal " + output.Strong(std::to_string(signal));
    if (producer == nullptr || producer->tokens.empty()) {
        text += "  no producer";
    } else {
        const int64_t ttl_ms = producer->ttl_ms.value_or(0);
        json["token"] = producer->tokens.front();
        json["ttlMs"] = ttl_ms;
        text += "  token " + std::to_string(producer->tokens.front()) + "  TTL " +
                std::to_string(ttl_ms) + " ms";
    }
    json["consumers"] = count;
    output.Print(json, text + "  consumers: " + std::to_string(count));
}

void PrintSignals(const Output& output, const Hub& hub) {
    const SignalTable producers = ProducersOf(hub);
    const SignalTable consumers = ConsumersOf(hub);
    std::set<int32_t> signals;
    for (const SignalTable& table : {producers, consumers})
        for (const SignalRow& row : table)
            signals.insert(row.signal);
    for (const int32_t signal : signals)
        PrintSignal(output, signal, FindSignal(producers, signal), FindSignal(consumers, signal));
}

// False if the manager is not there or does not answer.
bool DumpTable(const Output& output, ndk::ICInterface* manager, const std::string& table) {
    const std::optional<std::string> dump = manager == nullptr ? std::nullopt : DumpOf(*manager);
    if (!dump) return false;
    if (!output.json()) output.Print({}, dump->substr(0, dump->find_last_not_of('\n') + 1));
    for (const SignalRow& row : output.json() ? ParseTable(*dump) : SignalTable()) {
        Json json = {{"kind", table}, {"signal", row.signal}, {"tokens", row.tokens}};
        if (row.ttl_ms) json["ttlMs"] = *row.ttl_ms;
        output.Print(json, "");
    }
    return true;
}

ndk::ScopedAStatus AskForUpdate(const Hub& hub, int32_t signal) {
    const auto consumer = ndk::SharedRefBase::make<SilentConsumer>();
    std::shared_ptr<hub::IToken> token;
    ndk::ScopedAStatus status = hub.consumers->subscribe(signal, consumer, &token);
    if (status.isOk()) status = hub.consumers->requestSignalUpdate(token);
    if (status.isOk()) status = hub.consumers->unsubscribe(token);
    return status;
}

}  // namespace

int List(const Output& output) {
    std::vector<host::ServiceInfo> services;
    std::string error;
    if (!host::ListServices(&services, &error)) {
        output.Talk(error);
        return kError;
    }
    PrintServices(output, services);
    const Hub hub = FindHub();
    if (hub.producers == nullptr || hub.consumers == nullptr) {
        output.Talk("no hub is published");
    } else {
        PrintSignals(output, hub);
    }
    return kDone;
}

int Dump(const Options& options, const Output& output) {
    const Hub hub = FindHub();
    const bool dumped =
            (options.table == "consumers" || DumpTable(output, hub.producers.get(), "producers")) &&
            (options.table == "producers" || DumpTable(output, hub.consumers.get(), "consumers"));
    if (!dumped) output.Talk("no hub is published");
    return dumped ? kDone : kNotFound;
}

int Nudge(const Options& options, const Output& output) {
    const int32_t signal = options.signals.front();
    const Hub hub = WaitForHub(output);
    if (hub.producers == nullptr) return kError;
    if (FindSignal(ProducersOf(hub), signal) == nullptr) {
        output.Talk("signal " + std::to_string(signal) + " has no producer");
        return kNotFound;
    }
    const ndk::ScopedAStatus status = AskForUpdate(hub, signal);
    if (!status.isOk()) {
        output.Talk("the hub refuses: " + status.getDescription());
        return kError;
    }
    PrintNotice(output, signal, {{"kind", "nudge"}, {"signal", signal}}, "asked for an update");
    return kDone;
}

}  // namespace velmoractl
