// Collects lines of C++ with their indentation. Not thread-safe.

#pragma once

#include <string>
#include <string_view>

namespace host::aidl {

class CodeWriter {
  public:
    // One line at the current depth; an empty one has no blanks.
    void Line(std::string_view text);
    void Blank() { Line(""); }
    // A line that opens a block, and one that closes it.
    void Open(std::string_view text);
    void Close(std::string_view text);
    // `public:` and the like, half a step out.
    void Access(std::string_view text);
    // A documentation comment; nothing if the text is empty.
    void Doc(std::string_view text);

    std::string Take() { return std::move(text_); }

  private:
    std::string text_;
    int depth_ = 0;
};

}  // namespace host::aidl
