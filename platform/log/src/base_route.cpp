#include <android-base/logging.h>
#include <android-base/thread_annotations.h>
#include <android/log.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "stderr_log.h"

namespace android {
namespace base {
namespace {

std::atomic<LogSeverity> g_minimum{INFO};

// The logger in use. Never destroyed, so that lines of static destructors find it. A logger is
// called from a copy made under the lock and outside of it, so that it may log and replace itself.
struct LoggerSlot {
    // Lets a process without a logger of its own, the normal case, do without the lock.
    std::atomic<bool> replaced{false};
    std::mutex mutex;
    std::shared_ptr<const LogFunction> logger GUARDED_BY(mutex) =
            std::make_shared<const LogFunction>(&StderrLogger);

    std::shared_ptr<const LogFunction> Get() EXCLUDES(mutex) {
        std::lock_guard<std::mutex> lock(mutex);
        return logger;
    }
    void Exchange(std::shared_ptr<const LogFunction>& other) EXCLUDES(mutex) {
        std::lock_guard<std::mutex> lock(mutex);
        logger.swap(other);
        replaced.store(true, std::memory_order_release);
    }
};

LoggerSlot& Slot() {
    static LoggerSlot& slot = *new LoggerSlot;
    return slot;
}

int PriorityOf(LogSeverity severity) {
    switch (severity) {
        case VERBOSE:
            return ANDROID_LOG_VERBOSE;
        case DEBUG:
            return ANDROID_LOG_DEBUG;
        case INFO:
            return ANDROID_LOG_INFO;
        case WARNING:
            return ANDROID_LOG_WARN;
        case ERROR:
            return ANDROID_LOG_ERROR;
        case FATAL_WITHOUT_ABORT:
        case FATAL:
            return ANDROID_LOG_FATAL;
    }
    return ANDROID_LOG_UNKNOWN;
}

}  // namespace

LogFunction SetLogger(LogFunction&& logger) {
    if (!logger) logger = &StderrLogger;
    // Swapped under the lock, copied and destroyed outside of it: a logger may own anything.
    auto next = std::make_shared<const LogFunction>(std::move(logger));
    Slot().Exchange(next);
    return *next;
}

void StderrLogger(LogId, LogSeverity severity, const char* tag, const char*, unsigned int,
                  const char* message) {
    host::WriteToStderr(tag, PriorityOf(severity), message);
}

LogSeverity SetMinimumLogSeverity(LogSeverity severity) {
    return g_minimum.exchange(severity, std::memory_order_relaxed);
}

LogSeverity GetMinimumLogSeverity() {
    return g_minimum.load(std::memory_order_relaxed);
}

bool ShouldLog(LogSeverity severity, const char* tag) {
    if (severity == FATAL) return true;
    if (severity < GetMinimumLogSeverity()) return false;
    return host::PassesLogFilter(tag, PriorityOf(severity));
}

LogMessage::LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
                       int error)
        : file_(file),
          line_(line),
          severity_(severity),
          tag_(tag == nullptr ? host::ProgramName() : tag),
          error_(error),
          saved_errno_(errno),
          stream_(&buffer_) {}

LogMessage::~LogMessage() {
    if (error_ != -1) {
        char text[128];
        stream_ << ": " << strerror_r(error_, text, sizeof(text));
    }
    // FATAL comes here unfiltered; a silenced tag keeps its line out of the log and aborts
    // nevertheless.
    if (severity_ != FATAL || host::PassesLogFilter(tag_, ANDROID_LOG_FATAL)) {
        LoggerSlot& slot = Slot();
        if (slot.replaced.load(std::memory_order_acquire)) {
            (*slot.Get())(DEFAULT, severity_, tag_, file_, line_, buffer_.Text());
        } else {
            StderrLogger(DEFAULT, severity_, tag_, file_, line_, buffer_.Text());
        }
    }
    if (severity_ == FATAL) std::abort();
    errno = saved_errno_;
}

const char* LogMessage::Buffer::Text() {
    if (!spilled_.empty()) {
        spilled_.append(pbase(), pptr());
        setp(inline_, inline_ + sizeof(inline_) - 1);
        return spilled_.c_str();
    }
    *pptr() = '\0';  // The put area leaves room for it.
    return inline_;
}

LogMessage::Buffer::int_type LogMessage::Buffer::overflow(int_type character) {
    spilled_.append(pbase(), pptr());
    setp(inline_, inline_ + sizeof(inline_) - 1);
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        spilled_.push_back(traits_type::to_char_type(character));
    }
    return traits_type::not_eof(character);
}

std::streamsize LogMessage::Buffer::xsputn(const char* text, std::streamsize size) {
    if (size > epptr() - pptr()) {
        overflow(traits_type::eof());
        spilled_.append(text, static_cast<size_t>(size));
    } else {
        std::memcpy(pptr(), text, static_cast<size_t>(size));
        pbump(static_cast<int>(size));
    }
    return size;
}

}  // namespace base
}  // namespace android
