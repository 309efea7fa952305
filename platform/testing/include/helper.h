// Helper processes that a test drives line by line, written beside the tests that use them:
//
//     HOST_HELPER(Echo) {
//         channel.Serve([](const std::string& command) { return command; });
//         return 0;
//     }
//     TEST(Echo, Answers) { EXPECT_EQ(Helper("Echo").Command("x"), "x"); }
//
// The helper is the test program itself, started again, or the program of the same name in the
// folder that HOST_HELPER_FOLDER names; link velmora_add_tests(MAIN host_testing_main). A Helper,
// and the channel on its other side, belong to one thread each.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "child.h"

namespace host::testing {

// A line in, a line out, over two descriptors.
class LineChannel {
  public:
    LineChannel(int input, int output) : input_(input), output_(output) {}

    // The next line; nothing at the end of the stream or when the time is up.
    std::optional<std::string> Read(std::optional<std::chrono::milliseconds> limit = std::nullopt);

    // False if the other side is gone. The text must not hold a line break.
    bool Write(const std::string& line);

  private:
    const int input_;
    const int output_;
    std::string pending_;
};

// What a helper sees of its driver.
class HelperChannel : public LineChannel {
  public:
    HelperChannel(int input, int output, std::vector<std::string> arguments)
            : LineChannel(input, output), arguments_(std::move(arguments)) {}

    const std::vector<std::string>& arguments() const { return arguments_; }

    // Answers each command with what `handle` makes of it, until the driver is done.
    void Serve(const std::function<std::string(const std::string&)>& handle);

  private:
    const std::vector<std::string> arguments_;
};

using HelperEntry = int (*)(HelperChannel& channel);

// For HOST_HELPER: enters the function; two of one name are an error at start.
bool RegisterHelper(const char* name, HelperEntry entry);

#define HOST_HELPER(name)                                                  \
    static int HostHelper_##name(::host::testing::HelperChannel& channel); \
    [[maybe_unused]] static const bool host_helper_registered_##name =     \
            ::host::testing::RegisterHelper(#name, &HostHelper_##name);    \
    static int HostHelper_##name([[maybe_unused]] ::host::testing::HelperChannel& channel)

class Helper {
  public:
    // Starts the HOST_HELPER of that name in this test program. Its standard error is captured.
    explicit Helper(const std::string& name, const std::vector<std::string>& arguments = {},
                    LaunchOptions options = {});

    // Sends a command and returns the answer; fails the test and returns "" if none comes in time.
    std::string Command(const std::string& command, std::chrono::milliseconds limit = kTestLimit);

    // The two halves of Command, for answers that are to come later.
    void Send(const std::string& command);
    std::optional<std::string> WaitForAnswer(std::chrono::milliseconds limit = kTestLimit);

    // Ends the helper's command stream, and waits until it has ended by itself.
    std::optional<ExitStatus> Finish(std::chrono::milliseconds limit = kTestLimit);

    Child& process() { return *child_; }
    pid_t pid() const { return child_->pid(); }
    ChildLog& log() { return child_->log(); }

  private:
    std::unique_ptr<Child> child_;
    LineChannel channel_;
};

// For the main(): runs the helper that the arguments ask for and returns its exit status; nothing
// if they ask for none.
std::optional<int> RunRequestedHelper(int argc, char** argv);

}  // namespace host::testing
