#include "parser.h"

#include <utility>

#include "expression_parser.h"
#include "lexer.h"
#include "token_stream.h"

namespace host::aidl {
namespace {

class Parser {
  public:
    Parser(std::vector<Token> tokens, uint32_t file, Diagnostics* diagnostics)
            : file_(file), tokens_(std::move(tokens), diagnostics) {}

    std::unique_ptr<Document> Run() {
        auto document = std::make_unique<Document>();
        document->file = file_;
        ParsePackage(document.get());
        while (tokens_.Is("import")) {
            tokens_.Next();
            Import import;
            import.name = tokens_.ExpectDottedName("the name of a type", &import.span);
            tokens_.Expect(";");
            document->imports.push_back(std::move(import));
        }
        document->type = ParseType(nullptr, 1);
        if (!tokens_.failed() && !tokens_.AtEnd()) {
            tokens_.Fail(tokens_.Peek().span, "a file declares one type; nest the others in it");
        }
        if (tokens_.failed()) return nullptr;
        Adopt(document->type.get(), nullptr, document.get());
        return document;
    }

  private:
    void ParsePackage(Document* document) {
        tokens_.Expect("package");
        document->package =
                tokens_.ExpectDottedName("the name of a package", &document->package_span);
        tokens_.Expect(";");
    }

    static void Adopt(TypeDecl* type, const TypeDecl* outer, const Document* document) {
        type->outer = outer;
        type->document = document;
        for (auto& nested : type->nested)
            Adopt(nested.get(), type, document);
    }

    std::vector<Annotation> ParseAnnotations() {
        std::vector<Annotation> annotations;
        while (tokens_.Take("@")) {
            Annotation annotation;
            annotation.name = tokens_.ExpectName("the name of an annotation");
            if (tokens_.Take("(")) ParseArguments(&annotation);
            annotations.push_back(std::move(annotation));
        }
        return annotations;
    }

    void ParseArguments(Annotation* annotation) {
        while (!tokens_.failed() && !tokens_.Is(")")) {
            Annotation::Argument argument;
            argument.key = tokens_.ExpectName("the name of an argument");
            tokens_.Expect("=");
            if (tokens_.Peek().kind != Token::Kind::kString) {
                return tokens_.FailExpected("a string");
            }
            const Token value = tokens_.Next();
            argument.value = std::string(value.text);
            argument.span = value.span;
            annotation->arguments.push_back(std::move(argument));
            if (!tokens_.Take(",")) break;
        }
        tokens_.Expect(")");
    }

    bool AtTypeDeclaration() const {
        return tokens_.Is("interface") || tokens_.Is("parcelable") || tokens_.Is("enum") ||
               tokens_.Is("union") || (tokens_.Is("oneway") && tokens_.Is("interface", 1));
    }

    std::unique_ptr<TypeDecl> ParseType(const std::vector<Annotation>* annotations, int depth) {
        auto type = std::make_unique<TypeDecl>();
        type->doc = CleanDoc(tokens_.Peek().doc);
        type->annotations = annotations != nullptr ? *annotations : ParseAnnotations();
        if (depth > kMaxTypeDepth) {
            tokens_.Fail(tokens_.Peek().span, "types are nested too deeply");
        }
        if (!AtTypeDeclaration()) {
            tokens_.FailExpected("'interface', 'parcelable', 'enum' or 'union'");
            return type;
        }
        type->oneway = tokens_.Take("oneway");
        ParseKind(type.get());
        type->name = tokens_.ExpectName("the name of the type");
        RefuseUnsupportedForms(*type);
        tokens_.Expect("{");
        if (type->kind == TypeDecl::Kind::kEnum) {
            ParseEnumerators(type.get());
        } else {
            while (!tokens_.failed() && !tokens_.AtEnd() && !tokens_.Is("}")) {
                ParseMember(type.get(), depth);
            }
        }
        tokens_.Expect("}");
        if (tokens_.Is(";")) tokens_.Fail(tokens_.Peek().span, "no ';' after a type");
        return type;
    }

    void ParseKind(TypeDecl* type) {
        const Token word = tokens_.Next();
        if (word.text == "interface") type->kind = TypeDecl::Kind::kInterface;
        if (word.text == "parcelable") type->kind = TypeDecl::Kind::kParcelable;
        if (word.text == "enum") type->kind = TypeDecl::Kind::kEnum;
        if (word.text == "union") type->kind = TypeDecl::Kind::kUnion;
    }

    void RefuseUnsupportedForms(const TypeDecl& type) {
        const Span here = tokens_.Peek().span;
        if (tokens_.Is("<")) tokens_.Fail(here, "generic types are not supported");
        if (tokens_.Is(";") && type.kind == TypeDecl::Kind::kParcelable) {
            tokens_.Fail(here, "a parcelable is declared with its fields");
        }
    }

    void ParseEnumerators(TypeDecl* type) {
        while (!tokens_.failed() && !tokens_.Is("}")) {
            Enumerator enumerator;
            enumerator.doc = CleanDoc(tokens_.Peek().doc);
            enumerator.name = tokens_.ExpectName("the name of a value");
            if (tokens_.Take("=")) enumerator.expression = ParseExpression(&tokens_);
            type->enumerators.push_back(std::move(enumerator));
            if (!tokens_.Take(",")) break;
        }
    }

    void ParseMember(TypeDecl* type, int depth) {
        const std::string doc = CleanDoc(tokens_.Peek().doc);
        const std::vector<Annotation> annotations = ParseAnnotations();
        if (AtTypeDeclaration()) {
            type->nested.push_back(ParseType(&annotations, depth + 1));
            type->nested.back()->doc = doc;
        } else if (tokens_.Take("const")) {
            type->constants.push_back(ParseVariable(doc, annotations));
            if (!tokens_.failed() && type->constants.back().expression == nullptr) {
                tokens_.Fail(type->constants.back().name.span, "a constant needs a value");
            }
        } else if (type->kind == TypeDecl::Kind::kInterface) {
            ParseMethod(type, doc, annotations);
        } else {
            type->fields.push_back(ParseVariable(doc, annotations));
        }
    }

    Variable ParseVariable(const std::string& doc, const std::vector<Annotation>& annotations) {
        Variable variable;
        variable.doc = doc;
        variable.type = ParseTypeRef(annotations);
        variable.name = tokens_.ExpectName("a name");
        if (tokens_.Take("=")) variable.expression = ParseExpression(&tokens_);
        tokens_.Expect(";");
        return variable;
    }

    void ParseMethod(TypeDecl* type, const std::string& doc,
                     const std::vector<Annotation>& annotations) {
        Method method;
        method.doc = doc;
        method.oneway = tokens_.Take("oneway") || type->oneway;
        method.result = ParseTypeRef(annotations);
        method.name = tokens_.ExpectName("the name of a method");
        tokens_.Expect("(");
        while (!tokens_.failed() && !tokens_.Is(")")) {
            method.parameters.push_back(ParseParameter());
            if (!tokens_.Take(",")) break;
        }
        tokens_.Expect(")");
        if (tokens_.Is("=")) {
            tokens_.Fail(tokens_.Peek().span,
                         "transaction codes follow the order of declaration and cannot be set");
        }
        tokens_.Expect(";");
        type->methods.push_back(std::move(method));
    }

    Parameter ParseParameter() {
        Parameter parameter;
        parameter.direction_span = tokens_.Peek().span;
        if (tokens_.Take("in")) {
            parameter.direction = Parameter::Direction::kIn;
        } else if (tokens_.Take("out")) {
            parameter.direction = Parameter::Direction::kOut;
        } else if (tokens_.Take("inout")) {
            parameter.direction = Parameter::Direction::kInOut;
        }
        parameter.type = ParseTypeRef(ParseAnnotations());
        parameter.name = tokens_.ExpectName("the name of a parameter");
        return parameter;
    }

    TypeRef ParseTypeRef(const std::vector<Annotation>& annotations) {
        TypeRef type;
        for (const Annotation& annotation : annotations) {
            if (annotation.name.text != "nullable" || !annotation.arguments.empty()) {
                tokens_.Fail(annotation.name.span,
                             "only @nullable, without arguments, can stand before a type");
            }
            type.nullable = true;
            type.nullable_span = annotation.name.span;
        }
        type.name = tokens_.ExpectDottedName("a type", &type.span);
        if (tokens_.Is("<")) tokens_.Fail(tokens_.Peek().span, "generic types are not supported");
        if (tokens_.Take("[")) {
            if (tokens_.Peek().kind == Token::Kind::kNumber) {
                tokens_.Fail(tokens_.Peek().span, "arrays of a fixed size are not supported");
            }
            tokens_.Expect("]");
            type.array = true;
        }
        if (tokens_.Is("["))
            tokens_.Fail(tokens_.Peek().span, "arrays of arrays are not supported");
        return type;
    }

    const uint32_t file_;
    TokenStream tokens_;
};

}  // namespace

std::unique_ptr<Document> Parse(const SourceSet& sources, uint32_t file, Diagnostics* diagnostics) {
    std::vector<Token> tokens = Tokenize(sources, file, diagnostics);
    if (tokens.empty()) return nullptr;
    return Parser(std::move(tokens), file, diagnostics).Run();
}

}  // namespace host::aidl
