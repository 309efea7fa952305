// The one place that builds error messages. Not thread-safe.

#pragma once

#include <string>
#include <vector>

#include "source.h"

namespace host::aidl {

class Diagnostics {
  public:
    // Borrows the texts, which must outlive it.
    explicit Diagnostics(const SourceSet& sources) : sources_(sources) {}

    // Notes an error at the first byte of `where`. After kMaxErrors further ones are only counted.
    void Error(Span where, const std::string& text);
    // An error that belongs to no place in a file.
    void Error(const std::string& text);

    bool ok() const { return count_ == 0; }
    // All messages in the order noted, each `file:line:column: error: text`, the source line and a
    // caret; the column counts bytes from 1. Ends with a line break unless empty.
    std::string Render() const;

    static constexpr size_t kMaxErrors = 20;

  private:
    void Note(std::string message);

    const SourceSet& sources_;
    std::vector<std::string> messages_;
    size_t count_ = 0;
};

}  // namespace host::aidl
