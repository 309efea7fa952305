// The service manager's program.

#include <android/binder_auto_utils.h>
#include <android/binder_process.h>
#include <getopt.h>
#include <stdio.h>

#include <string>

#include "host.h"
#include "manifest.h"
#include "service_manager.h"

namespace {

constexpr char kUsage[] =
        "Usage: servicemanager [--help] [MANIFEST...]\n"
        "Keeps the names of the services in a runtime folder.\n"
        "\n"
        "Each MANIFEST is a VINTF fragment, or a folder whose *.xml files are read in order.\n"
        "The runtime folder is $BINDER_HOST_DIR, or velmora-binder below $XDG_RUNTIME_DIR or "
        "/run.\n"
        "Exit status: 0 ended as asked, 1 error, 2 wrong usage.\n";

int Fail(const std::string& error) {
    fprintf(stderr, "servicemanager: %s\n", error.c_str());
    return 1;
}

int Serve(host::Manifest manifest) {
    // Never destroyed: calls may come in until the process is gone.
    auto* manager = new host::ServiceManager(std::move(manifest));
    static const auto* const object = new ndk::SpAIBinder(manager->NewBinder());
    std::string error;
    if (host::PublishContextObject(object->get(), &error) != STATUS_OK) return Fail(error);
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const option options[] = {{"help", no_argument, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};
    for (int choice; (choice = getopt_long(argc, argv, "h", options, nullptr)) != -1;) {
        if (choice == 'h') {
            fputs(kUsage, stdout);
            return 0;
        }
        fputs(kUsage, stderr);
        return 2;
    }
    host::Manifest manifest;
    for (int i = optind; i < argc; ++i) {
        std::string error;
        if (!manifest.AddPath(argv[i], &error)) return Fail(error);
    }
    return Serve(std::move(manifest));
}
