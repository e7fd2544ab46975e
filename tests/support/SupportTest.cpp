// The configuration file and the log writer, against real files in a temporary folder.
#include "support/Config.h"
#include "support/ZEVLogger.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <ctime>
#include <filesystem>

using testutil::ReadFileText;
using testutil::WriteFileText;
using Items = std::vector<std::pair<std::string, std::string>>;

static unsigned ModeOf(const std::string& path) { return unsigned(std::filesystem::status(path).permissions()); }

// The clock the log writer reads: this executable's time() wins over the C library's; 0 means the real clock.
static std::atomic<time_t> g_pinnedClock{0};
extern "C" time_t time(time_t* out) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t t = g_pinnedClock ? g_pinnedClock.load() : now.tv_sec;
    return out ? *out = t : t;
}

TEST(ConfigText, ParseItems) {
    const std::vector<std::pair<std::string, Items>> items = {
        {"  a  =\" v \"", {{"a", " v "}}}, {"Mode=23\"", {{"Mode", "3"}}}, {"=\"v\" b=\"w\"", {{"b", "w"}}}, {"", {}},
        {" \t\n a=\"x;y=z\";;; ;\tb=\"\" ;", {{"a", "x;y=z"}, {"b", ""}}}, {"a=\"1", {}}, {"a=\"", {}}, {"a=", {}},
        {"a= \t ", {}}};
    for (const auto& c : items) EXPECT_EQ(configtext::parseItems(c.first), c.second) << c.first;
}

TEST(Config, ReadRules) {
    testutil::TempDir dir;
    const std::string path = dir.file("cfg"), v(797, 'v'), w(199, 'w');
    // Lines of 799 characters and more arrive in pieces; a piece without '=' or ' ', or starting with one, is refused.
    WriteFileText(path, "a=1\na=2\n=x\n b=1\nx=\np y=1\nMode = 2\ncr=1\r\ne==b\nbare\n\nk=" + v + "z=" + w +
                            "\nn=12abc\nlast=1");
    Config config(path.c_str());
    const Items expected = {{"Mode", "= 2"}, {"a", "1"},   {"cr", "1\r"}, {"e", "=b"}, {"k", v}, {"last", "1"},
                            {"n", "12abc"},  {"p", "y=1"}, {"x", ""},      {"z", w}};
    EXPECT_EQ(std::vector<int>({config.getIntValue("n", 42), config.getIntValue("x", 42),
                                config.getIntValue("absent", 42)}), std::vector<int>({12, 42, 42}));
    EXPECT_EQ(Items(config.items().begin(), config.items().end()), expected);   // read on the first look-up
    config.setValue("a", "9");
    config.readConfigFile();
    EXPECT_EQ(config.getValue("a"), "9");
}

TEST(Config, WriteRules) {
    ::umask(022);
    testutil::TempDir dir;
    const std::string fresh = dir.file("fresh"), old = dir.file("old");
    Config config(fresh.c_str());
    config.setIntValue("b", 2);
    config.setItems("A=\"x y\" B = \"1=2\"; b=\"", false);
    config.setItems("A=\"old\" c=\"3\"", true);
    EXPECT_EQ(config.updateConfigFile(), 0);
    EXPECT_EQ(ReadFileText(fresh), "A=x y\nB=1=2\nb=2\nc=3\n");
    WriteFileText(old, "Mode=100\n", 0640);
    EXPECT_EQ(Config(old.c_str()).updateIntValue("Mode", 2), 0);
    EXPECT_EQ(ReadFileText(old), "Mode=2\n0\n");   // rewritten in place without truncation: the tail stays
    EXPECT_EQ(std::make_pair(ModeOf(fresh), ModeOf(old)), std::make_pair(0600u, 0640u));
    EXPECT_TRUE(Config(dir.file("no/c").c_str()).updateValue("a", "1") == -1 && !testutil::FileExists(dir.file("no")));
}

TEST(ZEVLogger, LineFormatCutModeAndSilentFailure) {
    ::umask(022);
    ::setenv("TZ", "ZEV-5:30", 1);   // the stamp is local time, here UTC+5:30: half an hour off any whole-hour zone
    ::tzset();
    testutil::TempDir dir;
    const std::string path = dir.file("Software.log"), appended = dir.file("old.log");
    WriteFileText(appended, "earlier\n", 0640);
    g_pinnedClock = 1770071706;   // 2026-02-03 04:05:06 local time
    CZEVLogger logger(path);
    logger.log("%d packages in %s, 100%% done", 12, "dpkg");
    logger.log("%s", std::string(600, 'm').c_str());
    g_pinnedClock = 1955981639;   // 2031-12-25 21:43:59
    CZEVLogger(appended).log("next");
    CZEVLogger(dir.file("no/such/log")).log("lost");
    g_pinnedClock = 0;
    EXPECT_EQ(ReadFileText(path), "03/02/26 04:05:06  12 packages in dpkg, 100% done\n03/02/26 04:05:06  " +
                                      std::string(511, 'm') + "\n");
    EXPECT_EQ(ReadFileText(appended), "earlier\n25/12/31 21:43:59  next\n");
    EXPECT_EQ(std::make_pair(ModeOf(path), ModeOf(appended)), std::make_pair(0600u, 0640u));
    EXPECT_FALSE(testutil::FileExists(dir.file("no")));
}
