#pragma once

// The base route of the log: LOG(INFO) << ... under the tag that the including file defines as
// LOG_TAG before its includes, and the CHECK family. Usable from any thread, with any lock held,
// and during static destruction; never waits for whoever reads the log and never changes errno.

#include <cerrno>
#include <functional>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>

#ifdef LOG_TAG
#define HOST_LOG_TAG_ LOG_TAG
#else
#define HOST_LOG_TAG_ nullptr
#endif

namespace android {
namespace base {

enum LogSeverity {
    VERBOSE,
    DEBUG,
    INFO,
    WARNING,
    ERROR,
    FATAL_WITHOUT_ABORT,
    FATAL,
};

enum LogId {
    DEFAULT,
    MAIN,
};

// Called on the logging thread with no lock of the log held; may log and may call SetLogger. The
// strings live until it returns; the message is the whole text, line breaks included.
using LogFunction = std::function<void(LogId buffer_id, LogSeverity severity, const char* tag,
                                       const char* file, unsigned int line, const char* message)>;

// Replaces what receives the lines of this route and returns what received them before. The print
// route is not concerned. A line that another thread is just logging may still reach the former
// logger after this returns.
LogFunction SetLogger(LogFunction&& logger);

// The logger that is set at start: writes to standard error.
void StderrLogger(LogId buffer_id, LogSeverity severity, const char* tag, const char* file,
                  unsigned int line, const char* message);

// Lines below the minimum (INFO at start) are skipped, their operands not evaluated; the print
// route is not concerned. Returns the former minimum. FATAL cannot be skipped.
LogSeverity SetMinimumLogSeverity(LogSeverity severity);
LogSeverity GetMinimumLogSeverity();

// False for a line that the minimum severity or ANDROID_LOG_TAGS silences; always true for FATAL.
bool ShouldLog(LogSeverity severity, const char* tag);

// One line being put together; logged by the destructor. Lives on the stack of the thread that made
// it.
class LogMessage {
  public:
    // `error` is appended as its text unless it is -1. The strings must outlive the message.
    LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
               int error);
    // Aborts the process after a FATAL line.
    ~LogMessage();

    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    std::ostream& stream() { return stream_; }

  private:
    // Typical lines fit the inline part, so that they need no allocation.
    class Buffer : public std::streambuf {
      public:
        Buffer() { setp(inline_, inline_ + sizeof(inline_) - 1); }
        const char* Text();

      protected:
        int_type overflow(int_type character) override;
        std::streamsize xsputn(const char* text, std::streamsize size) override;

      private:
        char inline_[384];
        std::string spilled_;
    };

    const char* const file_;
    const unsigned int line_;
    const LogSeverity severity_;
    const char* const tag_;
    const int error_;
    const int saved_errno_;
    Buffer buffer_;
    std::ostream stream_;
};

}  // namespace base
}  // namespace android

namespace host {

// Gives both arms of a conditional the type void; binds less tightly than <<.
struct LogVoid {
    void operator&(std::ostream&) const {}
};

template <typename T>
void PrintOperand(std::ostream& out, const T& value) {
    out << value;
}
inline void PrintOperand(std::ostream& out, const char* value) {
    out << (value == nullptr ? "null" : value);
}
inline void PrintOperand(std::ostream& out, char* value) {
    PrintOperand(out, static_cast<const char*>(value));
}

// Null if the comparison holds, else the operands as they are written in the failure's text.
// Evaluates nothing more than once: the operands arrive as values.
template <typename Comparison, typename Left, typename Right>
std::unique_ptr<std::string> CompareForCheck(const char* left_text, const Left& left,
                                             const char* right_text, const Right& right) {
    if (Comparison()(left, right)) return nullptr;
    std::ostringstream out;
    out << " (" << left_text << "=";
    PrintOperand(out, left);
    out << ", " << right_text << "=";
    PrintOperand(out, right);
    out << ") ";
    return std::make_unique<std::string>(out.str());
}

}  // namespace host

#define HOST_LOG_STREAM_(severity, error)                                                     \
    ::android::base::LogMessage(__FILE__, __LINE__, ::android::base::severity, HOST_LOG_TAG_, \
                                error)                                                        \
            .stream()
#define HOST_LOG_(severity, error)                                        \
    !::android::base::ShouldLog(::android::base::severity, HOST_LOG_TAG_) \
            ? (void)0                                                     \
            : ::host::LogVoid() & HOST_LOG_STREAM_(severity, error)

// LOG(WARNING) << "text"; with the bare name of a severity. PLOG appends ": " and the text of
// errno.
#define LOG(severity) HOST_LOG_(severity, -1)
#define PLOG(severity) HOST_LOG_(severity, errno)

// Logs at FATAL, whereupon the process aborts, unless the condition holds. More text may be
// streamed in.
#define CHECK(condition) \
    (condition)          \
            ? (void)0    \
            : ::host::LogVoid() & HOST_LOG_STREAM_(FATAL, -1) << "Check failed: " #condition " "

// The loop never comes round: the FATAL line in its body ends the process.
#define HOST_CHECK_OPERATION_(comparison, operation, left, left_text, right, right_text)      \
    while (const auto host_failed_check_ =                                                    \
                   ::host::CompareForCheck<comparison<>>(left_text, left, right_text, right)) \
    HOST_LOG_STREAM_(FATAL, -1) << "Check failed: " left_text " " operation " " right_text    \
                                << *host_failed_check_

#define CHECK_EQ(left, right) HOST_CHECK_OPERATION_(std::equal_to, "==", left, #left, right, #right)
#define CHECK_NE(left, right) \
    HOST_CHECK_OPERATION_(std::not_equal_to, "!=", left, #left, right, #right)
#define CHECK_LT(left, right) HOST_CHECK_OPERATION_(std::less, "<", left, #left, right, #right)
#define CHECK_LE(left, right) \
    HOST_CHECK_OPERATION_(std::less_equal, "<=", left, #left, right, #right)
#define CHECK_GT(left, right) HOST_CHECK_OPERATION_(std::greater, ">", left, #left, right, #right)
#define CHECK_GE(left, right) \
    HOST_CHECK_OPERATION_(std::greater_equal, ">=", left, #left, right, #right)
