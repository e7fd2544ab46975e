// The built libsoftware.so.0 driven the way the host drives it, with a fake package manager
// first on PATH. The library loads once per process: ctest runs each test in its own.
#include "HostShim.h"
#include "LibraryHost.h"
#include "TestUtil.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwarePackageObject.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <thread>

using Strings = std::vector<std::string>;
using testutil::FileExists;
using testutil::Keys;

namespace {

const Strings kFirst = {"alpha^1.0^Alpha tool\n A longer text on the second line^Debian", "beta^2.0^Beta^",
                        "gamma^3.1^Gamma^Debian", "kernel-2.6.18^2.6.18^Kernel^Debian"};

// A private home folder; the library started by GetComponentApp and InitClient, stopped by InitClient(false) and Unload.
struct Session {
    explicit Session(const std::string& config = "") : lib(libhost::Library()) {
        testutil::MakeDirs(home + "data");
        hostshim::SetHomePath(home);
        if (!config.empty()) Config(config);
        fake.SetPackages(kFirst);
        EXPECT_NE(lib.GetComponentApp(), nullptr);
        EXPECT_EQ(Init(true), 1);
    }
    ~Session() { Init(false); EXPECT_EQ(lib.Unload(0), 1); }
    std::string Data(const std::string& name) const { return home + "data/" + name; }
    void Config(const std::string& text) { testutil::WriteFileText(Data(".Software_Inventory_Config"), text, 0600); }
    Strings Log() {   // and a new log from here on
        const Strings lines = testutil::LogMessages(Data("Software.log"));
        return std::remove(Data("Software.log").c_str()), lines;
    }
    int Init(bool init) { CInitInfo info(init); info.m_strHomePath = home; return lib.InitClient(&info); }
    int Run(CNDKMessage& reply, unsigned int flags = 0, unsigned int command = 0) {
        CExecuteInfo info(false, flags, nullptr);
        const int result = lib.Execute(command, reply, &info);
        EXPECT_EQ(info.m_bFullRefresh, (command & 0xFFFF) == 10);
        return result;
    }
    void Ack() { CNDKMessage message; lib.DataSent(message); }
    Strings Stored(const std::string& name) { CInvMap map; EXPECT_TRUE(map.FromFile(Data(name))) << name; return Keys(map); }
    const libhost::Exports& lib;
    testutil::FakePackageManager fake;
    testutil::TempDir dir;
    const std::string home = dir.path() + "/";
};

// The run's part of a reply as the host reads it, behind `hostElements` leading ones: the scan time, four blocks, a
// short, three blocks, a short; every block through FromMemory. (swinv's reader checks each element's type.)
struct Reply {
    Reply(CNDKMessage& reply, int hostElements) {
        EXPECT_EQ(reply.GetElements().GetSize(), hostElements + 24);   // a block is a hidden length and its bytes
        reply.ResetCurrentIndex();
        for (int i = 0; i <= hostElements; ++i) reply.AdvanceCurrIndex();   // and the scan time
        CInvMap* maps[] = {&swAdd, &swDelete, &swChange, &swEmpty, &pkAdd, &pkDelete, &pkChange};
        for (int i = 0; i < 7; ++i) {
            unsigned int length = 0;
            if (i == 4) reply.GetNext(swFlag);
            reply.GetNext(length);
            blocks[i].resize(length);
            reply.GetNext(blocks[i].data(), length);
            EXPECT_TRUE(maps[i]->FromMemory(blocks[i].data(), static_cast<int>(length))) << "block " << i;
        }
        reply.GetNext(pkFlag);
    }
    std::vector<unsigned char> blocks[7];   // each map's bytes as sent
    CInvMap swAdd, swDelete, swChange, swEmpty, pkAdd, pkDelete, pkChange;
    short swFlag = -1, pkFlag = -1;
};

CNDKMessage HostReply(int elements) {
    CNDKMessage reply(42);
    reply.Add(std::string("host"));
    for (int i = 1; i < elements; ++i) reply.Add(i);
    return reply;
}

}  // namespace

TEST(InventoryFlow, FirstRunDataSentCommandsModesStartupRunsAndHalt) {
    Session session("Logging=1\n");
    const std::string& home = session.home;
    CNDKMessage reply = HostReply(6);   // the run keeps four host elements and appends its seventeen
    ASSERT_EQ(session.Run(reply, 0x100), 3);   // RunAtStartup unset: the start-up run goes ahead
    Reply first(reply, 4);
    EXPECT_EQ(first.swFlag * 10 + first.pkFlag, 11);
    for (int i : {0, 1, 2, 3, 5, 6}) EXPECT_EQ(first.blocks[i].size(), 2u) << "an empty map, block " << i;
    EXPECT_EQ(first.pkAdd.GetCount(), static_cast<long>(kFirst.size()));   // their keys: the collector's tests

    session.Log();
    session.Ack();   // both lists written, the software list first
    const std::string called = "Datasent called. Saving new list", writing = "Writing to file [" + session.Data("");
    EXPECT_EQ(session.Log(), (Strings{called, writing + "SWList.bin]", writing + "SWPackage.bin]"}));
    EXPECT_EQ(session.Stored("SWPackage.bin"), Keys(first.pkAdd));

    // Nothing pending: DataSent stores nothing, but a change file left behind becomes the software list.
    const auto packages = testutil::ReadFileBytes(session.Data("SWPackage.bin"));
    session.Log();
    session.Ack();
    EXPECT_EQ(session.Log(), Strings{called});
    CInvMap change;
    change.SetAt("legacy\\\\1", new CSoftwarePackageObject);
    ASSERT_TRUE(change.ToFile(session.Data("SWChange.bin")));
    session.Ack();
    EXPECT_EQ(session.Log(), (Strings{called, writing + "SWList.bin]", "m_pNewPackageList is NULL in DataSent"}));
    EXPECT_EQ(session.Stored("SWList.bin"), Strings{"legacy\\\\1"});
    EXPECT_EQ(testutil::ReadFileBytes(session.Data("SWPackage.bin")), packages);

    for (unsigned int command : {10u, 65546u}) {   // the low 16 bits are 10: the three lists go first
        testutil::WriteFileText(session.Data("SWChange.bin"), "");
        CNDKMessage full;
        ASSERT_EQ(session.Run(full, 0, command), 3);
        EXPECT_FALSE(FileExists(session.Data("SWChange.bin")));
        Reply out(full, 0);
        EXPECT_EQ(out.swFlag * 10 + out.pkFlag, 11) << command;   // the stored lists were gone too
        session.Ack();
    }

    for (const char* dir : {"inc1", "inc2", "ext1", "usr/windows/apps", "srv"}) testutil::MakeDirs(home + dir);
    session.fake.ClearCalls();
    session.Log();
    auto walks = [&](const std::string& config) {   // the runs' walks as logged
        session.Config("Logging=1\n" + config + "\n");
        EXPECT_EQ(session.Run(reply = CNDKMessage()), 3);
        Strings lines;
        for (const std::string& line : session.Log())
            if (line.rfind("Start In: ", 0) == 0 || line.rfind("Exclude Dirs: ", 0) == 0 || line == "Check Files: /")
                lines.push_back(line);
        return lines;
    };
    // Mode 0: nothing collected, yet the full layout comes back with everything stored deleted.
    EXPECT_EQ(walks("Mode=0"), Strings{});
    Reply empty(reply, 0);
    EXPECT_EQ(empty.pkAdd.GetCount() * 10 + empty.pkDelete.GetCount(), 4);
    EXPECT_EQ(session.fake.Calls(), "");
    // Mode 2: one walk per folder of "Include"; Mode 4 in selected folders: "/usr/windows" is
    // excluded unless "IncExt" names it; Mode 4 everywhere walks "/" minus "Exclude".
    std::string exclude;   // every top-level folder, so that the walk stays on the first level
    for (const auto& entry : std::filesystem::directory_iterator("/")) exclude += entry.path().string() + "|";
    const std::string start = "Start In: " + home, none = "Exclude Dirs: ";
    const std::pair<std::string, Strings> modes[] = {   // settings, the walks logged
        {"Mode=2\nInclude=" + home + "inc1|" + home + "inc2|", {start + "inc1", none, start + "inc2", none}},
        {"Mode=4\nIncExt=" + home + "ext1", {start + "ext1", none + "/usr/windows"}},
        {"Mode=4\nIncExt=" + home + "usr/windows/apps|" + home + "srv", {start + "usr/windows/apps", none, start + "srv", none}},
        {"Mode=4\nExtInSelected=1", {}},
        {"Mode=4\nExtInSelected=0\nExclude=" + exclude, {"Start In: ", none + exclude, "Check Files: /"}}};
    for (const auto& [config, expected] : modes) EXPECT_EQ(walks(config), expected) << config;
    session.Ack();

    // Any other command, and a start-up run with RunAtStartup=0, leave the reply alone and ask nothing.
    session.Config("RunAtStartup=0\n");
    session.fake.ClearCalls();
    reply = HostReply(5);   // a fifth element: LimitSize(4) must not run either
    const CNDKMessage before = reply;
    EXPECT_EQ(session.Run(reply, 0, 5), 0);
    EXPECT_EQ(session.Run(reply, 0x100 | 0x1), 0);
    EXPECT_TRUE(reply == before);
    EXPECT_EQ(session.fake.Calls(), "");
    EXPECT_EQ(session.Run(reply, 0x200), 3);   // without the start-up bit the key is ignored

    // That run is pending. HaltExecution from another thread while the list is read, and while the
    // batch query runs: 0, the reply left alone.
    session.fake.SetPackages({"late^2^Late^Debian"});
    for (const std::string step : {"", ".batch"}) {
        std::remove(session.fake.file("delay").c_str());
        testutil::WriteFileText(session.fake.file("delay" + step), "2");
        std::thread halter([&session, step] {
            for (int i = 0; i < 2000 && !FileExists(session.fake.file("started" + step)); ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            session.lib.HaltExecution(false);
        });
        reply = HostReply(5);
        EXPECT_EQ(session.Run(reply), 0);
        halter.join();
        EXPECT_TRUE(reply == before);
        EXPECT_EQ(session.Init(true), 1);   // the next start clears the halt
    }
    session.Ack();   // stores the pending run's maps
    EXPECT_EQ(session.Stored("SWPackage.bin").size(), kFirst.size());
}

// By default the package manager is asked twice, whatever the package count. An agent runs inventories for months in
// one process: thirty runs leave no descriptor behind, also with a home bin folder (the product check opens it) and
// while the package list fails. The walks run only while logging is on, since their record step builds no record:
// with it off nothing below a start folder is opened, and the maps are the same.
TEST(InventoryFlow, DefaultRunsAskTwiceKeepTheDescriptorsAndWalkOnlyWhileLogging) {
    Session session;
    testutil::MakeDirs(session.home + "bin");
    Strings packages;
    for (int i = 0; i < 50; ++i) packages.push_back("pkg" + std::to_string(i) + "^1." + std::to_string(i) + "^Package^Debian");
    session.fake.SetPackages(packages);
    CNDKMessage reply;
    ASSERT_EQ(session.Run(reply, 0, 10), 3);
    std::string names;
    for (int i = 0; i < 50; ++i) names += " [pkg" + std::to_string(i) + "]";
    const std::string show = "dpkg-query [--show] [--showformat] [${Package}";   // the list, then one batch query
    EXPECT_EQ(session.fake.Calls(),
              show + "\n]\n" + show + "\x1F${Package}^${Version}^${Description}^${Origin}\x1E]" + names + "\n");
    EXPECT_EQ(Reply(reply, 0).pkAdd.GetCount(), 50);
    session.Ack();

    auto descriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto first = descriptors();
    for (int run = 1; run < 30; ++run) {
        if (run == 10) std::remove(session.fake.file("list.").c_str());   // the list command now exits 1
        if (run == 20) session.fake.SetPackages(packages);
        EXPECT_EQ(session.Run(reply = CNDKMessage()), run >= 10 && run < 20 ? 0 : 3) << run;
        session.Ack();
    }
    EXPECT_EQ(descriptors(), first);

    const std::string tree = session.home + "tree/";
    testutil::MakeDirs(tree + "sub/deeper");
    testutil::WriteFileText(tree + "sub/tool", "#!/bin/sh\n", 0755);
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(watch, 0);
    ASSERT_GE(inotify_add_watch(watch, (tree + "sub").c_str(), IN_OPEN), 0);
    auto opened = [watch] {   // opens below the start folder since the last call
        char events[4096];
        ssize_t total = 0;
        for (ssize_t n; (n = read(watch, events, sizeof events)) > 0;) total += n;
        return total > 0;
    };
    std::vector<unsigned char> blocks[2][7];
    for (const bool logging : {false, true}) {
        session.Config(std::string(logging ? "Logging=1\n" : "") + "Mode=3\nInclude=" + tree + "\n");
        session.Init(true);
        opened();
        ASSERT_EQ(session.Run(reply = CNDKMessage(), 0, 10), 3);
        EXPECT_EQ(opened(), logging);
        const Reply out(reply, 0);
        std::copy(std::begin(out.blocks), std::end(out.blocks), blocks[logging]);
    }
    close(watch);
    for (int i = 0; i < 7; ++i) EXPECT_TRUE(blocks[0][i] == blocks[1][i]) << "block " << i;
    const Strings log = session.Log();
    EXPECT_NE(std::find(log.begin(), log.end(), "Check Files: " + tree + "sub/deeper/"), log.end());
    session.Ack();   // a pending package map is released only by DataSent
}

// DataSent from a second thread once a run is collecting: either the ack stores the pending maps and the run compares
// with them, or the run compares with the old baseline and the ack stores the run's. Also run under ThreadSanitizer.
TEST(InventoryFlow, DataSentRacingARunEndsInOneOfTheTwoOrders) {
    Session session;
    const Strings base = {"alpha^1^A^D", "beta^1^B^D"}, pending = {"alpha^1^A^D", "gamma^1^G^D"};
    const Strings next = {"alpha^1^A^D", "delta^1^D^D"}, nextKeys = {"alpha\\D\\1", "delta\\D\\1"};
    int ackFirst = 0;
    for (int round = 0; round < 6; ++round) {
        CNDKMessage reply;
        session.fake.SetPackages(base);
        ASSERT_EQ(session.Run(reply), 3);
        session.Ack();
        session.fake.SetPackages(pending);
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(session.Run(reply = CNDKMessage()), 3);   // pending, not acknowledged
        const auto runTime = std::chrono::steady_clock::now() - start;

        session.fake.SetPackages(next);
        std::remove(session.fake.file("started").c_str());
        if (round == 0) testutil::WriteFileText(session.fake.file("delay"), "1");   // the ack surely comes first
        std::thread acker([&session, round, runTime] {   // from a third of a run's time late to a run's time
            while (!FileExists(session.fake.file("started"))) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            std::this_thread::sleep_for(runTime * std::max(round - 1, 0) / 3);
            session.Ack();
        });
        ASSERT_EQ(session.Run(reply = CNDKMessage()), 3);
        acker.join();
        std::remove(session.fake.file("delay").c_str());
        Reply out(reply, 0);
        // Compared with the maps the acknowledgement stored, or with the old baseline.
        const bool acked = Keys(out.pkDelete) == Strings{"gamma\\D\\1"};
        ackFirst += acked;
        EXPECT_EQ(Keys(out.pkDelete), Strings{acked ? "gamma\\D\\1" : "beta\\D\\1"}) << round;
        EXPECT_EQ(session.Stored("SWPackage.bin"), (acked ? Strings{"alpha\\D\\1", "gamma\\D\\1"} : nextKeys)) << round;
        EXPECT_EQ(Keys(out.pkAdd), Strings{"delta\\D\\1"}) << round;
        EXPECT_EQ(out.pkFlag, 0);
        session.Ack();   // stores the run's maps if they are still pending; nothing is lost either way
        EXPECT_EQ(session.Stored("SWPackage.bin"), nextKeys) << round;
    }
    EXPECT_GE(ackFirst, 1);
}

// "Sources" is read at each run; both sources start two processes more than none; a failing one fails the run as a
// failing package list does: no reply, the baseline kept.
TEST(ExtraSources, ReadEachRunTwoMoreCommandsAFailingOneFailsTheRun) {
    Session session("Logging=1\n");
    session.fake.SetTool("snap", "Name Version Rev Tracking Publisher Notes\nzevnotes 128.0.3-1 4650 - zevsoft** -\n");
    session.fake.SetTool("flatpak", "org.zev.Hello\t\tstable\tzev\tHello\n");
    auto run = [&](const std::string& sources, CNDKMessage& reply) {   // the result, and the processes started
        session.Config("Logging=1\nSources=" + sources + "\n");
        session.fake.ClearCalls();
        session.Log();
        const int result = session.Run(reply);
        const std::string calls = session.fake.Calls();
        return std::make_pair(result, std::count(calls.begin(), calls.end(), '\n'));
    };
    CNDKMessage none, both;
    EXPECT_EQ(run("", none), std::make_pair(3, 3L));   // the list (two lines) and the batch query
    session.Ack();
    EXPECT_EQ(run("snap|flatpak", both), std::make_pair(3, 5L));
    Reply added(both, 0);
    EXPECT_EQ(Keys(added.pkAdd), (Strings{"org.zev.Hello\\zev\\stable", "zevnotes\\zevsoft\\128.0.3-1"}));
    session.Ack();

    const auto stored = testutil::ReadFileBytes(session.Data("SWPackage.bin"));
    session.fake.SetTool("snap", "", 1);
    CNDKMessage reply = HostReply(5);
    const CNDKMessage before = reply;
    EXPECT_EQ(run("snap", reply).first, 0);
    EXPECT_TRUE(reply == before);
    EXPECT_EQ(session.fake.Calls(), "dpkg-query [--show] [--showformat] [${Package}\n]\n"   // no package query asked
                                    "snap [list] [--unicode=never] [--color=never]\n");
    const std::string failed = "Package source snap failed: snap list --unicode=never --color=never";
    EXPECT_EQ(session.Log(), (Strings{"Enum Software", "Scan Packages", failed, "Scan Packages failed"}));
    session.Ack();   // nothing pending to store
    EXPECT_TRUE(testutil::ReadFileBytes(session.Data("SWPackage.bin")) == stored);
}

// The real flatpak on a user installation built here offline: a runtime and two apps, Greeter with release data and
// Hello without (its branch stands for its version), from an unsigned local repository. The system installation is an
// empty folder of the test's; the environment set here is this test process's own.
TEST(RealFlatpak, UserInstallationBuiltOfflineIsRecorded) {
    if (std::system("command -v flatpak > /dev/null 2>&1") != 0) GTEST_SKIP() << "no flatpak command on the search path";
    testutil::TempDir top;
    const std::pair<const char*, const char*> env[] = {
        {"HOME", "/home"}, {"XDG_DATA_HOME", "/home/data"}, {"XDG_CACHE_HOME", "/home/cache"},
        {"XDG_CONFIG_HOME", "/home/config"}, {"FLATPAK_SYSTEM_DIR", "/system"}, {"FLATPAK_CONFIG_DIR", "/config"}};
    for (const auto& [name, folder] : env) setenv(name, (top.path() + folder).c_str(), 1);
    testutil::WriteFileText(top.file("build.sh"), R"(set -e
cd "$1"
rt=org.zev.Platform/$(flatpak --default-arch)/1
mkdir -p system config runtime/files runtime/usr Hello/files Greeter/files/share/app-info/xmls
printf '[Runtime]\nname=org.zev.Platform\nruntime=%s\nsdk=%s\n' $rt $rt > runtime/metadata
for app in Hello Greeter; do printf '[Application]\nname=org.zev.%s\nruntime=%s\nsdk=%s\n' $app $rt $rt > $app/metadata; done
printf '<?xml version="1.0"?>\n<components version="0.8"><component type="desktop"><id>org.zev.Greeter</id>
<name>Zev Greeter</name><summary>Greets</summary><releases><release version="2.0+zev~1" timestamp="1700000000"/>
</releases></component></components>\n' | gzip > Greeter/files/share/app-info/xmls/org.zev.Greeter.xml.gz
flatpak build-export --runtime repo runtime 1
for app in Hello Greeter; do flatpak build-finish $app && flatpak build-export repo $app stable; done
flatpak build-update-repo repo
flatpak remote-add --user --no-gpg-verify zev-local "file://$PWD/repo"
flatpak install --user --noninteractive -y zev-local org.zev.Hello org.zev.Greeter
)");
    const std::string build = "sh '" + top.file("build.sh") + "' '" + top.path() + "' > '" + top.file("log") + "' 2>&1";
    ASSERT_EQ(0, std::system(build.c_str())) << testutil::ReadFileText(top.file("log"));

    Session session("Sources=flatpak\n");
    CNDKMessage reply;
    ASSERT_EQ(session.Run(reply), 3);
    const Strings added = testutil::Records<CSoftwarePackageObject>(Reply(reply, 0).pkAdd);
    ASSERT_EQ(added.size(), kFirst.size() + 2);   // beside the packages, filed after them
    EXPECT_EQ(Strings(added.end() - 2, added.end()),
              (Strings{"org.zev.Greeter\\zev-local\\2.0+zev~1: org.zev.Greeter|zev-local|Zev Greeter|2.0+zev~1|128",
                       "org.zev.Hello\\zev-local\\stable: org.zev.Hello|zev-local|Hello|stable|128"}));
    session.Ack();   // the pending package map is released only here
}
