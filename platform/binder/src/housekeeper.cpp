#include "housekeeper.h"

#include <algorithm>
#include <utility>

#include "sys.h"

namespace host {
namespace {

constexpr uint64_t kNudgeKey = 0;

}  // namespace

Housekeeper& Housekeeper::Get() {
    static Housekeeper* keeper =
            new Housekeeper;  // never destroyed: peers come and go until the very end
    return *keeper;
}

bool Housekeeper::Start() {
    std::lock_guard lock(mutex_);
    if (thread_) return true;
    UniqueFd epoll(sys::EpollCreate1(EPOLL_CLOEXEC));
    UniqueFd nudge(sys::EventFd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!epoll.ok() || !nudge.ok()) return false;
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET;
    event.data.u64 = kNudgeKey;
    if (sys::EpollCtl(epoll.get(), EPOLL_CTL_ADD, nudge.get(), &event) != 0) return false;
    epoll_ = std::move(epoll);
    nudge_ = std::move(nudge);
    const auto body = [](void* keeper) -> void* {
        static_cast<Housekeeper*>(keeper)->Loop();
        return nullptr;
    };
    pthread_t thread;
    errno = sys::PthreadCreate(&thread, body, this);
    if (errno == 0) thread_ = thread;
    return errno == 0;
}

void Housekeeper::Nudge() {
    uint64_t one = 1;
    // Only an edge is needed: a full counter is one, too.
    [[maybe_unused]] ssize_t written = write(nudge_.get(), &one, sizeof(one));
}

uint64_t Housekeeper::Watch(int fd, uint32_t events, std::shared_ptr<Watched> watched) {
    uint64_t key;
    {
        std::lock_guard lock(mutex_);
        key = next_key_++;
        watched_[key] = std::move(watched);
    }
    epoll_event event{};
    event.events = events;
    event.data.u64 = key;
    if (sys::EpollCtl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) == 0) return key;
    std::lock_guard lock(mutex_);
    watched_.erase(key);
    return 0;
}

void Housekeeper::Change(int fd, uint64_t key, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = key;
    // Fails only for a descriptor that is not watched any more.
    epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event);
}

void Housekeeper::Forget(int fd, uint64_t key) {
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    std::shared_ptr<Watched> last;  // dropped after unlocking
    std::lock_guard lock(mutex_);
    auto watched = watched_.find(key);
    if (watched == watched_.end()) return;
    last = std::move(watched->second);
    watched_.erase(watched);
}

void Housekeeper::RunSoon(Job job) {
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    Nudge();
}

void Housekeeper::RunLater(int delay_ms, Job job) {
    {
        std::lock_guard lock(mutex_);
        later_.emplace(Clock::now() + std::chrono::milliseconds(delay_ms), std::move(job));
    }
    Nudge();
}

void Housekeeper::RunJobs() {
    std::vector<Job> due;
    {
        std::lock_guard lock(mutex_);
        due.swap(jobs_);
        auto now = Clock::now();
        while (!later_.empty() && later_.begin()->first <= now) {
            due.push_back(std::move(later_.begin()->second));
            later_.erase(later_.begin());
        }
    }
    for (Job& job : due)
        job();
}

int Housekeeper::WaitMs() {
    std::lock_guard lock(mutex_);
    if (!jobs_.empty()) return 0;
    if (later_.empty()) return -1;
    auto wait = std::chrono::ceil<std::chrono::milliseconds>(later_.begin()->first - Clock::now());
    return static_cast<int>(std::max<int64_t>(wait.count(), 0));
}

void Housekeeper::Loop() {
    for (;;) {
        constexpr int kEventsAtOnce = 16;
        epoll_event events[kEventsAtOnce];
        int count = sys::EpollWait(epoll_.get(), events, kEventsAtOnce, WaitMs());
        for (int i = 0; i < count; ++i) {
            // A copy: the structure is packed, no reference may be bound to what is in it.
            const uint64_t key = events[i].data.u64;
            std::shared_ptr<Watched> watched;
            {
                std::lock_guard lock(mutex_);
                auto found = watched_.find(key);
                if (found != watched_.end()) watched = found->second;
            }
            if (watched != nullptr) watched->OnEvents(events[i].events);
        }
        RunJobs();
    }
}

}  // namespace host
