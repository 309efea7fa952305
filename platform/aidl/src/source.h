// Texts of the files being compiled, and places in them. Not thread-safe: one compilation, one
// thread.

#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>

namespace host::aidl {

// The bytes [begin, end) of one file. Everything inside the compiler speaks of spans; lines and
// columns exist only where a message is printed.
struct Span {
    uint32_t file = 0;
    uint32_t begin = 0;
    uint32_t end = 0;
};

// Owns every text. Views of a text stay valid as long as the set: files are never removed.
class SourceSet {
  public:
    uint32_t Add(std::string path, std::string text) {
        files_.push_back({std::move(path), std::move(text)});
        return static_cast<uint32_t>(files_.size() - 1);
    }

    const std::string& Path(uint32_t file) const { return files_[file].path; }
    std::string_view Text(uint32_t file) const { return files_[file].text; }
    std::string_view Text(Span span) const {
        return Text(span.file).substr(span.begin, span.end - span.begin);
    }

  private:
    struct File {
        std::string path;
        std::string text;
    };
    std::deque<File> files_;
};

// Where the compiler gets files from: a disk for the tool, a map for tests.
class FileProvider {
  public:
    virtual ~FileProvider() = default;
    // False if there is no such file, it cannot be read or it is larger than kMaxSourceBytes.
    virtual bool Read(const std::string& path, std::string* text) const = 0;
};

inline constexpr size_t kMaxSourceBytes = 1 << 20;

}  // namespace host::aidl
