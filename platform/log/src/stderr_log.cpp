#include "stderr_log.h"

#include <android-base/thread_annotations.h>
#include <android/log.h>
#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <mutex>
#include <string>

#include "host/environment.h"
#include "line_format.h"
#include "line_output.h"
#include "log_filter.h"

namespace host {
namespace {

constexpr const char* kTag = "host_log";
constexpr size_t kKeptCapacity = 16 * 1024;

// All that the process's lines go through. A leaf: nothing is called under its lock that calls back
// or waits.
class StderrLog {
  public:
    void Write(const char* tag, int priority, std::string_view text) EXCLUDES(mutex_) {
        std::lock_guard<std::mutex> lock(mutex_);
        ReportDropped();
        do {
            PutLine(tag, priority, TakeLine(&text));
        } while (!text.empty());
        if (line_.capacity() > kKeptCapacity) std::string().swap(line_);
    }

    // Around fork, so that the child finds the lock free.
    void Lock() ACQUIRE(mutex_) { mutex_.lock(); }
    void Unlock() RELEASE(mutex_) { mutex_.unlock(); }

  private:
    void PutLine(const char* tag, int priority, std::string_view text) REQUIRES(mutex_) {
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        line_.clear();
        time_stamp_.Append(now, &line_);
        AppendIdentity(&line_);
        line_.push_back(PriorityLetter(priority));
        line_.push_back(' ');
        AppendPrintable(tag, &line_);
        line_.append(": ");
        AppendPrintable(text, &line_);
        line_.push_back('\n');
        // Once a line is refused, nothing shorter may pass it before the report does.
        if (dropped_ > 0 || output_.Put(line_) == LineOutput::Outcome::kRefused) ++dropped_;
    }

    void ReportDropped() REQUIRES(mutex_) {
        if (dropped_ == 0) return;
        const uint64_t dropped = dropped_;
        dropped_ = 0;
        PutLine(kTag, ANDROID_LOG_WARN,
                "lines dropped because standard error did not take them: " +
                        std::to_string(dropped));
        if (dropped_ != 0) dropped_ = dropped;
    }

    std::mutex mutex_;
    LineOutput output_ GUARDED_BY(mutex_){STDERR_FILENO};
    TimeStamp time_stamp_ GUARDED_BY(mutex_);
    std::string line_ GUARDED_BY(mutex_);  // Reused, so that a line costs no allocation.
    uint64_t dropped_ GUARDED_BY(mutex_) = 0;
};

StderrLog& Log();

// Fork runs them in the parent, around itself, and on the only thread of the child.
void BeforeFork() NO_THREAD_SAFETY_ANALYSIS {
    Log().Lock();
}
void AfterForkInParent() NO_THREAD_SAFETY_ANALYSIS {
    Log().Unlock();
}
void AfterForkInChild() NO_THREAD_SAFETY_ANALYSIS {
    ForgetIdentity();
    Log().Unlock();
}

// Never destroyed: static destructors log too.
StderrLog& Log() {
    static StderrLog& log = []() -> StderrLog& {
        auto* made = new StderrLog;
        pthread_atfork(&BeforeFork, &AfterForkInParent, &AfterForkInChild);
        return *made;
    }();
    return log;
}

LogFilter FilterFromEnvironment() {
    const std::optional<std::string> text = ReadEnvironment("ANDROID_LOG_TAGS");
    if (!text) return LogFilter();
    std::optional<LogFilter> filter = LogFilter::Parse(*text);
    if (filter) return std::move(*filter);
    WriteToStderr(kTag, ANDROID_LOG_WARN,
                  "ANDROID_LOG_TAGS is ignored: expected tag:priority with a priority of V D I W "
                  "E F S, got: " +
                          *text);
    return LogFilter();
}

}  // namespace

bool PassesLogFilter(const char* tag, int priority) {
    static const LogFilter& filter = *new LogFilter(FilterFromEnvironment());
    return filter.Passes(tag == nullptr ? ProgramName() : tag, priority);
}

void WriteToStderr(const char* tag, int priority, std::string_view text) {
    const int saved_errno = errno;
    Log().Write(tag == nullptr ? ProgramName() : tag, priority, text);
    errno = saved_errno;
}

const char* ProgramName() {
    return program_invocation_short_name;
}

}  // namespace host
