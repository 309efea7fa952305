#include "child.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "launcher.h"
#include "process_facts.h"

namespace host::testing {
namespace {

void Close(int* descriptor) {
    if (*descriptor >= 0) close(*descriptor);
    *descriptor = -1;
}

// The child's ends of its pipes; -1 where there is none.
struct ChildEnds {
    int input = -1;
    int output = -1;
    int error = -1;
    int pool_end = -1;

    ~ChildEnds() {
        Close(&input);
        Close(&output);
        Close(&error);
        Close(&pool_end);
    }
};

bool MakePipe(int* read_end, int* write_end) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    *read_end = ends[0];
    *write_end = ends[1];
    return true;
}

std::vector<std::string> MergedEnvironment(const LaunchOptions& options, int pool_end) {
    std::map<std::string, std::string> values;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const size_t equals = text.find('=');
        if (equals != std::string::npos) values[text.substr(0, equals)] = text.substr(equals + 1);
    }
    // A child's pool is ended by its own pipe, not by one that this process may have been given.
    values.erase("BINDER_HOST_END_FD");
    for (const auto& [name, value] : options.environment)
        values[name] = value;
    if (pool_end >= 0) values["BINDER_HOST_END_FD"] = std::to_string(pool_end);
    std::vector<std::string> result;
    result.reserve(values.size());
    for (const auto& [name, value] : values)
        result.push_back(name + "=" + value);
    return result;
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// Runs in the forked child of a process with threads: system calls only.
[[noreturn]] void RunChild(const ChildEnds& ends, pid_t parent, char* const* arguments,
                           char* const* environment) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
    const int input = ends.input >= 0 ? ends.input : open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(input, STDIN_FILENO);
    if (ends.error >= 0) dup2(ends.error, STDERR_FILENO);
    dup2(ends.output >= 0 ? ends.output : STDERR_FILENO, STDOUT_FILENO);
    if (ends.pool_end >= 0) fcntl(ends.pool_end, F_SETFD, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    BecomeProgram(arguments, environment);
}

ExitStatus FromWait(int status) {
    if (WIFSIGNALED(status)) return {-1, WTERMSIG(status)};
    return {WEXITSTATUS(status), 0};
}

}  // namespace

std::unique_ptr<Child> LaunchProgram(const std::vector<std::string>& arguments,
                                     const LaunchOptions& options) {
    std::unique_ptr<Child> child(new Child);
    ChildEnds ends;
    int log = -1;
    const bool piped = (!options.pipe_input || MakePipe(&ends.input, &child->input_)) &&
                       (!options.pipe_output || MakePipe(&child->output_, &ends.output)) &&
                       (!options.pool_end || MakePipe(&ends.pool_end, &child->pool_end_)) &&
                       (!options.capture_log || MakePipe(&log, &ends.error));
    if (log >= 0) child->log_.Start(log, options.echo_log);
    const std::vector<std::string> variables = MergedEnvironment(options, ends.pool_end);
    const std::vector<char*> environment = Pointers(variables);
    const std::vector<char*> argument_list = Pointers(arguments);
    const pid_t parent = getpid();
    child->pid_ = piped ? fork() : -1;
    if (child->pid_ == 0) RunChild(ends, parent, argument_list.data(), environment.data());
    if (child->pid_ > 0) return child;
    ADD_FAILURE() << "cannot start " << arguments[0] << ": errno " << errno;
    return nullptr;
}

Child::~Child() {
    Kill();
    Close(&input_);
    Close(&output_);
    Close(&pool_end_);
}

void Child::Signal(int signal) {
    if (pid_ > 0 && !status_) kill(pid_, signal);
}

void Child::Kill() {
    if (pid_ <= 0 || status_) return;
    kill(pid_, SIGKILL);
    int status = 0;
    if (TEMP_FAILURE_RETRY(waitpid(pid_, &status, 0)) == pid_) status_ = FromWait(status);
}

bool Child::Stop() {
    Signal(SIGSTOP);
    return Eventually([this] {
        siginfo_t info = {};
        return waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED | WNOHANG) == 0 &&
               info.si_pid == pid_;
    });
}

bool Child::Continue() {
    Signal(SIGCONT);
    return Eventually([this] { return ProcessState(pid_) != 'T'; });
}

void Child::EndPool() {
    Close(&pool_end_);
}

void Child::CloseInput() {
    Close(&input_);
}

std::optional<ExitStatus> Child::WaitExit(std::chrono::milliseconds limit) {
    if (status_ || pid_ <= 0) return status_;
    const int watch = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
    pollfd wait{watch, POLLIN, 0};
    TEMP_FAILURE_RETRY(poll(&wait, 1, static_cast<int>(limit.count())));
    close(watch);
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) status_ = FromWait(status);
    return status_;
}

}  // namespace host::testing
