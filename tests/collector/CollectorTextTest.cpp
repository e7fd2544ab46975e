// Tables of cases for the collector's text rules: query and owner output, name
// suffixes, patterns, match and exclusion lists, excluded programs and start folders.
#include "collector/CollectorText.h"

#include <gtest/gtest.h>

using namespace collectortext;

TEST(CollectorText, PackageQueryOutput) {
    const struct {
        std::string output;
        bool ok;
        std::string name, version, summary, company;
    } cases[] = {
        {"foo^1.2^^", true, "foo", "1.2", "", ""},
        {"a^1^short\n long\n .\n more^Debian", true, "a", "1", "short\n long\n .\n more", "Debian"},
        {"foo^1.2^summary", true, "foo", "1.2", "summary", "foo^1.2^summary"},   // no third "^"
        {"foo^1.2^", true, "foo", "1.2", "", "foo^1.2^"},
        {"n^v^s^c^d", true, "n", "v", "s", "c^d"},
        {" sp ^ 1 ^ s ^ c ", true, " sp ", " 1 ", " s ", " c "},
        {"^^^", true, "", "", "", ""},
        {"foo^1.2", false, "foo", "", "", ""},
        {"none", false, "none", "", "", ""},
        {"", false, "", "", "", ""},
    };
    for (const auto& c : cases) {
        PackageFields f;
        f.version = "stale";
        EXPECT_EQ(c.ok, ParsePackageQuery(c.output, f)) << c.output;
        EXPECT_EQ(c.name + "|" + c.version + "|" + c.summary + "|" + c.company,
                  f.name + "|" + f.version + "|" + f.summary + "|" + f.company) << c.output;
    }
    const struct {
        std::string output;
        bool ok;
        std::string fields;
    } owners[] = {{"bash^5.2^GNU shell^Debian", true, "bash|5.2|GNU shell^Debian"}, {"bash^5.2", true, "bash|5.2|bash^5.2"},
                  {"^", true, "||^"}, {"nothing", false, "old|old|old"}};
    for (const auto& c : owners) {
        std::string a = "old", b = "old", r = "old";
        EXPECT_EQ(c.ok, SplitOwnerPackage(c.output, a, b, r)) << c.output;
        EXPECT_EQ(c.fields, a + "|" + b + "|" + r);
    }
}

TEST(CollectorText, NameSuffixAndStartFolder) {
    const std::pair<std::string, std::string> names[] = {
        {"kernel-2.6.18", "kernel"}, {"libfoo2", "libfoo2"}, {"0123456789.-", "0123456789.-"}, {"", ""},
        {"gcc-12", "gcc"}, {"foo-bar-1.0", "foo-bar"}, {"python3.11", "python3.11"}, {"a-1b-2", "a-1b"},
        {"lib-x", "lib-x"}, {"name-", "name"}, {"-9", "-9"}};
    for (const auto& c : names) EXPECT_EQ(c.second, CutNameSuffix(c.first)) << c.first;
    const std::pair<std::string, std::string> starts[] = {
        {"", "/"}, {"*", "/"}, {"/opt", "/opt/"}, {"/opt/", "/opt/"}, {"**", "**/"}, {"rel", "rel/"}};
    for (const auto& c : starts) EXPECT_EQ(c.second, WalkStartFolder(c.first)) << c.first;
    std::string s = "\\\\srv\\x";
    ForwardSlashes(s);
    EXPECT_EQ("//srv/x", s);
}

TEST(CollectorText, PatternsListsAndExcludedPrograms) {
    const struct {
        const char *name, *pattern;
        bool match;
    } patterns[] = {
        {"readme.txt", "*.txt", true}, {"a.b.gz", "*.gz", false}, {"a.gz", "*.gz", true}, {"abc", "*?c", false},
        {"a?c", "*?c", true}, {"abc", "a?c", true}, {"ac", "a?c", false}, {"readme.txt", "***.txt", true},
        {"", "**", true}, {"", "", true}, {"a", "", false}, {"", "a", false}, {"abc", "ABC", false},
        {"abcd", "abc", false}, {"abc", "abc**", true}, {"axb", "a**b", false}, {"bin", "b*n", true},
        {"bnn", "b*n", false}, {"banana", "b*a", false}};
    for (const auto& c : patterns) EXPECT_EQ(c.match, MatchPattern(c.name, c.pattern)) << c.name << " vs " << c.pattern;
    EXPECT_FALSE(MatchPattern(nullptr, "*"));
    EXPECT_FALSE(MatchPattern("a", nullptr));

    const std::string long511 = std::string(506, 'x') + "|*.sh", long512 = "x" + long511;
    const struct {
        const char* path;
        std::string list;
        bool wildcards, match;
    } lists[] = {
        {"/usr/bin/readme.txt", "*.txt", true, true}, {"/usr/txt/readme", "*txt", true, false},
        {"/a/b.sh", "||*.sh||", true, true}, {"/a/b.sh", "|", true, false}, {"/a/b", "", true, false},
        {"/a/", "*", true, true}, {"/a/b.sh", long511, true, true}, {"/a/b.sh", long512, true, false},
        {"/proc", "/proc", false, true}, {"/srv/proc", "/proc", false, true}, {"/proc/1", "/proc", false, false},
        {"/proc", "/proc/", false, false}, {"/proc/x/proc", "/proc", false, false}, {"/tmp|/proc", "/proc", false, true},
        {"/usr/windows", "/home|/usr/windows", false, true}, {"/PROC", "/proc", false, false},
        {"/a", "||", false, false}, {"/usr", long512, false, false}};
    for (const auto& c : lists) EXPECT_EQ(c.match, FindMatch(c.path, c.list, c.wildcards)) << c.path << " in " << c.list.substr(0, 40);

    const std::pair<const char*, bool> programs[] = {
        {"/lib/x86_64/lib.so.6", false}, {"/usr/lib/x.so", false}, {"/usr/bin/x.socket", true}, {"/usr/lib/a.sol/b.so", true},
        {"/opt/app/plugins/tool", false}, {"/opt/app/plugins", true}, {"/usr/bin/bash", true}, {".so", false}};
    for (const auto& c : programs) EXPECT_EQ(c.second, TestForExcludedExes(c.first)) << c.first;
}
