// A victim, a healthy client of it, and this process as the hostile peer of both: what the tests
// against hostile peers are written with. One thread.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host_testing.h"
#include "raw_peer.h"
#include "test_object.h"

namespace host::testing {

// What the victim's object does.
enum VictimCode : uint32_t {
    kEcho = 1,      // the value
    kBig = 2,       // that many numbers
    kCallBack = 3,  // calls kEcho of the object it got; its status
    kKeep = 4,      // keeps the object it got
    kPosted = 5,    // counts
    kDumpIt = 6,    // dumps the object it got; the status
    kPostTo = 7,    // a oneway kEcho to the object it got; the status
    kBlock = 8,     // returns after the command "unblock"
    kFlood = 9,     // hands so many new objects to the object it got, in one call; the status
    kMet = 10,      // notes that the client's oneway calls arrive
    kDawdle = 11,   // takes a millisecond
};

// A letter that hands an object of the peer's over.
RawCall Handing(const RefId& target, VictimCode code, int32_t value = 0,
                const RefId& object = {{1, 2}});

// Has the victim hand so many objects over to the peer in one call, and serves that; the status
// of it. Nothing if the connection is cut.
std::optional<int32_t> TakeObjects(RawConnection* connection, const RefId& target, size_t objects);

// One kEcho call that carries so many new objects and numbers beside.
binder_status_t CallWithObjects(const ndk::SpAIBinder& target, size_t objects, size_t numbers = 0);

// A process that speaks by the layer, published under the name: its object answers as the victim's.
// A command to it is the name of a service that it calls; the answer is the status.
struct Bystander {
    explicit Bystander(const std::string& name);

    Helper process;
    ForeignObject object;
};

class Siege : public ::testing::Test {
  protected:
    // The number of descriptors that the victim may have; without one, as many as it wants.
    explicit Siege(const std::vector<std::string>& victim_descriptors = {});
    ~Siege() override;

    // A peer of this process with its control connection; the one before must have been closed.
    RawPeer NewPeer();

    // While the body runs, the victim takes no more of the processor than the time allows, with the
    // client's own calls held back.
    void ExpectNoSpinning(const std::function<void()>& body);

    // WARN lines about this process so far.
    int Warnings();
    // Waits until exactly so many have come since the test began and nothing of the peers is left:
    // the client has made calls meanwhile, none failed, and the victim's counts are what they were.
    void ExpectUnhurt(int warnings);
    // The same without the counts: connections are still open.
    void ExpectServing(int warnings, int at_most_more = 0);

    RefId target_;

    ScopedHost host_;
    Helper victim_;
    Helper client_;
    ProcessCounts before_;

  private:
    int marks_ = 0;
};

}  // namespace host::testing
