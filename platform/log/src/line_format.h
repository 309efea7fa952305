#pragma once

// How a line of the log looks: `03-14 09:26:53.589  1234  1240 I velmora_hal: addSignal invoked`,
// and how a text from anywhere is kept from looking like more than it is. Plain functions and
// values without synchronisation.

#include <time.h>

#include <string>
#include <string_view>

namespace host {

// Takes the next line of `text` off its front. Line feed, carriage return and the pair of both end
// a line; an end at the very end of the text does not start another one. Call it at least once: an
// empty text is one empty line.
std::string_view TakeLine(std::string_view* text);

// Appends the text with every character that could start a line, move a cursor or reach a
// terminal's control functions written out as an escape: the C0 controls except the tab, delete,
// and in UTF-8 the C1 controls and the two Unicode line ends.
void AppendPrintable(std::string_view text, std::string* out);

// Date and time of lines, in local time. The part down to the second is kept until the second
// changes.
class TimeStamp {
  public:
    // Appends `03-14 09:26:53.589`.
    void Append(const timespec& now, std::string* out);

  private:
    time_t second_ = -1;
    char text_[16] = {};
};

// Appends the process's and the calling thread's number and a blank, cached per thread.
void AppendIdentity(std::string* out);

// To be called on the only thread of a forked child.
void ForgetIdentity();

// The letter of an android_LogPriority, or '?'.
char PriorityLetter(int priority);

}  // namespace host
