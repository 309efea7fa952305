#include "folder_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>

namespace host {
namespace {

// How often to look without a watch, and how often with one: a folder may be replaced by another.
constexpr std::chrono::milliseconds kBlindStep{50};
constexpr std::chrono::milliseconds kStep{250};

}  // namespace

FolderWatch::FolderWatch(const std::string& folder)
        : watch_(NewFd([] { return inotify_init1(IN_CLOEXEC | IN_NONBLOCK); })) {
    if (!watch_.ok()) return;
    const uint32_t events = IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
    if (inotify_add_watch(watch_.get(), folder.c_str(), events) < 0) watch_.Reset();
}

void FolderWatch::Wait(std::chrono::milliseconds limit) {
    pollfd wait{watch_.get(), POLLIN, 0};
    limit = std::min(limit, watch_.ok() ? kStep : kBlindStep);
    if (poll(&wait, 1, static_cast<int>(limit.count())) <= 0) return;
    // What has happened does not matter: the caller looks again.
    char events[4096];
    while (read(watch_.get(), events, sizeof(events)) > 0) {
    }
}

}  // namespace host
