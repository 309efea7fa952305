// The tool: one package in, C++ or a frozen version out.

#include <cstdio>
#include <string>

#include "emit/ndk_emitter.h"
#include "files.h"
#include "front_end.h"
#include "frozen.h"
#include "options.h"

namespace host::aidl {
namespace {

constexpr int kDone = 0;
constexpr int kErrors = 1;
constexpr int kUsage = 2;

int Fail(const std::string& text) {
    std::fprintf(stderr, "aidl: error: %s%s", text.c_str(), text.back() == '\n' ? "" : "\n");
    return kErrors;
}

// The one package of all files; empty with a message if there are several.
std::string PackageOf(const Program& program) {
    std::string package;
    for (const auto& document : program.documents()) {
        if (!document->primary) continue;
        if (!package.empty() && package != document->package) {
            Fail("the files belong to several packages: '" + package + "' and '" +
                 document->package + "'");
            return {};
        }
        package = document->package;
    }
    return package;
}

int Emit(const Program& program, const Options& options, const std::string& hash) {
    for (const auto& document : program.documents()) {
        if (!document->primary) continue;
        for (const OutputFile& file : EmitNdk(*document, {options.version, hash})) {
            std::string error;
            if (!WriteFile(options.out + "/" + file.path, file.text, &error)) return Fail(error);
        }
    }
    return kDone;
}

int Run(const Options& options) {
    const DiskFiles files;
    std::vector<std::string> roots = {options.root};
    roots.insert(roots.end(), options.imports.begin(), options.imports.end());
    const auto program = RunFrontEnd(&files, roots, options.files, options.vintf);
    if (!program->diagnostics().ok()) {
        std::fputs(program->diagnostics().Render().c_str(), stderr);
        return kErrors;
    }
    const FrozenVersion frozen{options.api, PackageOf(*program), options.version};
    if (frozen.package.empty()) return kErrors;
    const auto dumps = DumpPrimary(*program);
    std::string error;
    if (options.mode == Options::Mode::kFreeze) {
        return Freeze(frozen, dumps, &error) ? kDone : Fail(error);
    }
    std::string hash = options.hash.empty() ? kNotFrozen : options.hash;
    if (!options.api.empty() && !CheckFrozen(frozen, dumps, options.imports, &hash, &error)) {
        std::fputs(error.c_str(), stderr);
        return kErrors;
    }
    return options.mode == Options::Mode::kCheck ? kDone : Emit(*program, options, hash);
}

}  // namespace
}  // namespace host::aidl

int main(int argc, char** argv) {
    host::aidl::Options options;
    std::string error;
    if (!host::aidl::ParseOptions(argc, argv, &options, &error)) {
        std::fprintf(stderr, "aidl: error: %s\n\n%s", error.c_str(), host::aidl::kHelpText);
        return host::aidl::kUsage;
    }
    if (options.mode == host::aidl::Options::Mode::kHelp) {
        std::fputs(host::aidl::kHelpText, stdout);
        return host::aidl::kDone;
    }
    return host::aidl::Run(options);
}
