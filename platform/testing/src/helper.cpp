#include "helper.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

#include "launcher.h"

namespace host::testing {
namespace {

constexpr char kHelperFlag[] = "--helper=";

std::map<std::string, HelperEntry>& Entries() {
    static auto* entries = new std::map<std::string, HelperEntry>();
    return *entries;
}

// This program, or its twin in another build's folder of test programs: a sanitised test can drive
// helpers that are not.
std::string HelperProgram(bool own_build) {
    const std::filesystem::path own = OwnProgram();
    const char* folder = getenv("HOST_HELPER_FOLDER");
    return folder == nullptr || own_build ? own.string() : (folder / own.filename()).string();
}

std::unique_ptr<Child> LaunchHelper(const std::string& name,
                                    const std::vector<std::string>& arguments,
                                    LaunchOptions options) {
    std::vector<std::string> line = {HelperProgram(options.own_build), kHelperFlag + name};
    line.insert(line.end(), arguments.begin(), arguments.end());
    options.pipe_input = true;
    options.pipe_output = true;
    std::unique_ptr<Child> child = LaunchProgram(line, options);
    if (child == nullptr) abort();  // the test cannot go on; LaunchProgram has said why
    return child;
}

// Milliseconds until the end, for poll(); -1 without one.
int Remaining(const std::optional<std::chrono::steady_clock::time_point>& end) {
    if (!end) return -1;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            *end - std::chrono::steady_clock::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

}  // namespace

bool RegisterHelper(const char* name, HelperEntry entry) {
    if (Entries().emplace(name, entry).second) return true;
    fprintf(stderr, "two helpers are named %s\n", name);
    abort();
}

std::optional<std::string> LineChannel::Read(std::optional<std::chrono::milliseconds> limit) {
    std::optional<std::chrono::steady_clock::time_point> end;
    if (limit) end = std::chrono::steady_clock::now() + *limit;
    for (;;) {
        const size_t line_end = pending_.find('\n');
        if (line_end != std::string::npos) {
            std::string line = pending_.substr(0, line_end);
            pending_.erase(0, line_end + 1);
            return line;
        }
        pollfd wait{input_, POLLIN, 0};
        const int ready = poll(&wait, 1, Remaining(end));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return std::nullopt;
        char buffer[4096];
        const ssize_t count = read(input_, buffer, sizeof(buffer));
        if (count <= 0) return std::nullopt;
        pending_.append(buffer, static_cast<size_t>(count));
    }
}

bool LineChannel::Write(const std::string& line) {
    const std::string text = line + "\n";
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t count =
                TEMP_FAILURE_RETRY(write(output_, text.data() + written, text.size() - written));
        if (count <= 0) return false;
        written += static_cast<size_t>(count);
    }
    return true;
}

void HelperChannel::Serve(const std::function<std::string(const std::string&)>& handle) {
    while (const std::optional<std::string> command = Read()) {
        if (!Write(handle(*command))) return;
    }
}

Helper::Helper(const std::string& name, const std::vector<std::string>& arguments,
               LaunchOptions options)
        : child_(LaunchHelper(name, arguments, std::move(options))),
          channel_(child_->output(), child_->input()) {}

std::string Helper::Command(const std::string& command, std::chrono::milliseconds limit) {
    Send(command);
    std::optional<std::string> answer = WaitForAnswer(limit);
    if (!answer) ADD_FAILURE() << "helper " << pid() << " does not answer: " << command;
    return answer.value_or("");
}

void Helper::Send(const std::string& command) {
    if (!channel_.Write(command)) ADD_FAILURE() << "helper " << pid() << " is gone: " << command;
}

std::optional<std::string> Helper::WaitForAnswer(std::chrono::milliseconds limit) {
    return channel_.Read(limit);
}

std::optional<ExitStatus> Helper::Finish(std::chrono::milliseconds limit) {
    child_->CloseInput();
    return child_->WaitExit(limit);
}

std::optional<int> RunRequestedHelper(int argc, char** argv) {
    if (argc < 2 || strncmp(argv[1], kHelperFlag, strlen(kHelperFlag)) != 0) return std::nullopt;
    const auto entry = Entries().find(argv[1] + strlen(kHelperFlag));
    if (entry == Entries().end()) {
        fprintf(stderr, "no helper is named %s\n", argv[1] + strlen(kHelperFlag));
        return 127;
    }
    // Answers keep a descriptor of their own: what else is printed must not mix with them.
    const int answers = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    HelperChannel channel(STDIN_FILENO, answers, std::vector<std::string>(argv + 2, argv + argc));
    return entry->second(channel);
}

}  // namespace host::testing
