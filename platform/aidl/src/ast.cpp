#include "ast.h"

namespace host::aidl {

std::string NestedName(const TypeDecl& type) {
    return type.outer == nullptr ? type.name.text : NestedName(*type.outer) + "." + type.name.text;
}

std::string QualifiedName(const TypeDecl& type) {
    return type.document->package + "." + NestedName(type);
}

const TypeDecl& Outermost(const TypeDecl& type) {
    return type.outer == nullptr ? type : Outermost(*type.outer);
}

const char* KindName(TypeDecl::Kind kind) {
    switch (kind) {
        case TypeDecl::Kind::kInterface:
            return "interface";
        case TypeDecl::Kind::kParcelable:
            return "parcelable";
        case TypeDecl::Kind::kEnum:
            return "enum";
        case TypeDecl::Kind::kUnion:
            return "union";
    }
    return "";
}

}  // namespace host::aidl
