#include "scoped_host.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace host::testing {

ScopedHost::ScopedHost(ScopedHostOptions options)
        : manifests_(std::move(options.manifests)), echo_log_(options.echo_log) {
    char base[] = "/tmp/vh-XXXXXX";
    if (mkdtemp(base) == nullptr) {
        ADD_FAILURE() << "cannot create " << base;
        abort();
    }
    base_ = base;
    path_ = base_ + "/run";
    mkdir(path_.c_str(), 0700);
    setenv("BINDER_HOST_DIR", path_.c_str(), 1);
    if (!options.declared.empty()) manifests_.push_back(WriteManifest(options.declared));
    if (options.start) StartServiceManager();
}

ScopedHost::~ScopedHost() {
    KillServiceManager();
    std::error_code failure;
    std::filesystem::remove_all(base_, failure);
}

std::string ScopedHost::WriteManifest(const std::vector<std::string>& declared) {
    std::string file = base_ + "/declared.xml";
    std::ofstream out(file);
    out << "<manifest version=\"1.0\" type=\"device\">\n";
    for (const std::string& name : declared) {
        const size_t dot = name.rfind('.', name.find('/'));
        out << "  <hal format=\"aidl\"><name>" << name.substr(0, dot) << "</name><fqname>"
            << name.substr(dot + 1) << "</fqname></hal>\n";
    }
    out << "</manifest>\n";
    return file;
}

void ScopedHost::KillServiceManager() {
    service_manager_.reset();
}

void ScopedHost::StartServiceManager() {
    LaunchOptions options;
    options.echo_log = echo_log_;
    service_manager_ = LaunchServiceManager(manifests_, options);
}

std::unique_ptr<Child> ScopedHost::LaunchServiceManager(const std::vector<std::string>& arguments,
                                                        const LaunchOptions& options) {
    std::vector<std::string> line = {HOST_SERVICEMANAGER_PROGRAM};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return LaunchProgram(line, options);
}

}  // namespace host::testing
