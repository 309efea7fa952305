// Labels: threads memory
#define LOG_TAG "routes_test"

#include <android-base/logging.h>
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host_testing.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

using host::testing::LogRoute;
using testing::ElementsAre;
using testing::FieldsAre;

class LogRoutes : public testing::Test {
  protected:
    ~LogRoutes() override { android::base::SetMinimumLogSeverity(android::base::INFO); }

    host::testing::LogCapture log_;
};

TEST_F(LogRoutes, EachLoggerGetsItsOwnRouteInTheOrderWrittenOnTheLoggingThread) {
    __android_log_print(ANDROID_LOG_DEBUG, "printed", "%s=%d", "a", 1);
    LOG(WARNING) << "b=" << 2;
    __android_log_write(ANDROID_LOG_ERROR, "printed", "two\nlines %d");
    const pid_t self = gettid();
    EXPECT_THAT(log_.lines(),
                ElementsAre(FieldsAre(ANDROID_LOG_DEBUG, LogRoute::kPrint, "printed", "a=1", self),
                            FieldsAre(ANDROID_LOG_WARN, LogRoute::kBase, LOG_TAG, "b=2", self),
                            FieldsAre(ANDROID_LOG_ERROR, LogRoute::kPrint, "printed",
                                      "two\nlines %d", self)));
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
    EXPECT_THAT(log_.Texts(), ElementsAre("passes", "at 1", "passes"));
}

TEST_F(LogRoutes, LongTextsArriveWholeOnBothRoutes) {
    for (size_t size : {382U, 383U, 384U, 511U, 512U, 100'000U}) {
        const std::string text(size, 'x');
        log_.Clear();
        __android_log_print(ANDROID_LOG_INFO, "tag", "%s", text.c_str());
        LOG(INFO) << text;
        LOG(INFO) << 'y' << text << 7 << text;
        EXPECT_THAT(log_.Texts(), ElementsAre(text, text, "y" + text + "7" + text));
    }
}

TEST_F(LogRoutes, ErrnoSurvivesALineAndIsAppendedByPlog) {
    errno = ENOENT;
    __android_log_print(ANDROID_LOG_INFO, "tag", "%ls", L"wide");
    LOG(INFO) << "text";
    PLOG(ERROR) << "open";
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(log_.Texts().back(), "open: No such file or directory");
}

TEST_F(LogRoutes, ALoggerMayLogAndReplaceItself) {
    android::base::LogFunction former;
    former = android::base::SetLogger([&](auto... line) {
        android::base::SetLogger(android::base::LogFunction(former));
        LOG(INFO) << "from inside";
        former(line...);
    });
    LOG(INFO) << "outer";
    LOG(INFO) << "next";
    EXPECT_THAT(log_.Texts(), ElementsAre("from inside", "outer", "next"));
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
    EXPECT_THAT(log_.Texts(), ElementsAre());
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
