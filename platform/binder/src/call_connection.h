// A connection for two-way calls. The side that opened it calls; while it waits for the answer, the
// side that serves may call back on the same connection, and so on, in turns. Frames go through the
// socket, or, once calls have followed one another at once, through a mailbox while both sides look
// there. Used by one thread at a time: the one that calls, or the pool thread that was woken for
// it. Only ShutDown may come from any other thread.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "buffer.h"
#include "fd.h"
#include "frame.h"
#include "lookout.h"
#include "mailbox.h"
#include "pool.h"
#include "wake_up_place.h"
#include "wire.h"

struct AParcel;

namespace host {

class Peer;
enum class Served;

class CallConnection : public PoolSource, public std::enable_shared_from_this<CallConnection> {
  public:
    CallConnection(std::shared_ptr<Peer> peer, UniqueFd fd, bool ours)
            : peer_(std::move(peer)), fd_(std::move(fd)), ours_(ours) {}

    const std::shared_ptr<Peer>& peer() const { return peer_; }
    // This process opened it.
    bool ours() const { return ours_; }

    // kTurnIsOver: frames go on coming while other work waits for a thread.
    enum class Result { kFrame, kIncomplete, kClosed, kMalformed, kTurnIsOver };

    // kBriefly: a few milliseconds, and only for the first byte of a frame.
    enum class Wait { kNot, kBriefly, kUntilThere };

    // Where the thread runs that has called here last, as its process says.
    void NoteCaller(ProcessorNote processor) { caller_runs_on_ = processor; }

    // The next frame; its body is valid until the next read. With kUntilThere neither kIncomplete
    // nor kTurnIsOver.
    // `received` takes a descriptor that comes with it; without it one is malformed. It stays empty
    // if this process has no room for one: HasLostDescriptor.
    Result Read(Wait wait, FrameType* type, Bytes* body, UniqueFd* received = nullptr);

    // Whether a descriptor that was to be received has been lost since the last time. Both sides
    // have done what they should.
    bool HasLostDescriptor() { return std::exchange(lost_descriptor_, false); }

    struct Parts {
        FrameType type;
        const void* fixed;
        size_t fixed_size;
        Bytes data;
        Bytes objects;
        int descriptor = -1;
    };
    // Without `wait`, what the socket does not take is kept and sent by the pool. False: it has
    // ended.
    bool Send(const Parts& parts, bool wait);

    // The side that opened it: ahead of a call, and once it is answered. False: the connection has
    // ended.
    bool BeginCall(bool nested);
    void EndCall() { mailbox_.Prepare(); }

    // Ahead of an answer: the next call may come at once, and into the mailbox.
    void LookForNextCall();

    // Answers the call that is being served; every way of serving ends here.
    bool SendReply(int32_t status, const AParcel* reply, bool wait);

    bool JoinPool();
    void LeavePool();
    // Waits for the next frame, or for room if something is left to send.
    void Rearm();
    void ShutDown();
    bool IsOpen() const;

    void OnReady(uint32_t events) override;

  private:
    bool OfferMailbox();
    // False: malformed. Without room for it every call goes through the socket.
    bool TakeMailbox();
    bool SendToSocket(const Parts& parts, bool wait);
    bool SendToMailbox(const Parts& parts, bool wait);
    // What was put into the mailbox, if it was, comes behind `in_`. False: malformed.
    bool LookIntoMailbox(Wait wait);
    bool OnKnock();
    bool Receive(Wait wait, UniqueFd* received, Result* failure);
    bool KeepRest(const Parts& parts, size_t sent);
    bool SendKept();
    // Serves what has come in and what follows soon; false when the connection is to be dropped.
    bool ServeFrames();
    Served ServeFrame(FrameType type, Bytes body);
    // Counts one frame; whether the thread is to look after others first.
    bool IsTurnOver();
    // What has come in behind the last frame, or comes while this thread may stay and its turn
    // lasts.
    Result ReadNext(FrameType* type, Bytes* body);
    Result ReadWhereCallerRuns(FrameType* type, Bytes* body);
    Result ReadCall(Wait wait, FrameType* type, Bytes* body);

    const std::shared_ptr<Peer> peer_;
    UniqueFd fd_;
    const bool ours_;
    std::atomic<uint64_t> key_{0};
    // Hands the plain members below from the thread that rearmed to the one that is woken next.
    std::atomic<bool> handed_over_{false};
    Buffer in_;
    size_t frame_size_ = 0;  // of the frame handed out last, still at the start of in_
    Buffer kept_;            // a reply that the socket has not taken
    // Calls come one by one: who calls is waited for where it runs.
    bool calls_are_lone_ = true;
    ProcessorNote caller_runs_on_ = 0;
    WakeUpPlace place_;
    WakeUpPlace away_from_caller_;  // while calls are dense
    Mailbox mailbox_;
    bool mailbox_was_offered_ = false;
    uint32_t frames_left_ = 0;      // of the turn
    UniqueFd offered_;              // what came with a frame that should be the offer of a mailbox
    bool lost_descriptor_ = false;  // or came, and there was no room for it
    Lookout lookout_{&mailbox_};
};

}  // namespace host
