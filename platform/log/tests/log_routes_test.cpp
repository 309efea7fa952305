// Labels: threads memory
#define LOG_TAG "routes_test"

#include <android-base/logging.h>
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

using android::base::LogSeverity;
using testing::ElementsAre;

struct Record {
    std::string route;
    int priority;
    std::string tag;
    std::string text;
    pid_t thread;
    bool operator==(const Record&) const = default;
};

std::vector<Record>& Records() {
    static std::vector<Record>& records = *new std::vector<Record>;
    return records;
}

std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    for (const Record& record : Records())
        texts.push_back(record.route + " " + record.text);
    return texts;
}

void RecordBase(android::base::LogId, LogSeverity severity, const char* tag, const char*,
                unsigned int, const char* message) {
    Records().push_back({"base", severity, tag, message, gettid()});
}

// Both routes end in Records() while it lives.
class LogRoutes : public testing::Test {
  protected:
    LogRoutes() {
        Records().clear();
        __android_log_set_logger([](const __android_log_message* line) {
            Records().push_back({"print", line->priority, line->tag, line->message, gettid()});
        });
        former_logger_ = android::base::SetLogger(&RecordBase);
    }
    ~LogRoutes() override {
        __android_log_set_logger(&__android_log_stderr_logger);
        android::base::SetLogger(std::move(former_logger_));
        android::base::SetMinimumLogSeverity(android::base::INFO);
    }

    android::base::LogFunction former_logger_;
};

TEST_F(LogRoutes, EachLoggerGetsItsOwnRouteInTheOrderWrittenOnTheLoggingThread) {
    __android_log_print(ANDROID_LOG_DEBUG, "printed", "%s=%d", "a", 1);
    LOG(WARNING) << "b=" << 2;
    __android_log_write(ANDROID_LOG_ERROR, "printed", "two\nlines %d");
    const pid_t self = gettid();
    EXPECT_THAT(Records(),
                ElementsAre(Record{"print", ANDROID_LOG_DEBUG, "printed", "a=1", self},
                            Record{"base", android::base::WARNING, "routes_test", "b=2", self},
                            Record{"print", ANDROID_LOG_ERROR, "printed", "two\nlines %d", self}));
}

TEST_F(LogRoutes, TheBaseMinimumStartsAtInfoSkipsOperandsAndNeverFiltersThePrintRoute) {
    int evaluated = 0;
    EXPECT_EQ(android::base::GetMinimumLogSeverity(), android::base::INFO);
    LOG(DEBUG) << "below " << ++evaluated;
    __android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, "passes");
    EXPECT_EQ(android::base::SetMinimumLogSeverity(android::base::DEBUG), android::base::INFO);
    LOG(VERBOSE) << "below";
    LOG(DEBUG) << "at " << ++evaluated;
    EXPECT_EQ(android::base::SetMinimumLogSeverity(android::base::FATAL), android::base::DEBUG);
    LOG(FATAL_WITHOUT_ABORT) << "below";
    __android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, "passes");
    EXPECT_THAT(Texts(), ElementsAre("print passes", "base at 1", "print passes"));
}

TEST_F(LogRoutes, LongTextsArriveWholeOnBothRoutes) {
    for (size_t size : {382U, 383U, 384U, 511U, 512U, 100'000U}) {
        const std::string text(size, 'x');
        Records().clear();
        __android_log_print(ANDROID_LOG_INFO, "tag", "%s", text.c_str());
        LOG(INFO) << text;
        LOG(INFO) << 'y' << text << 7 << text;
        EXPECT_EQ(Records().at(0).text, text);
        EXPECT_EQ(Records().at(1).text, text);
        EXPECT_EQ(Records().at(2).text, "y" + text + "7" + text);
    }
}

TEST_F(LogRoutes, ErrnoSurvivesALineAndIsAppendedByPlog) {
    errno = ENOENT;
    __android_log_print(ANDROID_LOG_INFO, "tag", "%ls", L"wide");
    LOG(INFO) << "text";
    PLOG(ERROR) << "open";
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(Records().back().text, "open: No such file or directory");
}

TEST_F(LogRoutes, ALoggerMayLogAndReplaceItself) {
    android::base::SetLogger([](auto, auto severity, auto tag, auto file, auto line, auto text) {
        android::base::SetLogger(&RecordBase);
        LOG(INFO) << "from inside";
        RecordBase({}, severity, tag, file, line, text);
    });
    LOG(INFO) << "outer";
    LOG(INFO) << "next";
    EXPECT_THAT(Texts(), ElementsAre("base from inside", "base outer", "base next"));
}

TEST_F(LogRoutes, ChecksThatHoldEvaluateOnceAndLogNothing) {
    int calls = 0;
    CHECK_EQ(++calls, 1) << "never shown";
    if (calls == 0)
        CHECK(false);
    else
        CHECK_NE(calls, 0);
    CHECK(calls == 1) << ++calls;
    CHECK_LT(calls, 2);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(Records().empty());
}

TEST(FatalLines, AbortAfterLoggingTheFailedCheckWithItsValues) {
    const int a = 1;
    const int b = 2;
    const char* text = nullptr;
    EXPECT_EXIT(CHECK_EQ(a, b), testing::KilledBySignal(SIGABRT),
                "F routes_test: Check failed: a == b \\(a=1, b=2\\) \n");
    EXPECT_EXIT(CHECK_NE(text, nullptr) << "no name", testing::KilledBySignal(SIGABRT),
                "Check failed: text != nullptr \\(text=null, nullptr=nullptr\\) no name\n");
    EXPECT_EXIT(CHECK(a > b), testing::KilledBySignal(SIGABRT), "Check failed: a > b \n");
    EXPECT_EXIT(LOG(FATAL) << "the end", testing::KilledBySignal(SIGABRT), "the end\n");
}

}  // namespace
