// The collector against fake and real package managers, the Halvorn product folders (faked inside private
// mount namespaces), the file walk on temporary trees, and cancellation through the component object's flag.
#include "HostShim.h"
#include "TestUtil.h"
#include "collector/softwarecollector.h"
#include "component/ComponentGlobals.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"
#include "softwarelist/softwarelist.h"
#include "support/ZEVLogger.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <regex>
#include <sstream>
#include <tuple>

using Strings = std::vector<std::string>;
using testutil::Keys;

namespace {

const std::string kQuery = "dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' ";
const std::string kElf("\x7F" "ELF\x02\x01\x01", 7);

// Runs gtest expectations in a child inside a private mount namespace; 0 when none failed.
int Isolated(const std::function<void()>& body) {
    return testutil::RunInPrivateMounts([&] { return body(), ::testing::Test::HasFailure() ? 1 : 0; });
}

Strings Records(CInvMap& map) { return testutil::Records<CSoftwarePackageObject>(map); }

// A collector with a package map and a log, the host's home on a fresh folder, every command line recorded.
struct Rig {
    explicit Rig(bool rpm = false) {
        testutil::MakeDirs(home + "bin");
        hostshim::SetHomePath(home);
        rpm ? collector.ConfigureForRpm() : collector.ConfigureForDpkg();
        collector.SetPackageMap(&packages);
        collector.SetLogger(&logger);
        hostshim::SetCommandObserver([this](const char* command) { commands.push_back(command); });
    }
    ~Rig() { hostshim::SetCommandObserver({}); hostshim::SetHomePath(""); }
    Strings Log(const std::string& prefix = "") const { return testutil::LogMessages(dir.file("Software.log"), prefix); }
    testutil::TempDir dir;
    const std::string home = dir.path() + "/";
    CZEVLogger logger{dir.file("Software.log")};
    CInvMap software, packages;
    CSoftwareCollector collector;
    Strings commands;
};

void Put(const std::string& path, const std::string& text = "") {
    testutil::MakeDirs(path.substr(0, path.rfind('/')));
    testutil::WriteFileText(path, text, 0755);
}

// What one package scan leaves: the records, the log without time stamps, the package map's bytes.
using Scanned = std::tuple<Strings, Strings, std::string>;

Scanned Scan(Rig& rig, bool batch) {
    unlink(rig.dir.file("Software.log").c_str());
    CInvMap packages;
    rig.collector.SetPackageMap(&packages);
    rig.collector.SetBatchQuery(batch);
    EXPECT_TRUE(rig.collector.ScanPackages(&rig.software));
    rig.collector.SetPackageMap(&rig.packages);
    unsigned char* buffer = nullptr;
    const int length = packages.ToMemory(&buffer);
    Scanned scanned{Records(packages), rig.Log(), std::string(reinterpret_cast<char*>(buffer), std::max(length, 0))};
    return std::free(buffer), scanned;
}

}  // namespace

TEST(PackageScan, CommandLinesOddLinesAndOwners) {
    testutil::FakePackageManager fake;
    const std::string longName(900, 'a'), cut(799 - kQuery.size(), 'a'), rest(101, 'a');
    fake.Set("list", "", "foo\n\n" + longName + "\n");
    Rig rig;
    ASSERT_TRUE(rig.collector.ScanPackages(&rig.software));
    // A line longer than 799 bytes arrives as two; the 800-byte command buffers cut the first one's commands.
    EXPECT_EQ((Strings{kQuery + "foo", kQuery, kQuery + cut, kQuery + rest}), rig.commands);
    // A host that ignores SIGCHLD reaps the list command itself: how it ended is unknown, and the list stands.
    signal(SIGCHLD, SIG_IGN);
    Rig reaped;
    EXPECT_TRUE(reaped.collector.ScanPackages(&reaped.software));
    signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(rig.commands, reaped.commands);

    // rpm's owner of an executable: its package query lands one slot off the query's order.
    fake.Set("owner", "/srv/tool", "toolpkg");
    fake.Set("query", "toolpkg", "toolpkg^3.1^Tool summary^Acme Linux");
    Rig rpm(true);
    CSoftwareObject exe;
    exe.m_strInfo1 = "/srv/tool", exe.m_strVersion = "keep";
    rpm.collector.ExtractVersionInfo(&exe);
    EXPECT_EQ("toolpkg|3.1|Tool summary^Acme Linux|", exe.m_strVersion + "|" + exe.m_strDescription + "|" +
                                                          exe.m_strCompanyName + "|" + exe.m_strPackage);
    EXPECT_EQ((Strings{"rpm -qf /srv/tool", "rpm -q toolpkg --queryformat '%{NAME}^%{VERSION}^%{SUMMARY}^%{VENDOR}'"}),
              rpm.commands);
    EXPECT_EQ(Strings{"rpm -qf /srv/tool"}, rpm.Log("command "));
}

// rpm lists labels ("name-version-release.arch"): a key starts with the list line, a record's name is its query's, cut of
// a version-like tail, and the batch query answers for the list lines alike ("kernel-2.6.18-1.i686" below).
TEST(BatchQuery, SameRecordsBytesAndLogAsOneQueryPerPackage) {
    const std::string names = "twice\nmulti\nghost\nlines\nnocompany\nonecaret\nkernel-2.6.18-1.i686\nsilent\ntwice\n";
    // rpm, the list call, one package's calls, the batch call
    const std::tuple<bool, std::string, std::string, std::string> managers[] = {
        {false, "dpkg-query [--show] [--showformat] [${Package}\n]\n",
         "dpkg-query [--show] [--showformat] [${Package}^${Version}^${Description}^${Origin}] [@]\n"
         "dpkg-query [--listfiles] [@]\n",
         "dpkg-query [--show] [--showformat] [${Package}\x1F${Package}^${Version}^${Description}^${Origin}\x1E]"},
        {true, "rpm [-qa]\n", "rpm [-q] [@] [--queryformat] [%{NAME}^%{VERSION}^%{SUMMARY}^%{VENDOR}]\nrpm [-ql] [@]\n",
         "rpm [-q] [--queryformat] [%{NVR}%{ARCHSUFFIX}\x1F%{NAME}^%{VERSION}^%{SUMMARY}^%{VENDOR}\x1E]"}};
    for (const auto& [rpm, list, each, calls] : managers) {
        testutil::FakePackageManager fake;
        fake.Set("list", "", names);
        // "multi": two packages under one name (two architectures), back to back; "ghost": known, not installed.
        for (const std::string out : {"twice^1^Listed twice^O", "multi^1^First^Omulti^1^Second^O", "ghost^^^", "nocompany^1^S^",
                                      "lines^2^First line\n second line\n .\n third^Debian", "onecaret^only"})
            fake.Set("query", out.substr(0, out.find('^')), out);
        fake.Set("query", "kernel-2.6.18-1.i686", "kernel-2.6.18^2.6.18^K^X");
        fake.Set("query", "silent", "");
        fake.Set("batch", "multi", "multi\x1F" "multi^1^First^O\x1E" "multi\x1F" "multi^1^Second^O\x1E");
        Rig rig(rpm);
        const Scanned one = Scan(rig, false);
        EXPECT_EQ((Strings{"ghost\\\\: ghost| |||128", "kernel-2.6.18-1.i686\\X\\2.6.18: kernel|X|K|2.6.18|128",
                           "lines\\Debian\\2: lines|Debian|First line|2|128",
                           "multi\\Omulti^1^Second^O\\1: multi|Omulti^1^Second^O|First|1|128",
                           "nocompany\\\\1: nocompany| |S|1|128", "twice\\O\\1: twice|O|Listed twice|1|128"}),
                  std::get<0>(one));
        std::string perPackage = list;
        std::istringstream in(names);
        for (std::string name; std::getline(in, name);) perPackage += std::regex_replace(each, std::regex("@"), name);
        EXPECT_EQ(perPackage, fake.Calls());

        // One batch call names each package once; no file lists are read.
        fake.ClearCalls();
        EXPECT_EQ(one, Scan(rig, true)) << rpm;
        EXPECT_EQ(list + calls + " [twice] [multi] [ghost] [lines] [nocompany] [onecaret] [kernel-2.6.18-1.i686] [silent]\n",
                  fake.Calls());

        // At most 30 bytes of names per command line: three calls, the same again.
        rig.collector.SetBatchLimit({std::string(rig.collector.BatchQuery()).size() + 1 + 30, 1 << 20});
        fake.ClearCalls();
        EXPECT_EQ(one, Scan(rig, true)) << rpm << ", three calls";
        EXPECT_EQ(list + calls + " [twice] [multi] [ghost] [lines]\n" + calls + " [nocompany] [onecaret]\n" + calls +
                      " [kernel-2.6.18-1.i686] [silent]\n",
                  fake.Calls());
    }
}

TEST(BatchQuery, FallsBackToOneQueryPerPackageWithOneLogLine) {
    const std::string longName(790, 'x');
    // A list line, its query's answer, whether the batch prints nothing, the reason logged (a failing batch: swinv_faults.py).
    const std::tuple<std::string, std::string, bool, std::string> cases[] = {
        {"sep", "sep^1^x\x1Fy^O", false, "a field holds a separator byte"},
        {"b", "b^1^^", true, "the batch command printed nothing"},
        {"two words", "two^1^^", false, "the list line 'two words' is not a plain package name"},
        {longName, "", false, "the list line '" + longName.substr(0, 60) + "' is not a plain package name"}};
    for (const auto& [line, query, silent, reason] : cases) {
        testutil::FakePackageManager fake;
        fake.Set("list", "", "a\n" + line + "\n");
        fake.Set("query", "a", "a^1^A^O");
        if (!query.empty()) fake.Set("query", query.substr(0, query.find('^')), query);
        if (silent) fake.Set("batch", "a", ""), fake.Set("batch", "b", "");
        Rig rig;
        Scanned one = Scan(rig, false);
        const std::string perPackage = fake.Calls().substr(fake.Calls().find('\n') + 1);
        fake.ClearCalls();
        std::get<1>(one).insert(std::get<1>(one).begin(), "Batch query not used: " + reason + "; querying each package");
        EXPECT_EQ(one, Scan(rig, true)) << reason;
        const std::string calls = fake.Calls();   // each package on its own after the batch attempt, its file list too
        EXPECT_EQ(perPackage, calls.substr(calls.size() - std::min(calls.size(), perPackage.size()))) << reason;
    }
}

TEST(ProductChecks, RecordsKeysAndVersionFiles) {
    testutil::TempDir scratch;
    testutil::FakePackageManager fake;
    fake.Set("list", "", "");   // no package: the products are still checked
    EXPECT_EQ(0, Isolated([&] {
        for (const std::string top : {"usr", "opt"}) {
            testutil::MakeDirs(scratch.file(top));
            ASSERT_TRUE(testutil::OverlayFolder("/" + top, scratch.file(top)));
        }
        const std::string orbis = "/opt/Halvorn/HalvornOrbis/", pavo = "/opt/Halvorn/HalvornPavo/";
        for (const std::string& marker : Strings{"/usr/zev/bin/zevclient", "/usr/qor/daemon/clientdaemon", orbis + "bin/Client",
                                                 pavo + "bin/Pavo", pavo + "bin/Client", "/usr/cir/daemon/cirrodaemon",
                                                 "/usr/mgl/daemon/cirrodaemon", "/usr/dra/daemon/cirrodaemon"})
            Put(marker);
        const std::pair<std::string, const char*> versions[] = {
            {"/usr/zev/bin/", "5.10\n"}, {"/usr/qor/daemon/", "1.0\n"}, {"/usr/qor/", "wrong folder\n"}, {orbis, "2.0\n2.1\n"},
            {pavo, "3.0\n"}, {"/usr/cir/", "4.0"}, {"/usr/mgl/", "6\n"}, {"/usr/dra/", "7.0\r\n"}};
        for (const auto& [folder, text] : versions) Put(folder + "VERSION", text);
        testutil::MakeDirs("/usr/pgs/daemon");   // a marker that is a link to nothing still counts
        ASSERT_EQ(0, symlink("/nowhere/at/all", "/usr/pgs/daemon/cirrodaemon"));
        Rig rig;
        hostshim::SetHomePath("/usr/zev/");
        ASSERT_TRUE(rig.collector.ScanPackages(&rig.software));
        const std::string halvorn = "\\Halvorn Ltd\\";
        EXPECT_EQ((Strings{
                      "drossel-alert\\Drossel\\7.0\r: drossel-alert|Drossel|Drossel Alert Client For Linux|7.0\r|128",
                      "halvorn-cirro" + halvorn + "4.0: halvorn-cirro|Halvorn Ltd|Halvorn Cirro|4.0|128",
                      "halvorn-orbis-client" + halvorn + "1.0: halvorn-orbis-client|Halvorn Ltd|Halvorn Orbis|1.0|128",
                      "halvorn-orbis" + halvorn + "2.0\n2.1: halvorn-orbis|Halvorn Ltd|Halvorn Orbis|2.0\n2.1|128",
                      "halvorn-pavo-student" + halvorn + "3.0: halvorn-pavo-student|Halvorn Ltd|Halvorn Pavo Student|3.0|128",
                      "halvorn-pavo-tutor" + halvorn + "3.0: halvorn-pavo-tutor|Halvorn Ltd|Halvorn Pavo Tutor|3.0|128",
                      "halvorn-zev-client" + halvorn + "5.10" + halvorn +
                          "5.10: halvorn-zev-client|Halvorn Ltd|Halvorn ZEV|5.10|128",
                      "morvash-glimmer\\Morvash\\6: morvash-glimmer|Morvash|Morvash Glimmer Client For Linux|6|128",
                      "pelligranes-scrivel\\Pelligrane\\: pelligranes-scrivel|Pelligrane|"
                      "Pelligranes Scri[V]el Client For Linux||128"}),
                  Records(rig.packages));
        // The home bin folder and the product folders are walked, the Pavo folder twice.
        EXPECT_EQ((Strings{"/usr/zev/bin", "/usr/qor/", orbis, pavo, pavo, "/usr/cir/", "/usr/pgs/", "/usr/mgl/", "/usr/dra/"}),
                  rig.Log("Start In: "));

        // The agent's edition follows the home folder, compared whole.
        const std::pair<std::string, std::string> editions[] = {
            {"/usr/brask/", "morvash-brask-client\\Morvash\\9.9\\Morvash\\9.9: morvash-brask-client|Morvash|Morvash BRASK"},
            {"/usr/other/", "\\\\9.9\\\\9.9: ||"}, {"/usr/lumet", "\\\\9.9\\\\9.9: ||"}};
        for (const auto& [home, expected] : editions) {
            Put(home + "bin/zevclient");
            Put(home + "bin/VERSION", "9.9\n");
            hostshim::SetHomePath(home);
            CInvMap map;
            rig.collector.SetPackageMap(&map);
            rig.collector.CheckZEVPackage();
            EXPECT_EQ(Strings{expected + "|9.9|128"}, Records(map)) << home;
        }
    }));
}

TEST(RealPackageDb, HiddenDebianMarkerSelectsRpmAndItsPackagesBatchQueryGivesTheSame) {
    testutil::TempDir top;
    for (const char* sub : {"SPECS", "db", "home", "etc"}) testutil::MakeDirs(top.file(sub));
    const std::string multi = "One name, two architectures";
    const std::tuple<std::string, std::string, std::string, std::string, std::string> recipes[] = {
        // name, version, summary, vendor line, arch
        {"zevkit-1.5", "3.0", "Kit with a numbered name", "Vendor: Other Vendor\n", "noarch"},
        {"zevmulti", "1.1", multi, "", "x86_64"}, {"zevmulti", "1.1", multi, "", "i686"}};
    std::string rpms;
    for (const auto& [name, version, summary, vendor, arch] : recipes) {
        const std::string recipe = top.file("SPECS/" + name + ".spec");
        testutil::WriteFileText(recipe, "Name: " + name + "\nVersion: " + version + "\nRelease: 1\nSummary: " + summary +
                                            "\nLicense: MIT\n" + (arch == "noarch" ? "BuildArch: noarch\n" : "") + vendor +
                                            "%description\nFirst line.\nSecond line.\n%files\n");
        ASSERT_EQ(0, std::system(("rpmbuild --quiet --define '_topdir " + top.path() + "' --target " + arch + " -bb '" +
                                  recipe + "' >/dev/null 2>&1").c_str()))
            << "rpmbuild " << name << " " << arch;
        rpms += " '" + top.file("RPMS/" + arch + "/") + name + "-" + version + "-1." + arch + ".rpm'";
    }
    const std::string db = "rpm --dbpath '" + top.file("db") + "' ";
    const std::string install = db + "--initdb && " + db + "--nodeps --justdb --ignorearch -i" + rpms + " >/dev/null 2>&1";
    ASSERT_EQ(0, std::system(install.c_str()));
    testutil::WriteFileText(top.file("home/.rpmmacros"), "%_dbpath " + top.file("db") + "\n");   // found through $HOME
    EXPECT_EQ(0, Isolated([&] {
        ASSERT_TRUE(testutil::OverlayFolder("/etc", top.file("etc")));
        unlink("/etc/debian_version");
        unlink("/etc/debian-release");
        setenv("HOME", top.file("home").c_str(), 1);
        Rig rig;   // its home holds no product marker
        rig.collector.ConfigureForPackageManager();
        const Scanned one = Scan(rig, false);
        EXPECT_EQ((Strings{"zevkit-1.5-3.0-1.noarch\\Other Vendor\\3.0: zevkit|Other Vendor|Kit with a numbered name|3.0|128",
                           "zevmulti-1.1-1.i686\\(none)\\1.1: zevmulti|(none)|" + multi + "|1.1|128",
                           "zevmulti-1.1-1.x86_64\\(none)\\1.1: zevmulti|(none)|" + multi + "|1.1|128"}),
                  std::get<0>(one));
        // The batch query's tags match the list's labels: one call, the same records, bytes and log.
        rig.commands.clear();
        EXPECT_EQ(one, Scan(rig, true));
        EXPECT_EQ(1u, rig.commands.size());
        testutil::WriteFileText("/etc/debian-release", "");   // the second marker counts alone
        EXPECT_TRUE(CSoftwareCollector::ShouldUseDpkg());
    }));
}

// The real dpkg-query on a database written here: a name of two architectures, packages known but not
// installed, a removed one with its configuration left, multi-line descriptions.
TEST(RealPackageDb, WrittenDpkgDatabaseBatchQueryGivesTheSame) {
    if (access("/usr/bin/dpkg-query", X_OK) != 0) GTEST_SKIP() << "no /usr/bin/dpkg-query";
    testutil::TempDir top;
    for (const char* sub : {"admin/info", "admin/updates", "bin"}) testutil::MakeDirs(top.file(sub));
    testutil::WriteFileText(top.file("admin/available"), "");
    const std::string wrapper = "#!/bin/sh\nexec /usr/bin/dpkg-query --admindir='" + top.file("admin") + "' \"$@\" 2>/dev/null\n";
    testutil::WriteFileText(top.file("bin/dpkg-query"), wrapper, 0755);
    const std::string installed = "Status: install ok installed\nMaintainer: M <m@example.org>\n";
    testutil::WriteFileText(top.file("admin/status"),
        "Package: libzev1\n" + installed + "Architecture: amd64\nMulti-Arch: same\nVersion: 1.0-1\n"
        "Description: library\n more\n .\n end\n\n"
        "Package: libzev1\n" + installed + "Architecture: i386\nMulti-Arch: same\nVersion: 1.0-1\nDescription: library (i386)\n\n"
        "Package: ghost\nStatus: purge ok not-installed\nArchitecture: amd64\n\n"
        "Package: removed\nStatus: deinstall ok config-files\nMaintainer: M <m@example.org>\nArchitecture: amd64\nVersion: 2\n"
        "Description: gone, configuration kept\n\n"
        "Package: tool\n" + installed + "Architecture: all\nVersion: 3\nOrigin: Debian\nDescription: a ^ in it\n\n"
        "Package: tool2\n" + installed + "Architecture: amd64\nVersion: 1\nDescription: tool two\n\n"
        "Package: tool2\nStatus: purge ok not-installed\nArchitecture: i386\n\n");
    const std::string oldPath = std::getenv("PATH");
    setenv("PATH", (top.file("bin") + ":" + oldPath).c_str(), 1);
    Rig rig;
    const Scanned one = Scan(rig, false);
    // libzev1 is listed once per architecture; tool2's query prints its not-installed i386 record too.
    EXPECT_EQ((Strings{"libzev1\\libzev1^1.0-1^library (i386)^\\1.0-1: libzev1|libzev1^1.0-1^library (i386)^|library|1.0-1|128",
                       "removed\\\\2: removed| |gone, configuration kept|2|128",
                       "tool2\\tool2^^^\\1: tool2|tool2^^^|tool two|1|128",
                       "tool\\ in it^Debian\\3: tool| in it^Debian|a |3|128"}),
              std::get<0>(one));
    rig.commands.clear();
    EXPECT_EQ(one, Scan(rig, true));
    EXPECT_EQ(1u, rig.commands.size());
    setenv("PATH", oldPath.c_str(), 1);
}

// Stand-in snap and flatpak commands: their exact command lines, their records filed after the packages', and
// missing tools. (A failing one: SoftwareListTest.)
TEST(ExtraSources, StandInCommandsRecordsAndMissingTools) {
    testutil::FakePackageManager fake;
    fake.SetPackages({"hello^2.10^Hello tool^"});   // the key of the snap "hello" below
    fake.SetTool("snap", "Name Version Rev Tracking Publisher Notes\nhello 2.10 38 latest/stable - -\n"
                         "zev-notes-3 128.0.3-1 4650 latest/stable zevsoft** -\nshort 1\n");
    fake.SetTool("flatpak", "org.zev.Hello\t\tstable\tzev\tHello\n");
    Rig rig;
    rig.collector.SetSources("flatpak|snap|rpmfusion");
    ASSERT_TRUE(rig.collector.ScanPackages(&rig.software));
    // The sources before the package queries.
    EXPECT_EQ((Strings{"flatpak list --app --columns=application,version,branch,origin,name",
                       "snap list --unicode=never --color=never", kQuery + "hello"}),
              rig.commands);
    EXPECT_EQ((Strings{"hello\\\\2.10: hello| |Snap package|2.10|128",
                       "org.zev.Hello\\zev\\stable: org.zev.Hello|zev|Hello|stable|128",
                       "zev-notes-3\\zevsoft\\128.0.3-1: zev-notes-3|zevsoft|Snap package|128.0.3-1|128"}),
              Records(rig.packages));
    const Strings log = rig.Log();
    EXPECT_EQ((Strings{"Unknown package source ignored: rpmfusion",
                       "Package source snap: line with too few fields skipped: short 1"}),
              Strings(log.begin(), log.begin() + std::min<size_t>(2, log.size())));
    const Strings replaced = {"Package source snap replaces the record under hello\\\\2.10", "Package hello", "Version 2.10",
                              "Company  ", "Summary Snap package"};
    EXPECT_NE(log.end(), std::search(log.begin(), log.end(), replaced.begin(), replaced.end())) << testing::PrintToString(log);

    // Neither tool on the search path (nor rpm): nothing is started, each missing tool says so.
    testutil::TempDir empty;
    setenv("PATH", empty.path().c_str(), 1);   // the fake puts its own back
    Rig none(true);
    none.collector.SetSources("snap|flatpak");
    EXPECT_TRUE(none.collector.ScanPackages(&none.software));
    EXPECT_EQ(Strings{}, none.commands);
    EXPECT_EQ(0, none.packages.GetCount());
    EXPECT_EQ((Strings{"snap: no snap on the search path", "flatpak: no flatpak on the search path"}),
              none.Log("Package source "));
}

TEST(FileWalk, WhichFilesCountAsPrograms) {
    testutil::TempDir dir;
    testutil::MakeDirs(dir.file("plugins"));
    const std::tuple<const char*, std::string, unsigned, bool> cases[] = {   // name, content, mode, looks like a program
        {"elf", kElf, 0755, true}, {"elf-not-executable", kElf, 0644, false}, {"elf-group-exec", kElf, 0610, true},
        {"script", "#!/bin/sh\n", 0700, true}, {"short-script", "#!\n", 0755, false}, {"text", "hello world", 0755, false},
        {"libx.so", kElf, 0755, false}, {"plugins/tool", kElf, 0755, false}, {"empty", "", 0755, false}};
    struct stat st {};
    for (const auto& [name, content, mode, program] : cases) {
        const std::string path = dir.file(name);
        testutil::WriteFileText(path, content, mode);
        ASSERT_EQ(0, lstat(path.c_str(), &st));
        EXPECT_EQ(program, CSoftwareCollector::FileQualifies(path.c_str(), st, false, 0, 0)) << name;
        EXPECT_TRUE(CSoftwareCollector::FileQualifies(path.c_str(), st, true, 0, 0)) << name;   // matched a pattern
    }
    ASSERT_EQ(0, mkfifo(dir.file("fifo").c_str(), 0755));   // not waited on
    ASSERT_EQ(0, lstat(dir.file("fifo").c_str(), &st));
    EXPECT_FALSE(CSoftwareCollector::FileQualifies(dir.file("fifo").c_str(), st, false, 0, 0));

    // The size range: a minimum in mode 0, a maximum in any other mode, none without a limit.
    const std::tuple<size_t, int, int, bool> sizes[] = {   // bytes, mode, limit in KB, passes
        {2048, 0, 2, true}, {2047, 0, 2, false}, {2048, 1, 2, true}, {2049, 1, 2, false}, {2048, -5, 2, true},
        {2049, -5, 2, false}, {100, 0, 0, true}, {100, 0, -1, true}, {100, 1, 0, true}};
    for (const auto& [bytes, mode, limitKB, passes] : sizes) {
        testutil::WriteFileText(dir.file("sized"), kElf + std::string(bytes - kElf.size(), '\0'), 0755);
        ASSERT_EQ(0, lstat(dir.file("sized").c_str(), &st));
        for (bool force : {false, true})
            EXPECT_EQ(passes, CSoftwareCollector::FileQualifies(dir.file("sized").c_str(), st, force, mode, limitKB))
                << bytes << " bytes, mode " << mode << ", limit " << limitKB;
    }
}

TEST(FileWalk, FoldersEnteredAndSkipped) {
    Rig rig;
    const std::string root = rig.dir.file("tree");
    for (const char* sub : {"a/b", "skip/deep", "proc", "x.proc/inner", "keep"}) testutil::MakeDirs(root + "/" + sub);
    Put(root + "/a/program", kElf);
    ASSERT_EQ(0, symlink((root + "/a").c_str(), (root + "/link").c_str()));
    ASSERT_EQ(0, symlink((root + "/keep").c_str(), (root + "/a/b/up").c_str()));
    auto walk = [&](std::string start, std::string exclude) {
        unlink(rig.dir.file("Software.log").c_str());
        std::string checkFiles = "*.txt";
        EXPECT_TRUE(rig.collector.GetFiles(checkFiles, start, exclude, &rig.software, false, 0, 0));
        Strings folders = rig.Log("Check Files: ");
        return std::sort(folders.begin(), folders.end()), folders;
    };
    // Backslashes become "/"; "x.proc" does not end in "/proc"; links are not followed. (Lists: CollectorText.)
    std::string start = root;
    std::replace(start.begin(), start.end(), '/', '\\');
    EXPECT_EQ((Strings{root + "/", root + "/a/", root + "/a/b/", root + "/keep/", root + "/x.proc/", root + "/x.proc/inner/"}),
              walk(start, "\\skip|/proc|"));
    EXPECT_EQ(Strings{root + "/missing/"}, walk(root + "/missing", ""));   // counts as scanned
    EXPECT_EQ(0, rig.software.GetCount());   // a program is qualified, but no record is built
}

TEST(Cancellation, WalkAndPackageScanStopProductsAreStillChecked) {
    CSoftwareListApp app;
    g_pSoftwareListApp = &app;
    testutil::FakePackageManager fake;
    fake.SetPackages({"a^1^S^O", "b^1^S^O", "c^1^S^O"});
    Rig rig;
    Put(rig.home + "bin/zevclient");
    hostshim::SetCommandObserver([&](const char* command) {
        if (command == kQuery + "b") app.HaltExecution(false);
    });
    // Raised while "b" is queried: "b" keeps its record and its file list is read, "c" is never read.
    EXPECT_TRUE(rig.collector.ScanPackages(&rig.software));
    EXPECT_EQ((Strings{"\\\\\\\\", "a\\O\\1", "b\\O\\1"}), Keys(rig.packages));
    EXPECT_EQ(std::string::npos, fake.Calls().find("[c]"));
    EXPECT_NE(std::string::npos, fake.Calls().find("[--listfiles] [b]"));

    // The walk stops at the first entry, even in an empty folder.
    testutil::MakeDirs(rig.dir.file("a/b"));
    unlink(rig.dir.file("Software.log").c_str());
    for (const std::string& folder : {rig.dir.file("a"), rig.dir.file("a/b")}) {
        std::string checkFiles, start = folder, exclude;
        EXPECT_FALSE(rig.collector.GetFiles(checkFiles, start, exclude, &rig.software, false, 0, 0));
    }
    EXPECT_EQ((Strings{rig.dir.file("a/"), rig.dir.file("a/b/")}), rig.Log("Check Files: "));

    // Batch queries: a halt during the one call, or during the first of two, records no package
    // and asks nothing more; the products are still checked.
    hostshim::SetCommandObserver([&](const char* command) {
        if (std::string(command).find(" a b") != std::string::npos) app.HaltExecution(false);
    });
    for (const size_t limit : {size_t(1) << 20, std::string(rig.collector.BatchQuery()).size() + 5}) {
        app.ResetExecs();
        rig.collector.SetBatchLimit({limit, 1 << 20});
        fake.ClearCalls();
        EXPECT_EQ(Strings{"\\\\\\\\: ||||128"}, std::get<0>(Scan(rig, true))) << limit;
        const std::string calls = fake.Calls();
        EXPECT_EQ(3, std::count(calls.begin(), calls.end(), '\n')) << calls;   // the list (two lines) and one batch call
    }
    // Halted while the list is read: a list command cut off by the closed pipe ends badly, which is no failure.
    testutil::WriteFileText(fake.file("bin/dpkg-query"), "#!/bin/sh\nexec yes pkg\n", 0755);
    EXPECT_TRUE(rig.collector.ScanPackages(&rig.software));
    g_pSoftwareListApp = nullptr;
}
