// The device's touch-input service, for people without the hardware.

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include "gesture_script.h"
#include "options.h"
#include "say.h"
#include "touch_service.h"

namespace {

using touchsim::Options;
using touchsim::Say;
using touchsim::Step;
using touchsim::TouchService;

struct Counts {
    int64_t sent = 0;
    int64_t unheard = 0;
};

void Pause(const Step& step, double speed) {
    if (speed == 0) return;
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(
            static_cast<double>(step.delay.count()) / speed));
}

// Plays the script once; false if a line of it cannot be read.
bool Play(std::istream& script, const Options& options, TouchService& service, Counts* counts) {
    std::string line;
    std::string error;
    for (int number = 1; std::getline(script, line); ++number) {
        const auto step = touchsim::ParseStep(line, &error);
        if (!error.empty()) {
            Say(options.file + ":" + std::to_string(number) + ": " + error);
            return false;
        }
        if (!step) continue;
        Pause(*step, options.speed);
        if (!service.Send(step->message)) ++counts->unheard;
        if (++counts->sent == options.die_after) raise(SIGKILL);
    }
    return true;
}

bool PlayAll(const Options& options, TouchService& service, Counts* counts) {
    if (options.file == "-") return Play(std::cin, options, service, counts);
    int64_t sent_before;
    do {
        sent_before = counts->sent;
        std::ifstream script(options.file);
        if (!Play(script, options, service, counts)) return false;
        // A script without a gesture is not worth a loop.
    } while (options.loop && counts->sent != sent_before);
    return true;
}

// A folder can be opened too, but has no lines.
bool CanRead(const std::string& file) {
    std::error_code error;
    return file == "-" || (!std::filesystem::is_directory(file, error) && std::ifstream(file));
}

bool Publish(const std::shared_ptr<TouchService>& service) {
    const std::string name = std::string(TouchService::descriptor) + "/default";
    return AServiceManager_addService(service->asBinder().get(), name.c_str()) == EX_NONE;
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    const auto options = touchsim::ParseOptions(argc, argv, &status);
    if (!options) return status;
    if (!CanRead(options->file)) {
        Say("cannot read " + options->file);
        return 1;
    }
    ABinderProcess_startThreadPool();
    const auto service = ndk::SharedRefBase::make<TouchService>(*options);
    if (!Publish(service)) {
        Say("the touch-input service cannot be published: it is not declared, or another process "
            "has it");
        return 1;
    }
    Say("waiting for a listener on each of " + std::to_string(options->panels.size()) + " panels");
    service->WaitForListeners();
    Counts counts;
    const bool played = PlayAll(*options, *service, &counts);
    Say(std::to_string(counts.sent) + " gestures sent, " + std::to_string(counts.unheard) +
        " of them heard by no listener");
    if (played && options->stay) ABinderProcess_joinThreadPool();
    return played ? 0 : 1;
}
