#include "expression_parser.h"

#include <array>
#include <utility>

#include "parser.h"

namespace host::aidl {
namespace {

using ExprPtr = std::unique_ptr<Expr>;

// Weakest first, as in C.
constexpr std::array<std::array<std::string_view, 4>, 10> kLevels = {{
        {"||"},
        {"&&"},
        {"|"},
        {"^"},
        {"&"},
        {"==", "!="},
        {"<", ">", "<=", ">="},
        {"<<", ">>"},
        {"+", "-"},
        {"*", "/", "%"},
}};

class ExpressionParser {
  public:
    explicit ExpressionParser(TokenStream* tokens) : tokens_(tokens) {}

    ExprPtr Run() { return tokens_->Is("{") ? List() : Binary(0); }

  private:
    static ExprPtr Make(Expr::Kind kind, Span span, std::string_view text) {
        auto expr = std::make_unique<Expr>();
        expr->kind = kind;
        expr->span = span;
        expr->text = std::string(text);
        return expr;
    }

    ExprPtr List() {
        ExprPtr list = Make(Expr::Kind::kList, tokens_->Next().span, "{");
        while (!tokens_->failed() && !tokens_->Is("}")) {
            list->operands.push_back(Binary(0));
            if (!tokens_->Take(",")) break;
        }
        tokens_->Expect("}");
        return tokens_->failed() ? nullptr : std::move(list);
    }

    const std::string_view* OperatorOf(size_t level) const {
        for (const std::string_view& op : kLevels[level]) {
            if (!op.empty() && tokens_->Is(op)) return &op;
        }
        return nullptr;
    }

    ExprPtr Binary(size_t level) {
        if (level == kLevels.size()) return Unary();
        ExprPtr left = Binary(level + 1);
        while (const std::string_view* op = left == nullptr ? nullptr : OperatorOf(level)) {
            const Token token = tokens_->Next();
            // A chain is a tree that leans left: as deep as it is long.
            if (++operators_ > kMaxOperators) return TooDeep(token.span);
            ExprPtr right = Binary(level + 1);
            if (right == nullptr) return nullptr;
            ExprPtr both = Make(Expr::Kind::kBinary, token.span, *op);
            both->operands.push_back(std::move(left));
            both->operands.push_back(std::move(right));
            left = std::move(both);
        }
        return left;
    }

    ExprPtr TooDeep(Span where) {
        tokens_->Fail(where, "the expression is nested too deeply");
        return nullptr;
    }

    ExprPtr Unary() {
        if (depth_ >= kMaxExpressionDepth) return TooDeep(tokens_->Peek().span);
        ++depth_;
        ExprPtr result = UnaryOrPrimary();
        --depth_;
        return result;
    }

    ExprPtr UnaryOrPrimary() {
        for (std::string_view op : {"+", "-", "~", "!"}) {
            if (!tokens_->Is(op)) continue;
            ExprPtr unary = Make(Expr::Kind::kUnary, tokens_->Next().span, op);
            unary->operands.push_back(Unary());
            return unary->operands[0] == nullptr ? nullptr : std::move(unary);
        }
        if (tokens_->Take("(")) {
            ExprPtr inner = Binary(0);
            tokens_->Expect(")");
            return tokens_->failed() ? nullptr : std::move(inner);
        }
        return Primary();
    }

    ExprPtr Primary() {
        const Token& token = tokens_->Peek();
        Expr::Kind kind = Expr::Kind::kNumber;
        switch (token.kind) {
            case Token::Kind::kNumber:
                break;
            case Token::Kind::kString:
                kind = Expr::Kind::kString;
                break;
            case Token::Kind::kChar:
                kind = Expr::Kind::kChar;
                break;
            case Token::Kind::kName: {
                Span span;
                const std::string name = tokens_->ExpectDottedName("a name", &span);
                return tokens_->failed() ? nullptr : Make(Expr::Kind::kName, span, name);
            }
            default:
                tokens_->FailExpected("a value");
                return nullptr;
        }
        const Token taken = tokens_->Next();
        return Make(kind, taken.span, taken.text);
    }

    TokenStream* const tokens_;
    int depth_ = 0;
    int operators_ = 0;
};

}  // namespace

std::unique_ptr<Expr> ParseExpression(TokenStream* tokens) {
    return ExpressionParser(tokens).Run();
}

}  // namespace host::aidl
