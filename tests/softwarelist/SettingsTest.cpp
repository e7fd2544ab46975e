// The component object linked in, without the built library: how SetConfig merges a settings message into the
// configuration file and stores the search paths, and which BatchQuery values make a run ask the package manager once.
#include "HostShim.h"
#include "TestUtil.h"
#include "softwarelist/softwarelist.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

// A component initialised on a fresh home folder.
struct Component {
    Component() {
        testutil::MakeDirs(home + "data");
        hostshim::SetHomePath(home);
        CInitInfo info(true);
        info.m_strHomePath = home;
        app.InitClient(&info);
    }
    std::string Data(const std::string& name) const { return home + "data/" + name; }
    testutil::TempDir dir;
    const std::string home = dir.path() + "/";
    CSoftwareListApp app;
};

}  // namespace

// Each row sent after the one before. A path list that starts empty leaves "swsearch.bin" alone; a length far
// beyond the block still reads the text, a NUL within it ends it.
TEST(ServerSettings, SetConfigReplacesAndAddsKeysAndStoresThePaths) {
    Component component;
    const std::string config = component.Data(".Software_Inventory_Config");
    const std::string strings("\x03\x00\x06/srv/a\x06/srv/b\x06/srv/c", 23);
    testutil::WriteFileText(config, "Logging=1\nMode=1\n", 0600);
    // The text, the paths after it, its length element (0: its own), the file after.
    const std::tuple<std::string, std::vector<std::string>, unsigned, std::string> rows[] = {
        {"Mode=\"3\"; Include=\"/srv|/opt\"", {"/srv/a", "/srv/b", "/srv/c"}, 0, "Include=/srv|/opt\nLogging=1\nMode=3\n"},
        {"Mode=\"2\"\t Note = \"x\"", {}, 0xFFFFFFF0u, "Include=/srv|/opt\nLogging=1\nMode=2\nNote=x\n"},
        {"Mode=\"4\"; Scan=\"*.x\"", {}, 8u, "Include=/srv|/opt\nLogging=1\nMode=4\nNote=x\n"},
        {"Mode=\"6\" Note=\"y\" Mode=\"7\"", {}, 0, "Include=/srv|/opt\nLogging=1\nMode=7\nNote=y\n"},
        {"Logging=\"\" BatchQuery=\"1\"", {}, 0, "BatchQuery=1\nInclude=/srv|/opt\nLogging=\nMode=7\nNote=y\n"}};
    for (const auto& [text, paths, length, after] : rows) {
        CNDKMessage message(9);
        message.Add(length ? length : static_cast<unsigned int>(text.size() + 1));
        message.Add(text.c_str(), static_cast<unsigned int>(text.size() + 1));
        for (const std::string& path : paths) message.Add(path);
        for (const char* end : {"", "/after/the/end"}) message.Add(std::string(end));
        EXPECT_EQ(component.app.SetConfig(message), 1);
        EXPECT_EQ(testutil::ReadFileText(config), after) << text;
        EXPECT_EQ(testutil::ReadFileText(component.Data("swsearch.bin")), strings);
    }
    // Typed reads take the block's length element whatever its type.
    CNDKMessage message(9);
    message.Add(9u);
    message.Add(0);
    message.AddUnc("Mode=\"5\"", 9);
    EXPECT_EQ(component.app.SetConfig(message), 1);
    EXPECT_EQ(testutil::ReadFileText(config), "BatchQuery=1\nInclude=/srv|/opt\nLogging=\nMode=5\nNote=y\n");
}

// Only a value that reads as the number 1 asks for all packages in one call; the rest query each package.
TEST(ServerSettings, WhichBatchQueryValuesAskThePackageManagerOnce) {
    const bool byDefault = true;   // what a missing or empty value gives
    const std::pair<const char*, bool> rows[] = {   // the configuration line, one batch call
        {"", byDefault}, {"BatchQuery=", byDefault}, {"BatchQuery=1", true}, {"BatchQuery=01", true},
        {"BatchQuery=1abc", true}, {"BatchQuery= 1", true}, {"BatchQuery=0", false}, {"BatchQuery=2", false},
        {"BatchQuery=-1", false}, {"BatchQuery=yes", false}, {"BatchQuery = 1", false}, {"batchquery=1", byDefault}};
    testutil::FakePackageManager fake;
    fake.SetPackages({"a^1^A^O", "b^2^B^O"});
    Component component;
    for (const auto& [line, batch] : rows) {
        testutil::WriteFileText(component.Data(".Software_Inventory_Config"), std::string("Mode=1\n") + line + "\n");
        fake.ClearCalls();
        CNDKMessage reply;
        CExecuteInfo info(false, 0, nullptr);
        EXPECT_EQ(component.app.Execute(0, reply, &info), 3) << line;
        component.app.DataSent(reply);   // releases the pending maps
        EXPECT_EQ(fake.Calls().find('\x1F') != std::string::npos, batch) << line << "\n" << fake.Calls();
    }
}
