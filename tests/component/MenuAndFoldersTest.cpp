// Folder codes, menu records and the host settings behind the component frame.
#include "component/CompMenuList.h"
#include "component/FolderInfo.h"
#include "component/HostSettings.h"

#include "HostShim.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <tuple>

TEST(ComponentParts, FolderCodes) {
    const struct { int code; const char* folder; } cases[] = {
        {1, "/x/lib/"}, {2, "/x/"}, {7, "/x/data/"}, {8, "/x/bin/"}, {9, "/x/data/"}, {10, "/x/gui/"},
        {0, ""}, {3, ""}, {6, ""}, {11, ""}, {-1, ""}, {INT_MIN, ""}, {INT_MAX, ""},
    };
    for (const auto& c : cases) EXPECT_EQ(FolderInfo::getFolder("/x/", c.code), c.folder) << c.code;
    EXPECT_EQ(FolderInfo::getFolder("", 9), "data/");
    EXPECT_EQ(FolderInfo::getFolder("/x", 8), "/xbin/");
}

TEST(ComponentParts, MenuRecordCopiesCarryAux) {
    CCompMenuInfo info(10, "Full inventory", 0xBEEF, 0xCAFEF00Du);
    info.m_strAux = "aux";
    CCompMenuInfo assigned;
    assigned = info;
    CCompMenuList list;
    list.Add(info);
    for (const CCompMenuInfo& r : {CCompMenuInfo(info), assigned, list[0]})
        EXPECT_EQ(std::tie(r.m_nCommand, r.m_strText, r.m_strAux, r.m_wFlags, r.m_dwData),
                  std::make_tuple(10u, std::string("Full inventory"), std::string("aux"), 0xBEEF, 0xCAFEF00Du));
}

// One object per load, made before any call: Exports and the foreign host.
TEST(ComponentParts, HostSettingsHomePath) {
    zev::Settings_t& settings = zev::singleton<zev::Settings_t>::instance();
    ::setenv("ZEV_HOME", "/agent/home", 1);
    EXPECT_EQ(settings.getHomePath(), "/agent/home/");
    hostshim::SetHomePath("/set/by/host/");
    EXPECT_EQ(settings.getHomePath(), "/set/by/host/");
    hostshim::ResetHomePath();
    ::unsetenv("ZEV_HOME");
}
