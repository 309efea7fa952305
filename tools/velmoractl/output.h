// Data on standard output, talk on standard error, each line at once.
//
// Threads: any; each line is written as a whole.

#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace velmoractl {

using Json = nlohmann::ordered_json;

// Exit statuses.
enum : int { kDone = 0, kError = 1, kUsage = 2, kTimeout = 3, kNotFound = 4 };

class Output {
  public:
    explicit Output(bool json);

    bool json() const { return json_; }

    // One line of data in the form that was asked for. Ends the process with kError if nothing can
    // be written any more; a reader that has gone ends it by SIGPIPE, as it ends other filters.
    void Print(const Json& object, const std::string& text) const;

    // A sentence about what goes on.
    void Talk(const std::string& sentence) const;

    // The text so that it stands out, on a terminal only.
    std::string Strong(const std::string& text) const;

  private:
    const bool json_;
    const bool colour_;
};

// On one line; what is not ASCII as escape sequences, so that no peer writes to the terminal.
std::string OneLine(const Json& value);

}  // namespace velmoractl
