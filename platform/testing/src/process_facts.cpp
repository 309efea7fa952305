#include "process_facts.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "eventually.h"

namespace host::testing {
namespace {

std::string Proc(pid_t pid) {
    return "/proc/" + std::to_string(pid);
}

int EntriesOf(const std::string& folder) {
    std::error_code failure;
    std::filesystem::directory_iterator entries(folder, failure);
    int count = 0;
    for (; !failure && entries != std::filesystem::directory_iterator();
         entries.increment(failure)) {
        ++count;
    }
    return failure ? -1 : count;
}

// The number behind "key:" in a status file.
int64_t StatusField(const std::string& file, const std::string& key) {
    std::ifstream status(file);
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(key + ":", 0) == 0) return std::atoll(line.c_str() + key.size() + 1);
    }
    return -1;
}

// Of one thread; one that has ended counts nothing.
int64_t SwitchesIn(const std::string& file) {
    int64_t sum = 0;
    for (const char* key : {"voluntary_ctxt_switches", "nonvoluntary_ctxt_switches"})
        sum += std::max<int64_t>(0, StatusField(file, key));
    return sum;
}

}  // namespace

int OpenDescriptors(pid_t pid) {
    const int count = EntriesOf(Proc(pid) + "/fd");
    // Listing one's own descriptors takes one.
    return count > 0 && pid == getpid() ? count - 1 : count;
}

int Threads(pid_t pid) {
    return static_cast<int>(StatusField(Proc(pid) + "/status", "Threads"));
}

int64_t ResidentKib(pid_t pid) {
    return StatusField(Proc(pid) + "/status", "VmRSS");
}

int64_t ContextSwitches(pid_t pid) {
    std::error_code failure;
    std::filesystem::directory_iterator tasks(Proc(pid) + "/task", failure);
    int64_t sum = 0;
    for (; !failure && tasks != std::filesystem::directory_iterator(); tasks.increment(failure)) {
        sum += SwitchesIn(tasks->path().string() + "/status");
    }
    return failure ? -1 : sum;
}

bool WaitForRest(const std::vector<pid_t>& pids) {
    using Clock = std::chrono::steady_clock;
    int64_t last = -1;
    Clock::time_point changed;
    return Eventually([&] {
        int64_t sum = 0;
        for (const pid_t pid : pids)
            sum += ContextSwitches(pid);
        if (sum != last) changed = Clock::now();
        last = sum;
        // Not longer: a sanitizer's own thread wakes up ten times a second.
        return Clock::now() - changed >= std::chrono::milliseconds(20);
    });
}

char ProcessState(pid_t pid) {
    std::ifstream file(Proc(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    // The program's name stands in parentheses and may hold any character.
    const size_t end = line.rfind(") ");
    return end == std::string::npos || end + 2 >= line.size() ? '\0' : line[end + 2];
}

}  // namespace host::testing
