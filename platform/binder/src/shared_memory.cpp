#include "shared_memory.h"

#include <sys/stat.h>

#include <utility>

#include "sys.h"

namespace host {
namespace {

constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

}  // namespace

SharedMemory::SharedMemory(SharedMemory&& other) noexcept
        : base_(std::exchange(other.base_, nullptr)), size_(std::exchange(other.size_, 0)) {}

SharedMemory& SharedMemory::operator=(SharedMemory&& other) noexcept {
    std::swap(base_, other.base_);
    std::swap(size_, other.size_);
    return *this;
}

SharedMemory::~SharedMemory() {
    if (base_ != nullptr) munmap(base_, size_);
}

bool SharedMemory::Create(const char* name, size_t size, UniqueFd* file) {
    UniqueFd created(sys::MemfdCreate(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!created.ok() || sys::Ftruncate(created.get(), static_cast<off_t>(size)) != 0) return false;
    if (sys::Fcntl(created.get(), F_ADD_SEALS, kSeals) != 0 || !MapFile(created.get(), size))
        return false;
    *file = std::move(created);
    return true;
}

bool SharedMemory::Map(int file, size_t size) {
    errno = EINVAL;
    struct stat facts {};
    if (fstat(file, &facts) != 0 || !S_ISREG(facts.st_mode)) return false;
    if (facts.st_size != static_cast<off_t>(size)) return false;
    const int seals = sys::Fcntl(file, F_GET_SEALS, 0);
    if (seals < 0 || (seals & kSeals) != kSeals || (seals & F_SEAL_WRITE) != 0) return false;
    return MapFile(file, size);
}

bool SharedMemory::MapFile(int file, size_t size) {
    void* mapped = sys::Mmap(size, PROT_READ | PROT_WRITE, MAP_SHARED, file);
    if (mapped == MAP_FAILED) return false;
    base_ = static_cast<uint8_t*>(mapped);
    size_ = size;
    return true;
}

}  // namespace host
