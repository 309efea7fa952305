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

}  // namespace
}  // namespace host::aidl
