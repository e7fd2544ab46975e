// Cancellation seen by the collector through the component object's flag: the
// walk stops at the first entry, the package list stops where the flag was
// raised, and the home and product folders are still checked afterwards.
#include "CollectorTestSupport.h"

#include "HostShim.h"
#include "collector/softwarecollector.h"
#include "component/ComponentGlobals.h"
#include "inventory/InvMap.h"
#include "softwarelist/softwarelist.h"
#include "support/ZEVLogger.h"

using collectortest::Keys;

namespace {

// A component object installed as the library's one object for the test's duration.
class CurrentApp {
public:
    CurrentApp() { g_pSoftwareListApp = &app; }
    ~CurrentApp() { g_pSoftwareListApp = nullptr; }
    CSoftwareListApp app;
};

}  // namespace

TEST(Cancellation, WalkStopsAtTheFirstEntry) {
    testutil::TempDir dir;
    testutil::MakeDirs(dir.file("a/b"));
    testutil::TempDir logDir;
    CZEVLogger logger(logDir.file("Software.log"));
    CurrentApp current;
    CSoftwareCollector collector;
    collector.SetLogger(&logger);
    CInvMap map;

    std::string checkFiles, start = dir.path(), exclude;
    EXPECT_TRUE(collector.GetFiles(checkFiles, start, exclude, &map, false, 0, 0));
    current.app.HaltExecution(false);
    unlink(logDir.file("Software.log").c_str());
    EXPECT_FALSE(collector.GetFiles(checkFiles, start, exclude, &map, false, 0, 0));
    // Even an empty folder notices the flag: "." and ".." are entries too.
    start = dir.file("a/b");
    EXPECT_FALSE(collector.GetFiles(checkFiles, start, exclude, &map, false, 0, 0));
    EXPECT_EQ((std::vector<std::string>{"Start In: " + dir.path(), "Exclude Dirs: ", "Check Files: " + dir.path() + "/",
                                        "Start In: " + dir.file("a/b"), "Exclude Dirs: ",
                                        "Check Files: " + dir.file("a/b") + "/"}),
              collectortest::LogMessages(logDir.file("Software.log")));
}

TEST(Cancellation, PackageScanStopsButProductsAreStillChecked) {
    testutil::TempDir home;
    testutil::MakeDirs(home.file("bin"));
    testutil::WriteFileText(home.file("bin/zevclient"), "");
    hostshim::SetHomePath(home.path() + "/");
    collectortest::FakePackageManager fake;
    fake.SetList("a\nb\nc\n");
    for (const char* name : {"a", "b", "c"}) {
        fake.SetQuery(name, std::string(name) + "^1^S^O");
        fake.SetFiles(name, "/usr/bin/one\n/usr/bin/two\n");
    }
    const std::string zevKey = "\\\\\\\\";

    {
        // Raised before the scan: the first list line is read, then nothing is used.
        CurrentApp current;
        current.app.HaltExecution(false);
        CInvMap software, packages;
        CSoftwareCollector collector;
        collector.ConfigureForDpkg();
        collector.SetPackageMap(&packages);
        EXPECT_TRUE(collector.ScanPackages(&software));
        EXPECT_EQ(std::vector<std::string>{zevKey}, Keys(packages));
        EXPECT_EQ("dpkg-query [--show] [--showformat] [${Package}\n]\n", fake.Calls());
    }
    {
        // Raised while "b" is queried: "b" gets its record, its file list stops after
        // one line, and "c" is never looked at.
        fake.ClearCalls();
        CurrentApp current;
        CInvMap software, packages;
        CSoftwareCollector collector;
        collector.ConfigureForDpkg();
        collector.SetPackageMap(&packages);
        hostshim::SetCommandObserver([&](const char* command) {
            if (std::string(command).substr(std::string(command).size() - 2) == " b") current.app.HaltExecution(false);
        });
        EXPECT_TRUE(collector.ScanPackages(&software));
        hostshim::SetCommandObserver({});
        EXPECT_EQ((std::vector<std::string>{zevKey, "a\\O\\1", "b\\O\\1"}), Keys(packages));
        EXPECT_EQ(std::string::npos, fake.Calls().find("[c]"));
        EXPECT_NE(std::string::npos, fake.Calls().find("[--listfiles] [b]"));
    }
    hostshim::SetHomePath("");
}
