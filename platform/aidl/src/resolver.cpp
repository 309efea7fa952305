#include "resolver.h"

#include <array>
#include <set>
#include <utility>
#include <vector>

namespace host::aidl {
namespace {

constexpr std::array<std::pair<std::string_view, Builtin>, 11> kBuiltins = {{
        {"void", Builtin::kVoid},
        {"boolean", Builtin::kBoolean},
        {"byte", Builtin::kByte},
        {"char", Builtin::kChar},
        {"int", Builtin::kInt},
        {"long", Builtin::kLong},
        {"float", Builtin::kFloat},
        {"double", Builtin::kDouble},
        {"String", Builtin::kString},
        {"IBinder", Builtin::kBinder},
        {"ParcelableHolder", Builtin::kParcelableHolder},
}};

constexpr std::array<std::string_view, 5> kUnsupported = {"ParcelFileDescriptor", "FileDescriptor",
                                                          "CharSequence", "List", "Map"};

Builtin FindBuiltin(std::string_view name) {
    for (const auto& [word, builtin] : kBuiltins) {
        if (word == name) return builtin;
    }
    return Builtin::kNone;
}

// "a.b" of "a.b.c"; *last becomes "c".
std::string SplitLast(const std::string& name, std::string* last) {
    const size_t dot = name.rfind('.');
    *last = dot == std::string::npos ? name : name.substr(dot + 1);
    return dot == std::string::npos ? std::string() : name.substr(0, dot);
}

std::vector<std::string> Split(const std::string& name) {
    std::vector<std::string> parts(1);
    for (char c : name) {
        if (c == '.') {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

const TypeDecl* FindNested(const TypeDecl& type, const std::string& name) {
    for (const auto& nested : type.nested) {
        if (nested->name.text == name) return nested.get();
    }
    return nullptr;
}

const TypeDecl* Descend(const TypeDecl* type, const std::vector<std::string>& parts, size_t from) {
    for (; type != nullptr && from < parts.size(); ++from)
        type = FindNested(*type, parts[from]);
    return type;
}

const TypeDecl* FindQualified(Program* program, const std::vector<std::string>& parts) {
    std::string prefix = parts[0];
    for (size_t i = 1; i < parts.size(); ++i) {
        prefix += "." + parts[i];
        const TypeDecl* top = program->FindTopLevel(prefix);
        if (top != nullptr) return Descend(top, parts, i + 1);
    }
    return nullptr;
}

const TypeDecl* FindFirst(Program* program, const std::string& name, const TypeDecl& scope) {
    for (const TypeDecl* outer = &scope; outer != nullptr; outer = outer->outer) {
        if (outer->name.text == name) return outer;
        if (const TypeDecl* nested = FindNested(*outer, name)) return nested;
    }
    for (const Import& import : scope.document->imports) {
        std::string last;
        SplitLast(import.name, &last);
        if (last == name) return FindQualified(program, Split(import.name));
    }
    return program->FindTopLevel(scope.document->package + "." + name);
}

class Resolver {
  public:
    explicit Resolver(Program* program) : program_(program) {}

    void Run() {
        // The list grows while imports are loaded.
        for (size_t i = 0; i < program_->documents().size(); ++i) {
            Document& document = *program_->documents()[i];
            ResolveImports(document);
            ResolveType(document.type.get());
        }
    }

  private:
    void Error(Span where, const std::string& text) { program_->diagnostics().Error(where, text); }

    void ResolveImports(const Document& document) {
        std::set<std::string> names;
        for (const Import& import : document.imports) {
            std::string last;
            SplitLast(import.name, &last);
            if (!names.insert(last).second) {
                Error(import.span, "a type named '" + last + "' is imported already");
            } else if (FindQualified(program_, Split(import.name)) == nullptr) {
                Error(import.span, "cannot find the imported type '" + import.name + "'");
            }
        }
    }

    void ResolveType(TypeDecl* type) {
        // A nested type is as stable as the type around it.
        type->vintf = type->outer != nullptr && type->outer->vintf;
        bool has_backing = false;
        std::set<std::string> seen;
        for (const Annotation& annotation : type->annotations) {
            if (!seen.insert(annotation.name.text).second) {
                Error(annotation.name.span, "@" + annotation.name.text + " is given twice");
            }
            has_backing |= annotation.name.text == "Backing";
            ApplyAnnotation(annotation, type);
        }
        if (type->kind == TypeDecl::Kind::kEnum && !has_backing) {
            Error(type->name.span, "an enum needs @Backing(type=\"byte\"), \"int\" or \"long\"");
        }
        for (Method& method : type->methods) {
            ResolveRef(&method.result, *type);
            for (Parameter& parameter : method.parameters)
                ResolveRef(&parameter.type, *type);
        }
        for (Variable& constant : type->constants)
            ResolveVariable(&constant, *type);
        for (Variable& field : type->fields)
            ResolveVariable(&field, *type);
        for (Enumerator& enumerator : type->enumerators) {
            if (enumerator.expression != nullptr) LoadNames(*enumerator.expression, *type);
        }
        for (auto& nested : type->nested)
            ResolveType(nested.get());
    }

    void ResolveVariable(Variable* variable, const TypeDecl& scope) {
        ResolveRef(&variable->type, scope);
        if (variable->expression != nullptr) LoadNames(*variable->expression, scope);
    }

    // Types named in constant expressions are loaded here, so that they are resolved in their turn.
    void LoadNames(const Expr& expr, const TypeDecl& scope) {
        const size_t dot = expr.text.rfind('.');
        if (expr.kind == Expr::Kind::kName && dot != std::string::npos) {
            FindType(program_, expr.text.substr(0, dot), scope);
        }
        for (const auto& operand : expr.operands)
            LoadNames(*operand, scope);
    }

    void ApplyAnnotation(const Annotation& annotation, TypeDecl* type) {
        const std::string& name = annotation.name.text;
        if (name == "VintfStability") {
            type->vintf = true;
            if (!annotation.arguments.empty()) {
                Error(annotation.name.span, "@VintfStability takes no arguments");
            }
        } else if (name == "Backing") {
            ApplyBacking(annotation, type);
        } else if (name == "nullable") {
            Error(annotation.name.span,
                  "@nullable stands before the type of a field, parameter or "
                  "result, not before a declaration");
        } else {
            Error(annotation.name.span, "unknown annotation '@" + name + "'");
        }
    }

    void ApplyBacking(const Annotation& annotation, TypeDecl* type) {
        if (type->kind != TypeDecl::Kind::kEnum) {
            return Error(annotation.name.span, "@Backing is for enums only");
        }
        if (annotation.arguments.size() != 1 || annotation.arguments[0].key.text != "type") {
            return Error(annotation.name.span, "@Backing takes one argument, type");
        }
        type->backing = FindBuiltin(annotation.arguments[0].value);
        if (type->backing != Builtin::kByte && type->backing != Builtin::kInt &&
            type->backing != Builtin::kLong) {
            Error(annotation.arguments[0].span, "an enum is backed by byte, int or long");
            type->backing = Builtin::kInt;
        }
    }

    void ResolveRef(TypeRef* ref, const TypeDecl& scope) {
        ref->builtin = FindBuiltin(ref->name);
        if (ref->builtin != Builtin::kNone) return;
        ref->declared = FindType(program_, ref->name, scope);
        if (ref->declared != nullptr) return;
        for (std::string_view word : kUnsupported) {
            if (word == ref->name) return Error(ref->span, ref->name + " is not supported");
        }
        Error(ref->span, "unknown type '" + ref->name + "'");
    }

    Program* const program_;
};

}  // namespace

void Resolve(Program* program) {
    Resolver(program).Run();
}

const TypeDecl* FindType(Program* program, const std::string& name, const TypeDecl& scope) {
    const std::vector<std::string> parts = Split(name);
    const TypeDecl* first = Descend(FindFirst(program, parts[0], scope), parts, 1);
    return first != nullptr ? first : FindQualified(program, parts);
}

const char* BuiltinName(Builtin builtin) {
    for (const auto& [word, value] : kBuiltins) {
        if (value == builtin) return word.data();
    }
    return "";
}

}  // namespace host::aidl
