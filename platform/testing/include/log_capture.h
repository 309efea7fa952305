// What this process logs while the object lives. One at a time; made and destroyed by one thread,
// read by any.
#pragma once

#include <android-base/logging.h>
#include <android/log.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace host::testing {

enum class LogRoute { kPrint, kBase };

struct LogLine {
    int priority;  // ANDROID_LOG_..., for both routes
    LogRoute route;
    std::string tag;
    std::string text;  // whole, line breaks included
    pid_t thread;
};

struct LogStore;

class LogCapture {
  public:
    // Lines go to the capture, and not to standard error.
    LogCapture();

    // Both routes write to standard error again, or for the base route to the former logger.
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // In the order in which they were logged.
    std::vector<LogLine> lines() const;

    // The texts of the lines that hold `part`.
    std::vector<std::string> Texts(const std::string& part = "") const;

    // True as soon as a line holds the text.
    bool WaitForText(const std::string& text) const;

    void Clear();

  private:
    // Shared with loggers that another thread may still be running when the capture goes.
    std::shared_ptr<LogStore> store_;
    android::base::LogFunction former_;
};

}  // namespace host::testing
