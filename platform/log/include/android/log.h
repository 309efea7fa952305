#pragma once

// The print route of the log. Every function may be called from any thread, with any lock held, and
// during static destruction; none of them waits for whoever reads the log, raises SIGPIPE, or
// changes errno.

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

typedef enum log_id {
    LOG_ID_MAIN = 0,
    LOG_ID_DEFAULT = 0x7FFFFFFF,
} log_id_t;

// Logs a text under a tag; a null tag stands for the program's name. Returns 1, or -EPERM for a
// line that ANDROID_LOG_TAGS silences: such a line's arguments are never formatted.
int __android_log_write(int prio, const char* tag, const char* text);
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
        __attribute__((__format__(printf, 3, 4)));
int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap)
        __attribute__((__format__(printf, 3, 0)));

// What a logger receives. The strings are the caller's and live until the logger returns. The
// message is the whole text, line breaks included; file is null and line 0 on this route.
struct __android_log_message {
    size_t struct_size;
    int32_t buffer_id;
    int32_t priority;
    const char* tag;
    const char* file;
    uint32_t line;
    const char* message;
};

// Called on the logging thread with no lock of the log held; may log and may replace the logger.
typedef void (*__android_logger_function)(const struct __android_log_message* log_message);

// Replaces what receives the lines of this route; the base route is not concerned. A line that
// another thread is just logging may still reach the former logger after this returns.
void __android_log_set_logger(__android_logger_function logger);

// The logger that is set at start: writes to standard error.
void __android_log_stderr_logger(const struct __android_log_message* log_message);

#ifdef __cplusplus
}  // extern "C"
#endif
