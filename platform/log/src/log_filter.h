#pragma once

// What ANDROID_LOG_TAGS says. Constant after construction, so that any thread may ask without a
// lock.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

class LogFilter {
  public:
    // Lets everything pass.
    LogFilter() = default;

    // Reads `tag:priority` expressions between blanks or commas; the tag * stands for every tag
    // that has no expression of its own, the last expression for a tag counts. Priorities are the
    // letters V D I W E F S. Nothing if an expression is malformed.
    static std::optional<LogFilter> Parse(std::string_view text);

    // True unless lines of this tag and android_LogPriority are silenced.
    bool Passes(std::string_view tag, int priority) const;

  private:
    struct Rule {
        std::string tag;
        int minimum;
    };
    bool AddRule(std::string_view expression);

    std::vector<Rule> rules_;
    int minimum_of_others_ = 0;
};

}  // namespace host
