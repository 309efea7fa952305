#include "log_capture.h"

#include <android-base/thread_annotations.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "eventually.h"

namespace host::testing {
namespace {

// Both scales have the same steps, but for the two kinds of FATAL at the end of one.
int PriorityOf(android::base::LogSeverity severity) {
    const int steps = severity - android::base::VERBOSE;
    return std::min<int>(ANDROID_LOG_VERBOSE + steps, ANDROID_LOG_FATAL);
}

}  // namespace

struct LogStore {
    void Add(int priority, LogRoute route, const char* tag, const char* text) {
        const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
        std::lock_guard lock(mutex);
        lines.push_back({priority, route, tag == nullptr ? "" : tag, text, thread});
        changed.notify_all();
    }

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

LogCapture::LogCapture() : store_(std::make_shared<LogStore>()) {
    if (Current() != nullptr) {
        ADD_FAILURE() << "two log captures at once";
        abort();
    }
    SetCurrent(store_);
    __android_log_set_logger([](const __android_log_message* message) {
        const auto store = Current();
        if (store == nullptr) return __android_log_stderr_logger(message);
        store->Add(message->priority, LogRoute::kPrint, message->tag, message->message);
    });
    former_ = android::base::SetLogger(
            [store = store_](android::base::LogId, android::base::LogSeverity severity,
                             const char* tag, const char*, unsigned int, const char* text) {
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

bool LogCapture::WaitForText(const std::string& text) const {
    std::unique_lock lock(store_->mutex);
    return store_->changed.wait_for(lock, kTestLimit, [&] {
        android::base::ScopedLockAssertion held(store_->mutex);
        return std::any_of(store_->lines.begin(), store_->lines.end(), [&](const LogLine& line) {
            return line.text.find(text) != std::string::npos;
        });
    });
}

void LogCapture::Clear() {
    std::lock_guard lock(store_->mutex);
    store_->lines.clear();
}

}  // namespace host::testing
