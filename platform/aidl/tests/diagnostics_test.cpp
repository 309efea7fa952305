// Labels: memory
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "front_end.h"
#include "parser.h"
#include "tests/map_files.h"

namespace host::aidl {
namespace {

std::string Compile(const MapFiles& files, const std::vector<std::string>& paths, bool vintf) {
    return RunFrontEnd(&files, {"r"}, paths, vintf)->diagnostics().Render();
}

struct Case {
    const char* name;
    // Of r/p/T.aidl, without the package line.
    std::string source;
    // The whole message, without the path.
    std::string message;
};

void PrintTo(const Case& one, std::ostream* out) {
    *out << one.name;
}

class DiagnosticsTest : public testing::TestWithParam<Case> {};

// Types to use: an annotated and an unannotated parcelable, an enum and an interface.
std::string CompileCase(const std::string& source, bool vintf) {
    const MapFiles files = {
            {"r/p/T.aidl", "package p;\n" + source},
            {"r/p/Q.aidl", "package p;\nparcelable Q { int x; }\n"},
            {"r/p/E.aidl", "package p;\n@Backing(type=\"int\") enum E { A }\n"},
            {"r/p/I.aidl", "package p;\ninterface I {}\n"},
            {"r/p/Back.aidl", "package p;\nparcelable Back { T t; }\n"},
            {"r/o/Other.aidl", "package o;\nparcelable Other { int x; }\n"},
            {"r/o/Bad.aidl", "package o;\nparcelable Wrong { int x; }\n"},
    };
    return Compile(files, {"r/p/T.aidl"}, vintf);
}

TEST_P(DiagnosticsTest, AreTheWholeMessage) {
    EXPECT_EQ(CompileCase(GetParam().source, false), "r/p/T.aidl:" + GetParam().message);
}

const Case kLexical[] = {
        {"CharacterOutsideTheLanguage", "parcelable T { int # }",
         "2:20: error: unexpected character\nparcelable T { int # }\n                   ^\n"},
        {"CommentWithoutEnd", "parcelable T { /* int }",
         "2:16: error: this comment does not end\nparcelable T { /* int }\n               ^\n"},
        {"StringWithoutEnd", "parcelable T { String s = \"x; }",
         "2:27: error: this string does not end\nparcelable T { String s = \"x; }\n"
         "                          ^\n"},
        {"CharacterWithoutEnd", "parcelable T { char s = 'x; }",
         "2:25: error: this character does not end\nparcelable T { char s = 'x; }\n"
         "                        ^\n"},
        {"EscapeSequence", "parcelable T { String s = \"a\\n\"; }",
         "2:29: error: escape sequences are not supported\nparcelable T { String s = \"a\\n\"; }\n"
         "                            ^\n"},
        {"StringBeyondAscii", "parcelable T { String s = \"\xc3\xa4\"; }",
         "2:28: error: constants are printable ASCII only\nparcelable T { String s = \"\xc3\xa4\"; "
         "}"
         "\n                           ^\n"},
        {"BytesThatAreNotUtf8", "parcelable T { } // \xff",
         "2:21: error: the file is not UTF-8 text\nparcelable T { } // \xff\n"
         "                    ^\n"},
        {"OverlongUtf8", "// \xe0\x80\x80",
         "2:4: error: the file is not UTF-8 text\n// \xe0\x80\x80\n   ^\n"},
        {"ControlCharacterIsNotPrintedEither", "parcelable\x1b T { }",
         "2:11: error: control characters are not allowed\nparcelable? T { }\n          ^\n"},
        {"TextThatReversesItsDirection", "/* \xe2\x80\xae */ parcelable T { }",
         "2:4: error: control characters are not allowed\n/* \xe2\x80\xae */ parcelable T { }\n"
         "   ^\n"},
        {"TabsBeforeTheFaultStayTabs", "\t\t#", "2:3: error: unexpected character\n\t\t#\n\t\t^\n"},
};

const Case kSyntax[] = {
        {"EmptyFile", "",
         "2:1: error: expected 'interface', 'parcelable', 'enum' or 'union', found the end of the "
         "file\n\n^\n"},
        {"MissingSemicolon", "parcelable T { int x }",
         "2:22: error: expected ';', found '}'\nparcelable T { int x }\n                     ^\n"},
        {"StringInPlaceOfAName", "parcelable T { int \"x\"; }",
         "2:20: error: expected a name, found \"x\"\nparcelable T { int \"x\"; }\n"
         "                   ^\n"},
        {"SecondTypeInAFile", "parcelable T { } parcelable U { }",
         "2:18: error: a file declares one type; nest the others in it\n"
         "parcelable T { } parcelable U { }\n                 ^\n"},
        {"ParcelableWithoutFields", "parcelable T;",
         "2:13: error: a parcelable is declared with its fields\nparcelable T;\n            ^\n"},
        {"GenericDeclaration", "parcelable T<X> { }",
         "2:13: error: generic types are not supported\nparcelable T<X> { }\n            ^\n"},
        {"GenericUse", "parcelable T { List<String> x; }",
         "2:20: error: generic types are not supported\nparcelable T { List<String> x; }\n"
         "                   ^\n"},
        {"FixedSizeArray", "parcelable T { int[3] x; }",
         "2:20: error: arrays of a fixed size are not supported\nparcelable T { int[3] x; }\n"
         "                   ^\n"},
        {"ArrayOfArrays", "parcelable T { int[][] x; }",
         "2:21: error: arrays of arrays are not supported\nparcelable T { int[][] x; }\n"
         "                    ^\n"},
        {"ChosenTransactionCode", "interface T { void f() = 3; }",
         "2:24: error: transaction codes follow the order of declaration and cannot be set\n"
         "interface T { void f() = 3; }\n                       ^\n"},
        {"ConstantWithoutValue", "interface T { const int X; }",
         "2:25: error: a constant needs a value\ninterface T { const int X; }\n"
         "                        ^\n"},
        {"OtherAnnotationBeforeAType", "parcelable T { @Foo int x; }",
         "2:17: error: only @nullable, without arguments, can stand before a type\n"
         "parcelable T { @Foo int x; }\n                ^\n"},
};

const Case kNames[] = {
        {"UnknownType", "parcelable T { Nobody x; }",
         "2:16: error: unknown type 'Nobody'\nparcelable T { Nobody x; }\n               ^\n"},
        {"FileDescriptors", "parcelable T { ParcelFileDescriptor x; }",
         "2:16: error: ParcelFileDescriptor is not supported\n"
         "parcelable T { ParcelFileDescriptor x; }\n               ^\n"},
        {"UnknownImport", "import o.Nobody;\nparcelable T { }",
         "2:8: error: cannot find the imported type 'o.Nobody'\nimport o.Nobody;\n       ^\n"},
        {"ImportsOfOneName", "import o.Other;\nimport o.Other;\nparcelable T { }",
         "3:8: error: a type named 'Other' is imported already\nimport o.Other;\n       ^\n"},
        {"NameOfTheFile", "parcelable Wrong { }",
         "2:12: error: 'p.Wrong' must be declared in a file whose path ends in 'p/Wrong.aidl'\n"
         "parcelable Wrong { }\n           ^\n"},
        {"DuplicateField", "parcelable T { int x; long x; }",
         "2:28: error: duplicate field 'x'\nparcelable T { int x; long x; }\n"
         "                           ^\n"},
        {"DuplicateMethod", "interface T { void f(); void f(int x); }",
         "2:30: error: duplicate method 'f'\ninterface T { void f(); void f(int x); }\n"
         "                             ^\n"},
        {"DuplicateParameter", "interface T { void f(int x, int x); }",
         "2:33: error: duplicate parameter 'x'\ninterface T { void f(int x, int x); }\n"
         "                                ^\n"},
        {"DuplicateValue", "@Backing(type=\"int\") enum T { A, A }",
         "2:34: error: duplicate value 'A'\n@Backing(type=\"int\") enum T { A, A }\n"
         "                                 ^\n"},
        {"DuplicateConstant", "interface T { const int A = 1; const int A = 2; }",
         "2:42: error: duplicate constant 'A'\n"
         "interface T { const int A = 1; const int A = 2; }\n"
         "                                         ^\n"},
        {"DuplicateMember", "union T { int a; int a; }",
         "2:22: error: duplicate member 'a'\nunion T { int a; int a; }\n"
         "                     ^\n"},
        {"DuplicateNestedType", "parcelable T { union A { int x; } union A { int x; } }",
         "2:41: error: duplicate type 'A'\n"
         "parcelable T { union A { int x; } union A { int x; } }\n"
         "                                        ^\n"},
        {"KeywordOfCpp", "parcelable T { int class; }",
         "2:20: error: 'class' is a keyword of C++\nparcelable T { int class; }\n"
         "                   ^\n"},
        {"WordOfTheLanguage", "parcelable T { int oneway; }",
         "2:20: error: 'oneway' is a word of the language\nparcelable T { int oneway; }\n"
         "                   ^\n"},
        {"MacroOfTheLibrary", "@Backing(type=\"int\") enum T { EOF }",
         "2:31: error: 'EOF' is used by the generated code\n@Backing(type=\"int\") enum T { EOF }"
         "\n                              ^\n"},
        {"ReservedName", "parcelable T { int _x; }",
         "2:20: error: '_x' is reserved: names neither start with '_' nor hold '__'\n"
         "parcelable T { int _x; }\n                   ^\n"},
        {"MemberOfTheGeneratedClass", "interface T { void dump(); }",
         "2:20: error: 'dump' is used by the generated class\ninterface T { void dump(); }\n"
         "                   ^\n"},
        {"MemberNamedLikeItsType", "parcelable T { int T; }",
         "2:20: error: 'T' is used by the generated class\nparcelable T { int T; }\n"
         "                   ^\n"},
        {"NestedTypeNamedLikeOneAroundIt", "parcelable T { parcelable U { union T { int x; } } }",
         "2:37: error: 'T' has the name of a type around it\n"
         "parcelable T { parcelable U { union T { int x; } } }\n"
         "                                    ^\n"},
};

const Case kTypes[] = {
        {"ResultOfAOnewayMethod", "interface T { oneway int f(); }",
         "2:22: error: the oneway method 'f' cannot return a value\n"
         "interface T { oneway int f(); }\n                     ^\n"},
        {"ResultInAOnewayInterface", "oneway interface T { int f(); }",
         "2:22: error: the oneway method 'f' cannot return a value\n"
         "oneway interface T { int f(); }\n                     ^\n"},
        {"OutParameterOfAOnewayMethod", "interface T { oneway void f(out Q q); }",
         "2:29: error: the oneway method 'f' cannot have an out parameter\n"
         "interface T { oneway void f(out Q q); }\n                            ^\n"},
        {"OutParameterThatCannotBeOne", "interface T { void f(inout String s); }",
         "2:22: error: a parameter of type 'String' can only be 'in'\n"
         "interface T { void f(inout String s); }\n                     ^\n"},
        {"ParcelableWithoutDirection", "interface T { void f(Q q); }",
         "2:22: error: parameter 'q' needs a direction: 'in', 'out' or 'inout'\n"
         "interface T { void f(Q q); }\n                     ^\n"},
        {"VoidField", "parcelable T { void x; }",
         "2:16: error: only a method's result can be void\nparcelable T { void x; }\n"
         "               ^\n"},
        {"VoidParameter", "interface T { void f(void x); }",
         "2:22: error: only a method's result can be void\ninterface T { void f(void x); }\n"
         "                     ^\n"},
        {"ArrayOfVoid", "interface T { void[] f(); }",
         "2:15: error: 'void' cannot be an array\ninterface T { void[] f(); }\n"
         "              ^\n"},
        {"NullablePrimitive", "parcelable T { @nullable int x; }",
         "2:17: error: a value of type 'int' is never null\nparcelable T { @nullable int x; }\n"
         "                ^\n"},
        {"NullableEnum", "parcelable T { @nullable E x; }",
         "2:17: error: a value of type 'E' is never null\nparcelable T { @nullable E x; }\n"
         "                ^\n"},
        {"NullableHolder", "parcelable T { @nullable ParcelableHolder x; }",
         "2:17: error: a ParcelableHolder cannot be @nullable\n"
         "parcelable T { @nullable ParcelableHolder x; }\n                ^\n"},
        {"ArrayOfHolders", "parcelable T { ParcelableHolder[] x; }",
         "2:16: error: arrays of ParcelableHolder are not supported\n"
         "parcelable T { ParcelableHolder[] x; }\n               ^\n"},
        {"HolderAsParameter", "interface T { void f(in ParcelableHolder h); }",
         "2:25: error: a ParcelableHolder can only be a field\n"
         "interface T { void f(in ParcelableHolder h); }\n                        ^\n"},
        {"HolderInAUnion", "union T { ParcelableHolder h; }",
         "2:11: error: a ParcelableHolder cannot be a member of a union\n"
         "union T { ParcelableHolder h; }\n          ^\n"},
        {"EmptyUnion", "union T { }",
         "2:7: error: a union needs at least one member\nunion T { }\n      ^\n"},
        {"EmptyEnum", "@Backing(type=\"int\") enum T { }",
         "2:27: error: an enum needs at least one value\n@Backing(type=\"int\") enum T { }\n"
         "                          ^\n"},
        {"NestedInterface", "parcelable T { interface N { } }",
         "2:26: error: an interface cannot be nested in a type\n"
         "parcelable T { interface N { } }\n                         ^\n"},
        {"ConstantOfAnotherType", "interface T { const int[] X = {1}; }",
         "2:21: error: a constant is of a primitive type or String\n"
         "interface T { const int[] X = {1}; }\n                    ^\n"},
        {"HoldsItself", "parcelable T { @nullable T next; }",
         "2:12: error: 'T' holds itself\nparcelable T { @nullable T next; }\n           ^\n"},
        {"HoldsItselfInAnArray", "parcelable T { T[] children; }",
         "2:12: error: 'T' holds itself\nparcelable T { T[] children; }\n           ^\n"},
        {"NestedTypeThatHoldsTheOneAroundIt", "parcelable T { parcelable N { T[] t; } }",
         "2:31: error: 'N' is nested in 'T' and cannot hold it\n"
         "parcelable T { parcelable N { T[] t; } }\n                              ^\n"},
        {"NestedTypesWithoutOrder",
         "parcelable T { parcelable A { B.C c; parcelable D { int x; } } "
         "parcelable B { A.D d; parcelable C { int x; } } }",
         "2:12: error: the types nested in 'T' name each other\n"
         "parcelable T { parcelable A { B.C c; parcelable D { int x; } } "
         "parcelable B { A.D d; parcelable C { int x; } } }\n           ^\n"},
};

const Case kAnnotations[] = {
        {"UnknownAnnotation", "@Foo parcelable T { }",
         "2:2: error: unknown annotation '@Foo'\n@Foo parcelable T { }\n ^\n"},
        {"AnnotationTwice", "@VintfStability @VintfStability parcelable T { }",
         "2:18: error: @VintfStability is given twice\n"
         "@VintfStability @VintfStability parcelable T { }\n                 ^\n"},
        {"ArgumentThatIsNotTaken", "@VintfStability(x=\"1\") parcelable T { }",
         "2:2: error: @VintfStability takes no arguments\n@VintfStability(x=\"1\") parcelable T { }"
         "\n ^\n"},
        {"NullableDeclaration", "@nullable parcelable T { }",
         "2:2: error: @nullable stands before the type of a field, parameter or result, not before "
         "a declaration\n@nullable parcelable T { }\n ^\n"},
        {"EnumWithoutBacking", "enum T { A }",
         "2:6: error: an enum needs @Backing(type=\"byte\"), \"int\" or \"long\"\nenum T { A }\n"
         "     ^\n"},
        {"BackingOfAParcelable", "@Backing(type=\"int\") parcelable T { }",
         "2:2: error: @Backing is for enums only\n@Backing(type=\"int\") parcelable T { }\n ^\n"},
        {"BackingWithoutItsArgument", "@Backing enum T { A }",
         "2:2: error: @Backing takes one argument, type\n@Backing enum T { A }\n ^\n"},
        {"BackingByAnotherType", "@Backing(type=\"float\") enum T { A }",
         "2:15: error: an enum is backed by byte, int or long\n@Backing(type=\"float\") enum T { A "
         "}"
         "\n              ^\n"},
        {"LessStableField", "@VintfStability parcelable T { Q q; }",
         "2:32: error: 'Q' is less stable than 'T', which has VINTF stability\n"
         "@VintfStability parcelable T { Q q; }\n                               ^\n"},
        {"LessStableParameter", "@VintfStability interface T { void f(in o.Other[] x); }",
         "2:41: error: 'o.Other' is less stable than 'T', which has VINTF stability\n"
         "@VintfStability interface T { void f(in o.Other[] x); }\n"
         "                                        ^\n"},
        {"LessStableInANestedType", "@VintfStability parcelable T { union N { E e; } }",
         "2:42: error: 'E' is less stable than 'T.N', which has VINTF stability\n"
         "@VintfStability parcelable T { union N { E e; } }\n"
         "                                         ^\n"},
};

const Case kValues[] = {
        {"UnknownConstant", "parcelable T { int x = NOBODY; }",
         "2:24: error: unknown constant 'NOBODY'\nparcelable T { int x = NOBODY; }\n"
         "                       ^\n"},
        {"TextForANumber", "parcelable T { int x = \"1\"; }",
         "2:24: error: this is no value of type 'int'\nparcelable T { int x = \"1\"; }\n"
         "                       ^\n"},
        {"NumberForAnEnum", "parcelable T { E x = 0; }",
         "2:22: error: this is no value of type 'E'\nparcelable T { E x = 0; }\n"
         "                     ^\n"},
        {"ListForASingleValue", "parcelable T { int x = {1}; }",
         "2:24: error: this is no value of type 'int'\nparcelable T { int x = {1}; }\n"
         "                       ^\n"},
        {"DefaultOfAParcelable", "parcelable T { Q x = 1; }",
         "2:22: error: this is no value of type 'Q'\nparcelable T { Q x = 1; }\n"
         "                     ^\n"},
        {"DefaultOfANullableField", "parcelable T { @nullable String x = \"a\"; }",
         "2:37: error: a @nullable field starts as null and has no default\n"
         "parcelable T { @nullable String x = \"a\"; }\n"
         "                                    ^\n"},
        {"DefaultOfALaterMember", "union T { int x; int y = 1; }",
         "2:26: error: only the first member of a union has a default\n"
         "union T { int x; int y = 1; }\n                         ^\n"},
        {"ByteOutOfRange", "parcelable T { byte x = 128; }",
         "2:25: error: 128 does not fit 'byte'\nparcelable T { byte x = 128; }\n"
         "                        ^\n"},
        {"IntOutOfRange", "parcelable T { int x = -2147483649; }",
         "2:24: error: -2147483649 does not fit 'int'\nparcelable T { int x = -2147483649; }\n"
         "                       ^\n"},
        {"LiteralOutOfRange", "parcelable T { long x = 9223372036854775808; }",
         "2:25: error: '9223372036854775808' is not a number\n"
         "parcelable T { long x = 9223372036854775808; }\n                        ^\n"},
        {"MalformedNumber", "parcelable T { float x = 1.2.3; }",
         "2:26: error: '1.2.3' is not a number\nparcelable T { float x = 1.2.3; }\n"
         "                         ^\n"},
        {"FloatOutOfRange", "parcelable T { float x = 1e39; }",
         "2:26: error: the value does not fit 'float'\nparcelable T { float x = 1e39; }\n"
         "                         ^\n"},
        {"EnumeratorOutOfRange", "@Backing(type=\"byte\") enum T { A = 127, B }",
         "2:41: error: 128 does not fit 'byte'\n@Backing(type=\"byte\") enum T { A = 127, B }\n"
         "                                        ^\n"},
        {"EnumeratorThatIsNoNumber", "@Backing(type=\"byte\") enum T { A = true }",
         "2:36: error: the value of an enum is a whole number\n"
         "@Backing(type=\"byte\") enum T { A = true }\n"
         "                                   ^\n"},
        {"Overflow", "parcelable T { long x = 9223372036854775807 + 1; }",
         "2:45: error: the value of '+' does not fit 64 bits\n"
         "parcelable T { long x = 9223372036854775807 + 1; }\n"
         "                                            ^\n"},
        {"DivisionByZero", "parcelable T { int x = 1 / 0; }",
         "2:26: error: division by zero\nparcelable T { int x = 1 / 0; }\n"
         "                         ^\n"},
        {"ShiftTooFar", "parcelable T { int x = 1 << 64; }",
         "2:26: error: a shift is by 0 to 63 bits\nparcelable T { int x = 1 << 64; }\n"
         "                         ^\n"},
        {"OperatorOnText", "parcelable T { String x = \"a\" - \"b\"; }",
         "2:31: error: '-' does not apply to these values\n"
         "parcelable T { String x = \"a\" - \"b\"; }\n                              ^\n"},
        {"SignOnText", "parcelable T { int x = -\"a\"; }",
         "2:24: error: '-' does not apply to this value\nparcelable T { int x = -\"a\"; }\n"
         "                       ^\n"},
        {"TwoCharacters", "parcelable T { char x = 'ab'; }",
         "2:25: error: a character is exactly one\nparcelable T { char x = 'ab'; }\n"
         "                        ^\n"},
        {"ConstantsInACircle", "interface T { const int A = B; const int B = A; }",
         "2:46: error: 'A' is defined in terms of itself\n"
         "interface T { const int A = B; const int B = A; }\n"
         "                                             ^\n"},
        {"EnumeratorBeforeItsValue", "@Backing(type=\"int\") enum T { A = B, B }",
         "2:35: error: 'B' is defined in terms of itself\n"
         "@Backing(type=\"int\") enum T { A = B, B }\n"
         "                                  ^\n"},
};

std::string NameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Lexical, DiagnosticsTest, testing::ValuesIn(kLexical), NameOf);
INSTANTIATE_TEST_SUITE_P(Syntax, DiagnosticsTest, testing::ValuesIn(kSyntax), NameOf);
INSTANTIATE_TEST_SUITE_P(Names, DiagnosticsTest, testing::ValuesIn(kNames), NameOf);
INSTANTIATE_TEST_SUITE_P(Types, DiagnosticsTest, testing::ValuesIn(kTypes), NameOf);
INSTANTIATE_TEST_SUITE_P(Annotations, DiagnosticsTest, testing::ValuesIn(kAnnotations), NameOf);
INSTANTIATE_TEST_SUITE_P(Values, DiagnosticsTest, testing::ValuesIn(kValues), NameOf);

TEST(Diagnostics, RefuseAnUnannotatedTypeInAPackageOfVintfStability) {
    EXPECT_EQ(CompileCase("parcelable T { }", true),
              "r/p/T.aidl:2:12: error: 'T' needs @VintfStability, as every type of a package of "
              "VINTF stability\nparcelable T { }\n           ^\n");
}

TEST(Diagnostics, NameTheKeywordInAPackage) {
    const MapFiles files = {{"r/p/new/T.aidl", "package p.new;\nparcelable T { }"}};
    EXPECT_EQ(Compile(files, {"r/p/new/T.aidl"}, false),
              "r/p/new/T.aidl:1:9: error: 'new' is a keyword of C++\npackage p.new;\n        ^\n");
}

TEST(Diagnostics, TellOfTypesInDifferentFilesThatHoldEachOther) {
    EXPECT_EQ(CompileCase("parcelable T { Back[] b; }", false),
              "r/p/Back.aidl:2:12: error: types hold each other: 'Back' holds 'T' holds 'Back'\n"
              "parcelable Back { T t; }\n           ^\n");
}

TEST(Diagnostics, TellOfAFaultInAnImportedFileThere) {
    const std::string message = CompileCase("import o.Bad;\nparcelable T { }", false);
    EXPECT_EQ(message,
              "r/o/Bad.aidl:2:12: error: 'o.Wrong' must be declared in a file whose path ends in "
              "'o/Wrong.aidl'\nparcelable Wrong { int x; }\n           ^\n"
              "r/p/T.aidl:2:8: error: cannot find the imported type 'o.Bad'\n"
              "import o.Bad;\n       ^\n");
}

TEST(Diagnostics, TellOfATypeNamedLikeAGeneratedClass) {
    const MapFiles files = {{"r/p/IFoo.aidl", "package p;\ninterface IFoo { }"},
                            {"r/p/BnFoo.aidl", "package p;\nparcelable BnFoo { }"}};
    EXPECT_EQ(Compile(files, {"r/p/IFoo.aidl", "r/p/BnFoo.aidl"}, false),
              "r/p/BnFoo.aidl:2:12: error: 'BnFoo' is a class generated for 'IFoo'\n"
              "parcelable BnFoo { }\n           ^\n");
}

TEST(Diagnostics, TellOfFilesThatCannotBeReadOrComeTwice) {
    const MapFiles files = {{"r/p/T.aidl", "package p;\nparcelable T { }"}};
    EXPECT_EQ(Compile(files, {"none.aidl"}, false), "aidl: error: cannot read 'none.aidl'\n");
    EXPECT_EQ(Compile(files, {"r/p/T.aidl", "r/p/T.aidl"}, false),
              "r/p/T.aidl:2:12: error: 'p.T' is declared twice\nparcelable T { }\n"
              "           ^\n");
}

TEST(Diagnostics, StopAfterTwentyErrorsAndCountTheRest) {
    std::string source = "parcelable T {\n";
    for (int i = 0; i < 25; ++i)
        source += "Nobody x" + std::to_string(i) + ";\n";
    const std::string message = CompileCase(source + "}", false);
    EXPECT_NE(message.find("r/p/T.aidl:22:1: error"), std::string::npos);
    EXPECT_EQ(message.find("r/p/T.aidl:23:1: error"), std::string::npos);
    EXPECT_NE(message.find("aidl: error: 5 more errors\n"), std::string::npos);
}

std::string Repeat(const std::string& text, int times) {
    std::string out;
    for (int i = 0; i < times; ++i)
        out += text;
    return out;
}

TEST(Nesting, IsAcceptedUpToItsBoundAndRefusedBeyond) {
    const auto expression = [](const std::string& value) {
        return CompileCase("parcelable T { int x = " + value + "; }", false);
    };
    const int deepest = kMaxExpressionDepth - 1;
    EXPECT_EQ(expression(Repeat("(", deepest) + "1" + Repeat(")", deepest)), "");
    EXPECT_EQ(expression(Repeat("-", deepest) + "1"), "");
    EXPECT_EQ(expression("1" + Repeat("+1", kMaxOperators)), "");
    for (const std::string& value :
         {Repeat("(", 100000) + "1", Repeat("-", 100000) + "1", "1" + Repeat("+1", 100000)}) {
        EXPECT_NE(expression(value).find("error: the expression is nested too deeply"),
                  std::string::npos);
    }
    const auto nested = [](int depth) {
        std::string source = "parcelable T {";
        for (int i = 1; i < depth; ++i)
            source += " parcelable N" + std::to_string(i) + " {";
        return CompileCase(source + Repeat(" }", depth), false);
    };
    EXPECT_EQ(nested(kMaxTypeDepth), "");
    EXPECT_NE(nested(kMaxTypeDepth + 1).find("error: types are nested too deeply"),
              std::string::npos);
}

TEST(Constants, HaveTheValuesThatTheirExpressionsSay) {
    const MapFiles files = {{"r/p/T.aidl",
                             "package p;\nparcelable T {\n"
                             "@Backing(type=\"int\") enum N { A = 2, B = A * 3, C }\n"
                             "const int X = (1 + 2) * 3 - 8 / 4 % 3 << 2;\n"
                             "const int Y = ~0x0f & 0xff | 1 ^ 3;\n"
                             "const int Z = 0xffffffff;\n"
                             "const long W = 0xffffffffL;\n"
                             "const boolean V = !(1 < 2) || 3 >= 3 && 4 != 5;\n"
                             "const String U = \"a\" + \"b\";\n"
                             "const double S = 3;\n"
                             "int n = N.C + Y;\n"
                             "}\n"}};
    const auto program = RunFrontEnd(&files, {"r"}, {"r/p/T.aidl"}, false);
    ASSERT_EQ(program->diagnostics().Render(), "");
    EXPECT_EQ(DumpPrimary(*program).at("p/T.aidl"),
              "package p;\nparcelable T {\n"
              "    @Backing(type=\"int\") enum N {\n        A = 2,\n        B = 6,\n"
              "        C = 7,\n    }\n"
              "    const int X = 28;\n    const int Y = 242;\n    const int Z = -1;\n"
              "    const long W = 4294967295;\n    const boolean V = true;\n"
              "    const String U = \"ab\";\n    const double S = 3.0;\n    int n = 249;\n}\n");
}

}  // namespace
}  // namespace host::aidl
