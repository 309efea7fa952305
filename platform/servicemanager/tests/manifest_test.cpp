#include "manifest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host_testing.h>
#include <sys/stat.h>

#include <fstream>

namespace host {
namespace {

using ::testing::ElementsAre;

std::string Hal(const std::string& inside) {
    return "<manifest version=\"1.0\" type=\"device\">\n<hal format=\"aidl\">\n<name>a.b</name>\n" +
           inside + "\n</hal></manifest>";
}

std::vector<std::string> Names(const Manifest& manifest) {
    std::vector<std::string> names;
    for (const auto& [name, place] : manifest.instances())
        names.push_back(name);
    return names;
}

TEST(Manifest, ReadsBothWaysOfDeclaringAnInstance) {
    Manifest manifest;
    std::string error;
    ASSERT_TRUE(manifest.AddText("m.xml",
                                 Hal("<version>1</version><fqname> IFoo/default </fqname>"
                                     "<fqname>IFoo/second</fqname><interface><name>IBar</name>"
                                     "<instance>x</instance><instance>y</instance></interface>"),
                                 &error))
            << error;
    EXPECT_THAT(Names(manifest),
                ElementsAre("a.b.IBar/x", "a.b.IBar/y", "a.b.IFoo/default", "a.b.IFoo/second"));
    EXPECT_TRUE(manifest.IsDeclared("a.b.IFoo/default"));
    EXPECT_FALSE(manifest.IsDeclared("a.b.IFoo"));
}

TEST(Manifest, NamesFileLineAndReasonOfABadFragment) {
    const struct {
        std::string text;
        std::string error;
    } cases[] = {
            {"", "m.xml:1: is not XML: empty document"},
            {"just words", "m.xml:1: is not XML: parsing text"},
            {"<manifest>\n<hal>\n</manifest>", "m.xml:2: is not XML: mismatched element"},
            {"<!-- nothing else -->",
             "m.xml:1: is not a manifest: the root element is not <manifest>"},
            {"\n<compatibility-matrix/>",
             "m.xml:2: is not a manifest: the root element is not <manifest>"},
            {"<manifest>\n<hal format=\"hidl\"/></manifest>",
             "m.xml:2: <hal> is not of format \"aidl\""},
            {"<manifest><hal/></manifest>", "m.xml:1: <hal> is not of format \"aidl\""},
            {"<manifest><hal format=\"aidl\"><fqname>I/d</fqname></hal></manifest>",
             "m.xml:1: <hal> has no <name> that names a package"},
            {Hal(""), "m.xml:2: <hal> a.b declares no instance"},
            {Hal("<version>one</version><fqname>I/d</fqname>"),
             "m.xml:4: <version> is not a number"},
            {Hal("<fqname>IFoo</fqname>"),
             "m.xml:4: <fqname> is not of the form IInterface/instance"},
            {Hal("<fqname>IFoo/</fqname>"), "m.xml:4: \"a.b.IFoo/\" cannot be a service's name"},
            {Hal("<fqname>I/a/b</fqname>"), "m.xml:4: \"a.b.I/a/b\" cannot be a service's name"},
            {Hal("<fqname>I F/a</fqname>"), "m.xml:4: \"a.b.I F/a\" cannot be a service's name"},
            {Hal("<fqname>I/" + std::string(122, 'x') + "</fqname>"),
             "m.xml:4: \"a.b.I/" + std::string(122, 'x') + "\" cannot be a service's name"},
            {Hal("<interface><name>IFoo</name></interface>"),
             "m.xml:4: <interface> needs a <name> and an <instance>"},
            {Hal("<fqname>I/d</fqname>\n<fqname>I/d</fqname>"),
             "m.xml:5: a.b.I/d is declared twice, first in m.xml:4"},
    };
    for (const auto& c : cases) {
        Manifest manifest;
        std::string error;
        EXPECT_FALSE(manifest.AddText("m.xml", c.text, &error)) << c.text;
        EXPECT_EQ(error, c.error) << c.text;
    }
}

TEST(Manifest, ReadsTheXmlFilesOfAFolderInOrderAndNothingThatIsNoReadableFile) {
    const testing::ScopedHost folder({.start = false});
    const auto write = [&](const char* name, const std::string& text) {
        std::ofstream(folder.path() + name) << text;
    };
    write("/b.xml", Hal("<fqname>I/b</fqname>"));
    write("/a.xml", Hal("<fqname>I/a</fqname>"));
    write("/notes.txt", "not XML");
    Manifest manifest;
    std::string error;
    ASSERT_TRUE(manifest.AddPath(folder.path(), &error)) << error;
    EXPECT_THAT(Names(manifest), ElementsAre("a.b.I/a", "a.b.I/b"));

    write("/large.xml", std::string(1024 * 1024 + 1, ' '));
    ASSERT_EQ(mkfifo((folder.path() + "/pipe").c_str(), 0600), 0);
    for (const char* bad : {"/large.xml", "/pipe"}) {
        EXPECT_FALSE(manifest.AddPath(folder.path() + bad, &error));
        EXPECT_EQ(error, folder.path() + bad + ": is not a file of at most 1 MiB");
    }
}

}  // namespace
}  // namespace host
