#include "manifest.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <tinyxml2.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <vector>

#include "service_name.h"

namespace host {
namespace {

using tinyxml2::XMLElement;

// A fragment is a page of text; whatever is larger was not meant.
constexpr off_t kMaxFile = 1024 * 1024;

std::string Trimmed(const char* text) {
    std::string_view view = text == nullptr ? "" : text;
    constexpr std::string_view kBlank = " \t\r\n";
    const size_t first = view.find_first_not_of(kBlank);
    if (first == std::string_view::npos) return "";
    return std::string(view.substr(first, view.find_last_not_of(kBlank) - first + 1));
}

bool IsNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// A part of an instance's name: what a name may hold, without the slash that joins the parts.
bool IsNamePart(const std::string& text) {
    return IsValidServiceName(text) && text.find('/') == std::string::npos;
}

bool ReadAll(int fd, std::string* text) {
    char buffer[4096];
    for (;;) {
        const ssize_t count = TEMP_FAILURE_RETRY(read(fd, buffer, sizeof(buffer)));
        if (count < 0) return false;
        if (count == 0) return true;
        text->append(buffer, static_cast<size_t>(count));
    }
}

bool ReadFile(const std::string& path, std::string* text, std::string* error) {
    // Non-blocking: opening a pipe that has no writer must not hang the start.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat about = {};
    bool ok = fd >= 0 && fstat(fd, &about) == 0;
    if (ok && (!S_ISREG(about.st_mode) || about.st_size > kMaxFile)) {
        *error = path + ": is not a file of at most 1 MiB";
        close(fd);
        return false;
    }
    ok = ok && ReadAll(fd, text);
    if (!ok) *error = path + ": cannot be read: " + strerror(errno);
    if (fd >= 0) close(fd);
    return ok;
}

}  // namespace

// Walks one document and enters what it declares.
class ManifestReader {
  public:
    ManifestReader(Manifest* manifest, const std::string& file, std::string* error)
            : manifest_(*manifest), file_(file), error_(*error) {}

    bool Read(std::string_view text) {
        tinyxml2::XMLDocument document;
        if (document.Parse(text.data(), text.size()) != tinyxml2::XML_SUCCESS) {
            return Fail(std::max(1, document.ErrorLineNum()), "is not XML: " + Reason(document));
        }
        const XMLElement* root = document.RootElement();
        if (root == nullptr || strcmp(root->Name(), "manifest") != 0) {
            return Fail(root == nullptr ? 1 : root->GetLineNum(),
                        "is not a manifest: the root element is not <manifest>");
        }
        for (auto* hal = root->FirstChildElement("hal"); hal != nullptr;
             hal = hal->NextSiblingElement("hal")) {
            if (!ReadHal(*hal)) return false;
        }
        return true;
    }

  private:
    static std::string Reason(const tinyxml2::XMLDocument& document) {
        std::string name = document.ErrorName();
        if (name.rfind("XML_ERROR_", 0) == 0) name.erase(0, strlen("XML_ERROR_"));
        std::replace(name.begin(), name.end(), '_', ' ');
        std::transform(name.begin(), name.end(), name.begin(), [](char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        });
        return name;
    }

    bool Fail(int line, const std::string& what) {
        error_ = Place(line) + ": " + what;
        return false;
    }

    std::string Place(int line) const { return file_ + ":" + std::to_string(line); }

    bool ReadHal(const XMLElement& hal) {
        const char* format = hal.Attribute("format");
        if (format == nullptr || strcmp(format, "aidl") != 0) {
            return Fail(hal.GetLineNum(), "<hal> is not of format \"aidl\"");
        }
        const XMLElement* name = hal.FirstChildElement("name");
        const std::string package = name == nullptr ? "" : Trimmed(name->GetText());
        if (!IsNamePart(package)) {
            return Fail(hal.GetLineNum(), "<hal> has no <name> that names a package");
        }
        const XMLElement* version = hal.FirstChildElement("version");
        if (version != nullptr && !IsNumber(Trimmed(version->GetText()))) {
            return Fail(version->GetLineNum(), "<version> is not a number");
        }
        return ReadInstances(hal, package);
    }

    bool ReadInstances(const XMLElement& hal, const std::string& package) {
        bool any = false;
        for (auto* child = hal.FirstChildElement(); child != nullptr;
             child = child->NextSiblingElement()) {
            const bool fqname = strcmp(child->Name(), "fqname") == 0;
            if (!fqname && strcmp(child->Name(), "interface") != 0) continue;
            if (!(fqname ? ReadFqName(*child, package) : ReadInterface(*child, package))) {
                return false;
            }
            any = true;
        }
        if (!any) return Fail(hal.GetLineNum(), "<hal> " + package + " declares no instance");
        return true;
    }

    bool ReadFqName(const XMLElement& element, const std::string& package) {
        const std::string text = Trimmed(element.GetText());
        const size_t slash = text.find('/');
        if (slash == std::string::npos) {
            return Fail(element.GetLineNum(), "<fqname> is not of the form IInterface/instance");
        }
        return Declare(element, package, text.substr(0, slash), text.substr(slash + 1));
    }

    bool ReadInterface(const XMLElement& element, const std::string& package) {
        const XMLElement* name = element.FirstChildElement("name");
        const XMLElement* instance = element.FirstChildElement("instance");
        if (name == nullptr || instance == nullptr) {
            return Fail(element.GetLineNum(), "<interface> needs a <name> and an <instance>");
        }
        for (; instance != nullptr; instance = instance->NextSiblingElement("instance")) {
            const std::string interface = Trimmed(name->GetText());
            if (!Declare(*instance, package, interface, Trimmed(instance->GetText()))) return false;
        }
        return true;
    }

    bool Declare(const XMLElement& element, const std::string& package,
                 const std::string& interface, const std::string& instance) {
        const std::string full = package + "." + interface + "/" + instance;
        if (!IsNamePart(interface) || !IsNamePart(instance) || !IsValidServiceName(full)) {
            return Fail(element.GetLineNum(), "\"" + full + "\" cannot be a service's name");
        }
        const auto [entry, fresh] = manifest_.instances_.emplace(full, Place(element.GetLineNum()));
        if (!fresh) {
            return Fail(element.GetLineNum(),
                        full + " is declared twice, first in " + entry->second);
        }
        return true;
    }

    Manifest& manifest_;
    const std::string& file_;
    std::string& error_;
};

bool Manifest::AddText(const std::string& file, std::string_view text, std::string* error) {
    return ManifestReader(this, file, error).Read(text);
}

bool Manifest::AddPath(const std::string& path, std::string* error) {
    std::error_code failure;
    std::vector<std::string> files;
    if (std::filesystem::is_directory(path, failure)) {
        std::filesystem::directory_iterator folder(path, failure);
        for (; !failure && folder != std::filesystem::directory_iterator();
             folder.increment(failure)) {
            if (folder->path().extension() == ".xml") files.push_back(folder->path().string());
        }
        if (failure) {
            *error = path + ": cannot be read: " + failure.message();
            return false;
        }
        std::sort(files.begin(), files.end());
    } else {
        files.push_back(path);
    }
    return std::all_of(files.begin(), files.end(), [&](const std::string& file) {
        std::string text;
        return ReadFile(file, &text, error) && AddText(file, text, error);
    });
}

}  // namespace host
