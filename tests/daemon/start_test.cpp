// Labels: memory processes
// Starts that fail, each in a folder of its own. This process makes no binder calls.

#include <android/binder_process.h>
#include <gmock/gmock.h>
#include <signal.h>

#include "daemon_processes.h"

namespace velmora_test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

const std::string kConsumers = "vendor.quorin.velmora_hub.IVelmoraHubConsumerManager/default";
const std::string kProducers = "vendor.quorin.velmora_hub.IVelmoraHubProducerManager/default";

// Speaks when the daemon's second name is published.
HOST_HELPER(WaitingForSecondName) {
    ABinderProcess_startThreadPool();
    WaitForProducerManager();
    channel.Write("published");
    return 0;
}

TEST(Start, EndsWithALineWhenAPublicationIsRefused) {
    const std::vector<std::string> rows[] = {{}, {kProducers}, {kConsumers}};
    for (const auto& declared : rows) {
        SCOPED_TRACE(::testing::PrintToString(declared));
        ScopedHost host({.declared = declared, .echo_log = false});
        Helper waiting("WaitingForSecondName", {}, {.echo_log = false});
        const auto daemon = LaunchDaemon();
        EXPECT_EQ(daemon->WaitExit(), ExitStatus{.signal = SIGABRT});
        ASSERT_TRUE(daemon->log().WaitForEnd());
        EXPECT_EQ(daemon->log().Count("Check failed: status == EX_NONE (status=-3, EX_NONE=0) "),
                  1);
        EXPECT_EQ(waiting.WaitForAnswer(std::chrono::milliseconds(200)), std::nullopt);
    }
}

// The line before the first of these is cut off by the severity that the producer then lowers.
TEST(Start, WithoutADeclaredTouchServiceLeavesAHubThatServes) {
    ScopedHost host({.manifests = {HUB_MANIFESTS "/velmora_hub.xml"}, .echo_log = false});
    const auto daemon = StartDaemon();
    EXPECT_TRUE(daemon->log().WaitForLine("skelda: service NOT declared in manifest"));
    std::vector<std::string> lines = daemon->log().lines();
    std::erase_if(lines, [](const std::string& line) {
        return line.find("hosted producers") == line.npos && line.find("for signal") == line.npos;
    });
    EXPECT_THAT(lines, ElementsAre(EndsWith(" D velmora_hal: Adding 1 hosted producers..."),
                                   HasSubstr("Adding producer for signal 2"),
                                   EndsWith(" D velmora_hal: Starting hosted producers..."),
                                   HasSubstr("Starting producer for signal 2")));
    Helper client("ClientProcess", {}, {.echo_log = false});
    EXPECT_EQ(client.Command("subscribe"), "done");
    const auto touchsim = StartTouchsim();
    EXPECT_EQ(touchsim->WaitExit(), ExitStatus{.code = 1});
    EXPECT_TRUE(touchsim->log().WaitForLine("cannot be published: it is not declared"));
}

}  // namespace
}  // namespace velmora_test
