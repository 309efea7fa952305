#include "program.h"

#include <algorithm>
#include <utility>

#include "parser.h"

namespace host::aidl {
namespace {

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

std::string RelativePath(std::string qualified_name) {
    std::replace(qualified_name.begin(), qualified_name.end(), '.', '/');
    return qualified_name + ".aidl";
}

void Program::AddPrimary(const std::string& path) {
    std::string text;
    if (!files_->Read(path, &text)) {
        diagnostics_.Error("cannot read '" + path + "'");
        return;
    }
    Document* document = Add(path, std::move(text), true);
    if (document == nullptr) return;
    const std::string name = QualifiedName(*document->type);
    if (!types_.emplace(name, document->type.get()).second) {
        diagnostics_.Error(document->type->name.span, "'" + name + "' is declared twice");
    }
}

const TypeDecl* Program::FindTopLevel(const std::string& qualified_name) {
    const auto known = types_.find(qualified_name);
    if (known != types_.end()) return known->second;
    const TypeDecl*& type = types_[qualified_name];
    for (const std::string& root : roots_) {
        const std::string path = root + "/" + RelativePath(qualified_name);
        std::string text;
        if (documents_.size() >= kMaxDocuments || !files_->Read(path, &text)) continue;
        Document* document = Add(path, std::move(text), false);
        if (document != nullptr && QualifiedName(*document->type) == qualified_name) {
            type = document->type.get();
        }
        break;
    }
    return type;
}

Document* Program::Add(const std::string& path, std::string text, bool primary) {
    std::unique_ptr<Document> document =
            Parse(sources_, sources_.Add(path, std::move(text)), &diagnostics_);
    if (document == nullptr) return nullptr;
    document->primary = primary;
    CheckPlace(*document, path);
    documents_.push_back(std::move(document));
    return documents_.back().get();
}

void Program::CheckPlace(const Document& document, const std::string& path) {
    const std::string expected = RelativePath(QualifiedName(*document.type));
    if (path != expected && !EndsWith(path, "/" + expected)) {
        diagnostics_.Error(document.type->name.span,
                           "'" + QualifiedName(*document.type) +
                                   "' must be declared in a file whose path ends in '" + expected +
                                   "'");
    }
}

}  // namespace host::aidl
