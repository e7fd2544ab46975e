// The life cycle of the component object behind the 16 entry points of the built
// library, the cancel flag between initialisations, and the execute record.
#include "LibraryHost.h"

#include "HostShim.h"
#include "TestUtil.h"
#include "archive/StringArray.h"

#include <gtest/gtest.h>

namespace {

int Inventory(const libhost::Exports& lib) {
    CNDKMessage reply;
    CExecuteInfo info(false, 0, nullptr);
    return lib.Execute(0, reply, &info);
}

TEST(Exports, LifeCycleOfTheComponentObject) {
    ASSERT_EQ(hostshim::SettingsConstructions(), 0);
    const libhost::Exports& lib = libhost::Library();
    EXPECT_EQ(hostshim::SettingsConstructions(), 1);
    EXPECT_EQ(lib.Unload(0), 1);
    EXPECT_FALSE(lib.IsLoaded());

    CBaseComponentApp* app = lib.GetComponentApp();
    ASSERT_NE(app, nullptr);
    EXPECT_TRUE(lib.IsLoaded());
    EXPECT_EQ(lib.GetComponentApp(), app);
    EXPECT_EQ(app->GetID(), 4);
    EXPECT_STREQ(lib.GetName(-7), "Software Inventory");
    CCompMenuList menu;
    EXPECT_EQ(lib.GetCommands(&menu), 0);
    EXPECT_EQ(menu.GetCount(), 0);
    CStringArray files;
    EXPECT_EQ(lib.GetClientFileList(files), 0);
    EXPECT_EQ(files.GetSize(), 0);
    EXPECT_EQ(lib.Install(0), 1);
    EXPECT_EQ(lib.SetXState(false), 1);

    EXPECT_EQ(lib.Unload(0), 1);
    EXPECT_EQ(lib.GetComponentApp(), nullptr);
    EXPECT_TRUE(lib.IsLoaded());
    EXPECT_EQ(lib.GetID(), 0);
    EXPECT_EQ(lib.GetName(0), nullptr);
    EXPECT_EQ(Inventory(lib), 0);
    CInitInfo init(true);
    EXPECT_EQ(lib.InitClient(&init), 0);
    EXPECT_EQ(lib.Install(0), 0);
    lib.HaltExecution(true);
    lib.DeleteComponentApp();
    EXPECT_EQ(lib.Unload(0), 1);
    EXPECT_EQ(hostshim::SettingsConstructions(), 1);
}

TEST(Exports, CancelFlagLastsUntilTheNextInitClient) {
    testutil::TempDir dir;
    const std::string home = dir.path() + "/";
    testutil::MakeDirs(home + "data");
    hostshim::SetHomePath(home);
    testutil::WriteFileText(home + "data/.Software_Inventory_Config", "Mode=0\n", 0600);   // no package manager
    const libhost::Exports& lib = libhost::Library();
    ASSERT_NE(lib.GetComponentApp(), nullptr);
    CInitInfo init(true);
    init.m_strHomePath = home;
    ASSERT_EQ(lib.InitClient(&init), 1);
    EXPECT_EQ(Inventory(lib), 3);

    lib.HaltExecution(false);
    EXPECT_EQ(Inventory(lib), 0);
    EXPECT_EQ(Inventory(lib), 0);
    ASSERT_EQ(lib.InitClient(&init), 1);
    EXPECT_EQ(Inventory(lib), 3);

    CNDKMessage plain;   // a host that passes no execute record
    EXPECT_EQ(lib.Execute(0, plain, nullptr), 3);
    EXPECT_EQ(lib.Execute(65546, plain, nullptr), 3);
    EXPECT_EQ(lib.InitClient(nullptr), 0);
    lib.DataSent(plain);
    CInitInfo shutdown(false);
    EXPECT_EQ(lib.InitClient(&shutdown), 1);
    EXPECT_EQ(lib.Unload(0), 1);
}

TEST(Exports, ExecuteInfoCopiesTheRequest) {
    EXPECT_EQ(CExecuteInfo(true, 0x100, nullptr).m_Message.GetElements().GetSize(), 0);
    CNDKMessage request(12);
    request.Add(std::string("path"));
    CExecuteInfo copied(false, 0, &request);
    request.Add(5);
    EXPECT_EQ(copied.m_Message.GetNbElements(), 1);
    EXPECT_EQ(copied.m_Message.GetId(), 12);
}

}  // namespace
