// The life cycle of the component object behind the 16 entry points of the built
// library, the cancel flag between initialisations, and the host records.
#include "LibraryHost.h"

#include "HostShim.h"
#include "TestUtil.h"
#include "archive/StringArray.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

const libhost::Exports& Lib() { return libhost::Library(); }

TEST(Exports, LifeCycleOfTheComponentObject) {
    // Loading alone constructs the host's settings object, exactly once.
    ASSERT_EQ(hostshim::SettingsConstructions(), 0);
    const libhost::Exports& lib = Lib();
    EXPECT_EQ(hostshim::SettingsConstructions(), 1);

    EXPECT_EQ(lib.Unload(0), 1);   // nothing created yet, and nothing created by it
    EXPECT_FALSE(lib.IsLoaded());

    CBaseComponentApp* app = lib.GetComponentApp();
    ASSERT_NE(app, nullptr);
    EXPECT_TRUE(lib.IsLoaded());
    EXPECT_EQ(lib.GetComponentApp(), app);
    // The host calls through the virtual table as well as through the exports.
    EXPECT_EQ(app->GetID(), 4);
    EXPECT_STREQ(app->GetName(1), "Software Inventory");
    EXPECT_EQ(lib.GetID(), 4);
    EXPECT_STREQ(lib.GetName(0), "Software Inventory");
    EXPECT_STREQ(lib.GetName(-7), "Software Inventory");

    CCompMenuList menu;
    EXPECT_EQ(lib.GetCommands(&menu), 0);
    EXPECT_EQ(menu.GetCount(), 0);
    CStringArray files;
    EXPECT_EQ(lib.GetClientFileList(files), 0);
    EXPECT_EQ(files.GetSize(), 0);
    EXPECT_EQ(lib.Install(0), 1);
    EXPECT_EQ(lib.NeedsX(0), 0);
    EXPECT_EQ(lib.NeedsX(10), 0);
    EXPECT_EQ(lib.SetXState(false), 1);
    lib.HaltExecution(false);
    lib.HaltExecution(true);   // nothing marks an execution running: returns at once

    EXPECT_EQ(lib.Unload(0), 1);
    // Deleted for good: every export answers its null value from now on.
    EXPECT_EQ(lib.GetComponentApp(), nullptr);
    EXPECT_TRUE(lib.IsLoaded());
    EXPECT_EQ(lib.GetID(), 0);
    EXPECT_EQ(lib.GetName(0), nullptr);
    EXPECT_EQ(lib.GetCommands(&menu), 0);
    CNDKMessage reply;
    CExecuteInfo info(false, 0, nullptr);
    EXPECT_EQ(lib.Execute(0, reply, &info), 0);
    EXPECT_EQ(reply.GetElements().GetSize(), 0);
    CInitInfo init(true);
    EXPECT_EQ(lib.InitClient(&init), 0);
    EXPECT_EQ(lib.SetConfig(reply), 0);
    EXPECT_EQ(lib.GetClientFileList(files), 0);
    EXPECT_EQ(lib.Install(0), 0);
    EXPECT_EQ(lib.NeedsX(0), 0);
    EXPECT_EQ(lib.SetXState(true), 0);
    lib.DataSent(reply);
    lib.HaltExecution(true);
    lib.DeleteComponentApp();
    EXPECT_EQ(lib.Unload(0), 1);
    EXPECT_EQ(hostshim::SettingsConstructions(), 1);
}

TEST(Exports, HaltHoldsUntilInitialisedAndLoggingNeedsExactlyOne) {
    testutil::TempDir dir;
    const std::string home = dir.path() + "/";
    testutil::MakeDirs(home + "data");
    hostshim::SetHomePath(home);
    const std::string config = home + "data/.Software_Inventory_Config";
    const std::string log = home + "data/Software.log";
    // Mode 0 collects nothing, so no package manager is involved.
    testutil::WriteFileText(config, "Logging=2\nMode=0\n", 0600);

    const libhost::Exports& lib = Lib();
    ASSERT_NE(lib.GetComponentApp(), nullptr);
    CInitInfo init(true);
    init.m_strHomePath = home;
    ASSERT_EQ(lib.InitClient(&init), 1);

    auto run = [&lib]() {
        CNDKMessage reply;
        CExecuteInfo info(false, 0, nullptr);
        return lib.Execute(0, reply, &info);
    };
    EXPECT_EQ(run(), 3);
    EXPECT_FALSE(testutil::FileExists(log));   // "Logging"=2 is not 1

    lib.HaltExecution(false);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(run(), 0);   // still halted

    // Shutting down clears the flag too (the base operation), though the export
    // does not reset it first.
    CInitInfo shutdown(false);
    EXPECT_EQ(lib.InitClient(&shutdown), 1);
    EXPECT_EQ(run(), 3);

    lib.HaltExecution(true);
    EXPECT_EQ(run(), 0);
    testutil::WriteFileText(config, "Logging=1\nMode=0\n", 0600);
    ASSERT_EQ(lib.InitClient(&init), 1);
    EXPECT_EQ(run(), 3);
    const std::string text = testutil::ReadFileText(log);
    ASSERT_GE(text.size(), 20u);
    EXPECT_EQ(text.substr(19), "Enum Software\n");

    // A host that passes no record: inventory and full inventory still run.
    CNDKMessage plain;
    EXPECT_EQ(lib.Execute(0, plain, nullptr), 3);
    EXPECT_EQ(lib.Execute(65546, plain, nullptr), 3);
    EXPECT_EQ(lib.InitClient(nullptr), 0);

    CNDKMessage ack;
    lib.DataSent(ack);
    EXPECT_TRUE(testutil::FileExists(home + "data/SWList.bin"));
    EXPECT_EQ(lib.InitClient(&shutdown), 1);
    EXPECT_EQ(lib.Unload(0), 1);
}

TEST(Exports, ExecuteInfoCopiesTheRequest) {
    CExecuteInfo bare(true, 0x100, nullptr);
    EXPECT_TRUE(bare.m_bFullRefresh);
    EXPECT_EQ(bare.m_dwFlags, 0x100u);
    EXPECT_EQ(bare.m_Message.GetElements().GetSize(), 0);

    CNDKMessage request(12);
    request.Add(std::string("path"));
    const char bytes[150] = "compressed";
    request.Add(bytes, sizeof bytes);
    CExecuteInfo copied(false, 0, &request);
    EXPECT_TRUE(copied.m_Message == request);
    request.Add(5);   // a deep copy: the original changes alone
    EXPECT_EQ(copied.m_Message.GetNbElements(), 2);
    EXPECT_EQ(copied.m_Message.GetHiddenElements(), 1u);
    EXPECT_EQ(copied.m_Message.GetId(), 12);
}

}  // namespace
