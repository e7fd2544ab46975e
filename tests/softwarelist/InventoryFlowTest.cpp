// End-to-end inventory runs through the built library: a fake package manager
// first on PATH, the reply taken apart element by element, and the stored lists
// that DataSent leaves behind.
#include "Scenario.h"

#include "inventory/SoftwarePackageObject.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <cctype>

using scenario::FakePackage;
using scenario::Keys;
using scenario::Package;
using scenario::Reply;
using testutil::FileExists;
using Strings = std::vector<std::string>;

namespace {

FakePackage Pkg(const std::string& name, const std::string& version, const std::string& description,
                const std::string& origin) {
    return {name, name + "^" + version + "^" + description + "^" + origin};
}

// "%d %b %Y %X" in the C locale, e.g. "05 Mar 2026 14:07:09".
bool LooksLikeScanTime(const std::string& text) {
    const std::string shape = "99 Aaa 9999 99:99:99";
    if (text.size() != shape.size()) return false;
    for (size_t i = 0; i < shape.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        const bool ok = shape[i] == '9' ? std::isdigit(c) : shape[i] == 'A' ? std::isupper(c)
                        : shape[i] == 'a' ? std::islower(c) : c == static_cast<unsigned char>(shape[i]);
        if (!ok) return false;
    }
    return true;
}

const std::vector<FakePackage> kFirst = {
    Pkg("alpha", "1.0", "Alpha tool\n A longer text on the second line", "Debian"),
    Pkg("beta", "2.0", "Beta", ""),
    Pkg("gamma", "3.1", "Gamma", "Debian"),
    Pkg("kernel-2.6.18", "2.6.18", "Kernel", "Debian"),
};

const std::vector<FakePackage> kSecond = {
    Pkg("alpha", "1.0", "Alpha tool\n A longer text on the second line", "Debian"),
    Pkg("beta", "2.1", "Beta", ""),
    Pkg("gamma", "3.1", "Gamma, second edition", "Debian"),
    Pkg("delta", "0.9", "Delta", "Debian"),
};

class InventoryFlow : public ::testing::Test {
protected:
    scenario::Session session;
};

TEST_F(InventoryFlow, AddsDeletesAndChangesAcrossAcknowledgedRuns) {
    session.SetPackages(kFirst);
    session.Start();

    // Six host elements: the run keeps the first four and appends its seventeen.
    CNDKMessage reply(42);
    reply.Add(std::string("host"));
    reply.Add(7);
    reply.Add(static_cast<unsigned char>(9));
    reply.Add(2.5);
    reply.Add(std::string("dropped"));
    reply.Add(8);
    ASSERT_EQ(session.Run(0, reply), 3);

    Reply first;
    ASSERT_NO_FATAL_FAILURE(scenario::Decode(reply, 4, first));
    std::string host;
    reply.GetAt(0, host);
    EXPECT_EQ(host, "host");
    EXPECT_EQ(reply.GetId(), 42);
    EXPECT_TRUE(LooksLikeScanTime(first.scanTime)) << first.scanTime;
    EXPECT_EQ(first.swFlag, 1);
    EXPECT_EQ(first.pkFlag, 1);
    // Software maps stay empty (the file scan makes no records); an empty map is 2 bytes.
    for (unsigned int length : {first.lengths[0], first.lengths[1], first.lengths[2], first.lengths[3],
                                first.lengths[5], first.lengths[6]})
        EXPECT_EQ(length, 2u);
    EXPECT_EQ(Keys(first.pkAdd),
              (Strings{"alpha\\Debian\\1.0", "beta\\\\2.0", "gamma\\Debian\\3.1", "kernel-2.6.18\\Debian\\2.6.18"}));
    CSoftwarePackageObject* alpha = Package(first.pkAdd, "alpha\\Debian\\1.0");
    ASSERT_NE(alpha, nullptr);
    EXPECT_EQ(alpha->m_strName, "alpha");
    EXPECT_EQ(alpha->m_strDescription, "Alpha tool");
    EXPECT_EQ(alpha->m_nFlags, 128u);
    CSoftwarePackageObject* beta = Package(first.pkAdd, "beta\\\\2.0");
    ASSERT_NE(beta, nullptr);
    EXPECT_EQ(beta->m_strVendor, " ");
    CSoftwarePackageObject* kernel = Package(first.pkAdd, "kernel-2.6.18\\Debian\\2.6.18");
    ASSERT_NE(kernel, nullptr);
    EXPECT_EQ(kernel->m_strName, "kernel");

    // Nothing is stored until the host acknowledges the delivery.
    EXPECT_FALSE(FileExists(session.DataFile("SWPackage.bin")));
    session.Ack();
    CInvMap stored;
    ASSERT_TRUE(stored.FromFile(session.DataFile("SWPackage.bin")));
    EXPECT_EQ(Keys(stored), Keys(first.pkAdd));
    CInvMap storedSoftware;
    EXPECT_TRUE(storedSoftware.FromFile(session.DataFile("SWList.bin")));

    // Second and third runs (no DataSent between them) compare with the same baseline.
    session.SetPackages(kSecond);
    for (int run = 2; run <= 3; ++run) {
        SCOPED_TRACE(run);
        CNDKMessage next;
        ASSERT_EQ(session.Run(0, next), 3);
        Reply diff;
        ASSERT_NO_FATAL_FAILURE(scenario::Decode(next, 0, diff));
        EXPECT_EQ(diff.swFlag, 0);
        EXPECT_EQ(diff.pkFlag, 0);
        EXPECT_EQ(Keys(diff.pkAdd), (Strings{"beta\\\\2.1", "delta\\Debian\\0.9"}));
        EXPECT_EQ(Keys(diff.pkDelete), (Strings{"beta\\\\2.0", "kernel-2.6.18\\Debian\\2.6.18"}));
        EXPECT_EQ(Keys(diff.pkChange), (Strings{"gamma\\Debian\\3.1"}));
        CSoftwarePackageObject* gamma = Package(diff.pkChange, "gamma\\Debian\\3.1");
        ASSERT_NE(gamma, nullptr);
        EXPECT_EQ(gamma->m_strDescription, "Gamma, second edition");   // the current contents
        EXPECT_EQ(diff.swEmpty.GetCount(), 0);
    }

    session.Ack();
    CNDKMessage quiet;
    ASSERT_EQ(session.Run(0, quiet), 3);
    Reply same;
    ASSERT_NO_FATAL_FAILURE(scenario::Decode(quiet, 0, same));
    EXPECT_EQ(same.pkAdd.GetCount() + same.pkDelete.GetCount() + same.pkChange.GetCount(), 0);
    EXPECT_EQ(same.pkFlag, 0);
    session.Ack();
    session.Stop();
}

TEST_F(InventoryFlow, FullInventoryCommandsStartFromEmptyLists) {
    session.SetPackages(kFirst);
    session.Start();
    CNDKMessage reply;
    ASSERT_EQ(session.Run(0, reply), 3);
    session.Ack();

    CInvMap change;
    ASSERT_TRUE(change.FromFile(session.DataFile("SWList.bin")));
    ASSERT_TRUE(change.ToFile(session.DataFile("SWChange.bin")));

    // Command 10, and 65546 whose low 16 bits are 10, both delete the three lists first.
    for (unsigned int command : {10u, 65546u}) {
        SCOPED_TRACE(command);
        ASSERT_TRUE(FileExists(session.DataFile("SWList.bin")));
        CExecuteInfo info(false, 0, nullptr);
        CNDKMessage full;
        ASSERT_EQ(session.lib().Execute(command, full, &info), 3);
        EXPECT_TRUE(info.m_bFullRefresh);
        EXPECT_FALSE(FileExists(session.DataFile("SWList.bin")));
        EXPECT_FALSE(FileExists(session.DataFile("SWPackage.bin")));
        EXPECT_FALSE(FileExists(session.DataFile("SWChange.bin")));
        Reply out;
        ASSERT_NO_FATAL_FAILURE(scenario::Decode(full, 0, out));
        EXPECT_EQ(out.swFlag, 1);
        EXPECT_EQ(out.pkFlag, 1);
        EXPECT_EQ(out.pkAdd.GetCount(), 4);
        EXPECT_EQ(out.pkDelete.GetCount(), 0);
        EXPECT_EQ(out.swEmpty.GetCount(), 0);
        session.Ack();
    }

    // Any other command does nothing at all.
    session.ClearCalls();
    CNDKMessage untouched;
    untouched.Add(std::string("host"));
    const auto before = scenario::Bytes(untouched);
    CExecuteInfo info(false, 0, nullptr);
    EXPECT_EQ(session.lib().Execute(5, untouched, &info), 0);
    EXPECT_FALSE(info.m_bFullRefresh);
    EXPECT_EQ(scenario::Bytes(untouched), before);
    EXPECT_EQ(session.Calls(), "");
    session.Stop();
}

TEST_F(InventoryFlow, StartupRunFollowsRunAtStartup) {
    session.SetPackages(kFirst);
    session.Start();

    // No configuration file: the start-up run goes ahead (default 1).
    CNDKMessage first;
    EXPECT_EQ(session.Run(0, first, 0x100), 3);
    session.Ack();

    session.WriteConfig("RunAtStartup=0\n");
    session.ClearCalls();
    CNDKMessage reply;
    reply.Add(std::string("host"));
    reply.Add(1);
    const auto before = scenario::Bytes(reply);
    EXPECT_EQ(session.Run(0, reply, 0x100 | 0x1), 0);
    EXPECT_EQ(scenario::Bytes(reply), before);
    EXPECT_EQ(session.Calls(), "");   // the package manager was not asked

    // Without the start-up bit the key is ignored.
    EXPECT_EQ(session.Run(0, reply, 0x200), 3);
    EXPECT_NE(session.Calls(), "");
    session.Ack();
    session.Stop();
}

TEST_F(InventoryFlow, DataSentStoresOnceThenFallsBackToTheChangeFile) {
    session.WriteConfig("Logging=1\n");
    session.SetPackages(kFirst);
    session.Start();
    CNDKMessage reply;
    ASSERT_EQ(session.Run(0, reply), 3);

    session.ClearLog();
    session.Ack();
    EXPECT_EQ(scenario::LogMessages(session.Log()),
              (Strings{"Datasent called. Saving new list", "Writing to file [" + session.DataFile("SWList.bin") + "]",
                       "Writing to file [" + session.DataFile("SWPackage.bin") + "]"}));
    const auto packages = testutil::ReadFileBytes(session.DataFile("SWPackage.bin"));

    // Nothing pending and no change file: the call ends after its first line.
    session.ClearLog();
    session.Ack();
    EXPECT_EQ(scenario::LogMessages(session.Log()), (Strings{"Datasent called. Saving new list"}));
    EXPECT_EQ(testutil::ReadFileBytes(session.DataFile("SWPackage.bin")), packages);

    // A change file left behind is promoted to the software list.
    CInvMap change;
    auto* record = new CSoftwarePackageObject;
    record->m_strName = "legacy";
    change.SetAt("legacy\\\\1", record);
    ASSERT_TRUE(change.ToFile(session.DataFile("SWChange.bin")));
    session.ClearLog();
    session.Ack();
    EXPECT_EQ(scenario::LogMessages(session.Log()),
              (Strings{"Datasent called. Saving new list", "Writing to file [" + session.DataFile("SWList.bin") + "]",
                       "m_pNewPackageList is NULL in DataSent"}));
    CInvMap promoted;
    ASSERT_TRUE(promoted.FromFile(session.DataFile("SWList.bin")));
    EXPECT_EQ(Keys(promoted), (Strings{"legacy\\\\1"}));
    EXPECT_EQ(testutil::ReadFileBytes(session.DataFile("SWPackage.bin")), packages);
    session.Stop();
}

TEST_F(InventoryFlow, ModeSelectsTheScans) {
    const std::string home = session.Home();
    for (const char* dir : {"inc1", "inc2", "ext1", "usr/windows/apps", "srv"}) testutil::MakeDirs(home + dir);
    session.SetPackages(kFirst);
    session.WriteConfig("Logging=1\nMode=1\n");
    session.Start();
    CNDKMessage reply;
    ASSERT_EQ(session.Run(0, reply), 3);
    session.Ack();

    auto startLines = [&]() {
        Strings lines;
        for (const std::string& line : scenario::LogMessages(session.Log()))
            if (line.rfind("Start In: ", 0) == 0 || line.rfind("Exclude Dirs: ", 0) == 0) lines.push_back(line);
        return lines;
    };
    auto logged = [&](const std::string& message) {
        for (const std::string& line : scenario::LogMessages(session.Log()))
            if (line == message) return true;
        return false;
    };

    // Mode 0: nothing collected, yet the full layout comes back with everything stored deleted.
    session.WriteConfig("Logging=1\nMode=0\n");
    session.ClearLog();
    session.ClearCalls();
    CNDKMessage none;
    ASSERT_EQ(session.Run(0, none), 3);
    Reply empty;
    ASSERT_NO_FATAL_FAILURE(scenario::Decode(none, 0, empty));
    EXPECT_EQ(empty.pkAdd.GetCount(), 0);
    EXPECT_EQ(empty.pkDelete.GetCount(), 4);
    EXPECT_EQ(empty.pkFlag, 0);
    EXPECT_EQ(session.Calls(), "");
    EXPECT_TRUE(logged("Enum Software"));
    EXPECT_FALSE(logged("Scan Packages"));
    EXPECT_EQ(startLines(), Strings{});

    // Mode 2: one walk per folder of "Include"; the empty rest after the last bar adds none.
    session.WriteConfig("Logging=1\nMode=2\nInclude=" + home + "inc1|" + home + "inc2|\n");
    session.ClearLog();
    ASSERT_EQ(session.Run(0, none), 3);
    EXPECT_TRUE(logged("Additional Scan Exes"));
    EXPECT_EQ(startLines(), (Strings{"Start In: " + home + "inc1", "Exclude Dirs: ", "Start In: " + home + "inc2",
                                     "Exclude Dirs: "}));
    EXPECT_TRUE(logged("Check Files: " + home + "inc2/"));

    // Mode 4 in selected folders: "/usr/windows" is excluded unless "IncExt" names it.
    session.WriteConfig("Logging=1\nMode=4\nIncExt=" + home + "ext1\n");
    session.ClearLog();
    ASSERT_EQ(session.Run(0, none), 3);
    EXPECT_EQ(startLines(), (Strings{"Start In: " + home + "ext1", "Exclude Dirs: /usr/windows"}));
    session.WriteConfig("Logging=1\nMode=4\nIncExt=" + home + "usr/windows/apps|" + home + "srv\n");
    session.ClearLog();
    ASSERT_EQ(session.Run(0, none), 3);
    EXPECT_EQ(startLines(), (Strings{"Start In: " + home + "usr/windows/apps", "Exclude Dirs: ",
                                     "Start In: " + home + "srv", "Exclude Dirs: "}));
    session.WriteConfig("Logging=1\nMode=4\nExtInSelected=1\n");   // no "IncExt": no walk at all
    session.ClearLog();
    ASSERT_EQ(session.Run(0, none), 3);
    EXPECT_EQ(startLines(), Strings{});

    // Mode 4 everywhere: one walk from "/" with "Exclude" as the exclusion list.
    // Every top-level folder is excluded so the walk stays on the first level.
    std::string exclude;
    for (const auto& entry : std::filesystem::directory_iterator("/")) {
        if (!exclude.empty()) exclude += "|";
        exclude += entry.path().string();
    }
    ASSERT_LT(exclude.size(), 512u);
    session.WriteConfig("Logging=1\nMode=4\nExtInSelected=0\nExclude=" + exclude + "\n");
    session.ClearLog();
    ASSERT_EQ(session.Run(0, none), 3);
    EXPECT_EQ(startLines(), (Strings{"Start In: ", "Exclude Dirs: " + exclude}));
    EXPECT_TRUE(logged("Check Files: /"));

    session.Ack();
    session.Stop();
}

}  // namespace
