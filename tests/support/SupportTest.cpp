// The configuration file and the log writer, against real files in a temporary folder.
#include "support/Config.h"
#include "support/ZEVLogger.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <string>
#include <utility>
#include <vector>

using testutil::ReadFileText;
using testutil::WriteFileText;
using Items = std::vector<std::pair<std::string, std::string>>;

namespace {
unsigned ModeOf(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0xFFFF;
}
}  // namespace

TEST(ConfigText, ParseLineAndItems) {
    const struct { const char* piece; bool ok; const char* keyValue; } lines[] = {
        {"a=1", true, "a|1"},           {"x=", true, "x|"},       {"x y=1", true, "x|y=1"},
        {"Mode = 2", true, "Mode|= 2"}, {"cr=1\r", true, "cr|1\r"}, {"a==b", true, "a|=b"},
        {"=x", false, ""},              {" a=1", false, ""},      {"x", false, ""}, {"", false, ""},
    };
    for (const auto& c : lines) {
        std::string key, value;
        EXPECT_EQ(configtext::parseLine(c.piece, key, value), c.ok) << c.piece;
        EXPECT_EQ(key + "|" + value, c.ok ? c.keyValue : "|") << c.piece;
    }
    const std::vector<std::pair<std::string, Items>> items = {
        {"Logging=\"1\"; Mode = \"2\"", {{"Logging", "1"}, {"Mode", "2"}}},
        {"A=\"x y\" B = \"1=2\"", {{"A", "x y"}, {"B", "1=2"}}},
        {" \t\n a=\"x;y=z\";;; ;\tb=\"\" ;", {{"a", "x;y=z"}, {"b", ""}}},
        {"  a  =\" v \"", {{"a", " v "}}},
        {"Mode=23\"", {{"Mode", "3"}}},
        {"=\"v\" b=\"w\"", {{"b", "w"}}},
        {"a=\"1\"; b=\"2", {{"a", "1"}}},
        {"a=\"1", {}}, {"a=", {}}, {"a= \t ", {}}, {"a=\"", {}}, {"", {}},
    };
    for (const auto& c : items) EXPECT_EQ(configtext::parseItems(c.first), c.second) << c.first;
}

TEST(Config, ReadRules) {
    testutil::TempDir dir;
    const std::string path = dir.file("cfg"), v(797, 'v'), w(199, 'w');
    WriteFileText(path, "a=1\na=2\n=x\n b=1\nx=\np y=1\nMode = 2\nk=" + v + "z=" + w + "\nn=12abc\nlast=1");
    Config config(path.c_str());
    const Items expected = {{"Mode", "= 2"}, {"a", "1"}, {"k", v}, {"last", "1"},
                            {"n", "12abc"},  {"p", "y=1"}, {"x", ""}, {"z", w}};
    EXPECT_EQ(config.getIntValue("n", 42), 12);
    EXPECT_EQ(config.getIntValue("x", 42), 42);
    EXPECT_EQ(config.getIntValue("absent", 42), 42);
    EXPECT_EQ(Items(config.items().begin(), config.items().end()), expected);
    config.setValue("a", "9");
    config.readConfigFile();
    EXPECT_EQ(config.getValue("a"), "9");
}

TEST(Config, WriteRules) {
    ::umask(022);
    testutil::TempDir dir;
    const std::string fresh = dir.file("fresh"), old = dir.file("old"), tail = dir.file("tail");
    Config config(fresh.c_str());
    config.setIntValue("b", 2);
    config.setItems("A=\"x y\" B = \"1=2\"; b=\"", false);
    config.setItems("A=\"old\" c=\"3\"", true);
    EXPECT_EQ(config.updateConfigFile(), 0);
    EXPECT_EQ(ReadFileText(fresh), "A=x y\nB=1=2\nb=2\nc=3\n");
    EXPECT_EQ(ModeOf(fresh), 0600u);
    WriteFileText(old, "Mode=100\n", 0640);
    EXPECT_EQ(Config(old.c_str()).updateIntValue("Mode", 2), 0);
    EXPECT_EQ(ReadFileText(old), "Mode=2\n0\n");
    EXPECT_EQ(ModeOf(old), 0640u);
    WriteFileText(tail, "Key=long value x=1\n");
    Config(tail.c_str()).updateValue("Key", "v");
    EXPECT_EQ(ReadFileText(tail), "Key=v\nng value x=1\n");
    EXPECT_EQ(Config(tail.c_str()).getValue("ng"), "value x=1");
    EXPECT_EQ(Config(dir.file("no/cfg").c_str()).updateValue("a", "1"), -1);
    EXPECT_FALSE(testutil::FileExists(dir.file("no")));
}

TEST(ZEVLogger, LineFormatCutModeAndSilentFailure) {
    ::umask(022);
    testutil::TempDir dir;
    const std::string path = dir.file("Software.log"), appended = dir.file("old.log");
    const std::string stamp = R"(\d\d/\d\d/\d\d [0-2]\d:[0-5]\d:[0-6]\d  )";
    CZEVLogger logger(path);
    logger.log("%d packages in %s, 100%% done", 12, "dpkg");
    logger.log("%s", std::string(600, 'm').c_str());
    EXPECT_TRUE(std::regex_match(ReadFileText(path), std::regex(stamp + "12 packages in dpkg, 100% done\n" +
                                                                stamp + std::string(511, 'm') + "\n")));
    EXPECT_EQ(ModeOf(path), 0600u);
    WriteFileText(appended, "earlier\n", 0640);
    CZEVLogger(appended).log("next");
    EXPECT_TRUE(std::regex_match(ReadFileText(appended), std::regex("earlier\n" + stamp + "next\n")));
    EXPECT_EQ(ModeOf(appended), 0640u);
    CZEVLogger(dir.file("no/such/log")).log("lost");
    EXPECT_FALSE(testutil::FileExists(dir.file("no")));
}
