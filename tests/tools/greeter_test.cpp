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

TEST(Greeter, RefusesTheNamelessAndASecondService) {
    ScopedHost host;
    const std::unique_ptr<Child> service = LaunchService();
    ASSERT_EQ(LineChannel(service->output(), -1).Read(kTestLimit), "ready");
    const std::unique_ptr<Child> nameless = LaunchClient(""), second = LaunchService();
    EXPECT_TRUE(nameless->log().WaitForLine("who are you?"));
    EXPECT_TRUE(second->log().WaitForLine("cannot publish example.greeter"));
    for (Child* failed : {nameless.get(), second.get()})
        EXPECT_EQ(failed->WaitExit(), (ExitStatus{.code = 1}));
    // The watcher of a client that has gone costs the next one nothing.
    for (const std::string name : {"Ada", "Grace"})
        EXPECT_EQ(Output(*LaunchClient(name)).back(), "answer: Hello, " + name + "!");
}

}  // namespace
}  // namespace host::testing
