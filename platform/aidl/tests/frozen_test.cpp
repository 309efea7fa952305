#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "files.h"
#include "sha1.h"

namespace host::aidl {
namespace {

namespace fs = std::filesystem;

struct Outcome {
    int status;
    std::string output;
};

// The tool itself, run on a package r/p of one file in a folder of the test's own.
class FrozenTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "aidl-frozen-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
    }
    void TearDown() override { fs::remove_all(folder_); }

    void Write(const std::string& path, const std::string& text) {
        std::string error;
        ASSERT_TRUE(WriteFile(folder_ + "/" + path, text, &error)) << error;
    }

    Outcome Run(const std::string& arguments) const {
        const std::string command =
                "cd '" + folder_ + "' && '" AIDL_TOOL "' " + arguments + " 2>&1";
        FILE* pipe = popen(command.c_str(), "r");
        if (pipe == nullptr) return {-1, "popen failed"};
        std::string output;
        for (int c; (c = std::fgetc(pipe)) != EOF;)
            output += static_cast<char>(c);
        const int status = pclose(pipe);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
    }

    Outcome Freeze() const { return Run("freeze --root r --api api --version 1 r/p/T.aidl"); }
    Outcome Compile() const {
        return Run("compile --root r --api api --version 1 --out out r/p/T.aidl");
    }

    std::string folder_;
};

std::string HowTo(const std::string& imports) {
    return "If version 1 has not been released yet, freeze it anew with the build's target\n"
           "  p-V1-freeze\nor with\n"
           "  aidl freeze --api api --version 1 --root <folder of the sources>" +
           imports + " [--stability vintf] <files>\nelse raise the version.\n";
}
const std::string kHowTo = HowTo("");

TEST_F(FrozenTest, AcceptsWhatWasFrozenAndIsSilent) {
    Write("r/p/T.aidl", "package p;\ninterface T { void f(); }");
    EXPECT_EQ(Freeze().output, "");
    const Outcome compiled = Compile();
    EXPECT_EQ(compiled.output, "");
    EXPECT_EQ(compiled.status, 0);
    std::string header;
    std::string hash;
    ASSERT_TRUE(DiskFiles().Read(folder_ + "/out/aidl/p/T.h", &header));
    ASSERT_TRUE(DiskFiles().Read(folder_ + "/api/p/1/.hash", &hash));
    EXPECT_NE(header.find("hash = \"" + hash.substr(0, 40) + "\""), std::string::npos);
    std::string next;
    ASSERT_EQ(Run("freeze --root r --api api --version 2 r/p/T.aidl").status, 0);
    ASSERT_TRUE(DiskFiles().Read(folder_ + "/api/p/2/.hash", &next));
    EXPECT_NE(hash, next) << "the version is a part of it";
}

TEST_F(FrozenTest, DoesNotMindCommentsSpacingAndWaysToWriteAValue) {
    Write("r/p/T.aidl", "package p;\nparcelable T { int x = 16; }");
    ASSERT_EQ(Freeze().status, 0);
    Write("r/p/T.aidl", "package p;\n/** Doc. */ parcelable T {\n\n // ...\n int x = 1 << 4;\n}");
    EXPECT_EQ(Compile().output, "");
}

TEST_F(FrozenTest, ReadsBackTheExtremesOfRealNumbersAndCompilesThem) {
    Write("r/p/T.aidl",
          "package p;\nparcelable T {\n"
          "float a = 3.4028234663852886e38; float b = -3.4028235e38f; float c = 3.4028235677e38;\n"
          "float d = 1e-45; float e = 1e-50; float f = 0.1; float g = 1.17549435e-38f;\n"
          "double h = 1.7976931348623157e308; double i = 5e-324; double j = 0.1;\n}");
    ASSERT_EQ(Freeze().output, "");
    EXPECT_EQ(Compile().output, "");
    std::string header;
    ASSERT_TRUE(DiskFiles().Read(folder_ + "/out/aidl/p/T.h", &header));
    for (const char* field :
         {"a = 3.4028235e+38f;", "b = -3.4028235e+38f;", "c = 3.4028235e+38f;", "d = 1e-45f;",
          "e = 0.0f;", "f = 0.1f;", "h = 1.7976931348623157e+308;", "i = 5e-324;", "j = 0.1;"})
        EXPECT_NE(header.find(field), std::string::npos) << field << header;
}

TEST_F(FrozenTest, RefusesAChangeAndSaysWhichAndHowToFreezeAnew) {
    Write("r/p/T.aidl", "package p;\nparcelable T { int x; }");
    ASSERT_EQ(Freeze().status, 0);
    Write("r/p/T.aidl", "package p;\nparcelable T { int x; long y; }");
    const Outcome refused = Compile();
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.output,
              std::string("aidl: error: the sources of 'p' differ from frozen version 1\n"
                          "p/T.aidl differs from the frozen version:\n"
                          "  frozen: }\n  source:     long y;\n") +
                      kHowTo);
    EXPECT_FALSE(fs::exists(folder_ + "/out"));
    ASSERT_EQ(Freeze().status, 0);
    EXPECT_EQ(Compile().output, "");
}

TEST_F(FrozenTest, RefusesATypeTooManyOrTooFewOrOfASecondPackage) {
    Write("r/p/T.aidl", "package p;\nparcelable T { }");
    Write("r/p/U.aidl", "package p;\nparcelable U { }");
    ASSERT_EQ(Freeze().status, 0);
    EXPECT_EQ(Run("check --root r --api api --version 1 r/p/U.aidl").output,
              std::string("aidl: error: the sources of 'p' differ from frozen version 1\n"
                          "p/U.aidl is not in the frozen version\n"
                          "p/T.aidl is in the frozen version only\n") +
                      kHowTo);
    Write("r/q/V.aidl", "package q;\nparcelable V { }");
    EXPECT_EQ(Run("--root r --version 1 --out out r/p/T.aidl r/q/V.aidl").output,
              "aidl: error: the files belong to several packages: 'p' and 'q'\n");
}

TEST_F(FrozenTest, RefusesAFrozenVersionThatWasTouchedOrIsMissing) {
    Write("r/p/T.aidl", "package p;\nparcelable T { int x; }");
    EXPECT_EQ(Compile().output,
              std::string("aidl: error: there is no frozen version in 'api/p/1'\n") + kHowTo);
    ASSERT_EQ(Freeze().status, 0);
    Write("api/p/1/p/T.aidl", "package p;\nparcelable T { int y; }");
    Write("r/p/T.aidl", "package p;\nparcelable T { int y; }");
    EXPECT_EQ(Compile().output,
              std::string("aidl: error: the files in 'api/p/1' do not have the hash in .hash "
                          "there: a frozen version never changes\n") +
                      kHowTo);
    Write("api/p/1/p/T.aidl", "package p;\nparcelable T { int }");
    EXPECT_EQ(Compile().output,
              "api/p/1/p/T.aidl:2:20: error: expected a name, found '}'\n"
              "parcelable T { int }\n                   ^\n");
}

TEST_F(FrozenTest, FreezesTypesOfAnotherPackageByTheirQualifiedNames) {
    Write("i/o/Other.aidl", "package o;\nparcelable Other { int x; }");
    Write("r/p/T.aidl", "package p;\nimport o.Other;\nparcelable T { Other o; }");
    const std::string rest = " --root r --import i --api api --version 1 r/p/T.aidl";
    EXPECT_EQ(Run("check" + rest).output,
              "aidl: error: there is no frozen version in 'api/p/1'\n" + HowTo(" --import i"));
    ASSERT_EQ(Run("freeze" + rest).output, "");
    EXPECT_EQ(Run("check" + rest).output, "");
}

TEST_F(FrozenTest, SaysWhatCannotBeWritten) {
    Write("r/p/T.aidl", "package p;\nparcelable T { }");
    Write("out", "in the way");
    EXPECT_EQ(Run("--root r --version 1 --out out r/p/T.aidl").output,
              "aidl: error: cannot write 'out/aidl/p/T.h'\n");
    const std::string api(300, 'x');
    EXPECT_EQ(Run("freeze --root r --version 1 r/p/T.aidl --api " + api).output,
              "aidl: error: cannot replace '" + api + "/p/1'\n");
}

TEST_F(FrozenTest, FilesThatDoNotChangeKeepTheirTimeStamp) {
    Write("r/p/T.aidl", "package p;\nparcelable T { }");
    ASSERT_EQ(Freeze().status, 0);
    ASSERT_EQ(Compile().status, 0);
    const std::string header = folder_ + "/out/aidl/p/T.h";
    const auto long_ago = fs::file_time_type() + std::chrono::hours(1);
    fs::last_write_time(header, long_ago);
    ASSERT_EQ(Compile().status, 0);
    EXPECT_EQ(fs::last_write_time(header), long_ago);
}

TEST_F(FrozenTest, CommandLinesThatMakeNoSenseAreUsageErrors) {
    const struct {
        const char* arguments;
        const char* message;
    } kCases[] = {
            {"", "--root is missing"},
            {"--root r x.aidl", "--version is missing"},
            {"--root r --version 0 x.aidl", "--version takes a number from 1"},
            {"--root r --version 1x x.aidl", "--version takes a number from 1"},
            {"--root r --version 1 x.aidl", "--out is missing"},
            {"freeze --root r --version 1 x.aidl", "--api is missing"},
            {"--root r --version 1 --out o", "no files"},
            {"--root r --version 1 --out o --api a --hash 1 x",
             "--hash and --api exclude each other"},
            {"--root r --version 1 --out o --hash '\"' x", "--hash takes digits and small letters"},
            {"--stability strong", "--stability takes 'vintf' or 'none'"},
            {"x --nothing y", "unknown option '--nothing', or one without its argument"},
            {"-xy", "unknown option '-x', or one without its argument"},
            {"x --root", "unknown option '--root', or one without its argument"},
    };
    for (const auto& one : kCases) {
        const Outcome outcome = Run(one.arguments);
        EXPECT_EQ(outcome.status, 2) << one.arguments;
        EXPECT_EQ(outcome.output.rfind(std::string("aidl: error: ") + one.message + "\n", 0), 0u)
                << outcome.output;
    }
    EXPECT_EQ(Run("--help").status, 0);
}

TEST(Sha1, GivesThePublishedDigests) {
    EXPECT_EQ(Sha1(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(Sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(Sha1(std::string(1000000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

}  // namespace
}  // namespace host::aidl
