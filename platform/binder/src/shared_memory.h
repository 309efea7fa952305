// Memory of a fixed size that two processes share: a sealed file that cannot shrink, mapped.
// Not for concurrent use; what lies in it is.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fd.h"

namespace host {

// Owns the mapping; unmapped by the destructor.
class SharedMemory {
  public:
    SharedMemory() = default;
    SharedMemory(SharedMemory&& other) noexcept;
    SharedMemory& operator=(SharedMemory&& other) noexcept;
    ~SharedMemory();

    // New memory, all zeros, and the file behind it; false with errno. `size` in bytes.
    bool Create(const char* name, size_t size, UniqueFd* file);
    // Maps a file that a peer sent; false unless it has exactly the size and the seals of ours, and
    // with errno ENOMEM if it has.
    bool Map(int file, size_t size);

    bool ok() const { return base_ != nullptr; }
    uint8_t* data() const { return base_; }

  private:
    bool MapFile(int file, size_t size);

    uint8_t* base_ = nullptr;
    size_t size_ = 0;
};

}  // namespace host
