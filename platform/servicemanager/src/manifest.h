// The service instances that VINTF manifest fragments declare. Not synchronised: one thread fills
// it, then it is only read.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace host {

class Manifest {
  public:
    // Reads one fragment or, for a folder, each *.xml file in it in the order of the names; an
    // empty folder declares nothing. False: `*error` is one sentence that names the file, with the
    // line where there is one, and the manifest may hold a part of what the path declares.
    bool AddPath(const std::string& path, std::string* error);

    // As AddPath for a fragment that is in memory; `file` is what messages call it.
    bool AddText(const std::string& file, std::string_view text, std::string* error);

    bool IsDeclared(const std::string& instance) const { return instances_.count(instance) != 0; }

    // "package.IInterface/instance", each with the "file:line" that declares it.
    const std::map<std::string, std::string>& instances() const { return instances_; }

  private:
    friend class ManifestReader;

    std::map<std::string, std::string> instances_;
};

}  // namespace host
