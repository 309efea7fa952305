#include "constants.h"

#include <cmath>
#include <utility>

#include "arithmetic.h"
#include "resolver.h"

namespace host::aidl {
namespace {

using MaybeValue = std::optional<Value>;

template <typename T>
const T* As(const Value& value) {
    return value.list.has_value() ? nullptr : std::get_if<T>(&value.one);
}

std::optional<int64_t> AsInteger(const Value& value) {
    if (const auto* whole = As<int64_t>(value)) return *whole;
    if (const auto* named = As<EnumeratorValue>(value)) return named->enumerator->value;
    return std::nullopt;
}

class Evaluator {
  public:
    explicit Evaluator(Program* program) : program_(program) {}

    void RunOn(TypeDecl* type) {
        EvaluateEnumerators(type);
        for (Variable& constant : type->constants)
            EvaluateVariable(&constant, *type);
        for (Variable& field : type->fields)
            EvaluateVariable(&field, *type);
        for (auto& nested : type->nested)
            RunOn(nested.get());
    }

  private:
    MaybeValue Fail(Span where, const std::string& text) {
        program_->diagnostics().Error(where, text);
        return std::nullopt;
    }

    MaybeValue FailTooDeep(const Expr& expr) {
        return Fail(expr.span, "the definition of '" + expr.text + "' is nested too deeply");
    }

    // How many definitions are being computed in terms of each other.
    static constexpr int kMaxChain = 64;

    void EvaluateVariable(Variable* variable, const TypeDecl& scope) {
        if (variable->state != Variable::State::kFresh) return;
        if (variable->expression == nullptr || variable->type.builtin == Builtin::kVoid) {
            variable->state = Variable::State::kDone;
            return;
        }
        variable->state = Variable::State::kRunning;
        MaybeValue value = Evaluate(*variable->expression, scope);
        if (value.has_value()) {
            value = Convert(std::move(*value), variable->type, variable->type.array,
                            variable->expression->span);
        }
        if (value.has_value()) variable->value = std::move(*value);
        variable->state = Variable::State::kDone;
    }

    void EvaluateEnumerators(TypeDecl* type) {
        if (type->enumerators_state != TypeDecl::State::kFresh) return;
        type->enumerators_state = TypeDecl::State::kRunning;
        int64_t next = 0;
        for (Enumerator& enumerator : type->enumerators) {
            Span where = enumerator.name.span;
            if (enumerator.expression != nullptr) {
                where = enumerator.expression->span;
                const MaybeValue value = Evaluate(*enumerator.expression, *type);
                const std::optional<int64_t> whole = value ? AsInteger(*value) : std::nullopt;
                if (value && !whole) Fail(where, "the value of an enum is a whole number");
                next = whole.value_or(next);
            }
            if (!Fits(next, type->backing)) {
                Fail(where,
                     std::to_string(next) + " does not fit '" + BuiltinName(type->backing) + "'");
            }
            enumerator.value = next;
            enumerator.done = true;
            next = next == INT64_MAX ? next : next + 1;
        }
        type->enumerators_state = TypeDecl::State::kDone;
    }

    MaybeValue Evaluate(const Expr& expr, const TypeDecl& scope) {
        switch (expr.kind) {
            case Expr::Kind::kNumber: {
                MaybeValue number = ParseNumber(expr.text);
                return number ? number : Fail(expr.span, "'" + expr.text + "' is not a number");
            }
            case Expr::Kind::kString:
                return Value{expr.text, {}};
            case Expr::Kind::kChar:
                if (expr.text.size() != 1) return Fail(expr.span, "a character is exactly one");
                return Value{static_cast<char16_t>(expr.text[0]), {}};
            case Expr::Kind::kName:
                return EvaluateName(expr, scope);
            case Expr::Kind::kUnary:
                return EvaluateUnary(expr, scope);
            case Expr::Kind::kBinary:
                return EvaluateBinary(expr, scope);
            case Expr::Kind::kList:
                return EvaluateList(expr, scope);
        }
        return std::nullopt;
    }

    MaybeValue EvaluateList(const Expr& expr, const TypeDecl& scope) {
        Value list;
        list.list.emplace();
        for (const auto& operand : expr.operands) {
            MaybeValue element = Evaluate(*operand, scope);
            if (!element) return std::nullopt;
            list.list->push_back(std::move(*element));
        }
        return list;
    }

    MaybeValue EvaluateName(const Expr& expr, const TypeDecl& scope) {
        if (expr.text == "true" || expr.text == "false") return Value{expr.text == "true", {}};
        const size_t dot = expr.text.rfind('.');
        if (dot == std::string::npos) {
            for (const TypeDecl* type = &scope; type != nullptr; type = type->outer) {
                MaybeValue value;
                if (EvaluateMember(expr, *type, expr.text, &value)) return value;
            }
        } else if (const TypeDecl* type = FindType(program_, expr.text.substr(0, dot), scope)) {
            MaybeValue value;
            if (EvaluateMember(expr, *type, expr.text.substr(dot + 1), &value)) return value;
        }
        return Fail(expr.span, "unknown constant '" + expr.text + "'");
    }

    // False if the type has no such constant or enumerator.
    bool EvaluateMember(const Expr& expr, const TypeDecl& const_type, const std::string& name,
                        MaybeValue* value) {
        // The program owns every type; only the tree's readers see it as constant.
        auto& type = const_cast<TypeDecl&>(const_type);
        for (Variable& constant : type.constants) {
            if (constant.name.text == name)
                return *value = ConstantValue(expr, &constant, type), true;
        }
        for (const Enumerator& enumerator : type.enumerators) {
            if (enumerator.name.text == name) {
                return *value = EnumeratorOf(expr, &type, enumerator), true;
            }
        }
        return false;
    }

    MaybeValue ConstantValue(const Expr& expr, Variable* constant, const TypeDecl& scope) {
        if (constant->state == Variable::State::kRunning) {
            return Fail(expr.span, "'" + expr.text + "' is defined in terms of itself");
        }
        if (chain_ >= kMaxChain) return FailTooDeep(expr);
        ++chain_;
        EvaluateVariable(constant, scope);
        --chain_;
        const bool empty = std::holds_alternative<std::monostate>(constant->value.one) &&
                           !constant->value.list.has_value();
        return empty ? MaybeValue() : constant->value;
    }

    MaybeValue EnumeratorOf(const Expr& expr, TypeDecl* type, const Enumerator& enumerator) {
        if (type->enumerators_state == TypeDecl::State::kRunning) {
            // Inside its own enum a value may use those declared before it.
            if (enumerator.done) return Value{enumerator.value, {}};
            return Fail(expr.span, "'" + expr.text + "' is defined in terms of itself");
        }
        if (chain_ >= kMaxChain) return FailTooDeep(expr);
        ++chain_;
        EvaluateEnumerators(type);
        --chain_;
        return Value{EnumeratorValue{type, &enumerator}, {}};
    }

    MaybeValue EvaluateUnary(const Expr& expr, const TypeDecl& scope) {
        MaybeValue operand = Evaluate(*expr.operands[0], scope);
        if (!operand) return std::nullopt;
        if (const bool* truth = As<bool>(*operand)) {
            if (expr.text == "!") return Value{!*truth, {}};
        } else if (const double* real = As<double>(*operand)) {
            if (expr.text == "-") return Value{-*real, {}};
            if (expr.text == "+") return operand;
        } else if (const std::optional<int64_t> whole = AsInteger(*operand)) {
            std::string error;
            if (expr.text == "~") return Value{~*whole, {}};
            if (expr.text == "+") return Value{*whole, {}};
            if (expr.text == "-") return FromWhole(expr, Apply("-", 0, *whole, &error), error);
        }
        return Fail(expr.span, "'" + expr.text + "' does not apply to this value");
    }

    MaybeValue FromWhole(const Expr& expr, std::optional<int64_t> whole, const std::string& error) {
        return whole ? MaybeValue(Value{*whole, {}}) : Fail(expr.span, error);
    }

    MaybeValue EvaluateBinary(const Expr& expr, const TypeDecl& scope) {
        const MaybeValue left = Evaluate(*expr.operands[0], scope);
        const MaybeValue right = left ? Evaluate(*expr.operands[1], scope) : std::nullopt;
        if (!left || !right) return std::nullopt;
        const auto whole_left = AsInteger(*left);
        const auto whole_right = AsInteger(*right);
        if (whole_left && whole_right) return OnIntegers(expr, *whole_left, *whole_right);
        const bool* truth_left = As<bool>(*left);
        const bool* truth_right = As<bool>(*right);
        if (truth_left != nullptr && truth_right != nullptr) {
            if (expr.text == "&&") return Value{*truth_left && *truth_right, {}};
            if (expr.text == "||") return Value{*truth_left || *truth_right, {}};
        }
        const std::string* text_left = As<std::string>(*left);
        const std::string* text_right = As<std::string>(*right);
        if (text_left != nullptr && text_right != nullptr && expr.text == "+") {
            if (text_left->size() + text_right->size() > kMaxSourceBytes / 16) {
                return Fail(expr.span, "the string is too long");
            }
            return Value{*text_left + *text_right, {}};
        }
        return Fail(expr.span, "'" + expr.text + "' does not apply to these values");
    }

    MaybeValue OnIntegers(const Expr& expr, int64_t left, int64_t right) {
        if (expr.text == "==") return Value{left == right, {}};
        if (expr.text == "!=") return Value{left != right, {}};
        if (expr.text == "<") return Value{left < right, {}};
        if (expr.text == "<=") return Value{left <= right, {}};
        if (expr.text == ">") return Value{left > right, {}};
        if (expr.text == ">=") return Value{left >= right, {}};
        std::string error;
        return FromWhole(expr, Apply(expr.text, left, right, &error), error);
    }

    MaybeValue Convert(Value value, const TypeRef& type, bool array, Span where) {
        if (array != value.list.has_value()) return Mismatch(type, array, where);
        if (!array) return ConvertOne(std::move(value), type, where);
        for (Value& element : *value.list) {
            if (element.list) return Mismatch(type, false, where);
            MaybeValue converted = ConvertOne(std::move(element), type, where);
            if (!converted) return std::nullopt;
            element = std::move(*converted);
        }
        return value;
    }

    MaybeValue Mismatch(const TypeRef& type, bool array, Span where) {
        return Fail(where, "this is no value of type '" + type.name + (array ? "[]'" : "'"));
    }

    MaybeValue ConvertOne(Value value, const TypeRef& type, Span where) {
        switch (type.builtin) {
            case Builtin::kBoolean:
                return As<bool>(value) ? MaybeValue(value) : Mismatch(type, false, where);
            case Builtin::kChar:
                return As<char16_t>(value) ? MaybeValue(value) : Mismatch(type, false, where);
            case Builtin::kString:
                return As<std::string>(value) ? MaybeValue(value) : Mismatch(type, false, where);
            case Builtin::kByte:
            case Builtin::kInt:
            case Builtin::kLong:
                return ConvertInteger(value, type, where);
            case Builtin::kFloat:
            case Builtin::kDouble:
                return ConvertReal(value, type, where);
            default:
                return ConvertEnumerator(value, type, where);
        }
    }

    MaybeValue ConvertInteger(const Value& value, const TypeRef& type, Span where) {
        const std::optional<int64_t> whole = AsInteger(value);
        if (!whole) return Mismatch(type, false, where);
        if (!Fits(*whole, type.builtin)) {
            return Fail(where, std::to_string(*whole) + " does not fit '" + type.name + "'");
        }
        return Value{*whole, {}};
    }

    MaybeValue ConvertReal(const Value& value, const TypeRef& type, Span where) {
        double real = 0;
        if (const double* written = As<double>(value)) {
            real = *written;
        } else if (const auto* whole = As<int64_t>(value)) {
            real = static_cast<double>(*whole);
        } else {
            return Mismatch(type, false, where);
        }
        // What is written down for a float must be one: its text rounds to the same value again.
        if (type.builtin == Builtin::kFloat) real = static_cast<float>(real);
        if (!std::isfinite(real)) return Fail(where, "the value does not fit 'float'");
        return Value{real, {}};
    }

    MaybeValue ConvertEnumerator(const Value& value, const TypeRef& type, Span where) {
        const auto* named = As<EnumeratorValue>(value);
        if (named == nullptr || type.declared == nullptr || named->type != type.declared) {
            return Mismatch(type, false, where);
        }
        return value;
    }

    Program* const program_;
    int chain_ = 0;
};

}  // namespace

void EvaluateConstants(Program* program) {
    Evaluator evaluator(program);
    // By index: a qualified name in a default may load one more document.
    for (size_t i = 0; i < program->documents().size(); ++i) {
        evaluator.RunOn(program->documents()[i]->type.get());
    }
}

}  // namespace host::aidl
