// Feeds every file of the folders given to the fuzz target that it is linked with. What a fuzzer
// has found once stays found in builds without a fuzzer.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::filesystem::path> FilesIn(const char* folder) {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->is_regular_file(error)) files.push_back(entry->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool Replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file.is_open() || file.bad()) {
        std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
        return false;
    }
    // Without a terminating zero behind it, so that a read past the end is a read past an
    // allocation.
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    std::printf("%s: %zu bytes\n", path.c_str(), input.size());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::vector<std::filesystem::path> files = FilesIn(argv[i]);
        if (files.empty()) {
            std::fprintf(stderr, "%s: no corpus\n", argv[i]);
            return 1;
        }
        for (const std::filesystem::path& path : files) {
            if (!Replay(path)) return 1;
        }
        std::printf("%zu inputs replayed\n", files.size());
    }
    return argc > 1 ? 0 : 1;
}
