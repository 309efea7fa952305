#include "lookout.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace host {
namespace {

// A call that follows the last answer so soon is one of many.
constexpr std::chrono::microseconds kDenseGap{50};

// Giving way should take as long as the other side needs for its part, or a worker for what has
// gathered. When it took longer, a thread that does not give way in turn had the processor. Looking
// is then put off, by so much that this costs 4 % at most.
constexpr std::chrono::microseconds kTooLong{1000};
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
    dense_calls_ = Clock::now() - last_answer_ < kDenseGap ? dense_calls_ + 1 : 0;
}

void Lookout::Begin() {
    if (looking_ || !mailbox_->ok() || Clock::now() < rests_until_) return;
    looking_ = g_looking.fetch_add(1) < MostLooking();
    if (looking_)
        mailbox_->Look();
    else
        g_looking.fetch_sub(1);
}

void Lookout::End() {
    looking_ = false;
    mailbox_->LookAway();
    g_looking.fetch_sub(1);
}

Mailbox::Taken Lookout::Await(Buffer* frame, std::chrono::microseconds limit) {
    const Mailbox::Taken taken = Look(frame, limit);
    End();
    // Put in the last moment, before the other side could see that nobody looks.
    return taken == Mailbox::Taken::kNothing ? mailbox_->Take(frame) : taken;
}

Mailbox::Taken Lookout::Look(Buffer* frame, std::chrono::microseconds limit) {
    Mailbox::Taken taken = mailbox_->Take(frame);
    if (taken != Mailbox::Taken::kNothing) return taken;
    const Clock::time_point begin = Clock::now();
    Clock::duration spent{};
    while (taken == Mailbox::Taken::kNothing && spent < limit) {
        // Always: what is awaited may have to come from this processor.
        sched_yield();
        taken = mailbox_->Take(frame);
        spent = Clock::now() - begin;
    }
    if (spent > kTooLong) rests_until_ = begin + kRest * spent;
    return taken;
}

}  // namespace host
