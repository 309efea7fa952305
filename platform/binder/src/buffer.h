// A byte buffer that grows without filling and keeps its storage. Not for concurrent use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace host {

class Buffer {
  public:
    uint8_t* data() { return bytes_.get(); }
    const uint8_t* data() const { return bytes_.get(); }
    size_t size() const { return size_; }
    size_t capacity() const { return capacity_; }
    bool empty() const { return size_ == 0; }

    // Room for `capacity` bytes in all; content stays.
    void Reserve(size_t capacity) {
        if (capacity <= capacity_) return;
        std::unique_ptr<uint8_t[]> grown(new uint8_t[capacity]);
        if (size_ != 0) memcpy(grown.get(), bytes_.get(), size_);
        bytes_ = std::move(grown);
        capacity_ = capacity;
    }

    void Append(const void* data, size_t size) {
        if (size == 0) return;
        if (capacity_ - size_ < size)
            Reserve(size_ + size > 2 * capacity_ ? size_ + size : 2 * capacity_);
        memcpy(bytes_.get() + size_, data, size);
        size_ += size;
    }

    // Declares that `size` bytes behind the content have been written in place.
    void Advance(size_t size) { size_ += size; }

    // Drops the first `size` bytes.
    void Consume(size_t size) {
        size_ -= size;
        if (size_ != 0) memmove(bytes_.get(), bytes_.get() + size, size_);
    }

    // Empties it; storage beyond `keep` bytes is given back.
    void Clear(size_t keep = 64 * 1024) {
        size_ = 0;
        if (capacity_ <= keep) return;
        bytes_.reset();
        capacity_ = 0;
    }

  private:
    std::unique_ptr<uint8_t[]> bytes_;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

}  // namespace host
