// The life cycle of the component object behind the 16 entry points of the built
// library, the cancel flag between initialisations, and the execute record.
#include "LibraryHost.h"

#include "HostShim.h"
#include "TestUtil.h"
#include "archive/StringArray.h"

#include <gtest/gtest.h>

namespace {

using Ints = std::vector<long long>;   // answers of a call sequence, compared at once, evaluated in order

int Inventory(const libhost::Exports& lib) {
    CNDKMessage reply;
    CExecuteInfo info(false, 0, nullptr);
    return lib.Execute(0, reply, &info);
}

TEST(Exports, LifeCycleOfTheComponentObject) {
    ASSERT_EQ(hostshim::SettingsConstructions(), 0);
    const libhost::Exports& lib = libhost::Library();
    EXPECT_EQ(hostshim::SettingsConstructions(), 1);
    EXPECT_EQ(Ints({lib.Unload(0), lib.IsLoaded()}), Ints({1, false}));

    CBaseComponentApp* app = lib.GetComponentApp();
    ASSERT_NE(app, nullptr);
    EXPECT_EQ(lib.GetComponentApp(), app);
    EXPECT_STREQ(lib.GetName(-7), "Software Inventory");
    CCompMenuList menu;
    CStringArray files;
    EXPECT_EQ(Ints({lib.IsLoaded(), app->GetID(), lib.GetCommands(&menu), menu.GetCount(),
                    lib.GetClientFileList(files), files.GetSize(), lib.Install(0), lib.SetXState(false)}),
              Ints({true, 4, 0, 0, 0, 0, 1, 1}));

    // Once unloaded nothing makes a new object, and every entry point answers "nothing".
    CInitInfo init(true);
    EXPECT_EQ(Ints({lib.Unload(0), lib.GetComponentApp() != nullptr, lib.IsLoaded(), lib.GetID(),
                    lib.GetName(0) != nullptr, Inventory(lib), lib.InitClient(&init), lib.Install(0)}),
              Ints({1, false, true, 0, false, 0, 0, 0}));
    lib.HaltExecution(true);
    lib.DeleteComponentApp();
    EXPECT_EQ(Ints({lib.Unload(0), hostshim::SettingsConstructions()}), Ints({1, 1}));
}

TEST(Exports, CancelFlagLastsUntilTheNextInitClient) {
    testutil::TempDir dir;
    const std::string home = dir.path() + "/";
    testutil::MakeDirs(home + "data");
    hostshim::SetHomePath(home);
    testutil::WriteFileText(home + "data/.Software_Inventory_Config", "Mode=0\n", 0600);   // no package manager
    const libhost::Exports& lib = libhost::Library();
    ASSERT_NE(lib.GetComponentApp(), nullptr);
    CInitInfo init(true), shutdown(false);
    init.m_strHomePath = home;
    ASSERT_EQ(lib.InitClient(&init), 1);
    EXPECT_EQ(Ints({Inventory(lib), (lib.HaltExecution(false), Inventory(lib)), Inventory(lib),
                    lib.InitClient(&init), Inventory(lib)}),
              Ints({3, 0, 0, 1, 3}));
    CNDKMessage plain;   // a host that passes no execute record
    EXPECT_EQ(Ints({lib.Execute(0, plain, nullptr), lib.Execute(65546, plain, nullptr), lib.InitClient(nullptr),
                    (lib.DataSent(plain), lib.InitClient(&shutdown)), lib.Unload(0)}),
              Ints({3, 3, 0, 1, 1}));
}

}  // namespace
