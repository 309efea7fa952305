// The folder that the processes of one host share, and the service manager's place in it.
// Functions of this header do not wait. Any thread.
#pragma once

#include <android/binder_status.h>

#include <string>

namespace host {

// The longest name that stands in the folder beside a socket: "<pid>-<16 hex digits>".
inline constexpr size_t kLongestSocketName = 32;

// See host.h.
binder_status_t RuntimeFolder(std::string* path, std::string* error);

// Reads which endpoint serves as service manager; empty if none does.
std::string ReadContextName(const std::string& folder);
// Enters `name` in its place, atomically.
bool WriteContextName(const std::string& folder, const std::string& name);
// Keeps other service managers off the folder while this process lives; STATUS_ALREADY_EXISTS if
// one is there.
binder_status_t LockContext(const std::string& folder, std::string* error);

// Removes the sockets of processes that are gone.
void SweepFolder(const std::string& folder);

}  // namespace host
