// Labels: processes
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "client_helper.h"

namespace host::testing {
namespace {

class Program : public ::testing::Test {
  protected:
    // Runs it to its end and returns its exit status; what it said is in log().
    int Run(const std::vector<std::string>& arguments, const std::string& folder = "") {
        LaunchOptions options;
        if (!folder.empty()) options.environment["BINDER_HOST_DIR"] = folder;
        child_ = host_.LaunchServiceManager(arguments, options);
        const auto status = child_->WaitExit();
        EXPECT_TRUE(child_->log().WaitForEnd());
        return status ? status->code : -2;
    }
    std::string FirstLine() {
        return child_->log().lines().empty() ? "" : child_->log().lines()[0];
    }

    std::string Write(const std::string& name, const std::string& text) {
        const std::string path = host_.path() + "/" + name;
        std::ofstream(path) << text;
        return path;
    }

    ScopedHost host_{{.start = false}};
    std::unique_ptr<Child> child_;
};

TEST_F(Program, SaysHowItIsUsed) {
    EXPECT_EQ(Run({"--help"}), 0);
    EXPECT_EQ(FirstLine(), "Usage: servicemanager [--help] [MANIFEST...]");
    EXPECT_EQ(Run({"--nonsense"}), 2);
    EXPECT_EQ(child_->log().Count("Usage: "), 1);
}

TEST_F(Program, EndsWithAClearErrorForABadManifest) {
    const std::string text =
            "<manifest><hal format=\"aidl\"><name>p</name><fqname>I/d</fqname></hal></manifest>";
    const std::string good = Write("good.xml", text);
    const std::string twin = Write("twin.xml", "\n" + text);
    EXPECT_EQ(Run({good, twin}), 1);
    EXPECT_EQ(FirstLine(),
              "servicemanager: " + twin + ":2: p.I/d is declared twice, first in " + good + ":1");
}

TEST_F(Program, RefusesAFolderThatAnotherOneServes) {
    host_.StartServiceManager();
    Helper client("Client");
    ASSERT_EQ(client.Command("publish n x"), "0");
    EXPECT_EQ(Run({}), 1);
    EXPECT_NE(FirstLine().find(host_.path()), std::string::npos) << FirstLine();
    EXPECT_EQ(client.Command("check n"), "own x");
}

// A folder that cannot be used is an error at once for both sides, told in one sentence that names
// it.
TEST_F(Program, NamesAFolderThatCannotBeUsed) {
    const std::string open_to_all = host_.path() + "/open";
    mkdir(open_to_all.c_str(), 0700);
    chmod(open_to_all.c_str(), 0755);
    const std::string file = Write("file", "");
    const struct {
        const char* what;
        std::string folder;
    } cases[] = {
            {"wrong rights", open_to_all},
            {"too long", "/tmp/" + std::string(120, 'x')},
            {"parent missing", host_.path() + "/none/folder"},
            {"not a folder", file},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(Run({}, c.folder), 1);
        EXPECT_NE(FirstLine().find(c.folder), std::string::npos) << FirstLine();
        LaunchOptions options;
        options.environment["BINDER_HOST_DIR"] = c.folder;
        Helper client("Client", {}, options);
        EXPECT_EQ(client.Command("publish n x"), "-5");
        EXPECT_TRUE(client.log().WaitForLine("addService(n) fails: "));
        EXPECT_EQ(client.Command("wait n"), "null");
        EXPECT_EQ(client.Command("declared n"), "no");
        EXPECT_NE(client.Command("list").find(c.folder), std::string::npos);
        EXPECT_EQ(client.log().Count(" waits: "), 0);
    }
    std::error_code failure;
    std::filesystem::remove_all(cases[1].folder, failure);
}

}  // namespace
}  // namespace host::testing
