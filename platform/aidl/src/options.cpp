#include "options.h"

#include <getopt.h>

#include <cstdlib>
#include <string_view>

namespace host::aidl {

const char* const kHelpText =
        "Usage: aidl [compile] --root DIR --out DIR --version N [--api DIR | --hash HASH]\n"
        "            [--import DIR]... [--stability vintf] FILE...\n"
        "       aidl check  --root DIR --api DIR --version N [--import DIR]...\n"
        "            [--stability vintf] FILE...\n"
        "       aidl freeze --root DIR --api DIR --version N [--import DIR]...\n"
        "            [--stability vintf] FILE...\n"
        "\n"
        "compile  writes C++ for the binder NDK below --out: aidl/<package path>/<Type>.h,\n"
        "         Bn<Type>.h, Bp<Type>.h and <package path>/<Type>.cpp\n"
        "check    compares the files with the frozen version\n"
        "freeze   makes the files the frozen version\n"
        "\n"
        "FILE lies at <root>/<package path>/<Type>.aidl. All belong to one package.\n"
        "\n"
        "  --root DIR         where the package path begins\n"
        "  --import DIR       another such folder, for the types of other packages\n"
        "  --out DIR          where generated files go\n"
        "  --version N        version of the interface, from 1\n"
        "  --api DIR          frozen versions: DIR/<package>/<N>/<package path>/<Type>.aidl and\n"
        "                     DIR/<package>/<N>/.hash. compile checks against it first\n"
        "  --hash HASH        hash of the interface without --api; 'notfrozen' if not given\n"
        "  --stability KIND   'vintf': every type must be @VintfStability; 'none'\n"
        "  --help             this text\n"
        "\n"
        "Nothing is printed unless something is wrong. Status 0: done, 1: errors, 2: usage.\n";

namespace {

enum OptionId { kRoot = 1, kImport, kOut, kVersion, kApi, kHash, kStability, kHelp };

const option kLongOptions[] = {
        {"root", required_argument, nullptr, kRoot},
        {"import", required_argument, nullptr, kImport},
        {"out", required_argument, nullptr, kOut},
        {"version", required_argument, nullptr, kVersion},
        {"api", required_argument, nullptr, kApi},
        {"hash", required_argument, nullptr, kHash},
        {"stability", required_argument, nullptr, kStability},
        {"help", no_argument, nullptr, kHelp},
        {nullptr, 0, nullptr, 0},
};

std::string WithoutSlash(std::string folder) {
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    return folder;
}

bool TakeMode(const char* word, Options* options) {
    const std::string_view mode = word;
    if (mode == "compile") {
        options->mode = Options::Mode::kCompile;
    } else if (mode == "freeze") {
        options->mode = Options::Mode::kFreeze;
    } else if (mode == "check") {
        options->mode = Options::Mode::kCheck;
    } else {
        return false;
    }
    return true;
}

bool TakeOption(int id, const char* argument, Options* options, std::string* error) {
    switch (id) {
        case kRoot:
            options->root = WithoutSlash(argument);
            return true;
        case kImport:
            options->imports.push_back(WithoutSlash(argument));
            return true;
        case kOut:
            options->out = WithoutSlash(argument);
            return true;
        case kVersion: {
            char* end = nullptr;
            const long version = std::strtol(argument, &end, 10);
            options->version = *end == '\0' && version > 0 && version < 1000000
                                       ? static_cast<int>(version)
                                       : 0;
            if (options->version == 0) *error = "--version takes a number from 1";
            return options->version != 0;
        }
        case kApi:
            options->api = WithoutSlash(argument);
            return true;
        case kHash:
            options->hash = argument;
            if (options->hash.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz") ==
                std::string::npos) {
                return true;
            }
            *error = "--hash takes digits and small letters";
            return false;
        case kStability:
            options->vintf = std::string_view(argument) == "vintf";
            if (options->vintf || std::string_view(argument) == "none") return true;
            *error = "--stability takes 'vintf' or 'none'";
            return false;
        case kHelp:
            options->mode = Options::Mode::kHelp;
            return true;
        default:
            *error = std::string("unknown option '") + argument + "', or one without its argument";
            return false;
    }
}

bool CheckComplete(const Options& options, std::string* error) {
    const bool compile = options.mode == Options::Mode::kCompile;
    if (options.mode == Options::Mode::kHelp) return true;
    if (options.root.empty()) {
        *error = "--root is missing";
    } else if (options.version == 0) {
        *error = "--version is missing";
    } else if (compile && options.out.empty()) {
        *error = "--out is missing";
    } else if (!compile && options.api.empty()) {
        *error = "--api is missing";
    } else if (!options.api.empty() && !options.hash.empty()) {
        *error = "--hash and --api exclude each other";
    } else if (options.files.empty()) {
        *error = "no files";
    }
    return error->empty();
}

// What getopt_long does not take. We have no options of one letter: one of those it names by
// itself.
std::string Refused(char** argv) {
    return optopt > kHelp ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options* options, std::string* error) {
    error->clear();
    opterr = 0;
    optind = 0;
    for (int id; (id = getopt_long(argc, argv, "", kLongOptions, nullptr)) != -1;) {
        if (!TakeOption(id, id == '?' ? Refused(argv).c_str() : optarg, options, error)) {
            return false;
        }
    }
    const bool named = optind < argc && options->mode != Options::Mode::kHelp &&
                       TakeMode(argv[optind], options);
    for (int i = optind + (named ? 1 : 0); i < argc; ++i)
        options->files.emplace_back(argv[i]);
    return CheckComplete(*options, error);
}

}  // namespace host::aidl
