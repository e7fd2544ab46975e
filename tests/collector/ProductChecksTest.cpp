// The Halvorn product checks on real folders. The products live below /usr and
// /opt, so every test builds them inside a private mount namespace with throw-away
// overlays over both; the machine's own folders never change.
#include "CollectorTestSupport.h"

#include "HostShim.h"
#include "collector/softwarecollector.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwarePackageObject.h"

#include <unistd.h>

using collectortest::Keys;
using collectortest::PackageAt;

namespace {

// Scratch folders for the two overlays, made by the parent so that it removes them.
class ProductFolders {
public:
    ProductFolders() {
        testutil::MakeDirs(m_scratch.file("usr"));
        testutil::MakeDirs(m_scratch.file("opt"));
    }
    // In the namespace: /usr and /opt become writable throw-away layers.
    bool Mount() const {
        return testutil::OverlayFolder("/usr", m_scratch.file("usr")) &&
               testutil::OverlayFolder("/opt", m_scratch.file("opt"));
    }

private:
    testutil::TempDir m_scratch;
};

void Put(const std::string& path, const std::string& text = "") {
    testutil::MakeDirs(path.substr(0, path.rfind('/')));
    testutil::WriteFileText(path, text, 0755);
}

struct Expected {
    std::string key, name, company, summary, version;
};

void ExpectRecord(CInvMap& map, const Expected& e) {
    CSoftwarePackageObject* record = PackageAt(map, e.key);
    ASSERT_NE(nullptr, record) << e.key;
    EXPECT_EQ(e.name, record->m_strName) << e.key;
    EXPECT_EQ(e.company, record->m_strVendor) << e.key;
    EXPECT_EQ(e.summary, record->m_strDescription) << e.key;
    EXPECT_EQ(e.version, record->m_strVersion) << e.key;
    EXPECT_EQ(128u, record->m_nFlags) << e.key;
}

}  // namespace

TEST(ProductChecks, EveryProductFoundByTheScan) {
    SKIP_UNLESS_ROOT();
    ProductFolders folders;
    collectortest::FakePackageManager fake;
    fake.SetList("");
    EXPECT_CHILD_OK(collectortest::Isolated, [&] {
        ASSERT_TRUE(folders.Mount());
        Put("/usr/zev/bin/zevclient");
        Put("/usr/zev/bin/VERSION", "5.10\n");
        Put("/usr/qor/daemon/clientdaemon");
        Put("/usr/qor/daemon/VERSION", "1.0\n");
        Put("/usr/qor/VERSION", "wrong folder\n");
        Put("/opt/Halvorn/HalvornOrbis/bin/Client");
        Put("/opt/Halvorn/HalvornOrbis/VERSION", "2.0\n2.1\n");
        Put("/opt/Halvorn/HalvornPavo/bin/Pavo");
        Put("/opt/Halvorn/HalvornPavo/bin/Client");
        Put("/opt/Halvorn/HalvornPavo/VERSION", "3.0\n");
        Put("/usr/cir/daemon/cirrodaemon");
        Put("/usr/cir/VERSION", "4.0");
        // A marker that is a link to nothing still counts: its own status is taken.
        testutil::MakeDirs("/usr/pgs/daemon");
        ASSERT_EQ(0, symlink("/nowhere/at/all", "/usr/pgs/daemon/cirrodaemon"));
        Put("/usr/mgl/daemon/cirrodaemon");
        Put("/usr/mgl/VERSION", "6\n");
        Put("/usr/dra/daemon/cirrodaemon");
        Put("/usr/dra/VERSION", "7.0\r\n");
        hostshim::SetHomePath("/usr/zev/");

        CInvMap software, packages;
        CSoftwareCollector collector;
        collector.ConfigureForDpkg();
        collector.SetPackageMap(&packages);
        ASSERT_TRUE(collector.ScanPackages(&software));

        const Expected all[] = {
            {"halvorn-zev-client\\Halvorn Ltd\\5.10\\Halvorn Ltd\\5.10", "halvorn-zev-client", "Halvorn Ltd",
             "Halvorn ZEV", "5.10"},
            {"halvorn-orbis-client\\Halvorn Ltd\\1.0", "halvorn-orbis-client", "Halvorn Ltd", "Halvorn Orbis", "1.0"},
            {"halvorn-orbis\\Halvorn Ltd\\2.0\n2.1", "halvorn-orbis", "Halvorn Ltd", "Halvorn Orbis", "2.0\n2.1"},
            {"halvorn-pavo-tutor\\Halvorn Ltd\\3.0", "halvorn-pavo-tutor", "Halvorn Ltd", "Halvorn Pavo Tutor", "3.0"},
            {"halvorn-pavo-student\\Halvorn Ltd\\3.0", "halvorn-pavo-student", "Halvorn Ltd", "Halvorn Pavo Student",
             "3.0"},
            {"halvorn-cirro\\Halvorn Ltd\\4.0", "halvorn-cirro", "Halvorn Ltd", "Halvorn Cirro", "4.0"},
            {"pelligranes-scrivel\\Pelligrane\\", "pelligranes-scrivel", "Pelligrane",
             "Pelligranes Scri[V]el Client For Linux", ""},
            {"morvash-glimmer\\Morvash\\6", "morvash-glimmer", "Morvash", "Morvash Glimmer Client For Linux", "6"},
            {"drossel-alert\\Drossel\\7.0\r", "drossel-alert", "Drossel", "Drossel Alert Client For Linux", "7.0\r"},
        };
        EXPECT_EQ(9, packages.GetCount());
        for (const Expected& e : all) ExpectRecord(packages, e);
        hostshim::SetHomePath("");
    });
}

TEST(ProductChecks, AgentEditionByHomeFolder) {
    SKIP_UNLESS_ROOT();
    ProductFolders folders;
    EXPECT_CHILD_OK(collectortest::Isolated, [&] {
        ASSERT_TRUE(folders.Mount());
        const Expected editions[] = {
            {"halvorn-zev-client\\Halvorn Ltd\\9.9\\Halvorn Ltd\\9.9", "halvorn-zev-client", "Halvorn Ltd",
             "Halvorn ZEV", "9.9"},
            {"morvash-brask-client\\Morvash\\9.9\\Morvash\\9.9", "morvash-brask-client", "Morvash", "Morvash BRASK",
             "9.9"},
            {"quendry-rtk-client\\Quendry\\9.9\\Quendry\\9.9", "quendry-rtk-client", "Quendry", "Quendry R.T.K.",
             "9.9"},
            {"pelligrane-lumet-client\\Pelligrane\\9.9\\Pelligrane\\9.9", "pelligrane-lumet-client", "Pelligrane",
             "Pelligrane Lumet", "9.9"},
            {"\\\\9.9\\\\9.9", "", "", "", "9.9"},
        };
        const char* homes[] = {"/usr/zev/", "/usr/brask/", "/usr/rtk/", "/usr/lumet/", "/usr/other/"};
        for (int i = 0; i < 5; ++i) {
            SCOPED_TRACE(homes[i]);
            const std::string home = homes[i];
            Put(home + "bin/zevclient");
            Put(home + "bin/VERSION", "9.9\n");
            hostshim::SetHomePath(home);
            CInvMap packages;
            CSoftwareCollector collector;
            collector.SetPackageMap(&packages);
            collector.CheckZEVPackage();
            EXPECT_EQ(1, packages.GetCount());
            ExpectRecord(packages, editions[i]);
        }
        // The folder is compared whole: a home without its final "/" is unknown.
        hostshim::SetHomePath("/usr/zev");
        CInvMap packages;
        CSoftwareCollector collector;
        collector.SetPackageMap(&packages);
        collector.CheckZEVPackage();
        EXPECT_EQ(0, packages.GetCount()) << "\"/usr/zevbin/\" does not exist";
        hostshim::SetHomePath("");
    });
}

TEST(ProductChecks, MissingMarkersAndVersionFiles) {
    SKIP_UNLESS_ROOT();
    ProductFolders folders;
    EXPECT_CHILD_OK(collectortest::Isolated, [&] {
        ASSERT_TRUE(folders.Mount());
        // Home bin folder without "zevclient"; Orbis client with its marker in the root.
        Put("/usr/zev/bin/VERSION", "1\n");
        Put("/usr/qor/clientdaemon");
        Put("/usr/qor/daemon/VERSION", "1\n");
        // Only the tutor's marker; no VERSION file at all.
        Put("/opt/Halvorn/HalvornPavo/bin/Pavo");
        // The folder is there but its marker is a folder of another name.
        testutil::MakeDirs("/usr/cir/daemon/cirro");
        // A marker without any VERSION file: the record is stored with an empty version.
        Put("/usr/dra/daemon/cirrodaemon");
        hostshim::SetHomePath("/usr/zev/");

        CInvMap packages;
        CSoftwareCollector collector;
        collector.SetPackageMap(&packages);
        collector.CheckZEVPackage();
        collector.CheckQORPackage();
        collector.CheckQORControlPackage();
        collector.CheckHVPavoPackage();
        collector.CheckHVStudentPackage();
        collector.CheckHVCirroPackage();
        collector.CheckPGScrivelPackage();
        collector.CheckMGGlimmerPackage();
        collector.CheckDRAlertPackage();
        EXPECT_EQ((std::vector<std::string>{"drossel-alert\\Drossel\\", "halvorn-pavo-tutor\\Halvorn Ltd\\"}),
                  Keys(packages));

        // Checks run again replace their records instead of adding duplicates.
        collector.CheckHVPavoPackage();
        EXPECT_EQ(2, packages.GetCount());

        EXPECT_EQ("", collector.ExtractFromVERSION("/opt/Halvorn/HalvornPavo/"));
        EXPECT_EQ("1", collector.ExtractFromVERSION("/usr/qor/daemon/"));
        // The folder is taken as it is: without a final "/" the file name runs on.
        EXPECT_EQ("", collector.ExtractFromVERSION("/usr/qor/daemon"));
        hostshim::SetHomePath("");
    });
}
