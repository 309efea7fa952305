// Passing one descriptor with a message. Not for concurrent use.
#pragma once

#include <sys/socket.h>

#include <cstring>

#include "fd.h"

namespace host {

// Room for the descriptors of one message. Whatever came beyond the one that is wanted is closed.
class DescriptorSpace {
  public:
    void Attach(msghdr* message) {
        message->msg_control = space_;
        message->msg_controllen = sizeof(space_);
    }

    void AttachOne(msghdr* message, int fd) {
        message->msg_control = space_;
        message->msg_controllen = CMSG_SPACE(sizeof(int));
        cmsghdr* part = CMSG_FIRSTHDR(message);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(sizeof(int));
        memcpy(CMSG_DATA(part), &fd, sizeof(int));
    }

    // Owns every descriptor that came with `message`. The first goes to `*fd` if that is empty;
    // false if there was any other.
    bool Take(const msghdr& message, UniqueFd* fd) {
        bool wanted = (message.msg_flags & MSG_CTRUNC) == 0;
        for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
             part = CMSG_NXTHDR(const_cast<msghdr*>(&message), part)) {
            if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
            size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (size_t i = 0; i < count; ++i) {
                int number;
                memcpy(&number, CMSG_DATA(part) + i * sizeof(int), sizeof(int));
                UniqueFd one(number);
                if (fd->ok()) {
                    wanted = false;
                } else {
                    *fd = std::move(one);
                }
            }
        }
        return wanted;
    }

    // A descriptor that came with `message` is gone, as this process has no room for it: neither
    // side has done anything wrong. Ahead of Take.
    bool IsLost(const msghdr& message) const {
        return (message.msg_flags & MSG_CTRUNC) != 0 && CMSG_FIRSTHDR(&message) == nullptr;
    }

  private:
    alignas(cmsghdr) char space_[CMSG_SPACE(4 * sizeof(int))];
};

}  // namespace host
