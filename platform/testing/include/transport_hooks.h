// Switches of the transport of this process, each set for the life of an object. One object of a
// kind at a time; made and destroyed by one thread.
#pragma once

#include <string>

namespace host::testing {

// The n-th call (from 1, counted from the construction) of the transport's system call of that name
// fails once with `error`.
class FailNthCall {
  public:
    FailNthCall(const char* name, int n, int error);
    ~FailNthCall();
    FailNthCall(const FailNthCall&) = delete;
    FailNthCall& operator=(const FailNthCall&) = delete;

    // Whether that call has come.
    bool fired() const;
};

// While it lives, threads that would call an unlink callback wait in front of it.
class HeldUnlinks {
  public:
    HeldUnlinks();
    ~HeldUnlinks();
    HeldUnlinks(const HeldUnlinks&) = delete;
    HeldUnlinks& operator=(const HeldUnlinks&) = delete;

    // Waits until so many threads stand in front of a callback.
    bool WaitForHeld(int count) const;
};

// Lets ABinderProcess_joinThreadPool() of this process return. Construct it before the join.
class PoolEnd {
  public:
    // Sets BINDER_HOST_END_FD.
    PoolEnd();
    ~PoolEnd();
    PoolEnd(const PoolEnd&) = delete;
    PoolEnd& operator=(const PoolEnd&) = delete;

    // Once; joins under way and to come return.
    void End();

  private:
    int read_end_ = -1;
    int write_end_ = -1;
};

}  // namespace host::testing
