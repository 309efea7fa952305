// A notification of the touch service, whatever its bytes: the listener never fails, and makes
// exactly one event of a gesture packet, with a region if the packet can be read. The first byte
// chooses: 0 takes the rest for a whole notification as it comes in a call, anything else is the
// panel of a notification whose packet is the rest.

#include <aidl/vendor/quorin/velmora_hub/signals/UserEngagementPayload.h>
#include <android-base/logging.h>
#include <android/log.h>
#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>

#include "host_parts.h"
#include "parcel.h"

namespace {

namespace input = aidl::com::quorin::input;
using aidl::vendor::quorin::velmora_hub::signals::UserEngagementPayload;
using Tag = input::SkeldaNotification::Tag;

struct Target {
    Target() {
        android::base::SetLogger([](auto...) {});
        __android_log_set_logger([](const __android_log_message*) {});
        producer->onClientsUpdated(true);
    }

    const std::shared_ptr<velmora_test::FakeManager> manager =
            ndk::SharedRefBase::make<velmora_test::FakeManager>(
                    std::make_shared<velmora_test::Record>());
    const std::shared_ptr<velmora_test::SkeldaProducer> producer =
            ndk::SharedRefBase::make<velmora_test::RegisteredProducer>(
                    manager, ndk::SharedRefBase::make<velmora_test::TestToken>());
    const std::shared_ptr<velmora_test::SkeldaProducer::ListenerImpl> listener =
            ndk::SharedRefBase::make<velmora_test::SkeldaProducer::ListenerImpl>(producer);
};

std::optional<input::SkeldaNotificationMsg> Message(const uint8_t* data, size_t size) {
    if (data[0] != 0)
        return velmora_test::Notification(std::string(data + 1, data + size),
                                          static_cast<int8_t>(data[0]));
    AParcel parcel;
    input::SkeldaNotificationMsg msg;
    if (!parcel.Assign(data + 1, size - 1, {}) || msg.readFromParcel(&parcel) != STATUS_OK)
        return std::nullopt;
    return msg;
}

bool IsPacket(const input::SkeldaNotificationMsg& msg) {
    const auto& bytes = msg.notification.get<Tag::touchGesturePacket>();
    touch_gesture::TouchGesturePacket packet;
    return packet.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Target& target = *new Target;
    if (size == 0) return 0;
    const auto msg = Message(data, size);
    if (!msg) return 0;
    if (!target.listener->onNotificationReceived(*msg).isOk()) __builtin_trap();
    const auto updates = target.manager->Take();
    const bool is_gesture = msg->notification.getTag() == Tag::touchGesturePacket;
    if (updates.size() != (is_gesture ? 1u : 0u)) __builtin_trap();
    if (!is_gesture) return 0;
    std::optional<UserEngagementPayload> payload;
    if (updates[0].event.payload.getParcelable(&payload) != STATUS_OK) __builtin_trap();
    if (payload->regions.size() != (IsPacket(*msg) ? 1u : 0u)) __builtin_trap();
    return 0;
}
