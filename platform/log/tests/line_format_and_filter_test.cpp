#include <android/log.h>
#include <gtest/gtest.h>
#include <time.h>

#include <utility>

#include "line_format.h"
#include "log_filter.h"

namespace host {
namespace {

std::string Printable(std::string_view text) {
    std::string out;
    AppendPrintable(text, &out);
    return out;
}

TEST(LineFormat, WritesOutWhatCouldForgeALineOrReachTheTerminal) {
    const std::pair<std::string_view, const char*> cases[] = {
            {"Check failed: a == b (a=1, b=2) ", "Check failed: a == b (a=1, b=2) "},
            {"tab\tand ünïcödé €", "tab\tand ünïcödé €"},
            {"\x1b[2K\x1b[1Gforged", "\\x1b[2K\\x1b[1Gforged"},
            {"back\bspace\v\f\x7f", "back\\x08space\\x0b\\x0c\\x7f"},
            {std::string_view("a\0b", 3), "a\\x00b"},
            {"\xc2\x9b"
             "2J\xc2\x85next",
             "\\u009b2J\\u0085next"},
            {"line\xe2\x80\xa8"
             "paragraph\xe2\x80\xa9",
             "line\\u2028paragraph\\u2029"},
            {"cut short \xe2\x80", "cut short \xe2\x80"},
            {"cut short \xc2", "cut short \xc2"},
    };
    for (const auto& [text, printed] : cases)
        EXPECT_EQ(Printable(text), printed);
}

TEST(LineFormat, StampsFollowTheClockAlsoWithinASecondAndBackwards) {
    tm date = {};
    ASSERT_NE(strptime("2026-03-14 09:26:53", "%Y-%m-%d %H:%M:%S", &date), nullptr);
    date.tm_isdst = -1;
    const time_t second = mktime(&date);
    TimeStamp stamp;
    std::string out;
    for (const timespec& now : {timespec{second, 589'999'999}, timespec{second, 7'000'000},
                                timespec{second + 8, 0}, timespec{second - 1, 990'000'000}}) {
        stamp.Append(now, &out);
        out += '|';
    }
    EXPECT_EQ(out, "03-14 09:26:53.589|03-14 09:26:53.007|03-14 09:27:01.000|03-14 09:26:52.990|");
}

TEST(LineFormat, GivesEveryPriorityALetterAndNoneToStrangeNumbers) {
    std::string letters;
    for (int priority : {-1, 0, 2, 3, 4, 5, 6, 7, 8, 9, 1000}) {
        letters += PriorityLetter(priority);
    }
    EXPECT_EQ(letters, "??VDIWEFS??");
}

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
