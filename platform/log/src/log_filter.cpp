#include "log_filter.h"

#include <android/log.h>

namespace host {
namespace {

constexpr std::string_view kSeparators = " ,\t\n";
constexpr std::string_view kPriorityLetters = "VDIWEFS";

}  // namespace

bool LogFilter::AddRule(std::string_view expression) {
    const size_t colon = expression.rfind(':');
    if (colon == std::string_view::npos || colon == 0 || colon + 2 != expression.size()) {
        return false;
    }
    const size_t letter = kPriorityLetters.find(expression[colon + 1]);
    if (letter == std::string_view::npos) return false;
    const int minimum = ANDROID_LOG_VERBOSE + static_cast<int>(letter);
    const std::string_view tag = expression.substr(0, colon);
    if (tag == "*") {
        minimum_of_others_ = minimum;
    } else {
        rules_.insert(rules_.begin(), Rule{std::string(tag), minimum});
    }
    return true;
}

std::optional<LogFilter> LogFilter::Parse(std::string_view text) {
    LogFilter filter;
    for (;;) {
        const size_t begin = text.find_first_not_of(kSeparators);
        if (begin == std::string_view::npos) return filter;
        text.remove_prefix(begin);
        const size_t end = text.find_first_of(kSeparators);
        if (!filter.AddRule(text.substr(0, end))) return std::nullopt;
        text.remove_prefix(end == std::string_view::npos ? text.size() : end);
    }
}

bool LogFilter::Passes(std::string_view tag, int priority) const {
    for (const Rule& rule : rules_) {
        if (rule.tag == tag) return priority >= rule.minimum;
    }
    return priority >= minimum_of_others_;
}

}  // namespace host
