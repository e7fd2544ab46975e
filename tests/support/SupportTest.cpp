// The configuration file and the log writer, against real files in a temporary folder.
#include "support/Config.h"
#include "support/ZEVLogger.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <regex>

using testutil::ReadFileText;
using testutil::WriteFileText;
using Items = std::vector<std::pair<std::string, std::string>>;

static unsigned ModeOf(const std::string& path) { return unsigned(std::filesystem::status(path).permissions()); }

// The clock the log writer reads: this executable's time() wins over the C library's, so a
// test can pin it to a moment whose day, month and fields all differ; 0 means the real clock.
static std::atomic<time_t> g_pinnedClock{0};
extern "C" time_t time(time_t* out) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t t = g_pinnedClock ? g_pinnedClock.load() : now.tv_sec;
    if (out) *out = t;
    return t;
}

// A local time as seconds since the epoch.
static time_t LocalTime(int year, int month, int day, int hour, int minute, int second) {
    struct tm t = {};
    t.tm_year = year - 1900, t.tm_mon = month - 1, t.tm_mday = day;
    t.tm_hour = hour, t.tm_min = minute, t.tm_sec = second, t.tm_isdst = -1;
    return mktime(&t);
}

TEST(ConfigText, ParseLineAndItems) {
    const struct { const char* piece; const char* keyValue; } lines[] = {   // "!": refused
        {"a=1", "a|1"}, {"x=", "x|"}, {"x y=1", "x|y=1"}, {"Mode = 2", "Mode|= 2"}, {"cr=1\r", "cr|1\r"},
        {"a==b", "a|=b"}, {"=x", "!|"}, {" a=1", "!|"}, {"x", "!|"}, {"", "!|"}};
    for (const auto& c : lines) {
        std::string key, value;
        EXPECT_EQ((configtext::parseLine(c.piece, key, value) ? "" : "!") + key + "|" + value, c.keyValue) << c.piece;
    }
    const std::vector<std::pair<std::string, Items>> items = {
        {"Logging=\"1\"; Mode = \"2\"", {{"Logging", "1"}, {"Mode", "2"}}}, {"  a  =\" v \"", {{"a", " v "}}},
        {"A=\"x y\" B = \"1=2\"", {{"A", "x y"}, {"B", "1=2"}}}, {"Mode=23\"", {{"Mode", "3"}}}, {"a=\"", {}},
        {" \t\n a=\"x;y=z\";;; ;\tb=\"\" ;", {{"a", "x;y=z"}, {"b", ""}}}, {"=\"v\" b=\"w\"", {{"b", "w"}}}, {"", {}},
        {"a=\"1\"; b=\"2", {{"a", "1"}}}, {"a=\"1", {}}, {"a=", {}}, {"a= \t ", {}}};
    for (const auto& c : items) EXPECT_EQ(configtext::parseItems(c.first), c.second) << c.first;
}

TEST(Config, ReadRules) {
    testutil::TempDir dir;
    const std::string path = dir.file("cfg"), v(797, 'v'), w(199, 'w');
    WriteFileText(path, "a=1\na=2\n=x\n b=1\nx=\np y=1\nMode = 2\nk=" + v + "z=" + w + "\nn=12abc\nlast=1");
    Config config(path.c_str());
    const Items expected = {{"Mode", "= 2"}, {"a", "1"},   {"k", v}, {"last", "1"},
                            {"n", "12abc"},  {"p", "y=1"}, {"x", ""}, {"z", w}};
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
    WriteFileText(tail, "Key=long value x=1\n");   // rewritten in place without truncation: the tail stays
    Config(tail.c_str()).updateValue("Key", "v");
    EXPECT_EQ(ReadFileText(tail), "Key=v\nng value x=1\n");
    EXPECT_EQ(Config(tail.c_str()).getValue("ng"), "value x=1");
    EXPECT_TRUE(Config(dir.file("no/c").c_str()).updateValue("a", "1") == -1 && !testutil::FileExists(dir.file("no")));
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

    // The stamp is the local time of the write: day, month, two-digit year, 24-hour clock.
    const std::string clock = dir.file("clock.log");
    const struct { time_t at; const char* stamp; } moments[] = {
        {LocalTime(2026, 2, 3, 4, 5, 6), "03/02/26 04:05:06  "}, {LocalTime(2031, 12, 25, 21, 43, 59), "25/12/31 21:43:59  "}};
    for (const auto& m : moments) {
        g_pinnedClock = m.at;
        CZEVLogger(clock).log("pinned");
        g_pinnedClock = 0;
        EXPECT_EQ(ReadFileText(clock), std::string(m.stamp) + "pinned\n");
        std::remove(clock.c_str());
    }
    char stamps[2][32];
    for (int i = 0; i < 2; ++i) {   // on the real clock: the time just before or just after the write
        const time_t now = std::time(nullptr);
        struct tm local = {};
        localtime_r(&now, &local);
        std::strftime(stamps[i], sizeof stamps[i], "%d/%m/%y %H:%M:%S  ", &local);
        if (i == 0) CZEVLogger(clock).log("now");
    }
    const std::string line = ReadFileText(clock);
    EXPECT_TRUE(line == stamps[0] + std::string("now\n") || line == stamps[1] + std::string("now\n")) << line;
}
