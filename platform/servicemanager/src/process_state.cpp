#include "process_state.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace host {
namespace {

// The text behind "key:\t", up to the end of its line.
std::string Field(std::string_view status, std::string_view key) {
    size_t at = 0;
    while (at < status.size()) {
        const size_t end = std::min(status.find('\n', at), status.size());
        const std::string_view line = status.substr(at, end - at);
        if (line.size() > key.size() + 1 && line.substr(0, key.size()) == key &&
            line[key.size()] == ':') {
            return std::string(line.substr(key.size() + 2));
        }
        at = end + 1;
    }
    return "";
}

bool HasSigkill(const std::string& mask) {
    return (strtoull(mask.c_str(), nullptr, 16) & (uint64_t{1} << (SIGKILL - 1))) != 0;
}

}  // namespace

bool IsDeadStatus(std::string_view status) {
    const std::string state = Field(status, "State");
    return state.empty() || state[0] == 'Z' || state[0] == 'X' ||
           HasSigkill(Field(status, "SigPnd")) || HasSigkill(Field(status, "ShdPnd"));
}

bool IsProcessDead(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/status";
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    // Without a descriptor nothing is known; /proc hides nothing from a process of the same user.
    if (fd < 0) return errno == ENOENT;
    char text[4096];
    const ssize_t size = TEMP_FAILURE_RETRY(read(fd, text, sizeof(text)));
    const int error = errno;
    close(fd);
    if (size < 0) return error == ESRCH;
    return IsDeadStatus(std::string_view(text, static_cast<size_t>(size)));
}

}  // namespace host
