// The built libsoftware.so.0 driven the way the host drives it, with a fake package manager
// first on PATH. The library loads once per process: ctest runs each test in its own.
#include "HostShim.h"
#include "LibraryHost.h"
#include "TestUtil.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwarePackageObject.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <thread>

using Strings = std::vector<std::string>;
using testutil::FileExists;
using testutil::Keys;

namespace {

const Strings kFirst = {"alpha^1.0^Alpha tool\n A longer text on the second line^Debian", "beta^2.0^Beta^",
                        "gamma^3.1^Gamma^Debian", "kernel-2.6.18^2.6.18^Kernel^Debian"};

// A private home folder and the library started with GetComponentApp and InitClient;
// InitClient(false) and Unload at the end.
struct Session {
    explicit Session(const std::string& config = "", bool fakePackageManager = true) : lib(libhost::Library()) {
        testutil::MakeDirs(home + "data");
        hostshim::SetHomePath(home);
        if (!config.empty()) Config(config);
        if (fakePackageManager) SetPackages(kFirst);
        EXPECT_NE(lib.GetComponentApp(), nullptr);
        EXPECT_EQ(Init(true), 1);
    }
    ~Session() {
        Init(false);
        EXPECT_EQ(lib.Unload(0), 1);
    }
    std::string Data(const std::string& name) const { return home + "data/" + name; }
    void SetPackages(const Strings& queryOutputs) {   // each "name^version^description^origin"
        std::string list;
        if (!fake) fake.emplace();
        for (const std::string& out : queryOutputs) {
            list += out.substr(0, out.find('^')) + "\n";
            fake->Set("query", out.substr(0, out.find('^')), out);
        }
        fake->Set("list", "", list);
    }
    void Config(const std::string& text) { testutil::WriteFileText(Data(".Software_Inventory_Config"), text, 0600); }
    Strings Log(const std::string& prefix = "") {
        Strings lines;
        for (const std::string& m : testutil::LogMessages(Data("Software.log")))
            if (m.rfind(prefix, 0) == 0) lines.push_back(m);
        std::remove(Data("Software.log").c_str());
        return lines;
    }
    int Init(bool init) {
        CInitInfo info(init);
        info.m_strHomePath = home;
        return lib.InitClient(&info);
    }
    int Run(CNDKMessage& reply, unsigned int flags = 0, unsigned int command = 0) {
        CExecuteInfo info(false, flags, nullptr);
        const int result = lib.Execute(command, reply, &info);
        EXPECT_EQ(info.m_bFullRefresh, (command & 0xFFFF) == 10);
        return result;
    }
    void Ack() {
        CNDKMessage message;
        lib.DataSent(message);
    }
    const libhost::Exports& lib;
    std::optional<testutil::FakePackageManager> fake;
    testutil::TempDir dir;
    const std::string home = dir.path() + "/";
};

// The run's part of a reply, as the host reads it.
struct Reply {
    std::string scanTime;
    unsigned int lengths[7] = {};
    CInvMap swAdd, swDelete, swChange, swEmpty, pkAdd, pkDelete, pkChange;
    short swFlag = -1, pkFlag = -1;
};

// Checks the raw elements behind `hostElements` leading ones (a string, then four blocks, a
// short, three blocks, a short; each block a hidden length, its length and its bytes), then
// decodes every block with FromMemory.
void Decode(CNDKMessage& reply, int hostElements, Reply& out) {
    std::string types;
    for (long i = hostElements; i < reply.GetElements().GetSize(); ++i) types += std::to_string(reply.GetDataTypeAt(i)) + " ";
    ASSERT_EQ(types, "10 4 4 11 4 4 11 4 4 11 4 4 11 3 4 4 11 4 4 11 4 4 11 3 ");
    ASSERT_EQ(reply.GetNbElements(), hostElements + 17);
    reply.ResetCurrentIndex();
    for (int i = 0; i < hostElements; ++i) reply.AdvanceCurrIndex();
    reply.GetNext(out.scanTime);
    CInvMap* maps[] = {&out.swAdd, &out.swDelete, &out.swChange, &out.swEmpty, &out.pkAdd, &out.pkDelete, &out.pkChange};
    for (int i = 0; i < 7; ++i) {
        if (i == 4) reply.GetNext(out.swFlag);
        reply.GetNext(out.lengths[i]);
        std::vector<unsigned char> bytes(out.lengths[i]);
        reply.GetNext(bytes.data(), out.lengths[i]);
        EXPECT_TRUE(maps[i]->FromMemory(bytes.data(), static_cast<int>(out.lengths[i]))) << "block " << i;
    }
    reply.GetNext(out.pkFlag);
}

std::string Record(CInvMap& map, const std::string& key) {
    const auto* r = testutil::At<CSoftwarePackageObject>(map, key);
    return r ? r->m_strName + "|" + r->m_strVendor + "|" + r->m_strDescription + "|" + std::to_string(r->m_nFlags) : "none";
}

std::vector<std::uint8_t> Bytes(CNDKMessage& message) {
    void* buffer = nullptr;
    const int length = message.ToBuffer(&buffer);
    std::vector<std::uint8_t> bytes(static_cast<std::uint8_t*>(buffer), static_cast<std::uint8_t*>(buffer) + std::max(length, 0));
    std::free(buffer);
    return bytes;
}

CNDKMessage HostReply(int elements) {
    CNDKMessage reply(42);
    reply.Add(std::string("host"));
    for (int i = 1; i < elements; ++i) reply.Add(i);
    return reply;
}

}  // namespace

TEST(InventoryFlow, AddsDeletesAndChangesThenDataSentAndTheChangeFile) {
    Session session("Logging=1\n");
    CNDKMessage reply = HostReply(6);   // the run keeps four host elements and appends its seventeen
    ASSERT_EQ(session.Run(reply), 3);
    Reply first;
    ASSERT_NO_FATAL_FAILURE(Decode(reply, 4, first));
    std::string host;
    reply.GetAt(0, host);
    EXPECT_EQ(host + std::to_string(reply.GetId()), "host42");
    char month[4] = {};
    int n[5];
    EXPECT_EQ(6, std::sscanf(first.scanTime.c_str(), "%2d %3[A-Za-z] %4d %2d:%2d:%2d", n, month, n + 1, n + 2, n + 3, n + 4));
    EXPECT_TRUE(first.scanTime.size() == 20 && std::isupper(month[0]) && std::islower(month[2])) << first.scanTime;
    EXPECT_EQ(first.swFlag * 10 + first.pkFlag, 11);
    for (int i : {0, 1, 2, 3, 5, 6}) EXPECT_EQ(first.lengths[i], 2u) << "an empty map, block " << i;
    EXPECT_EQ(Keys(first.pkAdd), (Strings{"alpha\\Debian\\1.0", "beta\\\\2.0", "gamma\\Debian\\3.1", "kernel-2.6.18\\Debian\\2.6.18"}));
    EXPECT_EQ(Record(first.pkAdd, "alpha\\Debian\\1.0"), "alpha|Debian|Alpha tool|128");
    EXPECT_EQ(Record(first.pkAdd, "beta\\\\2.0"), "beta| |Beta|128");
    EXPECT_EQ(Record(first.pkAdd, "kernel-2.6.18\\Debian\\2.6.18"), "kernel|Debian|Kernel|128");

    EXPECT_FALSE(FileExists(session.Data("SWPackage.bin")));   // stored only once acknowledged
    session.Log();
    session.Ack();
    const Strings written = {"Writing to file [" + session.Data("SWList.bin") + "]",
                             "Writing to file [" + session.Data("SWPackage.bin") + "]"};
    EXPECT_EQ(session.Log("Writing"), written);
    CInvMap stored;
    ASSERT_TRUE(stored.FromFile(session.Data("SWPackage.bin")));
    EXPECT_EQ(Keys(stored), Keys(first.pkAdd));

    // Two runs without DataSent between them compare with the same baseline.
    session.SetPackages({kFirst[0], "beta^2.1^Beta^", "gamma^3.1^Gamma, second edition^Debian", "delta^0.9^Delta^Debian"});
    for (int run = 2; run <= 3; ++run) {
        CNDKMessage next;
        ASSERT_EQ(session.Run(next), 3);
        Reply diff;
        ASSERT_NO_FATAL_FAILURE(Decode(next, 0, diff));
        EXPECT_EQ(diff.swFlag * 10 + diff.pkFlag, 0);
        EXPECT_EQ(Keys(diff.pkAdd), (Strings{"beta\\\\2.1", "delta\\Debian\\0.9"})) << run;
        EXPECT_EQ(Keys(diff.pkDelete), (Strings{"beta\\\\2.0", "kernel-2.6.18\\Debian\\2.6.18"}));
        EXPECT_EQ(Keys(diff.pkChange), Strings{"gamma\\Debian\\3.1"});
        EXPECT_EQ(Record(diff.pkChange, "gamma\\Debian\\3.1"), "gamma|Debian|Gamma, second edition|128");
    }
    session.Ack();
    CNDKMessage quiet;
    Reply same;
    ASSERT_EQ(session.Run(quiet), 3);
    ASSERT_NO_FATAL_FAILURE(Decode(quiet, 0, same));
    EXPECT_EQ(same.pkAdd.GetCount() + same.pkDelete.GetCount() + same.pkChange.GetCount(), 0);
    session.Ack();

    // Nothing pending and no change file: DataSent stores nothing; a change file left behind
    // is promoted to the software list.
    const auto packages = testutil::ReadFileBytes(session.Data("SWPackage.bin"));
    session.Log();
    session.Ack();
    EXPECT_EQ(session.Log(), Strings{"Datasent called. Saving new list"});
    CInvMap change;
    change.SetAt("legacy\\\\1", new CSoftwarePackageObject);
    ASSERT_TRUE(change.ToFile(session.Data("SWChange.bin")));
    session.Ack();
    EXPECT_EQ(session.Log(), (Strings{"Datasent called. Saving new list", written[0], "m_pNewPackageList is NULL in DataSent"}));
    CInvMap promoted;
    ASSERT_TRUE(promoted.FromFile(session.Data("SWList.bin")));
    EXPECT_EQ(Keys(promoted), Strings{"legacy\\\\1"});
    EXPECT_EQ(testutil::ReadFileBytes(session.Data("SWPackage.bin")), packages);
}

TEST(InventoryFlow, CommandsAndStartupRuns) {
    Session session;
    CNDKMessage reply;
    ASSERT_EQ(session.Run(reply, 0x100), 3);   // no configuration: the start-up run goes ahead
    session.Ack();
    for (unsigned int command : {10u, 65546u}) {   // the low 16 bits are 10: the three lists go first
        testutil::WriteFileText(session.Data("SWChange.bin"), "");
        ASSERT_TRUE(FileExists(session.Data("SWList.bin")));
        CNDKMessage full;
        ASSERT_EQ(session.Run(full, 0, command), 3);
        for (const char* list : {"SWList.bin", "SWPackage.bin", "SWChange.bin"}) EXPECT_FALSE(FileExists(session.Data(list)));
        Reply out;
        ASSERT_NO_FATAL_FAILURE(Decode(full, 0, out));
        EXPECT_EQ(out.swFlag * 10 + out.pkFlag, 11) << command;
        EXPECT_EQ(out.pkAdd.GetCount(), 4);
        session.Ack();
    }
    // Any other command, and a start-up run with RunAtStartup=0, leave the reply alone and ask nothing.
    session.Config("RunAtStartup=0\n");
    session.fake->ClearCalls();
    reply = HostReply(2);
    const auto before = Bytes(reply);
    EXPECT_EQ(session.Run(reply, 0, 5), 0);
    EXPECT_EQ(session.Run(reply, 0x100 | 0x1), 0);
    EXPECT_EQ(Bytes(reply), before);
    EXPECT_EQ(session.fake->Calls(), "");
    EXPECT_EQ(session.Run(reply, 0x200), 3);   // without the start-up bit the key is ignored
    EXPECT_NE(session.fake->Calls(), "");
    session.Ack();
}

TEST(InventoryFlow, ModeSelectsTheScans) {
    Session session("Logging=1\nMode=1\n");
    const std::string& home = session.home;
    for (const char* dir : {"inc1", "inc2", "ext1", "usr/windows/apps", "srv"}) testutil::MakeDirs(home + dir);
    CNDKMessage reply;
    ASSERT_EQ(session.Run(reply), 3);
    session.Ack();
    session.fake->ClearCalls();
    auto walks = [&](const std::string& config) {
        session.Config("Logging=1\n" + config + "\n");
        CNDKMessage next;
        EXPECT_EQ(session.Run(next), 3);
        Strings lines;
        for (const std::string& line : session.Log())
            if (line.rfind("Start In: ", 0) == 0 || line.rfind("Exclude Dirs: ", 0) == 0 || line == "Check Files: /") lines.push_back(line);
        return lines;
    };
    // Mode 0: nothing collected, yet the full layout comes back with everything stored deleted.
    session.Config("Logging=1\nMode=0\n");
    session.Log();
    ASSERT_EQ(session.Run(reply = CNDKMessage()), 3);
    Reply empty;
    ASSERT_NO_FATAL_FAILURE(Decode(reply, 0, empty));
    EXPECT_EQ(empty.pkAdd.GetCount() * 10 + empty.pkDelete.GetCount(), 4);
    EXPECT_EQ(session.fake->Calls() + std::to_string(session.Log("Start In").size()), "0");
    // Mode 2: one walk per folder of "Include"; Mode 4 in selected folders: "/usr/windows" is
    // excluded unless "IncExt" names it; Mode 4 everywhere walks "/" minus "Exclude".
    EXPECT_EQ(walks("Mode=2\nInclude=" + home + "inc1|" + home + "inc2|"),
              (Strings{"Start In: " + home + "inc1", "Exclude Dirs: ", "Start In: " + home + "inc2", "Exclude Dirs: "}));
    EXPECT_EQ(walks("Mode=4\nIncExt=" + home + "ext1"), (Strings{"Start In: " + home + "ext1", "Exclude Dirs: /usr/windows"}));
    EXPECT_EQ(walks("Mode=4\nIncExt=" + home + "usr/windows/apps|" + home + "srv"),
              (Strings{"Start In: " + home + "usr/windows/apps", "Exclude Dirs: ", "Start In: " + home + "srv", "Exclude Dirs: "}));
    EXPECT_EQ(walks("Mode=4\nExtInSelected=1"), Strings{});
    std::string exclude;   // every top-level folder, so that the walk stays on the first level
    for (const auto& entry : std::filesystem::directory_iterator("/")) exclude += (exclude.empty() ? "" : "|") + entry.path().string();
    EXPECT_EQ(walks("Mode=4\nExtInSelected=0\nExclude=" + exclude), (Strings{"Start In: ", "Exclude Dirs: " + exclude, "Check Files: /"}));
    session.Ack();
}

// [length][text plus NUL], then the paths, then "" and a straggler.
CNDKMessage Settings(const std::string& text, const Strings& paths = {}, unsigned int length = 0) {
    CNDKMessage message(9);
    message.Add(length ? length : static_cast<unsigned int>(text.size() + 1));
    message.Add(text.c_str(), static_cast<unsigned int>(text.size() + 1));
    for (const std::string& path : paths) message.Add(path);
    message.Add(std::string());
    message.Add(std::string("/after/the/end"));
    return message;
}

TEST(ServerConfig, MergesSettingsAndStoresSearchPaths) {
    Session session("Logging=1\nMode=1\nScan=*.png\n");
    const std::string config = session.Data(".Software_Inventory_Config"), search = session.Data("swsearch.bin");
    CNDKMessage message = Settings("Mode=\"3\"; Include=\"/srv|/opt\"", {"/srv/a", "/srv/b", "/srv/c"});
    EXPECT_EQ(session.lib.SetConfig(message), 1);
    EXPECT_EQ(testutil::ReadFileText(config), "Include=/srv|/opt\nLogging=1\nMode=3\nScan=*.png\n");
    const std::vector<std::uint8_t> strings = {3, 0, 6, '/', 's', 'r', 'v', '/', 'a', 6, '/', 's', 'r', 'v', '/', 'b',
                                               6, '/', 's', 'r', 'v', '/', 'c'};   // a string array
    EXPECT_EQ(testutil::Hex(testutil::ReadFileBytes(search)), testutil::Hex(strings));
    // A path list that starts empty leaves "swsearch.bin" alone; a length far beyond the block's
    // bytes still reads the text; no NUL within the length ends the text there.
    EXPECT_EQ(session.lib.SetConfig(message = Settings("Mode=\"2\"\t Note = \"x\"", {}, 0xFFFFFFF0u)), 1);
    EXPECT_EQ(testutil::ReadFileBytes(search), strings);
    EXPECT_EQ(session.lib.SetConfig(message = Settings("Mode=\"4\"; Scan=\"*.x\"", {}, 8u)), 1);
    EXPECT_EQ(testutil::ReadFileText(config), "Include=/srv|/opt\nLogging=1\nMode=4\nNote=x\nScan=*.png\n");
    // Typed reads take the block's length element whatever its type.
    message = CNDKMessage(9);
    message.Add(9u);
    message.Add(0);
    message.AddUnc("Mode=\"5\"", 9);
    EXPECT_EQ(session.lib.SetConfig(message), 1);
    EXPECT_EQ(testutil::ReadFileText(config), "Include=/srv|/opt\nLogging=1\nMode=5\nNote=x\nScan=*.png\n");
}

TEST(Halt, HaltDuringCollectionKeepsReplyAndPendingMaps) {
    Session session;
    CNDKMessage first;
    ASSERT_EQ(session.Run(first), 3);   // pending, not acknowledged
    session.SetPackages({"late^2^Late^Debian"});
    testutil::WriteFileText(session.fake->file("delay"), "2");
    std::thread halter([&session] {
        while (!FileExists(session.fake->file("started"))) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        session.lib.HaltExecution(false);
    });
    CNDKMessage reply = HostReply(5);   // a fifth element: LimitSize(4) must not have run either
    const auto before = Bytes(reply);
    EXPECT_EQ(session.Run(reply), 0);
    halter.join();
    EXPECT_EQ(Bytes(reply), before);
    session.Ack();   // stores the first run's maps
    CInvMap stored;
    ASSERT_TRUE(stored.FromFile(session.Data("SWPackage.bin")));
    EXPECT_EQ(Keys(stored).size(), kFirst.size());
}

// One Mode 1 run on this machine's own package database; the reply and the stored lists are
// read by an independent reader and compared with what dpkg-query reports.
TEST(RealDpkg, IndependentReaderFindsEveryInstalledPackage) {
    Session session("Mode=1\n", false);
    CNDKMessage reply;
    ASSERT_EQ(session.Run(reply), 3);
    testutil::WriteFileBytes(session.home + "reply.bin", Bytes(reply));
    session.Ack();
    const int status = std::system(("python3 " ZEV_TESTS_DIR "/softwarelist/check_real_dpkg.py " ZEV_TESTS_DIR
                                    "/reader/zevreader.py " + session.home).c_str());
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "no dpkg database, or a Halvorn product installed";
    EXPECT_EQ(status, 0);
}
