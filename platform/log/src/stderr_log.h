#pragma once

// Where both routes end: standard error of this process. All functions may be called from any
// thread and during static destruction; they never wait for the reader of standard error, raise
// SIGPIPE, or change errno.

#include <string_view>

namespace host {

// False for lines that ANDROID_LOG_TAGS silences. The first call reads the variable and complains
// about a bad one. A null tag stands for the program's name.
bool PassesLogFilter(const char* tag, int priority);

// Writes the text, each of its lines with a prefix of its own and in one write. Lines that standard
// error does not take at once are dropped and counted; the count is logged in front of the next
// line that it takes.
void WriteToStderr(const char* tag, int priority, std::string_view text);

// The name under which lines without a tag are logged.
const char* ProgramName();

}  // namespace host
