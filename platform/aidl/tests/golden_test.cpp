// Compares the code generated for tests/sample with tests/golden. To accept a change, from the
// root:
//   cd platform/aidl/tests/sample && aidl --root . --version 3 --out NEW velmora/sample/*.aidl
// and copy each file of NEW to platform/aidl/tests/golden with .golden at the end of its name.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "emit/ndk_emitter.h"
#include "files.h"
#include "front_end.h"
#include "tests/map_files.h"

namespace host::aidl {
namespace {

const std::string kSample = AIDL_TEST_DIR "/sample";
const std::string kGolden = AIDL_TEST_DIR "/golden";

std::string ReadOrSay(const std::string& path) {
    std::string text;
    return DiskFiles().Read(path, &text) ? text : "cannot read " + path;
}

std::vector<OutputFile> Generate() {
    const DiskFiles files;
    const auto program = RunFrontEnd(&files, {kSample}, ListAidlFiles(kSample), false);
    EXPECT_EQ(program->diagnostics().Render(), "");
    std::vector<OutputFile> out;
    for (const auto& document : program->documents()) {
        for (OutputFile& file : EmitNdk(*document, {3, kNotFrozen}))
            out.push_back(std::move(file));
    }
    return out;
}

TEST(GeneratedCode, IsTheGoldenFilesAndNoOthers) {
    std::set<std::string> expected;
    for (const OutputFile& file : Generate()) {
        const std::string golden = kGolden + "/" + file.path + ".golden";
        EXPECT_EQ(file.text, ReadOrSay(golden)) << golden;
        expected.insert(golden);
    }
    ASSERT_FALSE(expected.empty());
    std::set<std::string> present;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(kGolden)) {
        if (entry.is_regular_file()) present.insert(entry.path().string());
    }
    EXPECT_EQ(present, expected);
}

// Whoever looks into each of them anew never finishes.
TEST(GeneratedCode, ComparesTypesThatHoldTheNextOneTwice) {
    std::string source = "package p; parcelable T { ";
    for (int i = 0; i < 60; ++i) {
        const std::string next = "P" + std::to_string(i + 1);
        source += "parcelable P" + std::to_string(i) + " { " + next + " a; " + next + " b; } ";
    }
    const MapFiles files = {{"p/T.aidl", source + "parcelable P60 { int x; } P0 p; }"}};
    const auto program = RunFrontEnd(&files, {"."}, {"p/T.aidl"}, false);
    ASSERT_EQ(program->diagnostics().Render(), "");
    const std::string header = EmitNdk(*program->documents()[0], {}).front().text;
    EXPECT_NE(header.find("bool operator==(const T& _aidl_rhs)"), std::string::npos);
}

}  // namespace
}  // namespace host::aidl
