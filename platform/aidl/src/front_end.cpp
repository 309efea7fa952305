#include "front_end.h"

#include "checks.h"
#include "constants.h"
#include "dump.h"
#include "resolver.h"
#include "sha1.h"

namespace host::aidl {

std::unique_ptr<Program> RunFrontEnd(const FileProvider* files,
                                     const std::vector<std::string>& roots,
                                     const std::vector<std::string>& paths, bool vintf) {
    auto program = std::make_unique<Program>(files, roots);
    for (const std::string& path : paths)
        program->AddPrimary(path);
    // A stage relies on what the one before it has established.
    if (program->diagnostics().ok()) Resolve(program.get());
    if (program->diagnostics().ok()) EvaluateConstants(program.get());
    if (program->diagnostics().ok()) Check(program.get(), vintf);
    return program;
}

std::map<std::string, std::string> DumpPrimary(const Program& program) {
    std::map<std::string, std::string> dumps;
    for (const auto& document : program.documents()) {
        if (document->primary)
            dumps[RelativePath(QualifiedName(*document->type))] = Dump(*document);
    }
    return dumps;
}

std::string HashOf(const std::map<std::string, std::string>& dumps, int version) {
    std::string all = "version " + std::to_string(version) + "\n";
    for (const auto& [path, text] : dumps) {
        all += path + " " + std::to_string(text.size()) + "\n" + text;
    }
    return Sha1(all);
}

}  // namespace host::aidl
