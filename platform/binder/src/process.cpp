#include <android/binder_process.h>
#include <host/environment.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>

#include "housekeeper.h"
#include "pool.h"
#include "sys.h"
#include "warning.h"

namespace {

// The read end of a pipe whose end is the end of the pool.
class EndOfPool : public host::Watched, public std::enable_shared_from_this<EndOfPool> {
  public:
    explicit EndOfPool(int fd) : fd_(fd) {}

    void Begin() {
        key_.store(host::Housekeeper::Get().Watch(fd_.get(), EPOLLIN, shared_from_this()));
    }

    void OnEvents(uint32_t) override {
        char unread[64];
        ssize_t got = read(fd_.get(), unread, sizeof(unread));
        if (got > 0 || (got < 0 && (errno == EINTR || errno == EAGAIN))) return;
        uint64_t key = key_.load();
        if (key == 0) return;  // Begin has not come back yet; the end stays to be seen
        host::Housekeeper::Get().Forget(fd_.get(), key);
        host::Pool::Get().End();
    }

  private:
    host::UniqueFd fd_;
    std::atomic<uint64_t> key_{0};
};

void WatchForEnd() {
    const auto named = host::ReadEnvironment("BINDER_HOST_END_FD");
    if (!named) return;
    char* rest = nullptr;
    const long fd = strtol(named->c_str(), &rest, 10);
    if (*rest != '\0' || fd < 0 || fcntl(static_cast<int>(fd), F_GETFD) < 0) {
        host::Warn("BINDER_HOST_END_FD is no open descriptor: %s.", named->c_str());
        return;
    }
    // From here on it belongs to the layer; a program that this one starts is not to inherit it.
    fcntl(static_cast<int>(fd), F_SETFD, FD_CLOEXEC);
    if (!host::Housekeeper::Get().Start()) return;
    std::make_shared<EndOfPool>(static_cast<int>(fd))->Begin();
}

void WatchForEndOnce() {
    static std::once_flag once;
    host::HeldWarnings after;
    std::call_once(once, WatchForEnd);
}

}  // namespace

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t count) {
    host::Pool::Get().SetMaxThreads(count);
    return true;
}

void ABinderProcess_startThreadPool() {
    WatchForEndOnce();
    host::Pool::Get().Start();
}

bool ABinderProcess_isThreadPoolStarted() {
    return host::Pool::Get().IsStarted();
}

void ABinderProcess_joinThreadPool() {
    WatchForEndOnce();
    host::Pool::Get().Join();
}
