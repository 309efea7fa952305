#include "load_clients.h"

#include <android/binder_process.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "hub_processes.h"

namespace velmora_test {

namespace {

using ndk::ScopedAStatus;
using std::chrono::steady_clock;

int64_t Microseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
                   steady_clock::now().time_since_epoch())
            .count();
}

// The head of an event's payload; -1 without one.
int64_t SequenceOf(const hub::VelmoraEvent& event) {
    std::optional<hub::SignalDescriptor> payload;
    event.payload.getParcelable(&payload);
    return payload && !payload->tags.empty() ? std::strtoll(payload->tags[0].c_str(), nullptr, 10)
                                             : -1;
}

// A steady consumer misses nothing; a producer that is killed may have numbered one event that it
// has not pushed. A victim has its events in order. The calls to one object come one at a time.
class CheckingConsumer : public hub::BnVelmoraHubConsumer {
  public:
    CheckingConsumer(const SharedBoard& board, size_t slot, bool steady)
            : board_(board), slot_(slot), steady_(steady) {
        // The hub's first events are for those that were there before.
        std::fill(std::begin(last_), std::end(last_), steady ? 0 : -1);
    }

    ScopedAStatus onSignalAvailable(int32_t) override { return ScopedAStatus::ok(); }
    ScopedAStatus onSignalUnavailable(int32_t id, SignalError) override {
        has_left_[id - kFirstSignal] = true;
        return ScopedAStatus::ok();
    }
    ScopedAStatus onSignalUpdate(const hub::VelmoraEvent& event) override {
        const int64_t took = Microseconds() - event.timestampMs;
        Check(static_cast<size_t>(event.signalId - kFirstSignal), SequenceOf(event));
        ++board_->deliveries;
        if (steady_) board_->latency.Add(took);
        return ScopedAStatus::ok();
    }

  private:
    void Check(size_t signal, int64_t sequence) {
        const int64_t last = std::exchange(last_[signal], sequence);
        const int64_t missing = last < 0 ? 0 : sequence - last - 1;
        if (steady_) board_->received[slot_][signal] = sequence;
        if (sequence <= last || (steady_ && missing > std::exchange(has_left_[signal], false))) {
            fprintf(stderr, "consumer %zu: %ld of signal %zu after %ld\n", slot_, sequence, signal,
                    last);
            ++board_->faults;
        } else {
            board_->refused += missing;
        }
    }

    const SharedBoard board_;
    const size_t slot_;
    const bool steady_;
    int64_t last_[kProducers];
    bool has_left_[kProducers] = {};
};

class Pusher {
  public:
    Pusher(const SharedBoard& board, size_t signal) : board_(board), signal_(signal) {
        // A killed predecessor may still be registered.
        ScopedAStatus status;
        const bool is_registered = Eventually([&] {
            status = manager_->registerProducer(MakeDescriptor(id_), producer_, &token_);
            return status.isOk();
        });
        if (!is_registered) {
            fprintf(stderr, "producer of signal %zu: %s\n", signal, Answer(status).c_str());
            ++board_->faults;
        }
    }

    void Pace(LineChannel& channel) {
        auto due = steady_clock::now();
        while (!channel.Read(std::chrono::ceil<std::chrono::milliseconds>(
                std::max(steady_clock::duration(0), due - steady_clock::now())))) {
            due += kPeriod;
            if (board_->Behind(signal_) < kWindow)
                Push();
            else
                ++board_->held_back;
        }
    }
    void PushFlat(int64_t count) {
        for (; count > 0; --count) {
            if (board_->Behind(signal_) >= kWindow)
                Eventually([&] { return board_->Behind(signal_) <= kWindow / 2; });
            Push();
        }
    }

  private:
    void Push() {
        // 256 bytes: a character takes two on the wire.
        char text[129];
        snprintf(text, sizeof(text), "%-128ld", ++board_->sent[signal_]);
        if (!manager_->updateSignal(token_, MakeEvent(id_, Microseconds(), text)).isOk())
            ++board_->faults;
    }

    const SharedBoard board_;
    const size_t signal_;
    const int32_t id_ = kFirstSignal + static_cast<int32_t>(signal_);
    const std::shared_ptr<hub::IVelmoraHubProducerManager> manager_ = WaitForProducerManager();
    const std::shared_ptr<RecordingProducer> producer_ = MakeProducer();
    std::shared_ptr<hub::IToken> token_;
};

HOST_HELPER(LoadConsumer) {
    ABinderProcess_startThreadPool();
    const auto& arguments = channel.arguments();
    const SharedBoard board(arguments.at(0));
    const size_t slot = std::stoul(arguments.at(1));
    const bool steady = arguments.at(2) == "steady";
    const auto consumer = ndk::SharedRefBase::make<CheckingConsumer>(board, slot, steady);
    const auto manager = WaitForConsumerManager();
    std::vector<std::shared_ptr<hub::IToken>> tokens;
    for (size_t i = 3; i < arguments.size(); ++i) {
        const size_t signal = std::stoul(arguments[i]);
        if (steady) board->received[slot][signal] = 0;
        tokens.push_back(Subscribe(*manager, kFirstSignal + static_cast<int>(signal), consumer));
        if (tokens.back() == nullptr) ++board->faults;
    }
    board->ready[slot] = getpid();
    channel.Serve([](const std::string& command) { return command; });
    return 0;
}

HOST_HELPER(LoadProducer) {
    ABinderProcess_startThreadPool();
    const auto& arguments = channel.arguments();
    const SharedBoard board(arguments.at(0));
    Pusher pusher(board, std::stoul(arguments.at(2)));
    board->ready[std::stoul(arguments.at(1))] = getpid();
    channel.Serve([&](const std::string& command) {
        if (command == "pace")
            pusher.Pace(channel);
        else
            pusher.PushFlat(std::stoll(command.substr(sizeof("flat"))));
        return command;
    });
    return 0;
}

}  // namespace

double Samples::Take(double rank) {
    std::vector<uint32_t> times(times_, times_ + std::min(count_.exchange(0), std::size(times_)));
    if (times.empty()) return 0;
    const auto place = rank * static_cast<double>(times.size() - 1);
    const auto found = times.begin() + static_cast<ptrdiff_t>(place);
    std::nth_element(times.begin(), found, times.end());
    return *found;
}

int64_t Board::Behind(size_t signal) const {
    int64_t slowest = kNobody;
    for (const auto& consumer : received)
        slowest = std::min(slowest, consumer[signal].load());
    return slowest == kNobody ? 0 : sent[signal] - slowest;
}

SharedBoard::SharedBoard() {
    const int file = memfd_create("board", MFD_CLOEXEC);
    path_ = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(file);
    if (ftruncate(file, sizeof(Board)) != 0) abort();
    Map(file);
    for (auto& consumer : board_->received)
        for (auto& signal : consumer)
            signal = Board::kNobody;
}

SharedBoard::SharedBoard(const std::string& path) : path_(path) {
    Map(open(path.c_str(), O_RDWR | O_CLOEXEC));
}

void SharedBoard::Map(int file) {
    void* memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED) abort();
    board_ = static_cast<Board*>(memory);
}

}  // namespace velmora_test
