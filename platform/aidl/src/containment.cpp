#include "containment.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>

namespace host::aidl {
namespace {

using TypeMap = std::map<std::string, const TypeDecl*>;

class Collector {
  public:
    Collector(const TypeDecl& top, bool complete_only) : top_(top), complete_only_(complete_only) {}

    std::vector<const TypeDecl*> Run() {
        Visit(top_);
        std::vector<const TypeDecl*> out;
        for (const auto& [name, type] : found_)
            out.push_back(type);
        return out;
    }

  private:
    void Visit(const TypeDecl& type) {
        for (const Variable& field : type.fields)
            Note(field.type, true);
        for (const Variable& constant : type.constants)
            Note(constant.type, true);
        for (const Method& method : type.methods) {
            Note(method.result, false);
            for (const Parameter& parameter : method.parameters)
                Note(parameter.type, false);
        }
        for (const auto& nested : type.nested)
            Visit(*nested);
    }

    // A class that is only passed can be declared ahead; an enum or a nested type cannot.
    void Note(const TypeRef& ref, bool by_value) {
        if (ref.declared == nullptr) return;
        const TypeDecl& outermost = Outermost(*ref.declared);
        const bool is_interface = ref.declared->kind == TypeDecl::Kind::kInterface;
        const bool complete = ref.declared->outer != nullptr ||
                              ref.declared->kind == TypeDecl::Kind::kEnum ||
                              (by_value && !is_interface);
        if (&outermost == &top_ || (complete_only_ && !complete)) return;
        found_.emplace(QualifiedName(outermost), &outermost);
    }

    const TypeDecl& top_;
    const bool complete_only_;
    TypeMap found_;
};

bool IsWithin(const TypeDecl& type, const TypeDecl& outer) {
    for (const TypeDecl* at = &type; at != nullptr; at = at->outer) {
        if (at == &outer) return true;
    }
    return false;
}

// Does a field of `type`, or of a type nested in it, name `other` or a type nested in that?
bool FieldsName(const TypeDecl& type, const TypeDecl& other) {
    for (const Variable& field : type.fields) {
        if (field.type.declared != nullptr && IsWithin(*field.type.declared, other)) return true;
    }
    for (const auto& nested : type.nested) {
        if (FieldsName(*nested, other)) return true;
    }
    return false;
}

}  // namespace

std::vector<const TypeDecl*> NeededComplete(const TypeDecl& top) {
    return Collector(top, true).Run();
}

std::vector<const TypeDecl*> Named(const TypeDecl& top) {
    return Collector(top, false).Run();
}

bool Reaches(const TypeDecl& from, const TypeDecl& to) {
    std::set<const TypeDecl*> seen = {&from};
    std::vector<const TypeDecl*> open = {&from};
    while (!open.empty()) {
        const TypeDecl* type = open.back();
        open.pop_back();
        if (type == &to) return true;
        for (const TypeDecl* next : Named(*type)) {
            if (seen.insert(next).second) open.push_back(next);
        }
    }
    return false;
}

std::vector<const TypeDecl*> NestedInOrder(const TypeDecl& type, bool* cyclic) {
    std::vector<const TypeDecl*> open;
    for (const auto& nested : type.nested)
        open.push_back(nested.get());
    std::vector<const TypeDecl*> ordered;
    *cyclic = false;
    while (!open.empty()) {
        const auto free = std::find_if(open.begin(), open.end(), [&open](const TypeDecl* one) {
            return std::none_of(open.begin(), open.end(), [one](const TypeDecl* other) {
                return other != one && FieldsName(*one, *other);
            });
        });
        *cyclic |= free == open.end();
        const auto next = free == open.end() ? open.begin() : free;
        ordered.push_back(*next);
        open.erase(next);
    }
    return ordered;
}

}  // namespace host::aidl
