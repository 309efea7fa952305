#include "lookout.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "processor_hints.h"

namespace host {
namespace {

using std::chrono::microseconds;

// A call that begins so soon after the last is one of many: it tells of a call that took long, too,
// as where a worker has had the processor in between.
constexpr microseconds kDenseGap{200};

// Several times what the other side needs on a processor of its own. In vain, it is not tried again
// for as long, for twice as long the next time, and so on: then the other side is not running.
constexpr microseconds kSpin{3};
constexpr uint32_t kLooksPerClock = 16;
constexpr uint32_t kMostDoublings = 6;

// Who spins keeps a worker of the same process waiting that may be on this processor. Long enough
// for some 15 calls: with 10 or 40 us fewer events went through the hub.
constexpr microseconds kTurn{25};

// Giving way should take as long as the other side needs for its part, or a worker for what has
// gathered. When it took longer, a thread that does not give way in turn had the processor. Looking
// is then put off, by so much that this costs 4 % at most.
constexpr microseconds kTooLong{1000};
constexpr int kRest = 24;

std::atomic<uint32_t> g_looking{0};

// The other side has to run, too.
uint32_t MostLooking() {
    static const uint32_t most = std::max(1U, std::thread::hardware_concurrency() / 2);
    return most;
}

}  // namespace

Lookout::~Lookout() {
    if (looking_) End();
}

void Lookout::NoteCall() {
    const Clock::time_point now = Clock::now();
    dense_calls_ = now - begun_ < kDenseGap ? dense_calls_ + 1 : 0;
    close_calls_ = now - begun_ < kBriefWait ? close_calls_ + 1 : 0;
    begun_ = now;
}

void Lookout::Begin() {
    begun_ = Clock::now();
    BeginAsOfNote();
}

void Lookout::BeginAsOfNote() {
    if (looking_ || !mailbox_->IsShared() || begun_ < rests_until_) return;
    looking_ = g_looking.fetch_add(1) < MostLooking();
    if (looking_)
        mailbox_->Look(Mailbox::Watch::kAwake);
    else
        g_looking.fetch_sub(1);
}

void Lookout::BeginDozing() {
    if (looking_ || !mailbox_->IsShared()) return;
    looking_ = dozing_ = true;
    mailbox_->Look(Mailbox::Watch::kDozing);
}

void Lookout::End() {
    Stop();
    mailbox_->LookAway();
}

void Lookout::Stop() {
    looking_ = false;
    if (!std::exchange(dozing_, false)) g_looking.fetch_sub(1);
}

Mailbox::Taken Lookout::Await(Buffer* frame, microseconds limit) {
    const Mailbox::Taken taken = Look(frame, limit);
    if (taken == Mailbox::Taken::kFrame) {
        Stop();
        return taken;
    }
    End();
    // Put in the last moment, before the other side could see that nobody looks. What points to the
    // socket may be of a frame that was read there before this was seen: the awaited one is still
    // to come, wherever.
    const Mailbox::Taken last = mailbox_->Take(frame);
    return last == Mailbox::Taken::kNothing ? taken : last;
}

Mailbox::Taken Lookout::Look(Buffer* frame, microseconds limit) {
    Mailbox::Taken taken = mailbox_->Take(frame);
    came_at_once_ = false;
    if (dozing_) return taken == Mailbox::Taken::kNothing ? Doze(frame, limit) : taken;
    if (taken == Mailbox::Taken::kNothing && limit > kSpin && MaySpin()) taken = Spin(frame);
    came_at_once_ = taken != Mailbox::Taken::kNothing;
    return came_at_once_ ? taken : GiveWay(frame, limit);
}

bool Lookout::MaySpin() const {
    return begun_ >= spins_from_ && begun_ - gave_way_ < kTurn &&
           mailbox_->OtherRunsOn() != NoteProcessor();
}

Mailbox::Taken Lookout::Spin(Buffer* frame) {
    do {
        for (uint32_t i = 0; i < kLooksPerClock; ++i) {
            const Mailbox::Taken taken = mailbox_->Take(frame);
            if (taken != Mailbox::Taken::kNothing) {
                vain_spins_ = 0;
                return taken;
            }
            RelaxProcessor();
        }
    } while (Clock::now() - begun_ < kSpin);
    spins_from_ = begun_ + kSpin * (1U << vain_spins_);
    vain_spins_ = std::min(vain_spins_ + 1, kMostDoublings);
    return Mailbox::Taken::kNothing;
}

Mailbox::Taken Lookout::GiveWay(Buffer* frame, microseconds limit) {
    Mailbox::Taken taken = Mailbox::Taken::kNothing;
    Clock::duration spent{};
    while (taken == Mailbox::Taken::kNothing && spent < limit) {
        sched_yield();
        taken = mailbox_->Take(frame);
        gave_way_ = Clock::now();
        spent = gave_way_ - begun_;
    }
    if (spent > kTooLong) rests_until_ = begun_ + kRest * spent;
    return taken;
}

Mailbox::Taken Lookout::Doze(Buffer* frame, microseconds limit) {
    const Clock::time_point end = Clock::now() + limit;
    Mailbox::Taken taken = Mailbox::Taken::kNothing;
    Clock::duration left = limit;
    while (taken == Mailbox::Taken::kNothing && left > Clock::duration::zero()) {
        mailbox_->Doze(std::chrono::ceil<microseconds>(left));
        taken = mailbox_->Take(frame);
        if (taken == Mailbox::Taken::kNothing) left = end - Clock::now();
    }
    return taken;
}

}  // namespace host
