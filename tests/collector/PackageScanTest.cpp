// The package scan against fake dpkg-query and rpm programs: the exact command
// lines, odd query outputs, the buffer limits, failing commands and the fixed
// walks of the home and product folders that follow the package list.
#include "CollectorTestSupport.h"

#include "HostShim.h"
#include "collector/softwarecollector.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"
#include "support/ZEVLogger.h"

#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>

using collectortest::FakePackageManager;
using collectortest::Keys;
using collectortest::PackageAt;

namespace {

const char kDpkgQuery[] = "dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' ";

// A home folder of the agent in a temporary folder, set as the host's home path.
class TempHome {
public:
    TempHome() {
        home = dir.path() + "/";
        testutil::MakeDirs(home + "bin");
        hostshim::SetHomePath(home);
    }
    ~TempHome() { hostshim::SetHomePath(""); }
    testutil::TempDir dir;
    std::string home;
};

// Inside a private mount namespace: the shell becomes a device that cannot be run,
// so that popen and GetSimpleCommand can no longer start any command.
void BreakShell() { ASSERT_EQ(0, mount("/dev/null", "/bin/sh", nullptr, MS_BIND, nullptr)); }

}  // namespace

TEST(PackageScan, CommandTextsOfBothPackageManagers) {
    CSoftwareCollector collector;
    collector.ConfigureForRpm();
    EXPECT_STREQ("rpm -qa", collector.ListCommand());
    EXPECT_STREQ("rpm -q %s --queryformat '%%{NAME}^%%{VERSION}^%%{SUMMARY}^%%{VENDOR}'", collector.PackageQuery());
    EXPECT_STREQ("rpm -qf %s", collector.FileOwnerQuery());
    EXPECT_STREQ("rpm -ql %s | grep bin", collector.ListFilesQuery());
    collector.ConfigureForDpkg();
    EXPECT_STREQ("dpkg-query --show --showformat '${Package}\n'", collector.ListCommand());
    EXPECT_STREQ("dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' %s",
                 collector.PackageQuery());
    EXPECT_STREQ("dpkg-query --show --showformat '${Filename}' %s", collector.FileOwnerQuery());
    EXPECT_STREQ("dpkg-query --listfiles %s | grep bin", collector.ListFilesQuery());
}

TEST(PackageScan, DpkgCommandLinesArriveExactly) {
    TempHome home;
    FakePackageManager fake;
    fake.SetList("foo\nbar\n");
    fake.SetQuery("foo", "foo^1.2^^");
    fake.SetFiles("foo", "/usr/bin/foo\n/usr/share/doc/foo\n");

    CInvMap software, packages;
    CSoftwareCollector collector;
    collector.ConfigureForDpkg();
    collector.SetPackageMap(&packages);
    collectortest::CommandRecorder recorder;
    ASSERT_TRUE(collector.ScanPackages(&software));

    EXPECT_EQ((std::vector<std::string>{std::string(kDpkgQuery) + "foo", std::string(kDpkgQuery) + "bar"}),
              recorder.commands);
    // "bar" has no query answer and no file list: neither stops the scan.
    EXPECT_EQ("dpkg-query [--show] [--showformat] [${Package}\n]\n"
              "dpkg-query [--show] [--showformat] [${Package}^${Version}^${Description}^${Origin}] [foo]\n"
              "dpkg-query [--listfiles] [foo]\n"
              "dpkg-query [--show] [--showformat] [${Package}^${Version}^${Description}^${Origin}] [bar]\n"
              "dpkg-query [--listfiles] [bar]\n",
              fake.Calls());

    ASSERT_EQ(std::vector<std::string>{"foo\\\\1.2"}, Keys(packages));
    CSoftwarePackageObject* foo = PackageAt(packages, "foo\\\\1.2");
    EXPECT_EQ("foo", foo->m_strName);
    EXPECT_EQ("1.2", foo->m_strVersion);
    EXPECT_EQ(" ", foo->m_strVendor);
    EXPECT_EQ("", foo->m_strDescription);
    EXPECT_EQ("", foo->m_strExtra1);
    EXPECT_EQ("", foo->m_strExtra2);
    EXPECT_EQ(128u, foo->m_nFlags);
    EXPECT_EQ(0, software.GetCount());
}

TEST(PackageScan, RpmCommandLinesAndOwnerQuery) {
    TempHome home;
    FakePackageManager fake;
    fake.SetList("kernel-2.6.18-8.el5\n");
    fake.SetQuery("kernel-2.6.18-8.el5", "kernel^2.6.18^The kernel^Acme Linux");
    fake.SetOwner("/srv/tool", "toolpkg");
    fake.SetQuery("toolpkg", "toolpkg^3.1^Tool summary^Acme Linux");

    CInvMap software, packages;
    CSoftwareCollector collector;
    collector.ConfigureForRpm();
    collector.SetPackageMap(&packages);
    collectortest::CommandRecorder recorder;
    ASSERT_TRUE(collector.ScanPackages(&software));
    EXPECT_EQ(std::vector<std::string>{"rpm -q kernel-2.6.18-8.el5 --queryformat "
                                       "'%{NAME}^%{VERSION}^%{SUMMARY}^%{VENDOR}'"},
              recorder.commands);
    EXPECT_EQ("rpm [-qa]\n"
              "rpm [-q] [kernel-2.6.18-8.el5] [--queryformat] [%{NAME}^%{VERSION}^%{SUMMARY}^%{VENDOR}]\n"
              "rpm [-ql] [kernel-2.6.18-8.el5]\n",
              fake.Calls());
    // The key is built from the list line; the record's name loses its version tail.
    CSoftwarePackageObject* kernel = PackageAt(packages, "kernel-2.6.18-8.el5\\Acme Linux\\2.6.18");
    ASSERT_NE(nullptr, kernel);
    EXPECT_EQ("kernel", kernel->m_strName);
    EXPECT_EQ("The kernel", kernel->m_strDescription);
    EXPECT_EQ("Acme Linux", kernel->m_strVendor);

    // The owner's package query fills the record one slot off the query's order.
    testutil::TempDir logDir;
    CZEVLogger logger(logDir.file("Software.log"));
    collector.SetLogger(&logger);
    recorder.commands.clear();
    CSoftwareObject record;
    record.m_strInfo1 = "/srv/tool";
    collector.ExtractVersionInfo(&record);
    EXPECT_EQ((std::vector<std::string>{"rpm -qf /srv/tool",
                                        "rpm -q toolpkg --queryformat '%{NAME}^%{VERSION}^%{SUMMARY}^%{VENDOR}'"}),
              recorder.commands);
    EXPECT_EQ("toolpkg", record.m_strVersion);
    EXPECT_EQ("3.1", record.m_strDescription);
    EXPECT_EQ("Tool summary^Acme Linux", record.m_strCompanyName);
    EXPECT_EQ("", record.m_strPackage);
    EXPECT_EQ(std::vector<std::string>{"command rpm -qf /srv/tool"},
              collectortest::LogMessages(logDir.file("Software.log")));
}

TEST(PackageScan, OddQueryOutputsAndLogLines) {
    TempHome home;
    FakePackageManager fake;
    const std::string longName(900, 'a');
    fake.SetList("one\nmulti\nnoorigin\nfails\nkernel-2.6.18\n\n" + longName + "\n");
    fake.SetQuery("one", "one^only");
    fake.SetQuery("multi", "multi^2.0^First line\n second line\n .\n third^Debian");
    fake.SetQuery("noorigin", "noorigin^1^S^");
    fake.SetQuery("kernel-2.6.18", "kernel-2.6.18^2.6.18^K^X");

    testutil::TempDir logDir;
    CZEVLogger logger(logDir.file("Software.log"));
    CInvMap software, packages;
    CSoftwareCollector collector;
    collector.ConfigureForDpkg();
    collector.SetPackageMap(&packages);
    collector.SetLogger(&logger);
    collectortest::CommandRecorder recorder;
    ASSERT_TRUE(collector.ScanPackages(&software));

    EXPECT_EQ((std::vector<std::string>{"kernel-2.6.18\\X\\2.6.18", "multi\\Debian\\2.0", "noorigin\\\\1"}),
              Keys(packages));
    EXPECT_EQ("kernel", PackageAt(packages, "kernel-2.6.18\\X\\2.6.18")->m_strName);
    EXPECT_EQ("First line", PackageAt(packages, "multi\\Debian\\2.0")->m_strDescription);
    EXPECT_EQ(" ", PackageAt(packages, "noorigin\\\\1")->m_strVendor);

    // Every line is queried and its files are listed, the empty one too; the line
    // longer than 799 bytes arrives as two, and the 800-byte command buffer cuts both
    // of its commands (the file list loses its "| grep bin").
    const std::string calls = fake.Calls();
    for (const char* name : {"one", "multi", "noorigin", "fails", "kernel-2.6.18"})
        EXPECT_NE(std::string::npos, calls.find(std::string("[--listfiles] [") + name + "]\n")) << name;
    EXPECT_NE(std::string::npos, calls.find("dpkg-query [--listfiles]\n"));
    const std::string listPrefix = "dpkg-query --listfiles ";
    EXPECT_NE(std::string::npos, calls.find("[--listfiles] [" + std::string(799 - listPrefix.size(), 'a') + "]\n"));
    EXPECT_NE(std::string::npos, calls.find("[--listfiles] [" + std::string(101, 'a') + "]\n"));
    const std::string query = std::string(kDpkgQuery) + longName.substr(0, 799);
    EXPECT_EQ(1, std::count(recorder.commands.begin(), recorder.commands.end(), query.substr(0, 799)));
    EXPECT_EQ(1, std::count(recorder.commands.begin(), recorder.commands.end(),
                            std::string(kDpkgQuery) + std::string(101, 'a')));

    const auto messages = collectortest::LogMessages(logDir.file("Software.log"));
    EXPECT_TRUE(collectortest::ContainsRun(
        messages, {"Add to Log multi", "Post Package multi", "Call SetAt", "Package multi", "Version 2.0",
                   "Company Debian", "Summary First line"}));
    EXPECT_TRUE(collectortest::ContainsRun(
        messages, {"Add to Log noorigin", "Post Package noorigin", "Call SetAt", "Package noorigin", "Version 1",
                   "Company  ", "Summary S"}));
    EXPECT_EQ(0, std::count(messages.begin(), messages.end(), "Add to Log one"));

    // The home bin folder and then the product folders, the Pavo folder twice.
    std::vector<std::string> starts;
    for (const std::string& m : messages)
        if (m.rfind("Start In: ", 0) == 0) starts.push_back(m.substr(10));
    EXPECT_EQ((std::vector<std::string>{home.home + "bin", "/usr/qor/", "/opt/Halvorn/HalvornOrbis/",
                                        "/opt/Halvorn/HalvornPavo/", "/opt/Halvorn/HalvornPavo/", "/usr/cir/",
                                        "/usr/pgs/", "/usr/mgl/", "/usr/dra/"}),
              starts);
    EXPECT_TRUE(collectortest::ContainsRun(
        messages, {"Start In: " + home.home + "bin", "Exclude Dirs: ", "Check Files: " + home.home + "bin/"}));
}

TEST(PackageScan, EmptyOrFailingListStillChecksProducts) {
    TempHome home;
    testutil::WriteFileText(home.home + "bin/zevclient", "#!/bin/sh\n", 0755);
    testutil::WriteFileText(home.home + "bin/VERSION", "7.1\n");
    FakePackageManager fake;
    // An unknown home folder: empty name, company and summary, five-part key.
    const std::string zevKey = "\\\\7.1\\\\7.1";

    for (bool failing : {false, true}) {
        SCOPED_TRACE(failing ? "failing list command" : "empty list");
        if (!failing) fake.SetList("");
        CInvMap software, packages;
        CSoftwareCollector collector;
        collector.ConfigureForDpkg();
        collector.SetPackageMap(&packages);
        ASSERT_TRUE(collector.ScanPackages(&software));
        ASSERT_EQ(std::vector<std::string>{zevKey}, Keys(packages));
        CSoftwarePackageObject* zev = PackageAt(packages, zevKey);
        EXPECT_EQ("", zev->m_strName);
        EXPECT_EQ("", zev->m_strVendor);
        EXPECT_EQ("", zev->m_strDescription);
        EXPECT_EQ("7.1", zev->m_strVersion);
        EXPECT_EQ(128u, zev->m_nFlags);
        // Without an answer the list command fails on the next round.
        ::unlink((fake.dir() + "/list/list").c_str());
    }
}

TEST(PackageScan, WithoutPackageMapOnlyFileListsAreRead) {
    TempHome home;
    testutil::WriteFileText(home.home + "bin/zevclient", "x");
    FakePackageManager fake;
    fake.SetList("foo\n");
    fake.SetQuery("foo", "foo^1^S^O");
    CInvMap software;
    CSoftwareCollector collector;
    collector.ConfigureForDpkg();
    ASSERT_TRUE(collector.ScanPackages(&software));
    EXPECT_NE(std::string::npos, fake.Calls().find("[--listfiles] [foo]\n"));
    EXPECT_EQ(0, software.GetCount());
    // A direct product check without a map does nothing either.
    collector.CheckZEVPackage();
}

TEST(PackageScan, CommandsThatCannotStart) {
    SKIP_UNLESS_ROOT();
    TempHome home;
    testutil::WriteFileText(home.home + "bin/zevclient", "x");
    FakePackageManager fake;
    fake.SetList("a\nb\nc\n");
    fake.SetQuery("a", "a^1^A^O");
    fake.SetQuery("b", "b^1^B^O");
    fake.SetQuery("c", "c^1^C^O");

    // The list command cannot start: false, and nothing recorded.
    EXPECT_CHILD_OK(collectortest::Isolated, [&] {
        CInvMap software, packages;
        CSoftwareCollector collector;
        collector.ConfigureForDpkg();
        collector.SetPackageMap(&packages);
        BreakShell();
        EXPECT_FALSE(collector.ScanPackages(&software));
        EXPECT_EQ(0, packages.GetCount());
    });
    EXPECT_EQ("", fake.Calls());

    // Nothing starts any more from the query of "b" on: no record for it, its file list
    // cannot start, the scan ends with false, "a" stays and no product check runs.
    EXPECT_CHILD_OK(collectortest::Isolated, [&] {
        CInvMap software, packages;
        CSoftwareCollector collector;
        collector.ConfigureForDpkg();
        collector.SetPackageMap(&packages);
        hostshim::SetCommandObserver([](const char* command) {
            if (std::string(command) == std::string(kDpkgQuery) + "b") BreakShell();
        });
        EXPECT_FALSE(collector.ScanPackages(&software));
        EXPECT_EQ(std::vector<std::string>{"a\\O\\1"}, Keys(packages));
    });
    EXPECT_NE(std::string::npos, fake.Calls().find("[--listfiles] [a]"));
    EXPECT_EQ(std::string::npos, fake.Calls().find("[b]"));
}

TEST(PackageScan, VersionInfoFromOwnerAndProductFolders) {
    TempHome home;
    testutil::WriteFileText(home.home + "bin/VERSION", "4.2\n");
    FakePackageManager fake;
    const std::string tool = home.home + "bin/tool";
    fake.SetQuery(tool, "pkgtool");
    fake.SetQuery("pkgtool", "pkgtool^1.0^Sum^Org");
    fake.SetQuery("/srv/unowned", "dpkg-query: no path found matching pattern /srv/unowned\n");
    fake.SetQuery("/srv/x%sy", "other");
    fake.SetQuery("other", "no separators");

    CSoftwareCollector collector;
    collector.ConfigureForDpkg();
    testutil::TempDir logDir;
    CZEVLogger logger(logDir.file("Software.log"));
    collector.SetLogger(&logger);
    collectortest::CommandRecorder recorder;

    // Below the home bin folder: the owner's company stays, but the version comes from
    // the VERSION file and the key always names the maker.
    CSoftwareObject owned;
    owned.m_strInfo1 = tool;
    collector.ExtractVersionInfo(&owned);
    EXPECT_EQ("4.2", owned.m_strVersion);
    EXPECT_EQ("1.0", owned.m_strDescription);
    EXPECT_EQ("Sum^Org", owned.m_strCompanyName);
    EXPECT_EQ("halvorn-zev-client\\Halvorn Ltd\\4.2", owned.m_strPackage);

    CSoftwareObject unowned;
    unowned.m_strInfo1 = home.home + "bin/other";
    collector.ExtractVersionInfo(&unowned);
    EXPECT_EQ("Halvorn Ltd", unowned.m_strCompanyName);
    EXPECT_EQ("4.2", unowned.m_strVersion);

    // An answer that repeats the path means "no owner": nothing changes.
    CSoftwareObject plain;
    plain.m_strInfo1 = "/srv/unowned";
    plain.m_strVersion = "keep";
    collector.ExtractVersionInfo(&plain);
    EXPECT_EQ("keep", plain.m_strVersion);
    EXPECT_EQ("", plain.m_strPackage);

    // "%" in a path is an argument of the format, not part of it.
    CSoftwareObject percent;
    percent.m_strInfo1 = "/srv/x%sy";
    collector.ExtractVersionInfo(&percent);
    EXPECT_EQ("", percent.m_strVersion);

    // The Pavo folder is always keyed as the tutor; no VERSION file gives an empty version.
    CSoftwareObject pavo;
    pavo.m_strInfo1 = "/opt/Halvorn/HalvornPavo/bin/Client";
    pavo.m_strCompanyName = "Someone";
    collector.ExtractVersionInfo(&pavo);
    EXPECT_EQ("halvorn-pavo-tutor\\Halvorn Ltd\\", pavo.m_strPackage);
    EXPECT_EQ("Someone", pavo.m_strCompanyName);

    collector.ExtractVersionInfo(nullptr);

    const std::string owner = "dpkg-query --show --showformat '${Filename}' ";
    EXPECT_EQ((std::vector<std::string>{owner + tool, std::string(kDpkgQuery) + "pkgtool", "cat " + home.home + "bin/VERSION",
                                        owner + home.home + "bin/other", "cat " + home.home + "bin/VERSION",
                                        owner + "/srv/unowned", owner + "/srv/x%sy", std::string(kDpkgQuery) + "other",
                                        owner + "/opt/Halvorn/HalvornPavo/bin/Client"}),
              recorder.commands);
    EXPECT_EQ((std::vector<std::string>{"command " + owner + tool, "command " + owner + home.home + "bin/other",
                                        "command " + owner + "/srv/unowned", "command " + owner + "/srv/x%sy",
                                        "command " + owner + "/opt/Halvorn/HalvornPavo/bin/Client"}),
              collectortest::LogMessages(logDir.file("Software.log")));
}
