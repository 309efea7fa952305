// The calls that a thread is serving, innermost first. Each thread sees its own only.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace host {

class CallConnection;
class Peer;

struct CallFrame {
    CallConnection* connection = nullptr;  // on which the caller waits; null for a oneway call
    Peer* peer = nullptr;
    uint32_t depth = 0;
    bool may_defer = false;
    bool deferred = false;
    CallFrame* outer = nullptr;
};

// The innermost call that this thread serves; null outside of any.
CallFrame*& CurrentCall();

// The depth of a call that this thread makes.
inline uint32_t OutgoingDepth() {
    CallFrame* frame = CurrentCall();
    return frame == nullptr ? 1 : frame->depth + 1;
}

// Stands for one served call for as long as it lives.
class ServedCall {
  public:
    explicit ServedCall(CallFrame* frame) : frame_(frame) {
        frame_->outer = CurrentCall();
        CurrentCall() = frame_;
    }
    ~ServedCall() { CurrentCall() = frame_->outer; }
    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;

  private:
    CallFrame* frame_;
};

}  // namespace host
