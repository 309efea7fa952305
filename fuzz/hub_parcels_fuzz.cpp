// Any parcels leave the hub at work: each call is answered as the interface says, and afterwards a
// client is served as ever. An input is a row of calls: the manager, the code, whether the parcel
// names the interface, and the pieces that the parcel is made of.

#include <android-base/logging.h>
#include <android/binder_parcel_utils.h>
#include <android/log.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "hub_parts.h"

namespace velmora_test {
namespace {

constexpr transaction_code_t kMethods = 3;
constexpr binder_status_t kStatuses[] = {STATUS_OK,
                                         STATUS_BAD_TYPE,
                                         STATUS_BAD_VALUE,
                                         STATUS_NOT_ENOUGH_DATA,
                                         STATUS_UNEXPECTED_NULL,
                                         STATUS_UNKNOWN_TRANSACTION};

class Calls {
  public:
    Calls(const uint8_t* data, size_t size) : data_(data), left_(size) {}

    void Run() {
        while (left_ != 0)
            OneCall();
        CheckServing();
    }

  private:
    size_t Byte(size_t bound) { return left_ == 0 ? 0 : (--left_, *data_++ % bound); }
    int32_t Word() {
        uint32_t word = 0;
        for (int i = 0; i < 4; ++i)
            word = word << 8 | static_cast<uint32_t>(Byte(256));
        return static_cast<int32_t>(word);
    }

    void OneCall() {
        AIBinder* manager = managers_[Byte(2)].get();
        const size_t choice = Byte(7);
        if (choice == 0) return Dump(manager);
        const bool is_method = choice <= 2 * kMethods - 1;
        Call(manager, is_method ? 1 + choice % kMethods : static_cast<uint32_t>(Word()), is_method);
    }

    void Dump(AIBinder* manager) {
        static const int kNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
        const char* args[] = {"", "--all"};
        const bool is_open = Byte(2) == 1;
        CHECK_EQ(AIBinder_dump(manager, is_open ? kNull : -1, args, std::size(args)),
                 is_open ? STATUS_OK : STATUS_BAD_VALUE);
    }

    void Call(AIBinder* manager, transaction_code_t code, bool is_method) {
        ndk::ScopedAParcel in;
        ndk::ScopedAParcel out;
        CHECK_EQ(AIBinder_prepareTransaction(manager, in.getR()), STATUS_OK);
        const bool is_named = Byte(8) != 7;
        if (!is_named) {
            AParcel_setDataPosition(in.get(), 0);
            AParcel_writeInt32(in.get(), 0);
        }
        for (size_t left = Byte(8); left > 0; --left)
            WritePiece(in.get());
        const auto flags = static_cast<binder_flags_t>(Byte(8) == 7 ? FLAG_ONEWAY : 0);
        const binder_status_t status =
                AIBinder_transact(manager, code, in.getR(), out.getR(), flags);
        CHECK_EQ(std::count(std::begin(kStatuses), std::end(kStatuses), status), 1) << status;
        if (!is_method) return;
        if (!is_named) CHECK_EQ(status, STATUS_BAD_TYPE);
        if (status == STATUS_OK) CheckAnswer(code, out.get());
    }

    // A whole argument, or words that may be anything.
    void WritePiece(AParcel* parcel) {
        const size_t kind = Byte(6);
        const size_t choice = kind == 3 ? 0 : Byte(16);
        const auto number = static_cast<int32_t>(choice % 4);
        if (kind == 0) ndk::AParcel_writeData(parcel, MakeDescriptor(number, Word()));
        if (kind == 1) ndk::AParcel_writeData(parcel, MakeEvent(number, Word(), "tag"));
        if (kind == 2) AParcel_writeStrongBinder(parcel, objects_[choice % objects_.size()].get());
        if (kind == 3) AParcel_writeStrongBinder(parcel, objects_.back().get());
        if (kind == 4) AParcel_writeInt32(parcel, number);
        for (size_t left = kind == 5 ? choice : 0; left > 0; --left)
            AParcel_writeInt32(parcel, Word());
    }

    // The exception with its message, or the token, which later calls may use.
    void CheckAnswer(transaction_code_t code, const AParcel* out) {
        static const std::set<std::pair<int, std::string>> kAnswers{
                {EX_NONE, ""},
                {EX_ILLEGAL_ARGUMENT, "Invalid token."},
                {EX_ILLEGAL_ARGUMENT, "Invalid token state."},
                {EX_ILLEGAL_ARGUMENT, "Already subscribed"},
                {EX_ILLEGAL_STATE, "Signal already registered."}};
        ndk::ScopedAStatus status;
        CHECK_EQ(AParcel_readStatusHeader(out, status.getR()), STATUS_OK);
        CHECK_EQ(kAnswers.count({status.getExceptionCode(), status.getMessage()}), 1u)
                << status.getDescription();
        if (!status.isOk() || code != FIRST_CALL_TRANSACTION) return;
        ndk::SpAIBinder token;
        CHECK_EQ(AParcel_readStrongBinder(out, token.getR()), STATUS_OK);
        CHECK(hub::IToken::fromBinder(token) != nullptr);
        objects_.push_back(token);
    }

    void CheckServing() {
        hub_.Fence();
        record_->Clear();
        const auto producer = MakeProducer(record_, "last");
        const auto consumer = MakeConsumer(record_, "last");
        int32_t signal_id = 0;
        std::shared_ptr<hub::IToken> registration;
        while (registration == nullptr)
            registration = Register(*hub_.producers, MakeDescriptor(++signal_id), producer);
        const auto subscription = Subscribe(*hub_.consumers, signal_id, consumer);
        CHECK(hub_.consumers->requestSignalUpdate(subscription).isOk());
        CHECK(hub_.producers->updateSignal(registration, MakeEvent(7, 8, "nine")).isOk());
        hub_.Fence();
        CHECK(hub_.consumers->unsubscribe(subscription).isOk());
        CHECK(hub_.producers->unregisterProducer(registration).isOk());
        const auto lines = record_->lines();
        for (const char* line : {"last: nudge", "last: update 7 @8 nine"})
            CHECK_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
    }

    const uint8_t* data_;
    size_t left_;
    const Hub hub_;
    const std::shared_ptr<Record> record_ = std::make_shared<Record>();
    const ndk::SpAIBinder managers_[2]{hub_.producers->asBinder(), hub_.consumers->asBinder()};
    // Whatever a parcel may hold: null first, then of each kind, then the tokens as they are
    // issued.
    std::vector<ndk::SpAIBinder> objects_{ndk::SpAIBinder(),
                                          MakeProducer(record_)->asBinder(),
                                          MakeConsumer(record_)->asBinder(),
                                          MakeConsumer(record_)->asBinder(),
                                          ndk::SharedRefBase::make<TestToken>()->asBinder(),
                                          managers_[0]};
};

}  // namespace
}  // namespace velmora_test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    __android_log_set_logger([](const __android_log_message*) {});
    velmora_test::Calls(data, size).Run();
    return 0;
}
