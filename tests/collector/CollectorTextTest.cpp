// Tables of cases for the collector's text rules: package query output, keys,
// name suffixes, owner output, patterns, exclusion lists and start folders.
#include "collector/CollectorText.h"
#include "collector/softwarecollector.h"

#include <gtest/gtest.h>

#include <string>

using namespace collectortext;

TEST(CollectorText, PackageQueryOutputBecomesFields) {
    struct Case {
        std::string output;
        bool ok;
        std::string name, version, summary, company;
    };
    const Case cases[] = {
        {"foo^1.2^^", true, "foo", "1.2", "", ""},
        {"bash^5.2-1^GNU shell^Debian", true, "bash", "5.2-1", "GNU shell", "Debian"},
        // The summary is cut by the scan, not here: the newline stays in the field.
        {"a^1^short\n long\n .\n more^Debian", true, "a", "1", "short\n long\n .\n more", "Debian"},
        // No third "^": the company is the whole output.
        {"foo^1.2^summary", true, "foo", "1.2", "summary", "foo^1.2^summary"},
        {"foo^1.2^", true, "foo", "1.2", "", "foo^1.2^"},
        // Everything after the third "^" is the company, later "^" included.
        {"n^v^s^c^d", true, "n", "v", "s", "c^d"},
        {" sp ^ 1 ^ s ^ c ", true, " sp ", " 1 ", " s ", " c "},
        {"^^^", true, "", "", "", ""},
        {"foo^1.2", false, "foo", "", "", ""},
        {"no carets at all", false, "no carets at all", "", "", ""},
        {"", false, "", "", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.output);
        PackageFields f;
        f.version = "stale";
        EXPECT_EQ(c.ok, ParsePackageQuery(c.output, f));
        EXPECT_EQ(c.name, f.name);
        EXPECT_EQ(c.version, f.version);
        EXPECT_EQ(c.summary, f.summary);
        EXPECT_EQ(c.company, f.company);
    }
}

TEST(CollectorText, KeysAndLines) {
    EXPECT_EQ("foo\\\\1.2", Combine("foo", "", "1.2"));
    EXPECT_EQ("a\\b\\c", CSoftwareCollector::Combine("a", "b", "c"));
    EXPECT_EQ("\\\\", Combine("", "", ""));

    const std::pair<std::string, std::string> chops[] = {
        {"5.10\n", "5.10"}, {"5.10\n\n", "5.10\n"}, {"a\nb\n", "a\nb"}, {"5.10\r\n", "5.10\r"}, {"", ""}, {"x", "x"},
    };
    for (const auto& c : chops) {
        std::string s = c.first;
        ChopFinalNewline(s);
        EXPECT_EQ(c.second, s) << c.first;
    }
    EXPECT_EQ("short", FirstLine("short\n long"));
    EXPECT_EQ("", FirstLine("\nx"));
    EXPECT_EQ("one", FirstLine("one"));
}

TEST(CollectorText, NameSuffixCut) {
    const std::pair<std::string, std::string> cases[] = {
        {"kernel-2.6.18", "kernel"},
        {"libfoo2", "libfoo2"},
        {"bash", "bash"},
        {"0123456789.-", "0123456789.-"},
        {"1.2-3", "1.2-3"},
        {"", ""},
        {"gcc-12", "gcc"},
        {"foo-bar-1.0", "foo-bar"},
        {"python3.11", "python3.11"},
        {"a-1b-2", "a-1b"},
        {"lib-x", "lib-x"},
        {"name-", "name"},
        {"-9", "-9"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, CutNameSuffix(c.first)) << c.first;
}

TEST(CollectorText, OwnerPackageOutputLandsOneSlotOff) {
    struct Case {
        std::string output;
        bool ok;
        std::string first, second, rest;
    };
    const Case cases[] = {
        {"bash^5.2^GNU shell^Debian", true, "bash", "5.2", "GNU shell^Debian"},
        {"bash^5.2", true, "bash", "5.2", "bash^5.2"},
        {"^", true, "", "", "^"},
        {"nothing", false, "old", "old", "old"},
    };
    for (const Case& c : cases) {
        std::string a = "old", b = "old", r = "old";
        EXPECT_EQ(c.ok, SplitOwnerPackage(c.output, a, b, r)) << c.output;
        EXPECT_EQ(c.first, a) << c.output;
        EXPECT_EQ(c.second, b) << c.output;
        EXPECT_EQ(c.rest, r) << c.output;
    }
}

TEST(CollectorText, MatchPatternHasNoBacktracking) {
    struct Case {
        const char* name;
        const char* pattern;
        bool match;
    };
    const Case cases[] = {
        {"readme.txt", "*.txt", true},
        {"a.b.gz", "*.gz", false},   // the star stops at the first "."
        {"a.gz", "*.gz", true},
        {"abc", "*?c", false},       // "?" after a star is literal
        {"a?c", "*?c", true},
        {"abc", "a?c", true},
        {"ac", "a?c", false},
        {"readme.txt", "**.txt", true},
        {"readme.txt", "***.txt", true},
        {"", "*", true},
        {"", "**", true},
        {"anything", "*", true},
        {"", "", true},
        {"a", "", false},
        {"", "a", false},
        {"abc", "abc", true},
        {"abc", "ABC", false},
        {"abcd", "abc", false},
        {"abc", "abc*", true},
        {"abc", "abc**", true},
        {"abc", "ab*", true},
        {"axb", "a**b", false},      // only leading runs of stars shrink
        {"xyz.txt", "x*", true},
        {"bin", "b*n", true},
        {"bnn", "b*n", false},       // the star ends at the first "n"; the second finds the pattern over
        {"banana", "b*a", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.match, MatchPattern(c.name, c.pattern)) << c.name << " vs " << c.pattern;
        EXPECT_EQ(c.match, CSoftwareCollector::MatchPattern(c.name, c.pattern));
    }
    EXPECT_FALSE(MatchPattern(nullptr, "*"));
    EXPECT_FALSE(MatchPattern("a", nullptr));
}

TEST(CollectorText, FindMatchListsAndExclusions) {
    struct Case {
        const char* path;
        std::string list;
        bool wildcards;
        bool match;
    };
    const std::string long511 = std::string(506, 'x') + "|*.sh";
    const std::string long512 = std::string(507, 'x') + "|*.sh";
    const Case cases[] = {
        // Wildcards test the name after the last "/".
        {"/usr/bin/readme.txt", "*.txt", true, true},
        {"/usr/txt/readme", "*txt", true, false},
        {"readme.txt", "*.txt", true, true},
        {"/a/b.sh", "*.txt|*.sh", true, true},
        {"/a/b.sh", "||*.sh||", true, true},
        {"/a/b.sh", "|", true, false},
        {"/a/b", "", true, false},
        {"/a/", "*", true, true},
        {"/a/b.sh", long511, true, true},
        {"/a/b.sh", long512, true, false},
        // Exclusions: the first occurrence must run to the end of the path.
        {"/proc", "/proc", false, true},
        {"/srv/proc", "/proc", false, true},
        {"/proc/1", "/proc", false, false},
        {"/proc", "/proc/", false, false},
        {"/proc/x/proc", "/proc", false, false},   // a later occurrence at the end is not looked for
        {"/tmp|/proc", "/proc", false, true},
        {"/usr/windows", "/home|/usr/windows", false, true},
        {"/PROC", "/proc", false, false},
        {"/a", "", false, false},
        {"/a", "||", false, false},
        {"/usr", long512, false, false},
    };
    for (const Case& c : cases) {
        std::string list = c.list;
        EXPECT_EQ(c.match, FindMatch(c.path, list, c.wildcards)) << c.path << " in " << c.list.substr(0, 40);
    }
}

TEST(CollectorText, ExcludedExecutables) {
    const std::pair<const char*, bool> cases[] = {
        {"/lib/x86_64/lib.so.6", false},
        {"/usr/lib/x.so", false},
        {"/usr/bin/x.socket", true},
        {"/usr/bin/x.sol", true},
        {"/usr/lib/a.sol/b.so", true},   // only the first ".so" counts
        {"/opt/app/plugins/tool", false},
        {"/opt/app/plugins", true},
        {"/usr/bin/bash", true},
        {".so", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.second, TestForExcludedExes(c.first)) << c.first;
        EXPECT_EQ(c.second, CSoftwareCollector::TestForExcludedExes(c.first));
    }
}

TEST(CollectorText, StartFolders) {
    std::string s = "\\\\srv\\x";
    ForwardSlashes(s);
    EXPECT_EQ("//srv/x", s);
    EXPECT_EQ("//srv/x/", WalkStartFolder(s));
    EXPECT_EQ("/", WalkStartFolder(""));
    EXPECT_EQ("/", WalkStartFolder("*"));
    EXPECT_EQ("/opt/", WalkStartFolder("/opt"));
    EXPECT_EQ("/opt/", WalkStartFolder("/opt/"));
    EXPECT_EQ("**/", WalkStartFolder("**"));
    EXPECT_EQ("rel/", WalkStartFolder("rel"));
}
