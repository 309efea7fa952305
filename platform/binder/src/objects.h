// References in a message: what handing them over and receiving them does to the tables of this
// process. Any thread; no lock may be held that a release could need.
#pragma once

#include <android/binder_status.h>

#include <memory>
#include <string>
#include <vector>

#include "buffer.h"
#include "frame.h"
#include "parcel.h"
#include "references.h"

namespace host {

class Peer;

// Whether the receiver's own use of the message tells the sender when it has entered the
// references: the answer to a call does, for references to the receiver's own objects. Everything
// else is settled one by one.
enum class Direction { kCall, kReply, kOneway };

// Makes the table of references of one message to one peer. If the message is not sent after all,
// Undo takes the hand-overs back.
class ObjectEncoder {
  public:
    ObjectEncoder(Peer* to, Direction direction) : to_(to), direction_(direction) {}

    // STATUS_FAILED_TRANSACTION: the message is larger than a transaction may be, or the peer holds
    // too much. STATUS_DEAD_OBJECT: the peer is dead. Nothing is handed over unless it answers
    // STATUS_OK.
    binder_status_t Encode(const AParcel& parcel, Buffer* table);
    void Undo();

  private:
    binder_status_t EncodeOne(const AParcel::Object& object, Buffer* table);
    binder_status_t HandOverLocal(AIBinder* binder, WireObject* entry);
    binder_status_t PassOn(AIBinder* binder, WireObject* entry, std::string* owner);
    binder_status_t CheckSize(const AParcel& parcel) const;

    struct Done {
        RefId id;
        std::string owner;  // empty: this process
    };
    Peer* const to_;
    const Direction direction_;
    std::vector<Done> done_;
};

// The objects of a received message, entered in the tables, in order. False if the table of
// references is malformed; what had been entered by then is in `*objects` all the same, and the
// caller drops it.
bool DecodeObjects(const std::shared_ptr<Peer>& from, const Message& message,
                   std::vector<AParcel::Object>* objects);

// Drops what DecodeObjects gave and no parcel took.
void DropObjects(std::vector<AParcel::Object>* objects);

}  // namespace host
