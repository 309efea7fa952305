// Labels: processes
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host_testing.h"

namespace host::testing {
namespace {

std::unique_ptr<Child> LaunchService() {
    return LaunchProgram({GREETER_SERVICE}, {.pipe_output = true, .pool_end = true});
}

std::unique_ptr<Child> LaunchClient(const std::string& name) {
    return LaunchProgram({GREETER_CLIENT, name}, {.pipe_output = true});
}

// All that the program prints until it ends.
std::vector<std::string> Output(Child& child) {
    LineChannel channel(child.output(), -1);
    std::vector<std::string> lines;
    while (const std::optional<std::string> line = channel.Read(kTestLimit))
        lines.push_back(*line);
    return lines;
}

TEST(Greeter, AnswersAndCallsBackWhateverIsStartedFirst) {
    ScopedHost host({.start = false});
    const std::unique_ptr<Child> client = LaunchClient("Ada");
    const std::unique_ptr<Child> service = LaunchService();
    host.StartServiceManager();
    EXPECT_EQ(Output(*client),
              (std::vector<std::string>{"heard: greeting 1 is for Ada", "answer: Hello, Ada!"}));
    EXPECT_EQ(client->WaitExit(), (ExitStatus{.code = 0}));
    service->EndPool();
    EXPECT_EQ(Output(*service), std::vector<std::string>{"ready"});
    EXPECT_EQ(service->WaitExit(), (ExitStatus{.code = 0}));
}

TEST(Greeter, RefusesTheNamelessAndOutlivesItsWatchers) {
    ScopedHost host;
    const std::unique_ptr<Child> service = LaunchService();
    const std::unique_ptr<Child> nameless = LaunchClient("");
    EXPECT_EQ(nameless->WaitExit(), (ExitStatus{.code = 1}));
    EXPECT_TRUE(nameless->log().WaitForLine("who are you?"));
    for (const std::string name : {"Ada", "Grace"}) {
        const std::unique_ptr<Child> client = LaunchClient(name);
        EXPECT_EQ(Output(*client).back(), "answer: Hello, " + name + "!");
        EXPECT_EQ(client->WaitExit(), (ExitStatus{.code = 0}));
    }
    EXPECT_EQ(service->WaitExit(std::chrono::milliseconds(0)), std::nullopt);
}

TEST(Greeter, ReportsWhatKeepsItFromBeingPublished) {
    ScopedHost host;
    const std::unique_ptr<Child> service = LaunchService();
    ASSERT_EQ(LineChannel(service->output(), -1).Read(kTestLimit), "ready");
    const std::unique_ptr<Child> second = LaunchService();
    EXPECT_EQ(second->WaitExit(), (ExitStatus{.code = 1}));
    EXPECT_TRUE(second->log().WaitForLine("cannot publish example.greeter"));
}

}  // namespace
}  // namespace host::testing
