#include "warning.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace host {
namespace {

constexpr char kTag[] = "host_binder";

thread_local HeldWarnings* t_held = nullptr;

}  // namespace

HeldWarnings::HeldWarnings() : outer_(std::exchange(t_held, this)) {}

HeldWarnings::~HeldWarnings() {
    t_held = outer_;
    for (std::string& line : lines_) {
        if (outer_ != nullptr)
            outer_->lines_.push_back(std::move(line));
        else
            __android_log_write(ANDROID_LOG_WARN, kTag, line.c_str());
    }
}

void Warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char* line = nullptr;
    if (t_held == nullptr) {
        __android_log_vprint(ANDROID_LOG_WARN, kTag, format, arguments);
    } else if (vasprintf(&line, format, arguments) >= 0) {
        t_held->lines_.emplace_back(line);
        free(line);
    }
    va_end(arguments);
}

}  // namespace host
