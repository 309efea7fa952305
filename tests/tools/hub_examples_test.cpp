// Labels: processes
#include "hub_processes.h"

namespace velmora_test {
namespace {

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

TEST(HubExamples, MeetWhicheverIsStartedFirst) {
    const HubProcess hub;
    for (const bool consumer_first : {true, false}) {
        SCOPED_TRACE(consumer_first);
        std::unique_ptr<Child> producer;
        if (!consumer_first) producer = LaunchProgram({HUB_PRODUCER});
        const std::unique_ptr<Child> consumer =
                LaunchProgram({HUB_CONSUMER}, {.pipe_output = true});
        if (consumer_first) producer = LaunchProgram({HUB_PRODUCER});
        LineChannel channel(consumer->output(), -1);
        for (const std::string line : {"display 1", "display 2", "display 3"})
            EXPECT_EQ(channel.Read(kTestLimit), line);
        EXPECT_EQ(producer->WaitExit(), (ExitStatus{.code = 0}));
        EXPECT_EQ(consumer->WaitExit(), (ExitStatus{.code = 0}));
    }
}

}  // namespace
}  // namespace velmora_test
