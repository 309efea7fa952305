#include "hub_processes.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

namespace velmora_test {

namespace {

template <typename Interface>
std::shared_ptr<Interface> WaitForManager() {
    const std::string name = std::string(Interface::descriptor) + "/default";
    return Interface::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(name.c_str())));
}

// Unlike a pipe, a file takes every line.
void LogToFile(const char* path) {
    const int file = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    dup2(file, STDERR_FILENO);
    close(file);
}

}  // namespace

HOST_HELPER(HubServer) {
    if (const char* path = getenv("HUB_LOG_FILE")) LogToFile(path);
    ABinderProcess_startThreadPool();
    // Never destroyed: clients may call until the process has ended.
    static const Hub& hub = *new Hub;
    if (hub.Publish() != EX_NONE) return 1;
    channel.Serve([&](const std::string& command) {
        hub.Fence();
        return command;
    });
    return 0;
}

std::shared_ptr<hub::IVelmoraHubProducerManager> WaitForProducerManager() {
    return WaitForManager<hub::IVelmoraHubProducerManager>();
}

std::shared_ptr<hub::IVelmoraHubConsumerManager> WaitForConsumerManager() {
    return WaitForManager<hub::IVelmoraHubConsumerManager>();
}

HubProcess::HubProcess(const std::map<std::string, std::string>& environment)
        : helper_("HubServer", {},
                  {.environment = environment, .echo_log = false, .own_build = true}),
          producers_(WaitForProducerManager()),
          consumers_(WaitForConsumerManager()) {}

void HubProcess::Fence() {
    EXPECT_EQ(helper_.Command("fence"), "fence");
}

}  // namespace velmora_test
