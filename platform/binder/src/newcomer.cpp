#include "newcomer.h"

#include "descriptors.h"
#include "endpoint.h"
#include "frame.h"
#include "sys.h"
#include "warning.h"

namespace host {

void Newcomer::Begin() {
    key_ = Housekeeper::Get().Watch(fd_.get(), EPOLLIN, shared_from_this());
    if (key_ == 0) return Cut("it cannot be watched");
    Read();
}

void Newcomer::StopWatching() {
    if (key_ != 0) Housekeeper::Get().Forget(fd_.get(), key_);
    key_ = 0;
}

void Newcomer::Cut(const char* reason) {
    Warn("Cutting a connection of pid %d uid %d: %s.", pid_, uid_, reason);
    auto self = shared_from_this();
    StopWatching();
    Endpoint::Get().DropNewcomer(this);
}

bool Newcomer::Receive() {
    iovec part{bytes_ + size_, sizeof(bytes_) - size_};
    DescriptorSpace space;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    space.Attach(&message);
    std::shared_lock until_owned(ForkMutex());
    ssize_t got = sys::RecvMsg(fd_.get(), &message, MSG_DONTWAIT);
    if (got < 0) return errno == EAGAIN || errno == EINTR;
    size_ += static_cast<size_t>(got);
    bool unwanted = !space.Take(message, &received_);
    return got != 0 && !unwanted;
}

void Newcomer::Read() {
    if (size_ == sizeof(bytes_)) return;  // it has said its hello, which is being handled
    auto self = shared_from_this();
    if (!Receive()) {
        if (size_ == 0) {
            StopWatching();  // came and went without a word
            Endpoint::Get().DropNewcomer(this);
            return;
        }
        return Cut("malformed hello");
    }
    if (size_ == sizeof(bytes_)) Finish();
}

void Newcomer::Finish() {
    auto header = DecodeHeader(bytes_);
    auto hello = CopyOut<HelloBody>(bytes_ + sizeof(FrameHeader));
    if (!header || header->type != static_cast<uint16_t>(FrameType::kHello))
        return Cut("malformed hello");
    if (hello.version != kProtocolVersion) return Cut("another version of the protocol");
    auto named_pid = PidOfEndpointName(DecodeName(hello.name));
    if (!named_pid || *named_pid != pid_) return Cut("a name that is not its own");
    StopWatching();
    Endpoint::Get().OnHello(this, hello);
}

}  // namespace host
