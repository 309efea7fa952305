#include <android/log.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "stderr_log.h"

namespace {

std::atomic<__android_logger_function> g_logger{&__android_log_stderr_logger};

void Deliver(int priority, const char* tag, const char* text) {
    const __android_log_message message = {
            sizeof(__android_log_message), LOG_ID_DEFAULT, priority, tag, nullptr, 0, text,
    };
    g_logger.load(std::memory_order_acquire)(&message);
}

// The rare text that does not fit the stack buffer; `size` is what vsnprintf asked for.
void DeliverLong(int priority, const char* tag, const char* format, va_list arguments, int size) {
    const auto text = std::make_unique<char[]>(static_cast<size_t>(size) + 1);
    std::vsnprintf(text.get(), static_cast<size_t>(size) + 1, format, arguments);
    Deliver(priority, tag, text.get());
}

}  // namespace

int __android_log_write(int prio, const char* tag, const char* text) {
    const int saved_errno = errno;
    if (tag == nullptr) tag = host::ProgramName();
    if (!host::PassesLogFilter(tag, prio)) return -EPERM;
    Deliver(prio, tag, text == nullptr ? "" : text);
    errno = saved_errno;
    return 1;
}

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    const int saved_errno = errno;
    if (tag == nullptr) tag = host::ProgramName();
    if (!host::PassesLogFilter(tag, prio)) return -EPERM;
    char text[512];
    va_list again;
    va_copy(again, ap);
    const int size = std::vsnprintf(text, sizeof(text), fmt, ap);
    if (size < 0) {
        Deliver(prio, tag,
                fmt);  // Cannot be formatted, a wide string without a meaning for instance.
    } else if (static_cast<size_t>(size) < sizeof(text)) {
        Deliver(prio, tag, text);
    } else {
        DeliverLong(prio, tag, fmt, again, size);
    }
    va_end(again);
    errno = saved_errno;
    return 1;
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const int result = __android_log_vprint(prio, tag, fmt, arguments);
    va_end(arguments);
    return result;
}

void __android_log_set_logger(__android_logger_function logger) {
    g_logger.store(logger == nullptr ? &__android_log_stderr_logger : logger,
                   std::memory_order_release);
}

void __android_log_stderr_logger(const __android_log_message* log_message) {
    host::WriteToStderr(log_message->tag, log_message->priority, log_message->message);
}
