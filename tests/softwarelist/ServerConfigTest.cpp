// The server's settings through the built library: the settings text merged into
// the configuration file, the extra search paths in "swsearch.bin", and settings
// blocks whose length element does not fit what the message carries.
#include "Scenario.h"

#include "archive/arcobj.h"

#include <gtest/gtest.h>

namespace {

using Strings = std::vector<std::string>;

// [length L][block of the text's bytes plus a NUL], then the paths, then "" and a straggler.
CNDKMessage Settings(const std::string& text, const Strings& paths) {
    CNDKMessage message(9);
    const unsigned int length = static_cast<unsigned int>(text.size() + 1);
    message.Add(length);
    message.Add(text.c_str(), length);
    for (const std::string& path : paths) message.Add(path);
    message.Add(std::string());
    message.Add(std::string("/after/the/end"));
    return message;
}

Strings LoadStringArray(const std::string& path) {
    CFile file;
    EXPECT_TRUE(file.Open(path.c_str(), CFile::modeRead));
    CStringArray array;
    CArchive archive(&file, CArchive::load, 4096, nullptr);
    array.Serialize(archive);
    archive.Close();
    Strings out;
    for (int i = 0; i < array.GetSize(); ++i) out.push_back(array.GetAt(i));
    return out;
}

class ServerConfig : public ::testing::Test {
protected:
    std::string Config() { return testutil::ReadFileText(session.DataFile(".Software_Inventory_Config")); }
    scenario::Session session;
};

TEST_F(ServerConfig, MergesSettingsAndStoresSearchPaths) {
    session.WriteConfig("Logging=1\nMode=1\nScan=*.png\n");
    session.Start();
    session.ClearLog();

    CNDKMessage message = Settings("Mode=\"3\"; Include=\"/srv|/opt\"", {"/srv/a", "/srv/b", "/srv/c"});
    EXPECT_EQ(session.lib().SetConfig(message), 1);
    EXPECT_EQ(Config(), "Include=/srv|/opt\nLogging=1\nMode=3\nScan=*.png\n");

    const std::string search = session.DataFile("swsearch.bin");
    const std::vector<std::uint8_t> expected = {0x03, 0x00, 0x06, '/', 's', 'r', 'v', '/', 'a', 0x06, '/', 's',
                                                'r',  'v',  '/',  'b', 0x06, '/', 's', 'r', 'v', '/', 'c'};
    EXPECT_EQ(testutil::Hex(testutil::ReadFileBytes(search)), testutil::Hex(expected));
    EXPECT_EQ(LoadStringArray(search), (Strings{"/srv/a", "/srv/b", "/srv/c"}));
    EXPECT_EQ(scenario::LogMessages(session.Log()),
              (Strings{"Set Config called", "SetConfig [Mode=\"3\"; Include=\"/srv|/opt\"]",
                       "Check for extra files to scan", "Add /srv/a to array", "Add /srv/b to array",
                       "Add /srv/c to array", "Write arrary to " + search}));

    // A text long enough to travel compressed; a path list that starts empty leaves
    // "swsearch.bin" alone.
    const std::string note(150, 'n');
    session.ClearLog();
    CNDKMessage second = Settings("Note=\"" + note + "\"\t Mode = \"5\"", {});
    EXPECT_EQ(second.GetHiddenElements(), 1u);
    EXPECT_EQ(session.lib().SetConfig(second), 1);
    EXPECT_EQ(Config(), "Include=/srv|/opt\nLogging=1\nMode=5\nNote=" + note + "\nScan=*.png\n");
    EXPECT_EQ(testutil::ReadFileBytes(search), expected);
    const Strings log = scenario::LogMessages(session.Log());
    ASSERT_EQ(log.size(), 3u);
    EXPECT_EQ(log.back(), "Check for extra files to scan");
    session.Stop();
}

TEST_F(ServerConfig, SettingsBlockIsBoundedByWhatTheMessageCarries) {
    session.WriteConfig("Mode=1\n");
    session.Start();
    auto mode = [this]() {
        const std::string text = Config();
        const auto at = text.find("Mode=");
        return at == std::string::npos ? std::string() : text.substr(at + 5, text.find('\n', at) - at - 5);
    };

    // A length far beyond the bytes of a raw block: the text is still read, nothing huge allocated.
    CNDKMessage raw;
    raw.Add(0xFFFFFFF0u);
    raw.Add("Mode=\"2\"", 9u);
    raw.Add(std::string("/srv/x"));
    EXPECT_EQ(session.lib().SetConfig(raw), 1);
    EXPECT_EQ(mode(), "2");
    EXPECT_EQ(LoadStringArray(session.DataFile("swsearch.bin")), Strings{"/srv/x"});

    // The same for a compressed block.
    const std::string padded = "Mode=\"3\" Pad=\"" + std::string(300, 'p') + "\"";
    CNDKMessage compressed;
    compressed.Add(0x7FFFFFFFu);
    compressed.Add(padded.c_str(), static_cast<unsigned int>(padded.size() + 1));
    EXPECT_EQ(session.lib().SetConfig(compressed), 1);
    EXPECT_EQ(mode(), "3");

    // No NUL within L: the text ends after L bytes.
    CNDKMessage unterminated;
    unterminated.Add(8u);
    unterminated.Add("Mode=\"4\"; Scan=\"*.x\"", 20u);
    EXPECT_EQ(session.lib().SetConfig(unterminated), 1);
    EXPECT_EQ(mode(), "4");
    EXPECT_EQ(Config().find("Scan="), std::string::npos);

    // A block without its hidden length, and one whose hidden length exceeds its
    // bytes: neither is read as settings.
    CNDKMessage bare;
    bare.Add(9u);
    bare.AddUnc("Mode=\"6\"", 9u);
    EXPECT_EQ(session.lib().SetConfig(bare), 1);
    CNDKMessage lying;
    lying.Add(9u);
    lying.Add(0xFFFFFFFFu);
    lying.AddUnc("Mode=\"7\"", 9u);
    EXPECT_EQ(session.lib().SetConfig(lying), 1);
    EXPECT_EQ(mode(), "4");
    session.Stop();
}

}  // namespace
