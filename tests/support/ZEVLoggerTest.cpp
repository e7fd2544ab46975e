// The log writer: line format, the 511-character cut, permission bits, silent
// failures and switching files.
#include "support/ZEVLogger.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <string>

using testutil::ReadFileText;
using testutil::TempDir;

namespace {

const std::string kStamp = R"(\d\d/\d\d/\d\d [0-2]\d:[0-5]\d:[0-6]\d  )";

unsigned ModeOf(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return 0xFFFF;
    return st.st_mode & 07777;
}

}  // namespace

TEST(ZEVLogger, LineFormat) {
    ::umask(022);
    TempDir dir;
    const std::string path = dir.file("Software.log");
    CZEVLogger logger(path);
    EXPECT_TRUE(logger.isLogging());
    EXPECT_FALSE(testutil::FileExists(path));   // nothing until the first line

    logger.log("Set Config called");
    logger.log("%d packages in %s, 100%% done", 12, "dpkg");
    const std::string text = ReadFileText(path);
    EXPECT_TRUE(std::regex_match(text, std::regex(kStamp + "Set Config called\n" + kStamp +
                                                  "12 packages in dpkg, 100% done\n")))
        << text;
    EXPECT_EQ(ModeOf(path), 0600u);
}

TEST(ZEVLogger, LongMessagesAreCutAt511) {
    TempDir dir;
    const std::string path = dir.file("log");
    CZEVLogger logger(path);
    const std::string message(600, 'm');
    logger.log("%s", message.c_str());
    logger.log("%s", std::string(511, 'e').c_str());
    const std::string text = ReadFileText(path);
    const std::string line = std::string(511, 'm') + "\n";
    ASSERT_EQ(text.size(), 2 * (19 + 511 + 1));
    EXPECT_EQ(text.substr(19, 512), line);
    EXPECT_EQ(text.substr(531 + 19), std::string(511, 'e') + "\n");
}

TEST(ZEVLogger, AppendsAndKeepsTheBitsOfAnExistingFile) {
    TempDir dir;
    const std::string path = dir.file("log");
    testutil::WriteFileText(path, "earlier\n", 0640);
    CZEVLogger logger(path);
    logger.log("next");
    EXPECT_TRUE(std::regex_match(ReadFileText(path), std::regex("earlier\n" + kStamp + "next\n")));
    EXPECT_EQ(ModeOf(path), 0640u);
}

TEST(ZEVLogger, FailuresAreSilentAndSetFileSwitches) {
    TempDir dir;
    CZEVLogger none;
    none.log("lost");   // empty path: the line is lost

    const std::string missing = dir.file("no/such/log");
    CZEVLogger logger(missing);
    logger.log("lost too");
    EXPECT_FALSE(testutil::FileExists(missing));

    const std::string first = dir.file("first.log");
    const std::string second = dir.file("second.log");
    logger.setFile(first);
    logger.log("one");
    logger.setFile(second);
    logger.log("two");
    EXPECT_TRUE(std::regex_match(ReadFileText(first), std::regex(kStamp + "one\n")));
    EXPECT_TRUE(std::regex_match(ReadFileText(second), std::regex(kStamp + "two\n")));
}
