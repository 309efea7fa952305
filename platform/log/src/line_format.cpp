#include "line_format.h"

#include <unistd.h>

#include <cstdio>

namespace host {
namespace {

// Numbers of the process and of the thread as they stand in a line.
struct Identity {
    int size = 0;
    char text[32] = {};
};
thread_local constinit Identity t_identity;

unsigned char ByteAt(std::string_view text, size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

// What stands for the bytes at `index`: how many of them, and as which code point. No bytes: they
// are harmless.
struct Unsafe {
    size_t bytes;
    unsigned int code;
};

Unsafe UnsafeAt(std::string_view text, size_t index) {
    const unsigned char first = ByteAt(text, index);
    const unsigned char second = ByteAt(text, index + 1);
    const unsigned char third = ByteAt(text, index + 2);
    if ((first < 0x20 && first != '\t') || first == 0x7f) return {1, first};
    if (first == 0xc2 && second >= 0x80 && second < 0xa0) return {2, second};
    if (first == 0xe2 && second == 0x80 && (third == 0xa8 || third == 0xa9)) {
        return {3, 0x2000U + (third & 0x3fU)};
    }
    return {0, 0};
}

// Nearly all texts hold none of the bytes that an unsafe character begins with.
bool MayBeUnsafe(unsigned char byte) {
    return byte < 0x20 || byte == 0x7f || byte == 0xc2 || byte == 0xe2;
}

}  // namespace

std::string_view TakeLine(std::string_view* text) {
    const size_t end = text->find_first_of("\r\n");
    const std::string_view line = text->substr(0, end);
    if (end == std::string_view::npos) {
        *text = {};
    } else {
        text->remove_prefix(end + (text->substr(end, 2) == "\r\n" ? 2 : 1));
    }
    return line;
}

void AppendPrintable(std::string_view text, std::string* out) {
    size_t copied = 0;
    for (size_t i = 0; i < text.size();) {
        const Unsafe unsafe = MayBeUnsafe(ByteAt(text, i)) ? UnsafeAt(text, i) : Unsafe{0, 0};
        if (unsafe.bytes == 0) {
            ++i;
            continue;
        }
        out->append(text, copied, i - copied);
        char escape[8];
        const char* format = unsafe.code < 0x80 ? "\\x%02x" : "\\u%04x";
        std::snprintf(escape, sizeof(escape), format, unsafe.code);
        out->append(escape);
        i += unsafe.bytes;
        copied = i;
    }
    out->append(text, copied);
}

void TimeStamp::Append(const timespec& now, std::string* out) {
    if (now.tv_sec != second_) {
        tm local = {};
        localtime_r(&now.tv_sec, &local);
        strftime(text_, sizeof(text_), "%m-%d %H:%M:%S.", &local);
        second_ = now.tv_sec;
    }
    out->append(text_);
    const auto milliseconds = static_cast<int>(now.tv_nsec / 1'000'000);
    out->push_back(static_cast<char>('0' + milliseconds / 100));
    out->push_back(static_cast<char>('0' + milliseconds / 10 % 10));
    out->push_back(static_cast<char>('0' + milliseconds % 10));
}

void AppendIdentity(std::string* out) {
    Identity& identity = t_identity;
    if (identity.size == 0) {
        identity.size = std::snprintf(identity.text, sizeof(identity.text), " %5d %5d ",
                                      static_cast<int>(getpid()), static_cast<int>(gettid()));
    }
    out->append(identity.text, static_cast<size_t>(identity.size));
}

void ForgetIdentity() {
    t_identity.size = 0;
}

char PriorityLetter(int priority) {
    constexpr std::string_view kLetters = "??VDIWEFS";
    const auto index = static_cast<size_t>(priority);
    return index < kLetters.size() ? kLetters[index] : '?';
}

}  // namespace host
