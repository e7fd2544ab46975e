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

// One process for both: the settings object is made once at load, and an unloaded library cannot be revived.
TEST(Exports, LifeCycleAndTheCancelFlagAcrossHaltsInitClientsAndRuns) {
    ASSERT_EQ(hostshim::SettingsConstructions(), 0);
    testutil::TempDir dir;
    const std::string home = dir.path() + "/";
    testutil::MakeDirs(home + "data");
    hostshim::SetHomePath(home);
    testutil::WriteFileText(home + "data/.Software_Inventory_Config", "Mode=0\n", 0600);   // no package manager
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

    // The cancel flag between the calls a host makes, each row from a fresh start-up: h HaltExecution(false), H
    // HaltExecution(true), i InitClient at start-up, s InitClient at shutdown, e Execute; then what each Execute returned.
    CInitInfo init(true), shutdown(false);
    init.m_strHomePath = home;
    const std::pair<const char*, const char*> rows[] = {
        {"e", "3"}, {"he", "0"}, {"Hee", "00"}, {"ehe", "30"}, {"hie", "3"}, {"hiHe", "0"},
        {"hse", "3"}, {"hsie", "3"}, {"hshe", "0"}, {"sehse", "33"}};
    for (const auto& [calls, results] : rows) {
        ASSERT_EQ(lib.InitClient(&init), 1);
        std::string got;
        for (const char* call = calls; *call; ++call) {
            switch (*call) {
                case 'e': got += std::to_string(Inventory(lib)); break;
                case 'h': case 'H': lib.HaltExecution(*call == 'H'); break;
                default: EXPECT_EQ(lib.InitClient(*call == 'i' ? &init : &shutdown), 1) << calls;
            }
        }
        EXPECT_EQ(got, results) << calls;
    }
    CNDKMessage plain;   // a host that passes no execute record
    EXPECT_EQ(Ints({lib.Execute(0, plain, nullptr), lib.Execute(65546, plain, nullptr), lib.InitClient(nullptr),
                    (lib.DataSent(plain), lib.InitClient(&shutdown)), lib.Unload(0)}),
              Ints({3, 3, 0, 1, 1}));

    // Once unloaded nothing makes a new object, and every entry point answers "nothing".
    EXPECT_EQ(Ints({lib.GetComponentApp() != nullptr, lib.IsLoaded(), lib.GetID(), lib.GetName(0) != nullptr, Inventory(lib),
                    lib.InitClient(&init), lib.Install(0)}),
              Ints({false, true, 0, false, 0, 0, 0}));
    lib.HaltExecution(true);
    lib.DeleteComponentApp();
    EXPECT_EQ(Ints({lib.Unload(0), hostshim::SettingsConstructions()}), Ints({1, 1}));
}

}  // namespace
