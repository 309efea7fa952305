#include <android/binder_process.h>
#include <fcntl.h>
#include <unistd.h>

#include "options.h"
#include "output.h"
#include "push.h"
#include "show.h"
#include "supervisor.h"
#include "watch.h"

namespace {

using velmoractl::Options;
using velmoractl::Output;

// A standard stream that is closed must not become another file of the process.
void FillStandardStreams() {
    int file = 0;
    while (file >= 0 && file <= STDERR_FILENO)
        file = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (file >= 0) close(file);
}

int RunVerb(const Options& options, const Output& output,
            const std::shared_ptr<velmoractl::Loop>& loop) {
    // Callbacks and news of deaths arrive while the pool runs.
    ABinderProcess_startThreadPool();
    if (options.verb == "list") return velmoractl::List(output);
    if (options.verb == "dump") return velmoractl::Dump(options, output);
    if (options.verb == "nudge") return velmoractl::Nudge(options, output);
    if (options.verb == "watch") return velmoractl::Watch(options, output, loop).Run();
    return velmoractl::Push(options, output, loop).Run();
}

}  // namespace

int main(int argc, char** argv) {
    FillStandardStreams();
    const auto parsed = velmoractl::ParseOptions(argc, argv);
    if (const int* status = std::get_if<int>(&parsed)) return *status;
    const Options& options = *std::get_if<Options>(&parsed);
    const Output output(options.json);
    velmoractl::Limits limits;
    if (options.timeout) limits.timeout = std::chrono::duration<double>(*options.timeout);
    if (options.verb == "watch" || options.verb == "push")
        limits.interrupted_status = velmoractl::kDone;
    return velmoractl::Supervise(limits, output,
                                 [&](const auto& loop) { return RunVerb(options, output, loop); });
}
