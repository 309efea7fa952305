// Labels: memory
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "files.h"
#include "front_end.h"
#include "parser.h"
#include "tests/map_files.h"

namespace host::aidl {
namespace {

std::string Compile(const MapFiles& files, const std::vector<std::string>& paths, bool vintf) {
    return RunFrontEnd(&files, {"r"}, paths, vintf)->diagnostics().Render();
}

// The types that the cases use stand in files beside r/p/T.aidl.
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

struct Case {
    std::string name;
    std::string source;   // of r/p/T.aidl, without the package line
    std::string message;  // all of it
};

// With the bytes for which the file has \xHH.
std::string Unescaped(std::string text) {
    for (size_t at = 0; (at = text.find("\\x", at)) != std::string::npos; ++at) {
        const int byte = std::stoi(text.substr(at + 2, 2), nullptr, 16);
        text.replace(at, 4, 1, static_cast<char>(byte));
    }
    return text;
}

// Each case of the file is "### NAME", the source, "---" and the message; an empty line between.
std::vector<Case> ReadCases() {
    std::string text;
    EXPECT_TRUE(DiskFiles().Read(AIDL_TEST_DIR "/diagnostics.golden", &text));
    std::vector<Case> cases;
    for (size_t at = 0; at < text.size();) {
        const size_t next = std::min(text.find("\n### ", at), text.size());
        const std::string one = text.substr(at + 4, next - at - 4);
        const size_t name = one.find('\n'), source = one.find("\n---\n");
        cases.push_back({one.substr(0, name), Unescaped(one.substr(name + 1, source - name - 1)),
                         Unescaped(one.substr(source + 5))});
        at = next + 1;
    }
    return cases;
}

TEST(Diagnostics, AreTheWholeMessage) {
    const std::vector<Case> cases = ReadCases();
    EXPECT_EQ(cases.size(), 119u);
    for (const auto& [name, source, message] : cases)
        EXPECT_EQ(CompileCase(source, name.find("[vintf]") != std::string::npos), message) << name;
}

TEST(Diagnostics, TellOfFaultsOfWholeFiles) {
    const struct {
        MapFiles files;
        std::vector<std::string> paths;
        const char* message;
    } cases[] = {
            {{{"r/p/new/T.aidl", "package p.new;\nparcelable T { }"}},
             {"r/p/new/T.aidl"},
             "r/p/new/T.aidl:1:9: error: 'new' is a keyword of C++\npackage p.new;\n        ^\n"},
            {{{"r/p/version.aidl", "package p;\ninterface version { }"}},
             {"r/p/version.aidl"},
             "r/p/version.aidl:2:11: error: 'version' is used by the generated class\n"
             "interface version { }\n          ^\n"},
            {{{"r/p/IFoo.aidl", "package p;\ninterface IFoo { }"},
              {"r/p/BnFoo.aidl", "package p;\nparcelable BnFoo { }"}},
             {"r/p/IFoo.aidl", "r/p/BnFoo.aidl"},
             "r/p/BnFoo.aidl:2:12: error: 'BnFoo' is a class generated for 'IFoo'\n"
             "parcelable BnFoo { }\n           ^\n"},
            {{{"r/p/IFoo.aidl", "package p;\ninterface IFoo { }"},
              {"r/p/Foo.aidl", "package p;\ninterface Foo { }"}},
             {"r/p/IFoo.aidl", "r/p/Foo.aidl"},
             "r/p/Foo.aidl:2:11: error: 'BnFoo' is generated for 'IFoo' and for 'Foo'\n"
             "interface Foo { }\n          ^\n"},
            {{{"r/p/T.aidl", "package ;"}},
             {"r/p/T.aidl"},
             "r/p/T.aidl:1:9: error: expected the name of a package, found ';'\npackage ;\n"
             "        ^\n"},
            {{}, {"none.aidl"}, "aidl: error: cannot read 'none.aidl'\n"},
            {{{"r/p/T.aidl", "package p;\nparcelable T { }"}},
             {"r/p/T.aidl", "r/p/T.aidl"},
             "r/p/T.aidl:2:12: error: 'p.T' is declared twice\nparcelable T { }\n"
             "           ^\n"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(Compile(one.files, one.paths, false), one.message);
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

std::string TooDeep(const std::string& source, int column, const std::string& what) {
    return "r/p/T.aidl:2:" + std::to_string(column) + ": error: " + what + " nested too deeply\n" +
           source + "\n" + Repeat(" ", column - 1) + "^\n";
}

TEST(Nesting, OfExpressionsIsAcceptedUpToItsBoundAndRefusedBeyond) {
    const auto source = [](const std::string& value) {
        return "parcelable T { int x = " + value + "; }";
    };
    const int deepest = kMaxExpressionDepth - 1;
    for (const std::string& value : {Repeat("(", deepest) + "1" + Repeat(")", deepest),
                                     Repeat("-", deepest) + "1", "1" + Repeat("+1", kMaxOperators)})
        EXPECT_EQ(CompileCase(source(value), false), "");
    const struct {
        std::string value;
        int column;
    } refused[] = {{Repeat("(", 100000) + "1", 24 + kMaxExpressionDepth},
                   {Repeat("-", 100000) + "1", 24 + kMaxExpressionDepth},
                   {"1" + Repeat("+1", 100000), 25 + 2 * kMaxOperators}};
    for (const auto& [value, column] : refused) {
        EXPECT_EQ(CompileCase(source(value), false),
                  TooDeep(source(value), column, "the expression is"));
    }
}

TEST(Nesting, OfTypesAndConstantsIsAcceptedUpToItsBoundAndRefusedBeyond) {
    const auto nested = [](int depth) {
        std::string source = "parcelable T {";
        for (int i = 1; i < depth; ++i)
            source += " parcelable N" + std::to_string(i) + " {";
        return source + Repeat(" }", depth);
    };
    EXPECT_EQ(CompileCase(nested(kMaxTypeDepth), false), "");
    EXPECT_EQ(CompileCase(nested(kMaxTypeDepth + 1), false),
              TooDeep(nested(kMaxTypeDepth + 1), 128, "types are"));
    const auto chain = [](int last) {
        std::string source = "interface T {";
        for (int i = 0; i < last; ++i)
            source += " const int C" + std::to_string(i) + " = C" + std::to_string(i + 1) + ";";
        return source + " const int C" + std::to_string(last) + " = 1; }";
    };
    EXPECT_EQ(CompileCase(chain(64), false), "");
    EXPECT_EQ(CompileCase(chain(65), false),
              TooDeep(chain(65), static_cast<int>(chain(65).find("C65")) + 1,
                      "the definition of 'C65' is"));
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
