// Lines out of a descriptor, as they come. One thread.

#pragma once

#include <unistd.h>

#include <optional>
#include <string>

namespace velmoractl {

class LineReader {
  public:
    // No event that the hub takes needs as much.
    static constexpr size_t kMost = 8 << 20;

    // The descriptor stays the caller's.
    explicit LineReader(int descriptor) : descriptor_(descriptor) {}

    int descriptor() const { return descriptor_; }
    // There is a line of more than kMost bytes, which is never taken.
    bool overlong() const { return pending_.size() > kMost && searched_ == pending_.size(); }
    // Nothing more will come.
    bool ended() const { return ended_ && pending_.empty(); }
    // Of the line that was taken last, from 1.
    size_t number() const { return number_; }

    // Takes the next line that is there; the last one needs no line break.
    std::optional<std::string> Take() {
        const size_t end = pending_.find('\n', searched_);
        searched_ = pending_.size();
        if (end == pending_.npos && overlong()) return std::nullopt;
        if (end == pending_.npos && !(ended_ && !pending_.empty())) return std::nullopt;
        const std::string line = pending_.substr(0, end);
        pending_.erase(0, end == pending_.npos ? end : end + 1);
        searched_ = 0;
        ++number_;
        return line;
    }

    // Waits for some input and reads it. A failure is an end.
    void Read() {
        char chunk[16384];
        const ssize_t size = read(descriptor_, chunk, sizeof(chunk));
        if (size <= 0) ended_ = true;
        if (size > 0) pending_.append(chunk, static_cast<size_t>(size));
    }

  private:
    const int descriptor_;
    std::string pending_;
    size_t searched_ = 0;  // so far there is no line break
    size_t number_ = 0;
    bool ended_ = false;
};

}  // namespace velmoractl
