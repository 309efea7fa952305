#pragma once

// Writes lines to a descriptor that others share, without ever waiting for its reader. Not
// synchronised: callers lock. Holds no descriptor of its own, so that nothing is left open when the
// process changes its standard error.

#include <sys/types.h>

#include <string>
#include <string_view>

struct stat;

namespace host {

class LineOutput {
  public:
    enum class Outcome {
        kTaken,    // The line is out, or its rest goes out before anything else does.
        kRefused,  // Nothing of the line went out.
        kClosed,   // The descriptor is not open.
    };

    explicit LineOutput(int descriptor) : descriptor_(descriptor) {}

    // Writes a line, its end included, by one system call. Does not wait, raise SIGPIPE or retry.
    Outcome Put(std::string_view line);

    // For tests: behaves as on a kernel that cannot write to a pipe without waiting on a shared
    // descriptor.
    void DoWithoutNoWait() { no_wait_works_ = false; }

  private:
    Outcome PutTail(const struct stat& status);
    ssize_t Write(const struct stat& status, std::string_view bytes);
    ssize_t WriteToPipe(std::string_view bytes);
    ssize_t WriteNow(std::string_view bytes);
    ssize_t WriteReopened(std::string_view bytes);

    const int descriptor_;
    bool no_wait_works_ = true;

    // What a short write left of a line, and the file that it belongs to. Short writes happen on
    // stream sockets, on terminals, on full disks, and to lines that are longer than what a pipe
    // takes in one piece.
    std::string tail_;
    dev_t tail_device_ = 0;
    ino_t tail_inode_ = 0;
};

}  // namespace host
