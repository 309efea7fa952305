#include "pushers.h"

#include <utility>

namespace peers {

Pushers::Pushers(size_t count, const std::function<Send()>& make_send) {
    for (size_t i = 0; i < count; ++i)
        threads_.emplace_back([this, send = make_send()] {
            for (Event event; Take(&event); Settle())
                send(event);
        });
}

Pushers::~Pushers() {
    {
        std::lock_guard lock(mutex_);
        ending_ = true;
    }
    added_.notify_all();
    for (std::thread& thread : threads_)
        thread.join();
}

void Pushers::Add(const void* data, size_t size) {
    const auto* bytes = static_cast<const char*>(data);
    {
        std::lock_guard lock(mutex_);
        events_.emplace_back(bytes, bytes + size);
    }
    added_.notify_one();
}

void Pushers::Drain() {
    std::unique_lock lock(mutex_);
    drained_.wait(lock, [this] {
        ::android::base::ScopedLockAssertion held(mutex_);
        return events_.empty() && under_way_ == 0;
    });
}

bool Pushers::Take(Event* event) {
    std::unique_lock lock(mutex_);
    ::android::base::ScopedLockAssertion held(mutex_);
    added_.wait(lock, [this] {
        ::android::base::ScopedLockAssertion held_by_wait(mutex_);
        return ending_ || !events_.empty();
    });
    if (events_.empty()) return false;
    *event = std::move(events_.front());
    events_.pop_front();
    ++under_way_;
    return true;
}

void Pushers::Settle() {
    std::lock_guard lock(mutex_);
    --under_way_;
    if (events_.empty() && under_way_ == 0) drained_.notify_all();
}

}  // namespace peers
