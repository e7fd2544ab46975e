// Tables of {input, expected} cases for the collector's text rules: query and owner output, name suffixes,
// start folders, patterns, match and exclusion lists, excluded programs, batch names, batch output and groups,
// end statuses, the snap and flatpak list parsers and the "Sources" values.
#include "collector/CollectorText.h"
#include "collector/ExtraSources.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <tuple>

using namespace collectortext;
using namespace extrasources;

TEST(CollectorText, PackageQueryAndOwnerOutput) {
    // "parsed|name|version|summary|company": without a third "^" the company is the whole output.
    const std::pair<std::string, std::string> queries[] = {
        {"foo^1.2^^", "1|foo|1.2||"}, {"a^1^short\n long\n .\n more^Debian", "1|a|1|short\n long\n .\n more|Debian"},
        {"foo^1.2^summary", "1|foo|1.2|summary|foo^1.2^summary"}, {"n^v^s^c^d", "1|n|v|s|c^d"},
        {" sp ^ 1 ^ s ^ c ", "1| sp | 1 | s | c "}, {"^^^", "1||||"}, {"foo^1.2", "0|foo|||"}, {"", "0||||"}};
    for (const auto& [output, expected] : queries) {
        PackageFields f;
        f.version = "stale";
        const bool ok = ParsePackageQuery(output, f);
        EXPECT_EQ(expected, std::to_string(ok) + "|" + f.name + "|" + f.version + "|" + f.summary + "|" + f.company) << output;
    }
    const std::pair<std::string, std::string> owners[] = {
        {"bash^5.2^GNU shell^Debian", "1|bash|5.2|GNU shell^Debian"}, {"bash^5.2", "1|bash|5.2|bash^5.2"},
        {"^", "1|||^"}, {"nothing", "0|old|old|old"}};
    for (const auto& [output, expected] : owners) {
        std::string a = "old", b = "old", rest = "old";
        const bool ok = SplitOwnerPackage(output, a, b, rest);
        EXPECT_EQ(expected, std::to_string(ok) + "|" + a + "|" + b + "|" + rest) << output;
    }
}

TEST(CollectorText, NameSuffixAndStartFolder) {
    // A dash before the last letter is not a version cut: the cut starts after that letter.
    const std::pair<std::string, std::string> names[] = {
        {"kernel-2.6.18", "kernel"}, {"libfoo2", "libfoo2"}, {"0123456789.-", "0123456789.-"}, {"", ""},
        {"foo-bar-1.0", "foo-bar"}, {"python3.11", "python3.11"}, {"a-1b-2", "a-1b"}, {"lib-x", "lib-x"},
        {"name-", "name"}, {"-9", "-9"}, {"lib32gcc-s1", "lib32gcc-s1"}, {"libgcc-s1", "libgcc-s1"},
        {"a-b-c2-3", "a-b-c2"}, {"x-1-2", "x"}, {"perl-5.36-1", "perl"}, {"gcc-12-base", "gcc-12-base"}};
    for (const auto& [name, cut] : names) EXPECT_EQ(cut, CutNameSuffix(name)) << name;
    const std::pair<std::string, std::string> starts[] = {
        {"", "/"}, {"*", "/"}, {"/opt", "/opt/"}, {"/opt/", "/opt/"}, {"**", "**/"}};
    for (const auto& [start, folder] : starts) EXPECT_EQ(folder, WalkStartFolder(start)) << start;
}

TEST(CollectorText, PatternsListsAndExcludedPrograms) {
    // A star stops at the first character equal to the one after it: no backtracking.
    const std::tuple<const char*, const char*, bool> patterns[] = {
        {"readme.txt", "*.txt", true}, {"a.b.gz", "*.gz", false}, {"abc", "*?c", false}, {"a?c", "*?c", true},
        {"abc", "a?c", true}, {"ac", "a?c", false}, {"readme.txt", "***.txt", true}, {"", "**", true}, {"", "", true},
        {"a", "", false}, {"abc", "ABC", false}, {"abcd", "abc", false}, {"abc", "abc**", true}, {"axb", "a**b", false},
        {"bnn", "b*n", false}, {"banana", "b*a", false}};
    for (const auto& [name, pattern, match] : patterns)
        EXPECT_EQ(match, MatchPattern(name, pattern)) << name << " vs " << pattern;
    EXPECT_FALSE(MatchPattern(nullptr, "*") || MatchPattern("a", nullptr));

    const std::string long511 = std::string(506, 'x') + "|*.sh", long512 = "x" + long511;
    const std::tuple<const char*, std::string, bool, bool> lists[] = {   // path, list, wildcards, match
        {"/usr/bin/readme.txt", "*.txt", true, true}, {"/usr/txt/readme", "*txt", true, false},
        {"/a/b.sh", "||*.sh||", true, true}, {"/a/b", "", true, false}, {"/a/", "*", true, true},
        {"/a/b.sh", long511, true, true}, {"/a/b.sh", long512, true, false}, {"/proc", "/proc", false, true},
        {"/srv/proc", "/proc", false, true}, {"/proc/1", "/proc", false, false}, {"/proc", "/proc/", false, false},
        {"/proc/x/proc", "/proc", false, false}, {"/tmp|/proc", "/proc", false, true},
        {"/usr/windows", "/home|/usr/windows", false, true}, {"/a", "||", false, false}, {"/usr", long512, false, false}};
    for (const auto& [path, list, wildcards, match] : lists)
        EXPECT_EQ(match, FindMatch(path, list, wildcards)) << path << " in " << list.substr(0, 40);

    const std::pair<const char*, bool> programs[] = {
        {"/lib/x86_64/lib.so.6", false}, {"/usr/lib/x.so", false}, {"/usr/bin/x.socket", true}, {"/usr/lib/a.sol/b.so", true},
        {"/opt/app/plugins/tool", false}, {"/opt/app/plugins", true}, {"/usr/bin/bash", true}, {".so", false}};
    for (const auto& [path, allowed] : programs) EXPECT_EQ(allowed, TestForExcludedExes(path)) << path;
}

TEST(CollectorText, BatchNamesOutputAndGroups) {
    const std::tuple<std::string, bool, bool> names[] = {   // line, plain for dpkg, plain for rpm
        {"libc6", true, true}, {"g++-12", true, true}, {"libstdc++6.0", true, true}, {"0ad", true, true},
        {"bash-5.1-6.el9.x86_64", false, true}, {"Foo", false, true}, {"foo_1.0~rc1^git2", false, true}, {"", false, false},
        {"-qa", false, false}, {"~home", false, false}, {"two words", false, false}, {"foo:amd64", false, false},
        {"lib*", false, false}, {"a'b", false, false}, {"a;b", false, false}, {"a\nb", false, false},
        {std::string("a\0b", 3), false, false}, {"a\x1F", false, false}, {"\xC3\xA9t\xC3\xA9", false, false}};
    for (const auto& [line, dpkg, rpm] : names)
        EXPECT_EQ(std::make_pair(dpkg, rpm), std::make_pair(IsPlainPackageName(line, false), IsPlainPackageName(line, true)))
            << line;

    // Output, then "name=text;..." of each name with records, or the problem.
    const std::string whole = "the output does not end with a whole record", separator = "a field holds a separator byte";
    const auto notAsked = [](const std::string& name) { return "a record for '" + name + "', which was not asked for"; };
    const std::pair<std::string, std::string> outputs[] = {
        {"", ""}, {"a\x1F" "a^1^S^O\x1E", "a=a^1^S^O;"}, {"a\x1F" "a^1^S^O", whole}, {"a\x1F" "a^1^S^O\x1E\n", whole},
        {"a\x1F" "a^1^X^O\x1E" "a\x1F" "a^^^\x1E" "b\x1F\x1E", "a=a^1^X^Oa^^^;b=;"},   // back to back; an empty record
        {"b\x1F" "b^1^two\n lines\n .^\x1E" "a\x1F" "a^2^^\x1E", "a=a^2^^;b=b^1^two\n lines\n .^;"},   // any order
        {"a\x1F" "a^1^x\x1Fy^O\x1E", separator}, {"a\x1F" "a^1^x\x1Ey^O\x1E" "b\x1F" "b^1^^\x1E", separator},
        {"a\x1F" "a^1^x\x1Ey^O\x1E", whole}, {"d\x1F" "d^1^^\x1E", notAsked("d")}, {"\x1F" "x\x1E", notAsked("")},
        {"package a is not installed\n" "b\x1F" "b^1^^\x1E", notAsked("package a is not installed\nb")},
        {std::string(70, 'x') + "\x1F\x1E", notAsked(std::string(60, 'x') + "...")},
        {"a\x1F\x1E" "b\x1F\x1E" "a\x1F\x1E", "the records of 'a' are not together"}};
    for (const auto& [output, expected] : outputs) {
        std::map<std::string, std::string> texts;
        std::string problem, got;
        const bool ok = SplitBatchOutput(output, {"a", "b", "c"}, texts, problem);
        for (const auto& [name, text] : texts) got += name + "=" + text + ";";
        EXPECT_EQ(expected, ok ? got : problem) << output;
    }

    // Groups keep the names' order; "pre" plus " name" per name, with the NUL, within the command limit,
    // and name bytes, NULs and pointers within the exec limit; an oversized name gets a group alone.
    const size_t p = sizeof(char*), fixed = 3 + 1 + 8 * p;   // "pre", its NUL, the tool's other words
    const std::tuple<size_t, size_t, std::string> limits[] = {   // command bytes, exec bytes, groups
        {1000, 1000, "aa bbb c dddddddddd ee"}, {11, 1000, "aa bbb|c|dddddddddd|ee"}, {12, 1000, "aa bbb|c|dddddddddd|ee"},
        {13, 1000, "aa bbb c|dddddddddd|ee"}, {4, 1000, "aa|bbb|c|dddddddddd|ee"},
        {1000, fixed + 3 + p + 4 + p, "aa bbb|c|dddddddddd|ee"}, {1000, fixed + 3 + p + 4 + p - 1, "aa|bbb c|dddddddddd|ee"}};
    for (const auto& [command, exec, expected] : limits) {
        std::string got;
        for (const auto& group : BatchGroups("pre", {"aa", "bbb", "c", "dddddddddd", "ee"}, {command, exec}))
            for (size_t i = 0; i < group.size(); ++i) got += (i ? " " : got.empty() ? "" : "|") + group[i];
        EXPECT_EQ(expected, got) << command << " " << exec;
    }
    EXPECT_TRUE(BatchGroups("pre", {}, {1000, 1000}).empty());
}

// Exit statuses 2, 127 and 137 and the command shown on one line: the fault table of swinv_faults.py.
TEST(CollectorText, EndStatus) {
    const std::pair<int, std::string> ends[] = {
        {0, "exit status 0"}, {126 << 8, "exit status 126 (command not executable)"}, {9, "killed by signal 9 (Killed)"},
        {13, "killed by signal 13 (Broken pipe)"}, {-1, "end status unknown"}};
    for (const auto& [status, text] : ends) {
        EXPECT_EQ(text, DescribeEndStatus(status)) << status;
        EXPECT_EQ(status == 0, EndedWell(status)) << status;
    }
}

// "name|version|company|summary" per record, then "skipped: line" per skipped line, each ended by ";".
static std::string Shown(const SourceList& list) {
    std::string shown;
    for (const SourceRecord& r : list.records) shown += r.name + "|" + r.version + "|" + r.company + "|" + r.summary + ";";
    for (const std::string& line : list.skipped) shown += "skipped: " + line + ";";
    return shown;
}

TEST(ExtraSources, SnapAndFlatpakListLines) {
    const std::string header = "Name     Version   Rev   Tracking       Publisher    Notes\n";
    const std::pair<std::string, std::string> snaps[] = {
        {"", ""}, {header, ""}, {header + "\n   \n", ""},
        {header + "zevnotes  128.0.3-1  4650  latest/stable  zevsoft**  -\n", "zevnotes|128.0.3-1|zevsoft|Snap package;"},
        {header + "zevbase 20240111 1122 latest/stable zevcore* base", "zevbase|20240111|zevcore|Snap package;"},
        {header + "zev-2-notes-3  2.10+git~1  42  latest/edge  -  devmode   \t\n", "zev-2-notes-3|2.10+git~1||Snap package;"},
        {header + "mine\t0.1~rc1\tx1\t-\tme***\tdisabled,classic\n", "mine|0.1~rc1|me|Snap package;"},
        {header + "broken  1.0  12  latest/stable  someone\nok 1 2 - p -\n",
         "ok|1|p|Snap package;skipped: broken  1.0  12  latest/stable  someone;"},
        {"zevnotes  128.0.3-1  4650  latest/stable  zevsoft**  -\n", ""}};   // the first line is always the header
    for (const auto& [output, expected] : snaps) EXPECT_EQ(expected, Shown(ParseSnapList(output))) << output;

    const std::pair<std::string, std::string> flatpaks[] = {
        {"", ""}, {"\n\n", ""},
        {"org.zev.Notes\t128.0.3\tstable\tzev-apps\tNotes\n", "org.zev.Notes|128.0.3|zev-apps|Notes;"},
        {"org.zev.Hello\t\tstable\tzev-local\tHello", "org.zev.Hello|stable|zev-local|Hello;"},
        {"org.zev.Boxes\t46.1~beta+2\tstable\tzev-apps\tBoxes  \t\n", "org.zev.Boxes|46.1~beta+2|zev-apps|Boxes;"},
        {"org.zev.Bare\t\t\t\t\n", "org.zev.Bare|||;"},
        {"org.zev.Short\t1.0\tstable\tzev-apps\n\t1\tstable\tzev-apps\tNo ID\nok\t1\tb\to\tOK\n",
         "ok|1|o|OK;skipped: org.zev.Short\t1.0\tstable\tzev-apps;skipped: \t1\tstable\tzev-apps\tNo ID;"}};
    for (const auto& [output, expected] : flatpaks) EXPECT_EQ(expected, Shown(ParseFlatpakList(output))) << output;
}

TEST(ExtraSources, SourcesSetting) {
    const std::pair<std::string, std::string> settings[] = {   // value, "selected,|unknown,"
        {"", "|"}, {"snap|flatpak", "snap,flatpak,|"}, {" flatpak | snap |flatpak|", "flatpak,snap,|"},
        {"snap|rpmfusion||Snap", "snap,|rpmfusion,Snap,"}, {"snap flatpak", "|snap flatpak,"}};
    for (const auto& [value, expected] : settings) {
        std::vector<std::string> unknown;
        std::string shown;
        for (const Source* source : SelectSources(value, unknown)) shown += std::string(source->name) + ",";
        shown += "|";
        for (const std::string& name : unknown) shown += name + ",";
        EXPECT_EQ(expected, shown) << value;
    }
}
