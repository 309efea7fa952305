#include "child_log.h"

#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>

namespace host::testing {

ChildLog::~ChildLog() {
    if (!thread_.joinable()) return;
    eventfd_write(stop_, 1);
    thread_.join();
    close(descriptor_);
    close(stop_);
}

void ChildLog::Start(int descriptor, bool echo) {
    descriptor_ = descriptor;
    stop_ = eventfd(0, EFD_CLOEXEC);
    thread_ = std::thread([this, echo] { Run(echo); });
}

void ChildLog::Run(bool echo) {
    pollfd waits[] = {{descriptor_, POLLIN, 0}, {stop_, POLLIN, 0}};
    char buffer[4096];
    for (;;) {
        if (poll(waits, 2, -1) < 0 && errno == EINTR) continue;
        // What is there is read before the stop counts.
        if (waits[0].revents == 0) break;
        const ssize_t count = read(descriptor_, buffer, sizeof(buffer));
        if (count <= 0) break;
        const std::string chunk(buffer, static_cast<size_t>(count));
        // Whoever started it, a report is for whoever reads the test's output.
        echo |= chunk.find("Sanitizer:") != std::string::npos;
        if (echo && write(STDERR_FILENO, chunk.data(), chunk.size()) < 0) echo = false;
        Append(chunk);
    }
    std::lock_guard lock(mutex_);
    if (!partial_.empty()) lines_.push_back(std::move(partial_));
    ended_ = true;
    changed_.notify_all();
}

void ChildLog::Append(const std::string& chunk) {
    std::lock_guard lock(mutex_);
    partial_ += chunk;
    for (size_t end; (end = partial_.find('\n')) != std::string::npos;) {
        lines_.push_back(partial_.substr(0, end));
        partial_.erase(0, end + 1);
    }
    changed_.notify_all();
}

bool ChildLog::WaitForLine(const std::string& text, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    bool found = false;
    size_t seen = 0;
    changed_.wait_for(lock, limit, [&] {
        android::base::ScopedLockAssertion held(mutex_);
        for (; !found && seen < lines_.size(); ++seen)
            found = lines_[seen].find(text) != std::string::npos;
        return found || ended_;
    });
    return found;
}

bool ChildLog::WaitForEnd(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this] {
        android::base::ScopedLockAssertion held(mutex_);
        return ended_;
    });
}

std::vector<std::string> ChildLog::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

int ChildLog::Count(const std::string& text) const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count_if(
            lines_.begin(), lines_.end(),
            [&text](const std::string& line) { return line.find(text) != std::string::npos; }));
}

}  // namespace host::testing
