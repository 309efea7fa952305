#include "frozen.h"

#include <filesystem>
#include <system_error>

#include "files.h"
#include "front_end.h"

namespace host::aidl {
namespace {

constexpr const char* kNotice =
        "// A frozen version. Its users have been built with it: it never changes.\n";

std::string HowToFreeze(const FrozenVersion& where, const std::vector<std::string>& import_roots) {
    const std::string version = std::to_string(where.version);
    std::string imports;
    for (const std::string& root : import_roots)
        imports += " --import " + root;
    return "If version " + version +
           " has not been released yet, freeze it anew with the build's target\n  " +
           where.package + "-V" + version + "-freeze\nor with\n  aidl freeze --api " +
           where.api_folder + " --version " + version + " --root <folder of the sources>" +
           imports + " [--stability vintf] <files>\nelse raise the version.\n";
}

// The first line in which the texts differ.
std::string FirstDifference(const std::string& frozen, const std::string& source) {
    const auto line = [](const std::string& text, size_t at) {
        const size_t begin = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
        return begin >= text.size() ? std::string("(nothing)")
                                    : text.substr(begin, text.find('\n', at) - begin);
    };
    size_t at = 0;
    while (at < frozen.size() && at < source.size() && frozen[at] == source[at])
        ++at;
    return "  frozen: " + line(frozen, at) + "\n  source: " + line(source, at) + "\n";
}

std::string Compare(const std::map<std::string, std::string>& frozen,
                    const std::map<std::string, std::string>& sources) {
    std::string out;
    for (const auto& [path, text] : sources) {
        const auto old = frozen.find(path);
        if (old == frozen.end()) {
            out += path + " is not in the frozen version\n";
        } else if (old->second != text) {
            out += path + " differs from the frozen version:\n" +
                   FirstDifference(old->second, text);
        }
    }
    for (const auto& [path, text] : frozen) {
        if (sources.find(path) == sources.end()) {
            out += path + " is in the frozen version only\n";
        }
    }
    return out;
}

std::string Trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    return text;
}

}  // namespace

bool Freeze(const FrozenVersion& where, const std::map<std::string, std::string>& dumps,
            std::string* error) {
    std::error_code code;
    std::filesystem::remove_all(where.Folder(), code);
    if (code) {
        *error = "cannot replace '" + where.Folder() + "'";
        return false;
    }
    for (const auto& [path, text] : dumps) {
        if (!WriteFile(where.Folder() + "/" + path, kNotice + text, error)) return false;
    }
    return WriteFile(where.Folder() + "/.hash", HashOf(dumps, where.version) + "\n", error);
}

bool CheckFrozen(const FrozenVersion& where, const std::map<std::string, std::string>& dumps,
                 const std::vector<std::string>& import_roots, std::string* hash,
                 std::string* error) {
    const auto refuse = [&](const std::string& lines) {
        *error = "aidl: error: " + lines + HowToFreeze(where, import_roots);
        return false;
    };
    const DiskFiles files;
    std::string stored;
    if (!files.Read(where.Folder() + "/.hash", &stored)) {
        return refuse("there is no frozen version in '" + where.Folder() + "'\n");
    }
    std::vector<std::string> roots = {where.Folder()};
    roots.insert(roots.end(), import_roots.begin(), import_roots.end());
    const std::unique_ptr<Program> program =
            RunFrontEnd(&files, roots, ListAidlFiles(where.Folder()), false);
    if (!program->diagnostics().ok()) {
        *error = program->diagnostics().Render();
        return false;
    }
    const std::map<std::string, std::string> frozen = DumpPrimary(*program);
    *hash = HashOf(frozen, where.version);
    if (*hash != Trimmed(stored)) {
        return refuse("the files in '" + where.Folder() +
                      "' do not have the hash in .hash there: a frozen version never changes\n");
    }
    const std::string differences = Compare(frozen, dumps);
    if (differences.empty()) return true;
    return refuse("the sources of '" + where.package + "' differ from frozen version " +
                  std::to_string(where.version) + "\n" + differences);
}

}  // namespace host::aidl
