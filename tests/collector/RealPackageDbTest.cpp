// The package scan against real package databases: the machine's own dpkg
// database, and an rpm database of tiny packages built here, which the collector
// reaches once "/etc/debian_version" is hidden in a private mount namespace.
#include "CollectorTestSupport.h"

#include "HostShim.h"
#include "collector/softwarecollector.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwarePackageObject.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>

using collectortest::PackageAt;

namespace {

std::string RunText(const std::string& command) {
    std::string out;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) return out;
    char buffer[4096];
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, pipe.get())) > 0) out.append(buffer, got);
    return out;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(text);
    while (std::getline(in, part, separator)) parts.push_back(part);
    return parts;
}

// The home path points at an empty folder, so that no agent folder of the machine counts.
class EmptyHome {
public:
    EmptyHome() { hostshim::SetHomePath(m_dir.path() + "/"); }
    ~EmptyHome() { hostshim::SetHomePath(""); }

private:
    testutil::TempDir m_dir;
};

}  // namespace

TEST(RealPackageDb, EveryDpkgPackageOnceWithItsFields) {
    if (!CSoftwareCollector::ShouldUseDpkg()) GTEST_SKIP() << "no dpkg database on this machine";
    EmptyHome home;

    // The fields read independently: the one-line summary field instead of the
    // description, tab-separated, one package a line.
    struct Fields {
        std::string version, origin, summary;
        int count = 0;
    };
    std::map<std::string, Fields> expected;
    for (const std::string& line :
         Split(RunText("dpkg-query --show --showformat '${Package}\\t${Version}\\t${Origin}\\t${binary:Summary}\\n'"), '\n')) {
        const std::vector<std::string> f = Split(line + "\t", '\t');
        ASSERT_GE(f.size(), 4u) << line;
        Fields& e = expected[f[0]];
        e.version = f[1];
        e.origin = f[2];
        e.summary = f[3];
        ++e.count;
    }
    ASSERT_FALSE(expected.empty());

    CInvMap software, packages;
    CSoftwareCollector collector;
    ASSERT_STREQ("dpkg-query --show --showformat '${Package}\n'", collector.ListCommand());
    collector.SetPackageMap(&packages);
    ASSERT_TRUE(collector.ScanPackages(&software));

    EXPECT_EQ(static_cast<int>(expected.size()), packages.GetCount());
    for (const auto& entry : expected) {
        const std::string& name = entry.first;
        const Fields& e = entry.second;
        // A name listed for two architectures is queried once for both; its output is
        // the two records run together, so only its presence is checked.
        if (e.count > 1 || (e.origin + e.summary + e.version).find('^') != std::string::npos) continue;
        SCOPED_TRACE(name);
        CSoftwarePackageObject* record = PackageAt(packages, name + "\\" + e.origin + "\\" + e.version);
        ASSERT_NE(nullptr, record);
        EXPECT_EQ(e.version, record->m_strVersion);
        EXPECT_EQ(e.origin.empty() ? " " : e.origin, record->m_strVendor);
        EXPECT_EQ(e.summary, record->m_strDescription);
        EXPECT_EQ(128u, record->m_nFlags);
        // The name loses at most a version-like tail that starts with "-".
        if (record->m_strName != name) {
            ASSERT_LT(record->m_strName.size(), name.size());
            EXPECT_EQ(0u, name.compare(0, record->m_strName.size(), record->m_strName));
            EXPECT_EQ('-', name[record->m_strName.size()]);
            EXPECT_NE(std::string::npos, std::string("0123456789.-").find(name.back()));
        }
    }
    EXPECT_EQ(0, software.GetCount());
}

class RealRpmDb : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!testutil::CanUsePrivateMounts() || std::system("command -v rpmbuild >/dev/null 2>&1") != 0) return;
        s_dir = new testutil::TempDir;
        const std::string top = s_dir->path();
        for (const char* sub : {"SPECS", "BUILD", "RPMS", "SOURCES", "BUILDROOT", "db", "home", "etc"})
            testutil::MakeDirs(top + "/" + sub);
        struct Spec {
            const char* name;
            const char* version;
            const char* summary;
            const char* vendor;
        };
        const Spec specs[] = {
            {"zevtest-alpha", "1.2", "Alpha test tool", "Zev Test Labs"},
            {"zevkit-1.5", "3.0", "Kit with a numbered name", "Other Vendor"},
            {"zevtest-novendor", "0.9", "Package without a vendor", nullptr},
        };
        std::string rpms;
        for (const Spec& s : specs) {
            std::string text = std::string("Name: ") + s.name + "\nVersion: " + s.version +
                               "\nRelease: 1\nSummary: " + s.summary + "\nLicense: MIT\nBuildArch: noarch\n";
            if (s.vendor) text += std::string("Vendor: ") + s.vendor + "\n";
            text += "\n%description\nFirst line.\nSecond line.\n\n%install\nmkdir -p %{buildroot}/usr/bin\n"
                    "printf '#!/bin/sh\\n' > %{buildroot}/usr/bin/" + std::string(s.name) +
                    "\n\n%files\n/usr/bin/" + s.name + "\n";
            const std::string spec = top + "/SPECS/" + s.name + ".spec";
            testutil::WriteFileText(spec, text);
            const std::string build =
                "rpmbuild --quiet --nodeps --define '_topdir " + top + "' -bb '" + spec + "' >/dev/null 2>&1";
            if (std::system(build.c_str()) != 0) return;
            rpms += " '" + top + "/RPMS/noarch/" + s.name + "-" + s.version + "-1.noarch.rpm'";
        }
        const std::string db = top + "/db";
        const std::string install = "rpm --dbpath '" + db + "' --initdb && rpm --dbpath '" + db +
                                    "' --nodeps --justdb -i" + rpms + " >/dev/null 2>&1";
        if (std::system(install.c_str()) != 0) return;
        // Plain "rpm" finds the database through the home folder's macros.
        testutil::WriteFileText(top + "/home/.rpmmacros", "%_dbpath " + db + "\n");
        s_ready = true;
    }
    static void TearDownTestSuite() {
        delete s_dir;
        s_dir = nullptr;
    }

    static testutil::TempDir* s_dir;
    static bool s_ready;
};

testutil::TempDir* RealRpmDb::s_dir = nullptr;
bool RealRpmDb::s_ready = false;

TEST_F(RealRpmDb, HiddenDebianMarkerSelectsRpmAndItsPackages) {
    SKIP_UNLESS_ROOT();
    ASSERT_TRUE(s_ready) << "building or installing the test packages with rpmbuild and rpm failed";
    EmptyHome home;
    const std::string top = s_dir->path();
    EXPECT_CHILD_OK(collectortest::Isolated, [&] {
        ASSERT_TRUE(testutil::OverlayFolder("/etc", top + "/etc"));
        ::unlink("/etc/debian_version");
        ::unlink("/etc/debian-release");
        setenv("HOME", (top + "/home").c_str(), 1);

        EXPECT_FALSE(CSoftwareCollector::ShouldUseDpkg());
        CInvMap software, packages;
        CSoftwareCollector collector;
        EXPECT_STREQ("rpm -qa", collector.ListCommand());
        EXPECT_STREQ("rpm -ql %s | grep bin", collector.ListFilesQuery());
        collector.SetPackageMap(&packages);
        ASSERT_TRUE(collector.ScanPackages(&software));

        EXPECT_EQ((std::vector<std::string>{"zevkit-1.5-3.0-1.noarch\\Other Vendor\\3.0",
                                            "zevtest-alpha-1.2-1.noarch\\Zev Test Labs\\1.2",
                                            "zevtest-novendor-0.9-1.noarch\\(none)\\0.9"}),
                  collectortest::Keys(packages));
        CSoftwarePackageObject* kit = PackageAt(packages, "zevkit-1.5-3.0-1.noarch\\Other Vendor\\3.0");
        ASSERT_NE(nullptr, kit);
        EXPECT_EQ("zevkit", kit->m_strName);
        EXPECT_EQ("3.0", kit->m_strVersion);
        EXPECT_EQ("Kit with a numbered name", kit->m_strDescription);
        EXPECT_EQ("Other Vendor", kit->m_strVendor);
        CSoftwarePackageObject* alpha = PackageAt(packages, "zevtest-alpha-1.2-1.noarch\\Zev Test Labs\\1.2");
        ASSERT_NE(nullptr, alpha);
        EXPECT_EQ("zevtest-alpha", alpha->m_strName);
        EXPECT_EQ("Alpha test tool", alpha->m_strDescription);
        CSoftwarePackageObject* none = PackageAt(packages, "zevtest-novendor-0.9-1.noarch\\(none)\\0.9");
        ASSERT_NE(nullptr, none);
        EXPECT_EQ("(none)", none->m_strVendor);

        // The second marker is tried only when the first is missing.
        testutil::WriteFileText("/etc/debian-release", "");
        EXPECT_TRUE(CSoftwareCollector::ShouldUseDpkg());
        EXPECT_STREQ("dpkg-query --listfiles %s | grep bin", CSoftwareCollector().ListFilesQuery());
    });
}
