#include "checks.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "containment.h"
#include "names.h"
#include "resolver.h"

namespace host::aidl {
namespace {

using Names = std::set<std::string>;

// Types that a caller could fill in as an out parameter.
bool CanBeOut(const TypeRef& type) {
    if (type.array) return true;
    return type.declared != nullptr && (type.declared->kind == TypeDecl::Kind::kParcelable ||
                                        type.declared->kind == TypeDecl::Kind::kUnion);
}

bool CanBeNullable(const TypeRef& type) {
    if (type.array) return true;
    if (type.declared != nullptr) return type.declared->kind != TypeDecl::Kind::kEnum;
    return type.builtin == Builtin::kString || type.builtin == Builtin::kBinder;
}

class Checker {
  public:
    Checker(Program* program, bool vintf) : program_(program), vintf_(vintf) {}

    void Run() {
        for (const auto& document : program_->documents()) {
            if (document->primary) CheckPackage(*document);
            CheckType(*document->type, document->primary);
        }
        for (const auto& document : program_->documents())
            CheckHeaders(*document->type);
        CheckFileNames();
    }

  private:
    void Error(Span where, const std::string& text) { program_->diagnostics().Error(where, text); }

    void CheckPackage(const Document& document) {
        std::string part;
        for (char c : document.package + ".") {
            if (c != '.') {
                part += c;
                continue;
            }
            const std::string why = RefuseName(part);
            if (!why.empty()) Error(document.package_span, "'" + part + "' is " + why);
            part.clear();
        }
    }

    void Declare(const Identifier& name, const char* what, Names* names) {
        const std::string why = RefuseName(name.text);
        if (!why.empty()) Error(name.span, "'" + name.text + "' is " + why);
        if (!names->insert(name.text).second) {
            std::string text = "duplicate ";
            Error(name.span, text.append(what).append(" '").append(name.text).append("'"));
        }
    }

    // A member of the generated class: beside the names of AIDL stand those of the class itself.
    void DeclareMember(const TypeDecl& type, const Identifier& name, const char* what,
                       Names* names) {
        Declare(name, what, names);
        const bool proxy = type.kind == TypeDecl::Kind::kInterface && name.text == ProxyName(type);
        if (IsTakenMember(type.kind, name.text) || name.text == type.name.text || proxy) {
            RefuseTaken(name);
        }
    }

    void RefuseTaken(const Identifier& name) {
        Error(name.span, "'" + name.text + "' is used by the generated class");
    }

    // A class cannot have a member of its own name. Where a name is refused anyway, once is enough.
    void CheckOwnName(const TypeDecl& type) {
        const std::string& name = type.name.text;
        const bool refused = !RefuseName(name).empty() ||
                             (type.outer != nullptr && IsTakenMember(type.outer->kind, name));
        if (!refused && IsTakenMember(type.kind, name)) RefuseTaken(type.name);
    }

    void CheckType(const TypeDecl& type, bool primary) {
        Names names;
        if (type.outer == nullptr) Declare(type.name, "type", &names);
        names.clear();
        CheckOwnName(type);
        if (primary && vintf_ && !type.vintf) {
            Error(type.name.span, "'" + NestedName(type) +
                                          "' needs @VintfStability, as every type of a package of "
                                          "VINTF stability");
        }
        CheckNested(type, &names);
        for (const Variable& constant : type.constants)
            CheckConstant(type, constant, &names);
        for (const Variable& field : type.fields)
            CheckField(type, field, &names);
        for (const Method& method : type.methods)
            CheckMethod(type, method, &names);
        CheckEnumerators(type);
        if (type.kind == TypeDecl::Kind::kUnion && type.fields.empty()) {
            Error(type.name.span, "a union needs at least one member");
        }
        for (const auto& nested : type.nested)
            CheckType(*nested, primary);
    }

    void CheckNested(const TypeDecl& type, Names* names) {
        for (const auto& nested : type.nested) {
            DeclareMember(type, nested->name, "type", names);
            if (nested->kind == TypeDecl::Kind::kInterface) {
                Error(nested->name.span, "an interface cannot be nested in a type");
            }
            for (const TypeDecl* outer = type.outer; outer != nullptr; outer = outer->outer) {
                if (outer->name.text == nested->name.text) {
                    Error(nested->name.span,
                          "'" + nested->name.text + "' has the name of a type around it");
                }
            }
        }
    }

    void CheckConstant(const TypeDecl& type, const Variable& constant, Names* names) {
        DeclareMember(type, constant.name, "constant", names);
        const Builtin builtin = constant.type.builtin;
        const bool scalar = builtin >= Builtin::kBoolean && builtin <= Builtin::kString;
        if (!scalar || constant.type.array || constant.type.nullable) {
            Error(constant.type.span, "a constant is of a primitive type or String");
        }
    }

    void CheckField(const TypeDecl& type, const Variable& field, Names* names) {
        DeclareMember(type, field.name, type.kind == TypeDecl::Kind::kUnion ? "member" : "field",
                      names);
        CheckUse(type, field.type);
        if (field.type.builtin == Builtin::kVoid) {
            Error(field.type.span, "only a method's result can be void");
        }
        if (field.type.builtin == Builtin::kParcelableHolder && field.type.nullable) {
            Error(field.type.nullable_span, "a ParcelableHolder cannot be @nullable");
        }
        if (field.type.builtin == Builtin::kParcelableHolder &&
            type.kind == TypeDecl::Kind::kUnion) {
            Error(field.type.span, "a ParcelableHolder cannot be a member of a union");
        }
        CheckOutward(type, field.type);
        CheckDefault(type, field);
    }

    // The class around a nested one is not complete yet where the nested one is.
    void CheckOutward(const TypeDecl& type, const TypeRef& field) {
        if (field.declared == nullptr || field.declared->kind == TypeDecl::Kind::kInterface) return;
        for (const TypeDecl* outer = type.outer; outer != nullptr; outer = outer->outer) {
            if (field.declared != outer) continue;
            Error(field.span, "'" + type.name.text + "' is nested in '" + outer->name.text +
                                      "' and cannot hold it");
        }
    }

    void CheckDefault(const TypeDecl& type, const Variable& field) {
        if (field.expression == nullptr) return;
        if (field.type.nullable) {
            Error(field.expression->span, "a @nullable field starts as null and has no default");
        }
        if (type.kind == TypeDecl::Kind::kUnion && &field != &type.fields.front()) {
            Error(field.expression->span, "only the first member of a union has a default");
        }
    }

    void CheckMethod(const TypeDecl& type, const Method& method, Names* names) {
        DeclareMember(type, method.name, "method", names);
        CheckUse(type, method.result);
        if (method.result.builtin == Builtin::kVoid && method.result.array) {
            Error(method.result.span, "'void' cannot be an array");
        }
        if (method.oneway && method.result.builtin != Builtin::kVoid) {
            Error(method.result.span,
                  "the oneway method '" + method.name.text + "' cannot return a value");
        }
        RefuseHolder(method.result);
        Names parameters;
        for (const Parameter& parameter : method.parameters) {
            CheckParameter(type, method, parameter, &parameters);
        }
    }

    void CheckParameter(const TypeDecl& type, const Method& method, const Parameter& parameter,
                        Names* names) {
        Declare(parameter.name, "parameter", names);
        CheckUse(type, parameter.type);
        RefuseHolder(parameter.type);
        if (parameter.type.builtin == Builtin::kVoid) {
            Error(parameter.type.span, "only a method's result can be void");
            return;
        }
        using Direction = Parameter::Direction;
        const bool out =
                parameter.direction == Direction::kOut || parameter.direction == Direction::kInOut;
        if (out && method.oneway) {
            Error(parameter.direction_span,
                  "the oneway method '" + method.name.text + "' cannot have an out parameter");
        }
        if (out && !CanBeOut(parameter.type)) {
            Error(parameter.direction_span,
                  "a parameter of type '" + parameter.type.name + "' can only be 'in'");
        }
        if (parameter.direction == Direction::kUnset && CanBeOut(parameter.type)) {
            Error(parameter.type.span, "parameter '" + parameter.name.text +
                                               "' needs a direction: 'in', 'out' or 'inout'");
        }
    }

    void RefuseHolder(const TypeRef& type) {
        if (type.builtin == Builtin::kParcelableHolder) {
            Error(type.span, "a ParcelableHolder can only be a field");
        }
    }

    void CheckUse(const TypeDecl& user, const TypeRef& type) {
        if (type.nullable && !CanBeNullable(type)) {
            if (type.builtin != Builtin::kParcelableHolder) {
                Error(type.nullable_span, "a value of type '" + type.name + "' is never null");
            }
        }
        if (type.array && type.builtin == Builtin::kParcelableHolder) {
            Error(type.span, "arrays of ParcelableHolder are not supported");
        }
        if (user.vintf && type.declared != nullptr && !type.declared->vintf) {
            Error(type.span, "'" + type.name + "' is less stable than '" + NestedName(user) +
                                     "', which has VINTF stability");
        }
    }

    void CheckEnumerators(const TypeDecl& type) {
        if (type.kind != TypeDecl::Kind::kEnum) return;
        if (type.enumerators.empty()) Error(type.name.span, "an enum needs at least one value");
        Names names;
        for (const Enumerator& enumerator : type.enumerators) {
            Declare(enumerator.name, "value", &names);
        }
    }

    // The files of a stub and a proxy must not be those of another type, or of its stub and proxy.
    void CheckFileNames() {
        std::map<std::string, const TypeDecl*> types;
        for (const auto& document : program_->documents()) {
            types.emplace(QualifiedName(*document->type), document->type.get());
        }
        for (const auto& document : program_->documents()) {
            const TypeDecl& type = *document->type;
            if (type.kind != TypeDecl::Kind::kInterface) continue;
            for (const std::string& name : {StubName(type), ProxyName(type)}) {
                const auto [taken, fresh] =
                        types.emplace(document->package + "." + name, document->type.get());
                if (fresh) continue;
                const TypeDecl& other = *taken->second;
                // Two interfaces that differ in the I only: both names clash, one message does.
                if (other.name.text != name) {
                    Error(type.name.span, "'" + name + "' is generated for '" + other.name.text +
                                                  "' and for '" + type.name.text + "'");
                    break;
                }
                Error(other.name.span,
                      "'" + name + "' is a class generated for '" + type.name.text + "'");
            }
        }
    }

    // Types hold each other by value or by array: a cycle could not be laid out, and its nesting in
    // a parcel would have no bound.
    void CheckHeaders(const TypeDecl& top) {
        std::vector<const TypeDecl*> path;
        FindCycleThrough(top, &path);
    }

    void FindCycleThrough(const TypeDecl& type, std::vector<const TypeDecl*>* path) {
        CheckSelfContainment(type);
        std::set<const TypeDecl*> seen;
        path->push_back(&type);
        if (Search(type, type, &seen, path)) {
            std::string text;
            for (const TypeDecl* step : *path)
                text += "'" + step->name.text + "' holds ";
            Error(type.name.span, "types hold each other: " + text + "'" + type.name.text + "'");
        }
    }

    bool Search(const TypeDecl& type, const TypeDecl& target, std::set<const TypeDecl*>* seen,
                std::vector<const TypeDecl*>* path) {
        for (const TypeDecl* next : NeededComplete(type)) {
            if (next == &target) return true;
            // A cycle is told once: at its member with the smallest name.
            if (QualifiedName(*next) < QualifiedName(target) || !seen->insert(next).second)
                continue;
            path->push_back(next);
            if (Search(*next, target, seen, path)) return true;
            path->pop_back();
        }
        return false;
    }

    // Within one file: a type that holds itself, or the one around it.
    void CheckSelfContainment(const TypeDecl& type) {
        std::set<const TypeDecl*> seen;
        if (type.kind != TypeDecl::Kind::kInterface && Holds(type, type, &seen)) {
            Error(type.name.span, "'" + type.name.text + "' holds itself");
            return;
        }
        bool cyclic = false;
        NestedInOrder(type, &cyclic);
        if (cyclic) {
            Error(type.name.span, "the types nested in '" + type.name.text + "' name each other");
        }
        for (const auto& nested : type.nested)
            CheckSelfContainment(*nested);
    }

    static bool Holds(const TypeDecl& type, const TypeDecl& target,
                      std::set<const TypeDecl*>* seen) {
        for (const Variable& field : type.fields) {
            const TypeDecl* held = field.type.declared;
            if (held == nullptr || held->kind == TypeDecl::Kind::kInterface) continue;
            if (held == &target) return true;
            if (&Outermost(*held) != &Outermost(target) || !seen->insert(held).second) continue;
            if (Holds(*held, target, seen)) return true;
        }
        return false;
    }

    Program* const program_;
    const bool vintf_;
};

}  // namespace

void Check(Program* program, bool vintf) {
    Checker(program, vintf).Run();
}

}  // namespace host::aidl
