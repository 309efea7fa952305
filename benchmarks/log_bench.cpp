// What one log line costs, against a bare write of as many bytes to the same place.

#include <android/log.h>
#include <fcntl.h>
#include <stdio.h>

#include "bench_support.h"

namespace {

using bench::Require;

constexpr char kLine[] =
        "03-14 09:26:53.589  1234  1240 I bench: signal 17 of 4096 has 3 consumers, last one "
        "0x5a5a\n";
constexpr size_t kLineSize = sizeof(kLine) - 1;

void WriteLine(benchmark::State& state, int fd) {
    for ([[maybe_unused]] auto _ : state) {
        Require(write(fd, kLine, kLineSize) == static_cast<ssize_t>(kLineSize), "write");
    }
}

// Standard error is `fd` for the time of the round.
void LogLine(benchmark::State& state, int fd, const char* tag) {
    int before = dup(STDERR_FILENO);
    Require(before >= 0 && dup2(fd, STDERR_FILENO) >= 0, "dup2");
    for ([[maybe_unused]] auto _ : state) {
        __android_log_print(ANDROID_LOG_INFO, tag, "signal %d of %d has %d consumers, last one %#x",
                            17, 4096, 3, 0x5a5a);
    }
    dup2(before, STDERR_FILENO);
    close(before);
}

int OpenFile() {
    FILE* file = tmpfile();
    Require(file != nullptr, "tmpfile");
    return fileno(file);
}

}  // namespace

int main(int argc, char** argv) {
    setenv("ANDROID_LOG_TAGS", "quiet:W *:V", 1);
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    Require(null >= 0, "open");
    auto to_file = [](void (*run)(benchmark::State&, int)) {
        return [run](benchmark::State& state) {
            static int file = OpenFile();
            Require(ftruncate(file, 0) == 0 && lseek(file, 0, SEEK_SET) == 0, "truncate");
            run(state, file);
        };
    };
    auto log = [](benchmark::State& state, int fd) { LogLine(state, fd, "bench"); };
    benchmark::RegisterBenchmark("log_file_line", to_file(log));
    benchmark::RegisterBenchmark("log_file_bare", to_file(WriteLine));
    benchmark::RegisterBenchmark("log_null_line", log, null);
    benchmark::RegisterBenchmark("log_null_bare", WriteLine, null);
    benchmark::RegisterBenchmark("log_silenced_line", LogLine, null, "quiet");
    bench::RunAndCompare(argc, argv,
                         {{"log_file", "log_file_line", "log_file_bare"},
                          {"log_null", "log_null_line", "log_null_bare"},
                          {"log_silenced", "log_silenced_line", "log_null_bare"}});
    return 0;
}
