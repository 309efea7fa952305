// Switches of the transport of this process, each set for the life of an object. One object of a
// kind at a time; made and destroyed by one thread.
#pragma once

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

}  // namespace host::testing
