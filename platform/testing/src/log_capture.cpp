#include "log_capture.h"

#include <android-base/thread_annotations.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace host::testing {
namespace {

int PriorityOf(android::base::LogSeverity severity) {
    switch (severity) {
        case android::base::VERBOSE:
            return ANDROID_LOG_VERBOSE;
        case android::base::DEBUG:
            return ANDROID_LOG_DEBUG;
        case android::base::INFO:
            return ANDROID_LOG_INFO;
        case android::base::WARNING:
            return ANDROID_LOG_WARN;
        case android::base::ERROR:
            return ANDROID_LOG_ERROR;
        case android::base::FATAL_WITHOUT_ABORT:
        case android::base::FATAL:
            return ANDROID_LOG_FATAL;
    }
    return ANDROID_LOG_UNKNOWN;
}

}  // namespace

struct LogStore {
    explicit LogStore(bool echo) : echo(echo) {}

    void Add(int priority, LogRoute route, const char* tag, const char* text) {
        const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
        std::lock_guard lock(mutex);
        lines.push_back({priority, route, tag == nullptr ? "" : tag, text, thread});
        changed.notify_all();
    }

    const bool echo;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<LogLine> lines GUARDED_BY(mutex);
};

namespace {

// The print route's logger is a bare function: it finds the capture here. Never destroyed.
struct CurrentStore {
    std::mutex mutex;
    std::shared_ptr<LogStore> store GUARDED_BY(mutex);
};

CurrentStore& Holder() {
    static auto* holder = new CurrentStore();
    return *holder;
}

std::shared_ptr<LogStore> Current() {
    std::lock_guard lock(Holder().mutex);
    return Holder().store;
}

void SetCurrent(std::shared_ptr<LogStore> store) {
    std::lock_guard lock(Holder().mutex);
    Holder().store = std::move(store);
}

}  // namespace

LogCapture::LogCapture(bool echo) : store_(std::make_shared<LogStore>(echo)) {
    if (Current() != nullptr) {
        ADD_FAILURE() << "two log captures at once";
        abort();
    }
    SetCurrent(store_);
    __android_log_set_logger([](const __android_log_message* message) {
        const auto store = Current();
        if (store == nullptr || store->echo) __android_log_stderr_logger(message);
        if (store == nullptr) return;
        store->Add(message->priority, LogRoute::kPrint, message->tag, message->message);
    });
    former_ = android::base::SetLogger([store = store_](android::base::LogId id,
                                                        android::base::LogSeverity severity,
                                                        const char* tag, const char* file,
                                                        unsigned int line, const char* text) {
        if (store->echo) {
            android::base::StderrLogger(id, severity, tag, file, line, text);
        }
        store->Add(PriorityOf(severity), LogRoute::kBase, tag, text);
    });
}

LogCapture::~LogCapture() {
    android::base::SetLogger(std::move(former_));
    __android_log_set_logger(__android_log_stderr_logger);
    SetCurrent(nullptr);
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard lock(store_->mutex);
    return store_->lines;
}

std::vector<std::string> LogCapture::Texts(const std::string& part) const {
    std::vector<std::string> texts;
    for (const LogLine& line : lines()) {
        if (line.text.find(part) != std::string::npos) texts.push_back(line.text);
    }
    return texts;
}

bool LogCapture::WaitFor(const std::function<bool(const std::vector<LogLine>&)>& predicate,
                         std::chrono::milliseconds limit) const {
    std::unique_lock lock(store_->mutex);
    return store_->changed.wait_for(lock, limit, [&] {
        android::base::ScopedLockAssertion held(store_->mutex);
        return predicate(store_->lines);
    });
}

bool LogCapture::WaitForText(const std::string& text, std::chrono::milliseconds limit) const {
    return WaitFor(
            [&text](const std::vector<LogLine>& lines) {
                return std::any_of(lines.begin(), lines.end(), [&text](const LogLine& line) {
                    return line.text.find(text) != std::string::npos;
                });
            },
            limit);
}

void LogCapture::Clear() {
    std::lock_guard lock(store_->mutex);
    store_->lines.clear();
}

}  // namespace host::testing
