// What is published under which name and by whom. A plain value without any synchronisation of its
// own: its owner locks. Objects that leave the table are handed out, so that the owner can release
// them without its lock.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace host {

template <typename Object>
class ServiceTable {
  public:
    // Bounds on what one process, and all together, can make the table hold.
    static constexpr size_t kMaxPerProcess = 1024;
    static constexpr size_t kMaxNames = 8192;

    struct Entry {
        Object object;
        pid_t pid;
    };

    enum class Outcome { kPublished, kHeldByAnother, kTooMany };

    struct PutResult {
        Outcome outcome;
        pid_t holder = 0;                     // who else holds the name
        std::optional<Entry> displaced = {};  // what the name stood for until now
    };

    using IsAlive = std::function<bool(const Entry&)>;

    // A live entry is replaced by its own process only, a dead one by anybody.
    PutResult Put(const std::string& name, Object object, pid_t pid, const IsAlive& is_alive) {
        const auto held = entries_.find(name);
        if (held == entries_.end()) {
            if (entries_.size() >= kMaxNames || CountOf(pid) >= kMaxPerProcess) {
                return {.outcome = Outcome::kTooMany};
            }
        } else if (held->second.pid != pid && is_alive(held->second)) {
            return {.outcome = Outcome::kHeldByAnother, .holder = held->second.pid};
        }
        PutResult result{.outcome = Outcome::kPublished};
        if (held != entries_.end()) result.displaced = Remove(held);
        entries_.emplace(name, Entry{std::move(object), pid});
        ++counts_[pid];
        return result;
    }

    // Null: nothing is published under the name, or by a process that is gone.
    const Entry* Find(const std::string& name, const IsAlive& is_alive) const {
        const auto found = entries_.find(name);
        return found == entries_.end() || !is_alive(found->second) ? nullptr : &found->second;
    }

    // Nothing if the name stands for an object that does not match, a successor's perhaps.
    template <typename Matches>
    std::optional<Entry> Withdraw(const std::string& name, const Matches& matches) {
        const auto found = entries_.find(name);
        if (found == entries_.end() || !matches(found->second.object)) return std::nullopt;
        return Remove(found);
    }

    const std::map<std::string, Entry>& entries() const { return entries_; }

  private:
    size_t CountOf(pid_t pid) const {
        const auto found = counts_.find(pid);
        return found == counts_.end() ? 0 : found->second;
    }

    Entry Remove(typename std::map<std::string, Entry>::iterator at) {
        Entry entry = std::move(at->second);
        entries_.erase(at);
        const auto count = counts_.find(entry.pid);
        if (--count->second == 0) counts_.erase(count);
        return entry;
    }

    std::map<std::string, Entry> entries_;
    std::map<pid_t, size_t> counts_;  // names held, per process
};

}  // namespace host
