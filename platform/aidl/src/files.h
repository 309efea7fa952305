// The disk. Stateless.

#pragma once

#include <string>
#include <vector>

#include "source.h"

namespace host::aidl {

class DiskFiles : public FileProvider {
  public:
    bool Read(const std::string& path, std::string* text) const override;
};

// Makes the folders as needed. A file that already has this text keeps its time stamp. False if it
// cannot be written; *error names the file.
bool WriteFile(const std::string& path, const std::string& text, std::string* error);

// All files below the folder whose names end in .aidl, sorted, with the folder in front.
std::vector<std::string> ListAidlFiles(const std::string& folder);

}  // namespace host::aidl
