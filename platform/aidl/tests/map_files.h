// Files that exist only in a test.

#pragma once

#include <map>
#include <string>
#include <utility>

#include "source.h"

namespace host::aidl {

class MapFiles : public FileProvider {
  public:
    MapFiles() = default;
    MapFiles(std::initializer_list<std::pair<const std::string, std::string>> files)
            : files_(files) {}

    bool Read(const std::string& path, std::string* text) const override {
        const auto file = files_.find(path);
        if (file == files_.end()) return false;
        *text = file->second;
        return true;
    }

  private:
    std::map<std::string, std::string> files_;
};

}  // namespace host::aidl
