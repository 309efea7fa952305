// Who waits for which name, and until when. A plain value without any synchronisation of its own:
// its owner locks, and answers the waiters that are handed out without its lock.
#pragma once

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace host {

template <typename Waiter>
class WaiterList {
  public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr Time kForever = Time::max();

    void Add(const std::string& name, Waiter waiter, Time deadline) {
        waiting_.emplace(name, Waiting{std::move(waiter), deadline});
    }

    // Everyone who waits for the name, in the order of their coming.
    std::vector<Waiter> TakeAll(const std::string& name) {
        return TakeIf(waiting_.lower_bound(name), waiting_.upper_bound(name),
                      [](const Waiting&) { return true; });
    }

    std::vector<Waiter> TakeExpired(Time now) {
        return TakeIf(waiting_.begin(), waiting_.end(),
                      [now](const Waiting& waiting) { return waiting.deadline <= now; });
    }

    // Everyone of whom `gone(waiter)` says that nobody hears the answer.
    template <typename Gone>
    std::vector<Waiter> TakeGone(const Gone& gone) {
        return TakeIf(waiting_.begin(), waiting_.end(),
                      [&gone](const Waiting& waiting) { return gone(waiting.waiter); });
    }

    Time NextDeadline() const {
        Time next = kForever;
        for (const auto& [name, waiting] : waiting_)
            next = std::min(next, waiting.deadline);
        return next;
    }

    size_t size() const { return waiting_.size(); }

  private:
    struct Waiting {
        Waiter waiter;
        Time deadline;
    };
    using Map = std::multimap<std::string, Waiting>;

    template <typename Predicate>
    std::vector<Waiter> TakeIf(typename Map::iterator at, typename Map::iterator end,
                               const Predicate& predicate) {
        std::vector<Waiter> taken;
        while (at != end) {
            if (predicate(at->second)) {
                taken.push_back(std::move(at->second.waiter));
                at = waiting_.erase(at);
            } else {
                ++at;
            }
        }
        return taken;
    }

    Map waiting_;
};

}  // namespace host
