// The file walk on temporary trees: which files count as programs, the size
// range in both modes, and which folders the walk enters (seen through its
// "Check Files" log lines): exclusions, links, backslashes, the default start.
#include "CollectorTestSupport.h"

#include "collector/softwarecollector.h"
#include "inventory/InvMap.h"
#include "support/ZEVLogger.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace {

const std::string kElf("\x7F" "ELF\x02\x01\x01", 7);

struct stat StatOf(const std::string& path) {
    struct stat st {};
    EXPECT_EQ(0, lstat(path.c_str(), &st)) << path;
    return st;
}

// The folders a walk entered, sorted (the system's entry order is not fixed).
std::vector<std::string> FoldersChecked(const std::string& logFile) {
    std::vector<std::string> folders;
    for (const std::string& m : collectortest::LogMessages(logFile))
        if (m.rfind("Check Files: ", 0) == 0) folders.push_back(m.substr(13));
    std::sort(folders.begin(), folders.end());
    return folders;
}

}  // namespace

TEST(FileWalk, WhichFilesCountAsPrograms) {
    testutil::TempDir dir;
    testutil::MakeDirs(dir.file("plugins"));
    struct Case {
        const char* name;
        std::string content;
        unsigned mode;
        bool qualifies;
    };
    const Case cases[] = {
        {"elf", kElf, 0755, true},
        {"elf-not-executable", kElf, 0644, false},
        {"elf-group-exec", kElf, 0610, true},
        {"script", "#!/bin/sh\n", 0700, true},
        {"short-script", "#!\n", 0755, false},   // four bytes cannot be read
        {"text", "hello world", 0755, false},
        {"libx.so", kElf, 0755, false},
        {"lib.so.6", kElf, 0755, false},
        {"x.socket", kElf, 0755, true},
        {"x.sol", "#!/bin/sh\n", 0755, true},
        {"plugins/tool", kElf, 0755, false},
        {"empty", "", 0755, false},
    };
    CSoftwareCollector collector;
    CInvMap map;
    for (const Case& c : cases) {
        const std::string path = dir.file(c.name);
        testutil::WriteFileText(path, c.content, c.mode);
        struct stat st = StatOf(path);
        EXPECT_EQ(c.qualifies, CSoftwareCollector::FileQualifies(path.c_str(), st, false, 0, 0)) << c.name;
        // A file that matched a pattern is taken without looking inside.
        EXPECT_TRUE(CSoftwareCollector::FileQualifies(path.c_str(), st, true, 0, 0)) << c.name;
        // No record is ever built.
        EXPECT_EQ(nullptr, collector.AddInfoToSoftwareObject(path.c_str(), st, &map, false, false, 0, 0));
        EXPECT_EQ(nullptr, collector.AddInfoToSoftwareObject(path.c_str(), st, &map, true, true, 0, 0));
    }
    EXPECT_EQ(0, map.GetCount());

    // A file that vanished after its status was taken does not count.
    struct stat gone = StatOf(dir.file("elf"));
    unlink(dir.file("elf").c_str());
    EXPECT_FALSE(CSoftwareCollector::FileQualifies(dir.file("elf").c_str(), gone, false, 0, 0));
    // A pipe with execute bits is not waited on.
    ASSERT_EQ(0, mkfifo(dir.file("fifo").c_str(), 0755));
    EXPECT_FALSE(CSoftwareCollector::FileQualifies(dir.file("fifo").c_str(), StatOf(dir.file("fifo")), false, 0, 0));
}

TEST(FileWalk, SizeRangeInBothModes) {
    testutil::TempDir dir;
    auto sized = [&](size_t bytes, unsigned mode = 0755) {
        const std::string path = dir.file("f" + std::to_string(bytes) + "_" + std::to_string(mode));
        testutil::WriteFileText(path, kElf + std::string(bytes - kElf.size(), '\0'), mode);
        return path;
    };
    struct Case {
        size_t bytes;
        int mode;
        int limitKB;
        bool passes;
    };
    const Case cases[] = {
        {2048, 0, 2, true},    // exactly at the minimum
        {2047, 0, 2, false},
        {2048, 0, 3, false},
        {2048, 1, 2, true},    // exactly at the maximum
        {2049, 1, 2, false},
        {2048, 1, 1, false},
        {2048, -5, 2, true},   // any mode but 0 is a maximum
        {2049, -5, 2, false},
        {100, 0, 0, true},     // no limit, no range
        {100, 0, -1, true},
        {100, 1, 0, true},
    };
    for (const Case& c : cases) {
        const std::string path = sized(c.bytes);
        EXPECT_EQ(c.passes, CSoftwareCollector::FileQualifies(path.c_str(), StatOf(path), false, c.mode, c.limitKB))
            << c.bytes << " bytes, mode " << c.mode << ", limit " << c.limitKB;
        // The range applies to forced files too.
        EXPECT_EQ(c.passes, CSoftwareCollector::FileQualifies(path.c_str(), StatOf(path), true, c.mode, c.limitKB));
    }
    // A file that does not qualify stays out whatever its size.
    const std::string plain = sized(4096, 0644);
    EXPECT_FALSE(CSoftwareCollector::FileQualifies(plain.c_str(), StatOf(plain), false, 0, 1));
}

TEST(FileWalk, FoldersEnteredAndSkipped) {
    testutil::TempDir dir;
    const std::string root = dir.path();
    for (const char* sub : {"a/b", "skip/deep", "proc", "x.proc/inner", "keep"}) testutil::MakeDirs(root + "/" + sub);
    testutil::WriteFileText(root + "/a/tool", kElf, 0755);
    ASSERT_EQ(0, symlink((root + "/a").c_str(), (root + "/link").c_str()));
    ASSERT_EQ(0, symlink((root + "/keep").c_str(), (root + "/a/b/up").c_str()));

    testutil::TempDir logDir;
    const std::string log = logDir.file("Software.log");
    CZEVLogger logger(log);
    CSoftwareCollector collector;
    collector.SetLogger(&logger);
    CInvMap map;

    // Backslashes in the start folder and the exclusions become "/" for the caller too.
    std::string checkFiles = "*.txt", start = root, exclude = "\\skip|/proc|";
    std::replace(start.begin(), start.end(), '/', '\\');
    EXPECT_TRUE(collector.GetFiles(checkFiles, start, exclude, &map, false, 0, 0));
    EXPECT_EQ(root, start);
    EXPECT_EQ("/skip|/proc|", exclude);
    EXPECT_EQ("*.txt", checkFiles);
    // "x.proc" ends in "proc" but not in "/proc"; links to folders are not followed.
    EXPECT_EQ((std::vector<std::string>{root + "/", root + "/a/", root + "/a/b/", root + "/keep/", root + "/x.proc/",
                                        root + "/x.proc/inner/"}),
              FoldersChecked(log));
    const auto messages = collectortest::LogMessages(log);
    ASSERT_GE(messages.size(), 3u);
    EXPECT_EQ("Start In: " + root, messages[0]);
    EXPECT_EQ("Exclude Dirs: /skip|/proc|", messages[1]);
    EXPECT_EQ("Check Files: " + root + "/", messages[2]);
    EXPECT_EQ(0, map.GetCount());

    // A trailing "/" in an exclusion item never matches, since folders are tested without it.
    unlink(log.c_str());
    start = root + "/";
    exclude = "/skip/|/proc/";
    EXPECT_TRUE(collector.GetFiles(checkFiles, start, exclude, &map, true, 0, 0));
    const auto all = FoldersChecked(log);
    EXPECT_EQ(9u, all.size());
    EXPECT_TRUE(std::count(all.begin(), all.end(), root + "/skip/deep/"));

    // A missing start folder counts as scanned.
    unlink(log.c_str());
    start = root + "/missing";
    EXPECT_TRUE(collector.GetFiles(checkFiles, start, exclude, &map, false, 0, 0));
    EXPECT_EQ(std::vector<std::string>{root + "/missing/"}, FoldersChecked(log));

    // A list of 512 characters or more excludes nothing.
    unlink(log.c_str());
    start = root + "/skip";
    exclude = "/deep|" + std::string(506, 'x');
    EXPECT_TRUE(collector.GetFiles(checkFiles, start, exclude, &map, false, 0, 0));
    EXPECT_EQ((std::vector<std::string>{root + "/skip/", root + "/skip/deep/"}), FoldersChecked(log));
}

TEST(FileWalk, EmptyStartOrStarWalksFromRoot) {
    // Every folder of "/" is excluded, so the walk reads "/" alone.
    std::string exclude;
    DIR* top = opendir("/");
    ASSERT_NE(nullptr, top);
    while (const dirent* e = readdir(top)) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        exclude += "|/" + name;
    }
    closedir(top);
    ASSERT_LT(exclude.size(), 512u);

    testutil::TempDir logDir;
    const std::string log = logDir.file("Software.log");
    CZEVLogger logger(log);
    CSoftwareCollector collector;
    collector.SetLogger(&logger);
    CInvMap map;
    for (const char* startText : {"", "*"}) {
        unlink(log.c_str());
        std::string checkFiles, start = startText, excluded = exclude;
        EXPECT_TRUE(collector.GetFiles(checkFiles, start, excluded, &map, true, 0, 0));
        EXPECT_EQ(std::vector<std::string>{"/"}, FoldersChecked(log)) << '"' << startText << '"';
    }
}
