#include "dump.h"

#include <android/binder_parcel.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>

#include <string>
#include <vector>

#include "call_connection.h"
#include "caller.h"
#include "limits.h"
#include "parcel.h"
#include "peer.h"
#include "serve.h"
#include "sys.h"

namespace host {
namespace {

constexpr int kDumpSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
// As much as a pipe takes at once when it says that it takes anything: a blocking pipe does not
// block then.
constexpr size_t kChunkBytes = 4096;
constexpr uint32_t kMaxArguments = 1024;

// Keeps SIGPIPE from the process while this thread writes to a descriptor that is not the layer's.
class NoSigPipe {
  public:
    NoSigPipe() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~NoSigPipe() {
        timespec none{};
        while (!was_pending_ && sigtimedwait(&pipe_, nullptr, &none) == SIGPIPE) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

  private:
    sigset_t pipe_;
    sigset_t before_;
    bool was_pending_;
};

ssize_t WriteWithoutWaiting(int fd, const uint8_t* bytes, size_t size) {
    ssize_t sent = send(fd, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent >= 0 || errno != ENOTSOCK ? sent : write(fd, bytes, size);
}

binder_status_t WriteChunk(int fd, const uint8_t* bytes, size_t size) {
    while (size != 0) {
        pollfd room{fd, POLLOUT, 0};
        int ready = poll(&room, 1, kDumpStallMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) return STATUS_TIMED_OUT;
        if (ready < 0 || (room.revents & (POLLERR | POLLNVAL)) != 0)
            return STATUS_FAILED_TRANSACTION;
        ssize_t written = WriteWithoutWaiting(fd, bytes, size);
        if (written < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (written < 0) return STATUS_FAILED_TRANSACTION;
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return STATUS_OK;
}

binder_status_t CopyOver(int file, uint64_t size, int fd) {
    NoSigPipe no_signal;
    uint8_t chunk[kChunkBytes];
    for (uint64_t done = 0; done < size;) {
        ssize_t got = pread(file, chunk, sizeof(chunk), static_cast<off_t>(done));
        if (got <= 0) return STATUS_FAILED_TRANSACTION;
        binder_status_t status = WriteChunk(fd, chunk, static_cast<size_t>(got));
        if (status != STATUS_OK) return status;
        done += static_cast<uint64_t>(got);
    }
    return STATUS_OK;
}

bool IsSealed(int file, uint64_t size) {
    struct stat facts {};
    if (fstat(file, &facts) != 0 || !S_ISREG(facts.st_mode)) return false;
    int seals = sys::Fcntl(file, F_GET_SEALS, 0);
    return seals >= 0 && (seals & kDumpSeals) == kDumpSeals &&
           static_cast<uint64_t>(facts.st_size) == size;
}

binder_status_t WriteArguments(AParcel* parcel, const char** args, uint32_t count) {
    binder_status_t status = count <= kMaxArguments
                                     ? AParcel_writeInt32(parcel, static_cast<int32_t>(count))
                                     : STATUS_BAD_VALUE;
    for (uint32_t i = 0; i < count && status == STATUS_OK; ++i) {
        std::string argument = args[i] == nullptr ? "" : args[i];
        status = AParcel_writeInt32(parcel, static_cast<int32_t>(argument.size()));
        if (status == STATUS_OK) status = parcel->Write(argument.data(), argument.size());
    }
    return status;
}

bool ReadArguments(const AParcel* parcel, std::vector<std::string>* args) {
    int32_t count = 0;
    if (AParcel_readInt32(parcel, &count) != STATUS_OK || count < 0) return false;
    if (static_cast<uint32_t>(count) > kMaxArguments) return false;
    for (int32_t i = 0; i < count; ++i) {
        int32_t size = 0;
        if (AParcel_readInt32(parcel, &size) != STATUS_OK || size < 0) return false;
        const uint8_t* text = parcel->Read(static_cast<size_t>(size));
        if (text == nullptr) return false;
        args->emplace_back(reinterpret_cast<const char*>(text), static_cast<size_t>(size));
    }
    return true;
}

binder_status_t RunDump(LocalBinder* target, int file, const AParcel* in) {
    std::vector<std::string> args;
    if (!ReadArguments(in, &args)) return STATUS_BAD_VALUE;
    std::vector<const char*> pointers;
    pointers.reserve(args.size());
    for (const std::string& argument : args)
        pointers.push_back(argument.c_str());
    const AIBinder_Class* clazz = target->clazz.load();
    if (clazz->on_dump == nullptr) return STATUS_OK;
    return clazz->on_dump(target, file, pointers.data(), static_cast<uint32_t>(pointers.size()));
}

// Seals the file for its journey; a dump that still writes to it has not ended.
bool Seal(int file, uint64_t* size) {
    if (sys::Fcntl(file, F_ADD_SEALS, kDumpSeals) != 0) return false;
    struct stat facts {};
    if (fstat(file, &facts) != 0) return false;
    *size = static_cast<uint64_t>(facts.st_size);
    return true;
}

}  // namespace

bool ServeDump(CallConnection* connection, LocalBinder* target, const AParcel* in, bool nested) {
    UniqueFd file(sys::MemfdCreate("binder-dump", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file.ok()) return connection->SendReply(STATUS_NO_MEMORY, nullptr, nested);
    binder_status_t status = RunDump(target, file.get(), in);
    uint64_t size = 0;
    if (!Seal(file.get(), &size))
        return connection->SendReply(STATUS_FAILED_TRANSACTION, nullptr, nested);
    // What was written reaches the asker whatever the object answers.
    ReplyBody body{};
    body.status = status;
    body.flags = kReplyCarriesMemory;
    body.data_size = sizeof(size);
    Bytes data(reinterpret_cast<const uint8_t*>(&size), sizeof(size));
    return connection->Send({FrameType::kReply, &body, sizeof(body), data, {}, file.get()}, nested);
}

binder_status_t DumpRemote(ProxyBinder* target, int fd, const char** args, uint32_t count) {
    AParcel* in = ObtainParcel();
    AParcel* out = ObtainParcel();
    UniqueFd file;
    binder_status_t status = WriteArguments(in, args, count);
    if (status == STATUS_OK) status = CallRemote(target, kDumpTransaction, *in, out, &file);
    int64_t announced_size = -1;
    bool announced = file.ok() && AParcel_readInt64(out, &announced_size) == STATUS_OK &&
                     announced_size >= 0;
    auto size = static_cast<uint64_t>(announced_size);
    RecycleParcel(in);
    RecycleParcel(out);
    if (!file.ok()) return status;
    if (!announced || !IsSealed(file.get(), size)) {
        target->peer->Cut("a dump in memory that is not sealed");
        return STATUS_FAILED_TRANSACTION;
    }
    binder_status_t copied = CopyOver(file.get(), size, fd);
    return copied != STATUS_OK ? copied : status;
}

}  // namespace host
