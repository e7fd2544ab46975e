// The configuration file: the literal line parser and the settings-text scanner
// as tables of cases, then the read and rewrite rules against real files.
#include "support/Config.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

using testutil::ReadFileText;
using testutil::TempDir;
using testutil::WriteFileText;
using Items = std::vector<std::pair<std::string, std::string>>;

namespace {

unsigned ModeOf(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return 0xFFFF;
    return st.st_mode & 07777;
}

}  // namespace

TEST(ConfigText, ParseLineIsLiteral) {
    struct Case {
        std::string piece;
        bool ok;
        std::string key, value;
    };
    const std::vector<Case> cases = {
        {"a=1", true, "a", "1"},
        {"x=", true, "x", ""},
        {"x y=1", true, "x", "y=1"},
        {"Mode = 2", true, "Mode", "= 2"},
        {"cr=1\r", true, "cr", "1\r"},
        {"#x=1", true, "#x", "1"},
        {"a==b", true, "a", "=b"},
        {"a\t=1", true, "a\t", "1"},
        {"k=v w ", true, "k", "v w "},
        {"=x", false, "", ""},
        {" a=1", false, "", ""},
        {"x", false, "", ""},
        {"", false, "", ""},
        {"0", false, "", ""},
    };
    for (const Case& c : cases) {
        std::string key = "?", value = "?";
        EXPECT_EQ(configtext::parseLine(c.piece, key, value), c.ok) << "[" << c.piece << "]";
        if (c.ok) {
            EXPECT_EQ(key, c.key) << "[" << c.piece << "]";
            EXPECT_EQ(value, c.value) << "[" << c.piece << "]";
        }
    }
}

TEST(ConfigText, ParseItemsScanner) {
    const std::vector<std::pair<std::string, Items>> cases = {
        {"Logging=\"1\"; Mode = \"2\"", {{"Logging", "1"}, {"Mode", "2"}}},
        {"A=\"x y\" B = \"1=2\"", {{"A", "x y"}, {"B", "1=2"}}},
        {"a=\"x;y=z\"", {{"a", "x;y=z"}}},
        {" \t\n a=\"v\";;; ;\tb=\"w\" ;", {{"a", "v"}, {"b", "w"}}},
        {"a=\t\n\"v\"", {{"a", "v"}}},
        {"a=\"1\"b=\"2\"", {{"a", "1"}, {"b", "2"}}},
        {"a=\"\"", {{"a", ""}}},
        // the opening quote is skipped unseen, so an unquoted value loses its first character
        {"Mode=2\"", {{"Mode", ""}}},
        {"Mode=23\"", {{"Mode", "3"}}},
        {"a==\"v\"", {{"a", ""}}},
        // only blanks are trimmed from the key, and the value is never trimmed
        {"  a  =\" v \"", {{"a", " v "}}},
        {"a\t=\"v\"", {{"a\t", "v"}}},
        {";a=\"1\"", {{";a", "1"}}},
        // an empty key is not stored, the scan goes on
        {"=\"v\" b=\"w\"", {{"b", "w"}}},
        {"   =\"v\"", {}},
        // unterminated items and texts that end right after '=' are dropped
        {"a=\"1", {}},
        {"a=\"1\"; b=\"2", {{"a", "1"}}},
        {"a=", {}},
        {"a= \t ", {}},
        {"a=\"", {}},
        {"a", {}},
        {"", {}},
        {std::string("a=\"1\"\0b=\"2\"", 11), {{"a", "1"}}},
    };
    for (const auto& c : cases) EXPECT_EQ(configtext::parseItems(c.first), c.second) << "[" << c.first << "]";
}

TEST(Config, ReadsLinesLiterallyFirstOccurrenceWins) {
    TempDir dir;
    const std::string path = dir.file("cfg");
    WriteFileText(path, "a=1\na=2\n=x\n b=1\nx\nx=\np y=1\ncr=1\r\nMode = 2\n#c=3\nlast=no newline");
    Config config(path.c_str());
    EXPECT_EQ(config.getValue("a"), "1");
    EXPECT_EQ(config.getIntValue("a", 7), 1);
    const Items expected = {{"#c", "3"}, {"Mode", "= 2"}, {"a", "1"}, {"cr", "1\r"},
                            {"last", "no newline"}, {"p", "y=1"}, {"x", ""}};
    EXPECT_EQ(Items(config.items().begin(), config.items().end()), expected);

    // A value set in memory survives a later load.
    config.setValue("a", "9");
    config.readConfigFile();
    EXPECT_EQ(config.getValue("a"), "9");
}

TEST(Config, LongLinesArriveInPiecesOf799) {
    TempDir dir;
    const std::string path = dir.file("cfg");
    const std::string first = "k=" + std::string(797, 'v');           // 799 characters
    const std::string second = "z=" + std::string(199, 'w');          // 201 characters
    WriteFileText(path, first + second + "\nafter=1\n" + std::string(1000, 'n') + "\n");
    Config config(path.c_str());
    EXPECT_EQ(config.getValue("k"), std::string(797, 'v'));
    EXPECT_EQ(config.getValue("z"), std::string(199, 'w'));
    EXPECT_EQ(config.getValue("after"), "1");
    EXPECT_EQ(config.items().size(), 3u);
}

TEST(Config, IntValues) {
    TempDir dir;
    const std::string path = dir.file("cfg");
    WriteFileText(path, "empty=\nword=abc\nmixed=12abc\nneg= -7\nplus=+5\nhuge=99999999999\n");
    Config config(path.c_str());
    EXPECT_EQ(config.getIntValue("absent", 42), 42);
    EXPECT_EQ(config.getIntValue("empty", 42), 42);
    EXPECT_EQ(config.getIntValue("word", 42), 0);
    EXPECT_EQ(config.getIntValue("mixed", 42), 12);
    EXPECT_EQ(config.getIntValue("neg", 42), -7);
    EXPECT_EQ(config.getIntValue("plus", 42), 5);
    config.getIntValue("huge", 0);   // must not be undefined behaviour

    config.setIntValue("n", -12345);
    EXPECT_EQ(config.getValue("n"), "-12345");
    EXPECT_EQ(config.getValue("absent"), "");
}

TEST(Config, RewriteIsSortedAndDoesNotTruncate) {
    ::umask(022);
    TempDir dir;
    const std::string fresh = dir.file("fresh");
    {
        Config config(fresh.c_str());
        config.setIntValue("b", 2);
        config.setValue("a", "1");
        EXPECT_EQ(config.updateConfigFile(), 0);
    }
    EXPECT_EQ(ReadFileText(fresh), "a=1\nb=2\n");
    EXPECT_EQ(ModeOf(fresh), 0600u);

    const std::string old = dir.file("old");
    WriteFileText(old, "Mode=100\n", 0640);
    {
        Config config(old.c_str());
        EXPECT_EQ(config.updateIntValue("Mode", 2), 0);
    }
    EXPECT_EQ(ReadFileText(old), "Mode=2\n0\n");
    EXPECT_EQ(ModeOf(old), 0640u);   // an existing file keeps its bits
    Config reread(old.c_str());
    EXPECT_EQ(reread.getIntValue("Mode", -1), 2);
    EXPECT_EQ(reread.items().size(), 1u);

    // The left-over tail is read back as a line of its own when it has a separator.
    const std::string tail = dir.file("tail");
    WriteFileText(tail, "Key=long value x=1\n");
    {
        Config config(tail.c_str());
        config.updateValue("Key", "v");
    }
    EXPECT_EQ(ReadFileText(tail), "Key=v\nng value x=1\n");
    Config tailRead(tail.c_str());
    EXPECT_EQ(tailRead.getValue("ng"), "value x=1");
}

TEST(Config, WriteFailuresAndEmptyPathsTouchNothing) {
    TempDir dir;
    const std::string missing = dir.file("no/such/cfg");
    Config config(missing.c_str());
    config.setValue("a", "1");
    EXPECT_EQ(config.updateConfigFile(), -1);
    EXPECT_EQ(config.getValue("a"), "1");
    EXPECT_FALSE(testutil::FileExists(missing));

    // A default Config works in memory and never touches the file system.
    char cwd[4096];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(::chdir(dir.path().c_str()), 0);
    Config none;
    none.setValue("a", "1");
    none.setItems("b=\"2\"", false);
    EXPECT_EQ(none.getIntValue("b", 0), 2);
    EXPECT_EQ(none.updateConfigFile(), 0);
    EXPECT_EQ(none.updateValue("c", "3"), 0);
    Config nullPath(nullptr);
    EXPECT_EQ(nullPath.updateIntValue("d", 4), 0);
    EXPECT_EQ(::chdir(cwd), 0);
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(Config, SetItemsMergesIntoTheFile) {
    TempDir dir;
    const std::string path = dir.file("cfg");
    WriteFileText(path, "A=old\nKeep=1\n");
    const std::string text = "A=\"x y\" B = \"1=2\"; Keep=\"";
    {
        Config config(path.c_str());
        config.setItems(text, true);
        EXPECT_EQ(config.getValue("A"), "old");
        EXPECT_EQ(config.getValue("B"), "1=2");
        config.setItems(text, false);
        EXPECT_EQ(config.getValue("A"), "x y");
        EXPECT_EQ(config.getValue("Keep"), "1");   // its item has no closing quote
        config.updateConfigFile();
    }
    EXPECT_EQ(ReadFileText(path), "A=x y\nB=1=2\nKeep=1\n");
}

TEST(Config, RemoveKeysStartingWith) {
    TempDir dir;
    const std::string path = dir.file("cfg");
    WriteFileText(path, "Exe1=a\nExeList=b\nexe1=c\nMyExe=d\nEx=e\nExf=f\n");
    Config config(path.c_str());
    config.readConfigFile();
    config.removeKeysStartingWith("Exe");
    const Items expected = {{"Ex", "e"}, {"Exf", "f"}, {"MyExe", "d"}, {"exe1", "c"}};
    EXPECT_EQ(Items(config.items().begin(), config.items().end()), expected);
    EXPECT_EQ(ReadFileText(path), "Exe1=a\nExeList=b\nexe1=c\nMyExe=d\nEx=e\nExf=f\n");   // not written
    config.removeKeysStartingWith(nullptr);
    EXPECT_EQ(config.items().size(), 4u);
    config.removeKeysStartingWith("");
    EXPECT_TRUE(config.items().empty());
}
