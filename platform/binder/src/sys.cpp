#include "sys.h"

#include <mutex>
#include <string>

#include "test_hooks.h"

namespace host::sys {

std::atomic<bool> g_fault_armed{false};

namespace {

std::mutex g_fault_mutex;
std::string* g_fault_name;
int g_fault_countdown;
int g_fault_error;
std::atomic<bool> g_fault_fired{false};

}  // namespace

int TakeFault(const char* name) {
    std::lock_guard lock(g_fault_mutex);
    if (g_fault_name == nullptr || *g_fault_name != name || --g_fault_countdown != 0) return 0;
    g_fault_armed.store(false);
    g_fault_fired.store(true);
    return g_fault_error;
}

}  // namespace host::sys

namespace host::test {

void FailSystemCall(const char* name, int n, int error) {
    std::lock_guard lock(sys::g_fault_mutex);
    // Never destroyed: pool threads may still count calls while the process exits.
    if (sys::g_fault_name == nullptr) sys::g_fault_name = new std::string;
    *sys::g_fault_name = name;
    sys::g_fault_countdown = n;
    sys::g_fault_error = error;
    sys::g_fault_fired.store(false);
    sys::g_fault_armed.store(n > 0);
}

bool SystemCallFaultFired() {
    return sys::g_fault_fired.load();
}

}  // namespace host::test
