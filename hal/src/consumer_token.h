// The handle of one subscription, as the consumer manager hands it out.
//
// Threads: any; a token never changes. Owned by shared pointers: the client's through its binder,
// the subscription's record and the death tracking. It outlives its subscription while anybody
// holds it.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/BnToken.h>

#include <cstdint>
#include <memory>

#include "live_tokens.h"

namespace aidl::vendor::quorin::velmora_hub {

class ConsumerToken : public BnToken {
  public:
    // Use ndk::SharedRefBase::make.
    ConsumerToken(int32_t signal_id, int32_t token_id) : signal_id(signal_id), token_id(token_id) {
        Live().Add(this);
    }
    ~ConsumerToken() override { Live().Remove(this); }

    // `token` as what it is; null if it is null or anything but a ConsumerToken of this process.
    // Nothing of a token of other origin is read.
    static std::shared_ptr<ConsumerToken> From(const std::shared_ptr<IToken>& token) {
        if (!Live().Contains(token.get())) return nullptr;
        return std::static_pointer_cast<ConsumerToken>(token);
    }

    const int32_t signal_id;
    const int32_t token_id;

  private:
    // Never destroyed: the last tokens may end during static destruction.
    static LiveTokens& Live() {
        static LiveTokens& live = *new LiveTokens;
        return live;
    }
};

}  // namespace aidl::vendor::quorin::velmora_hub
