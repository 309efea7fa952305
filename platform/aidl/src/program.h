// All documents of one compilation, and the types they declare. Not thread-safe.

#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ast.h"
#include "diagnostics.h"
#include "source.h"

namespace host::aidl {

// "a/b/C.aidl" for a.b.C: where a type is declared below its root.
std::string RelativePath(std::string qualified_name);

// Loads files, on demand too: a type that is named and not known yet is looked for in the roots,
// at <root>/<package path>/<Type>.aidl.
class Program {
  public:
    // Borrows the provider. The first root is that of the files being compiled.
    Program(const FileProvider* files, std::vector<std::string> roots)
            : files_(files), roots_(std::move(roots)), diagnostics_(sources_) {}
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Parses a file to be compiled. Failures are noted as errors.
    void AddPrimary(const std::string& path);

    // The outermost type of this qualified name, loaded if need be; null if there is none.
    const TypeDecl* FindTopLevel(const std::string& qualified_name);

    // In the order loaded: the primary ones first.
    const std::vector<std::unique_ptr<Document>>& documents() const { return documents_; }
    SourceSet& sources() { return sources_; }
    Diagnostics& diagnostics() { return diagnostics_; }

    // What a hostile chain of imports can make the compiler load.
    static constexpr size_t kMaxDocuments = 4096;

  private:
    Document* Add(const std::string& path, std::string text, bool primary);
    void CheckPlace(const Document& document, const std::string& path);

    const FileProvider* const files_;
    const std::vector<std::string> roots_;
    SourceSet sources_;
    Diagnostics diagnostics_;
    std::vector<std::unique_ptr<Document>> documents_;
    // Null for a name that was looked for and not found, or whose file has errors.
    std::map<std::string, const TypeDecl*, std::less<>> types_;
};

}  // namespace host::aidl
