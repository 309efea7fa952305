// The syntax tree. The parser fills it; the resolver adds `declared`, values and stability.
// Plain data without a thread rule of its own: one compilation, one thread.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "source.h"

namespace host::aidl {

struct Document;
struct TypeDecl;
struct Enumerator;

struct Identifier {
    std::string text;
    Span span;
};

// @Name(key="value", ...)
struct Annotation {
    Identifier name;
    struct Argument {
        Identifier key;
        std::string value;
        Span span;
    };
    std::vector<Argument> arguments;
};

enum class Builtin {
    kNone,
    kVoid,
    kBoolean,
    kByte,
    kChar,
    kInt,
    kLong,
    kFloat,
    kDouble,
    kString,
    kBinder,
    kParcelableHolder,
};

// A use of a type. Exactly one of `builtin` and `declared` is set once resolved.
struct TypeRef {
    Span span;
    std::string name;
    bool array = false;
    bool nullable = false;
    Span nullable_span;
    Builtin builtin = Builtin::kNone;
    const TypeDecl* declared = nullptr;
};

// The value of a constant expression.
struct EnumeratorValue {
    const TypeDecl* type = nullptr;
    const Enumerator* enumerator = nullptr;
};
struct Value {
    std::variant<std::monostate, bool, int64_t, double, char16_t, std::string, EnumeratorValue> one;
    // Set, with `one` empty, for an array.
    std::optional<std::vector<Value>> list;
};

struct Expr {
    enum class Kind { kNumber, kString, kChar, kName, kUnary, kBinary, kList };
    Kind kind = Kind::kNumber;
    Span span;
    // Number or constant as written, dotted name, or operator.
    std::string text;
    std::vector<std::unique_ptr<Expr>> operands;
};

// A constant or a field. A field may lack `expression`.
struct Variable {
    std::string doc;
    TypeRef type;
    Identifier name;
    std::unique_ptr<Expr> expression;
    Value value;
    enum class State { kFresh, kRunning, kDone } state = State::kFresh;
};

struct Enumerator {
    std::string doc;
    Identifier name;
    std::unique_ptr<Expr> expression;
    int64_t value = 0;
    bool done = false;
};

struct Parameter {
    enum class Direction { kUnset, kIn, kOut, kInOut };
    Direction direction = Direction::kUnset;
    Span direction_span;
    TypeRef type;
    Identifier name;
};

struct Method {
    std::string doc;
    bool oneway = false;
    TypeRef result;
    Identifier name;
    std::vector<Parameter> parameters;
};

struct TypeDecl {
    enum class Kind { kInterface, kParcelable, kEnum, kUnion };
    Kind kind = Kind::kParcelable;
    std::string doc;
    std::vector<Annotation> annotations;
    Identifier name;
    // Oneway interface: every method is.
    bool oneway = false;
    std::vector<Method> methods;
    std::vector<Variable> constants;
    std::vector<Variable> fields;
    std::vector<Enumerator> enumerators;
    std::vector<std::unique_ptr<TypeDecl>> nested;

    const Document* document = nullptr;
    const TypeDecl* outer = nullptr;
    bool vintf = false;
    Builtin backing = Builtin::kByte;
    enum class State { kFresh, kRunning, kDone } enumerators_state = State::kFresh;
};

struct Import {
    std::string name;
    Span span;
};

struct Document {
    uint32_t file = 0;
    std::string package;
    Span package_span;
    std::vector<Import> imports;
    std::unique_ptr<TypeDecl> type;
    // Given on the command line, not only imported.
    bool primary = false;
};

// "Outer.Inner", and the same with the package in front.
std::string NestedName(const TypeDecl& type);
std::string QualifiedName(const TypeDecl& type);
// The outermost type, which gives the generated files their name.
const TypeDecl& Outermost(const TypeDecl& type);
// The word that introduces a declaration of the kind.
const char* KindName(TypeDecl::Kind kind);

}  // namespace host::aidl
