// The verb push, on the verb's thread; the hub's calls are handed over to it.

#pragma once

#include <chrono>
#include <memory>

#include "hub_link.h"
#include "line_reader.h"
#include "loop.h"
#include "options.h"

namespace velmoractl {

class Push {
  public:
    // All three outlive the object.
    Push(const Options& options, const Output& output, const std::shared_ptr<Loop>& loop);

    // Registers, pushes until its events are at an end or the loop is stopped, and unregisters.
    int Run();

  private:
    class Producer;

    bool Register();
    // Waits for whatever has to be waited for, then pushes what is due.
    void Step();
    // What comes next of the made-up events or the lines; false if it has to be waited for.
    bool PushNext();
    bool PushLine();
    bool PushEvent(const hub::VelmoraEvent& event);
    void SetNext(double seconds);
    void OnDemand(bool clients);
    void Fail(const std::string& reason);

    const Options& options_;
    const Output& output_;
    const std::shared_ptr<Loop> loop_;
    const int32_t signal_;
    const bool made_up_;
    LineReader lines_;
    Loop::Clock::time_point next_;  // not before; with a rate only
    Hub hub_;
    std::shared_ptr<hub::IToken> token_;
    uint64_t events_ = 0;
    bool wanted_;
};

}  // namespace velmoractl
