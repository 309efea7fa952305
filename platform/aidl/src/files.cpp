#include "files.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace host::aidl {

namespace fs = std::filesystem;

bool DiskFiles::Read(const std::string& path, std::string* text) const {
    std::error_code error;
    if (!fs::is_regular_file(path, error) || fs::file_size(path, error) > kMaxSourceBytes) {
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    std::ostringstream all;
    // A file without a byte sets the failure bit of the stream that it is copied to.
    if (file.peek() != std::ifstream::traits_type::eof()) all << file.rdbuf();
    if (file.bad() || !all) return false;
    *text = all.str();
    return true;
}

bool WriteFile(const std::string& path, const std::string& text, std::string* error) {
    std::ifstream before(path, std::ios::binary);
    if (before) {
        std::ostringstream all;
        all << before.rdbuf();
        if (all.str() == text && !text.empty()) return true;
    }
    before.close();
    std::error_code code;
    fs::create_directories(fs::path(path).parent_path(), code);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (file) return true;
    *error = "cannot write '" + path + "'";
    return false;
}

std::vector<std::string> ListAidlFiles(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (fs::recursive_directory_iterator at(folder, error), end; !error && at != end;
         at.increment(error)) {
        if (at->path().extension() == ".aidl") files.push_back(at->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace host::aidl
