#include "runtime_folder.h"

#include <dirent.h>
#include <host/environment.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdio>
#include <cstring>

#include "fd.h"
#include "frame.h"
#include "sys.h"

namespace host {
namespace {

constexpr char kContextLink[] = "servicemanager";
constexpr char kContextLock[] = "servicemanager.lock";

std::string FolderFromEnvironment() {
    if (auto named = ReadEnvironment("BINDER_HOST_DIR")) return *named;
    return ReadEnvironment("XDG_RUNTIME_DIR").value_or("/run") + "/velmora-binder";
}

binder_status_t Failed(binder_status_t status, std::string* error, const std::string& folder,
                       const std::string& what) {
    *error = "The runtime folder " + folder + " " + what + ".";
    return status;
}

binder_status_t CheckFolder(const std::string& folder, std::string* error) {
    struct stat facts {};
    if (lstat(folder.c_str(), &facts) != 0) {
        return Failed(STATUS_NAME_NOT_FOUND, error, folder,
                      std::string("cannot be made: ") + strerror(errno));
    }
    if (!S_ISDIR(facts.st_mode))
        return Failed(STATUS_NAME_NOT_FOUND, error, folder, "is not a folder");
    if (facts.st_uid != geteuid() && geteuid() != 0) {
        return Failed(STATUS_PERMISSION_DENIED, error, folder,
                      "belongs to uid " + std::to_string(facts.st_uid) + ", not to uid " +
                              std::to_string(geteuid()));
    }
    if ((facts.st_mode & 0777) != 0700) {
        char rights[8];
        snprintf(rights, sizeof(rights), "%04o", facts.st_mode & 07777);
        return Failed(STATUS_PERMISSION_DENIED, error, folder,
                      std::string("has the rights ") + rights + ", not 0700");
    }
    return STATUS_OK;
}

}  // namespace

binder_status_t RuntimeFolder(std::string* path, std::string* error) {
    std::string folder = FolderFromEnvironment();
    size_t longest = folder.size() + 1 + kLongestSocketName;
    if (longest >= sizeof(sockaddr_un::sun_path)) {
        return Failed(
                STATUS_BAD_VALUE, error, folder,
                "has a path that is too long for a socket address: " +
                        std::to_string(folder.size()) + " bytes, at most " +
                        std::to_string(sizeof(sockaddr_un::sun_path) - 2 - kLongestSocketName));
    }
    // Whether it was made here or stood there already, it is checked alike.
    mkdir(folder.c_str(), 0700);
    binder_status_t status = CheckFolder(folder, error);
    if (status == STATUS_OK) *path = folder;
    return status;
}

std::string ReadContextName(const std::string& folder) {
    char name[kEndpointNameSize];
    ssize_t size = readlink((folder + "/" + kContextLink).c_str(), name, sizeof(name));
    if (size <= 0 || static_cast<size_t>(size) >= sizeof(name)) return {};
    std::string_view text(name, static_cast<size_t>(size));
    return PidOfEndpointName(text) ? std::string(text) : std::string();
}

bool WriteContextName(const std::string& folder, const std::string& name) {
    std::string fresh = folder + "/." + name;
    unlink(fresh.c_str());
    return symlink(name.c_str(), fresh.c_str()) == 0 &&
           rename(fresh.c_str(), (folder + "/" + kContextLink).c_str()) == 0;
}

binder_status_t LockContext(const std::string& folder, std::string* error) {
    std::string path = folder + "/" + kContextLock;
    UniqueFd lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!lock.ok()) return Failed(STATUS_PERMISSION_DENIED, error, folder, "cannot be written to");
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        return Failed(STATUS_ALREADY_EXISTS, error, folder, "has a service manager already");
    }
    static UniqueFd* held = new UniqueFd;  // the lock goes with the process
    *held = std::move(lock);
    return STATUS_OK;
}

void SweepFolder(const std::string& folder) {
    DIR* entries = opendir(folder.c_str());
    if (entries == nullptr) return;
    while (dirent* entry = readdir(entries)) {
        auto pid = PidOfEndpointName(entry->d_name);
        if (pid && kill(*pid, 0) != 0 && errno == ESRCH)
            unlink((folder + "/" + entry->d_name).c_str());
    }
    closedir(entries);
}

}  // namespace host
