#include "event_codec.h"

#include <time.h>

#include <stdexcept>

#include "json_field.h"
#include "payload_codec.h"

namespace velmoractl {

namespace {

constexpr char kKind[] = "kind";
constexpr char kEvent[] = "event";
constexpr char kEventSignal[] = "eventSignal";
constexpr char kTimestamp[] = "timestampMs";
constexpr char kPayload[] = "payload";

}  // namespace

void PrintEvent(const Output& output, int32_t signal, const VelmoraEvent& event) {
    Json json = {{kKind, kEvent}, {"signal", signal}, {kTimestamp, event.timestampMs}};
    std::string text = output.Strong(std::to_string(signal)) + "  @" +
                       std::to_string(event.timestampMs) + " ms  ";
    if (event.signalId != signal) {
        json[kEventSignal] = event.signalId;
        text += "(says signal " + std::to_string(event.signalId) + ") ";
    }
    json[kPayload] = PayloadToJson(event.payload);
    output.Print(json, text + PayloadToText(event.payload));
}

void PrintNotice(const Output& output, int32_t signal, const Json& notice,
                 const std::string& text) {
    output.Print(notice, output.Strong(std::to_string(signal)) + "  " + text);
}

std::optional<VelmoraEvent> EventFromLine(const std::string& line, int32_t signal) {
    const Json json = Json::parse(line);
    if (!json.is_object()) throw std::invalid_argument("not an object");
    if (json.value(kKind, kEvent) != kEvent) return std::nullopt;
    // The signal is the one that is pushed to, whichever the line names.
    RefuseOthers(json, {kKind, "signal", kEventSignal, kTimestamp, kPayload});
    VelmoraEvent event = NewEvent(signal);
    ReadField(json, kTimestamp, &event.timestampMs);
    if (json.contains(kPayload)) event.payload = PayloadFromJson(json.at(kPayload));
    return event;
}

VelmoraEvent NewEvent(int32_t signal) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    VelmoraEvent event;
    event.signalId = signal;
    event.timestampMs = int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
    return event;
}

}  // namespace velmoractl
