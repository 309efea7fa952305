#include "log_filter.h"

#include <android/log.h>
#include <gtest/gtest.h>

namespace host {
namespace {

// The lowest priority that passes, VERBOSE to SILENT.
int LowestPassing(const LogFilter& filter, std::string_view tag) {
    for (int priority = ANDROID_LOG_VERBOSE; priority < ANDROID_LOG_SILENT; ++priority) {
        if (filter.Passes(tag, priority)) return priority;
    }
    return ANDROID_LOG_SILENT;
}

TEST(LogFilter, GivesEachTagTheMinimumThatItsLastExpressionNames) {
    struct Case {
        const char* filter;
        int velmora_hal;
        int any_other;
    };
    const Case cases[] = {
            {"", ANDROID_LOG_VERBOSE, ANDROID_LOG_VERBOSE},
            {"velmora_hal:W *:S", ANDROID_LOG_WARN, ANDROID_LOG_SILENT},
            {"*:S velmora_hal:D", ANDROID_LOG_DEBUG, ANDROID_LOG_SILENT},
            {"velmora_hal:I", ANDROID_LOG_INFO, ANDROID_LOG_VERBOSE},
            {" *:E,\t", ANDROID_LOG_ERROR, ANDROID_LOG_ERROR},
            {"velmora_hal:S velmora_hal:F", ANDROID_LOG_FATAL, ANDROID_LOG_VERBOSE},
            {"velmora_hal:V *:F *:W", ANDROID_LOG_VERBOSE, ANDROID_LOG_WARN},
            {"velmora:S a:b:S", ANDROID_LOG_VERBOSE, ANDROID_LOG_VERBOSE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.filter);
        const std::optional<LogFilter> filter = LogFilter::Parse(c.filter);
        ASSERT_TRUE(filter);
        EXPECT_EQ(LowestPassing(*filter, "velmora_hal"), c.velmora_hal);
        EXPECT_EQ(LowestPassing(*filter, "other"), c.any_other);
    }
}

TEST(LogFilter, AnswersNothingForAMalformedExpressionAmongGoodOnes) {
    for (const char* text : {"velmora_hal", "*:S velmora_hal:", ":W", "velmora_hal:Q *:S",
                             "velmora_hal:WW", "velmora_hal:w", "velmora_hal W", "*", "a:5"}) {
        EXPECT_FALSE(LogFilter::Parse(text)) << text;
    }
}

}  // namespace
}  // namespace host
