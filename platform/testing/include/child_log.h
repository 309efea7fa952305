// What a child writes to its standard error, line by line. The reading thread is the object's own
// and is joined by the destructor; lines() and WaitForLine() may be called from any thread.
#pragma once

#include <android-base/thread_annotations.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "eventually.h"

namespace host::testing {

class ChildLog {
  public:
    ChildLog() = default;
    // Does not wait for the end of the stream: a grandchild may hold it open.
    ~ChildLog();
    ChildLog(const ChildLog&) = delete;
    ChildLog& operator=(const ChildLog&) = delete;

    // Takes over the descriptor and reads it to its end. Once.
    void Start(int descriptor, bool echo);

    // True as soon as a line holds the text, also one that came before the call.
    bool WaitForLine(const std::string& text, std::chrono::milliseconds limit = kTestLimit);

    // True when everything was read up to the end of the stream.
    bool WaitForEnd(std::chrono::milliseconds limit = kTestLimit);

    std::vector<std::string> lines() const;

    // How many lines hold the text so far.
    int Count(const std::string& text) const;

  private:
    void Run(bool echo);
    void Append(const std::string& chunk);

    int descriptor_ = -1;  // set by Start before the thread
    int stop_ = -1;        // an eventfd that ends the thread; set by Start before the thread
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_ GUARDED_BY(mutex_);
    std::string partial_ GUARDED_BY(mutex_);
    bool ended_ GUARDED_BY(mutex_) = false;
    std::thread thread_;  // last: reads the members above
};

}  // namespace host::testing
