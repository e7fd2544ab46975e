// The host settings singleton and the host shim behind it: the settings object
// exists before main, its home path follows the shim, and the command runner
// reports output and exit status.
#include "component/HostSettings.h"

#include "HostShim.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

TEST(HostSettings, SingletonIsBuiltAtLoadAndFollowsTheShim) {
    // Constructed during static initialisation, before this test asked for it.
    EXPECT_EQ(hostshim::SettingsConstructions(), 1);
    zev::Settings_t& settings = zev::singleton<zev::Settings_t>::instance();
    EXPECT_EQ(&settings, &zev::singleton<zev::Settings_t>::instance());
    EXPECT_EQ(hostshim::SettingsConstructions(), 1);

    // Read at call time: the environment first, then the setter overrides it.
    hostshim::ResetHomePath();
    ::unsetenv("ZEV_HOME");
    EXPECT_EQ(zev::HostHomePath(), "");
    ::setenv("ZEV_HOME", "/agent/home", 1);
    EXPECT_EQ(zev::HostHomePath(), "/agent/home/");
    ::setenv("ZEV_HOME", "/agent/home/", 1);
    EXPECT_EQ(settings.getHomePath(), "/agent/home/");
    hostshim::SetHomePath("/set/by/host/");
    EXPECT_EQ(zev::HostHomePath(), "/set/by/host/");
    EXPECT_EQ(settings.getHomePath(), hostshim::HomePath());
    hostshim::ResetHomePath();
    EXPECT_EQ(zev::HostHomePath(), "/agent/home/");
    ::unsetenv("ZEV_HOME");
}

TEST(HostSettings, GetSimpleCommandOutputAndStatus) {
    std::vector<std::string> seen;
    hostshim::SetCommandObserver([&seen](const char* command) { seen.emplace_back(command); });

    std::string out = "stale";
    EXPECT_TRUE(GetSimpleCommand("printf 'one\\ntwo\\n\\nlast'", out));
    EXPECT_EQ(out, "one\ntwo\n\nlast");

    EXPECT_TRUE(GetSimpleCommand("true", out));
    EXPECT_EQ(out, "");

    EXPECT_FALSE(GetSimpleCommand("echo partial; exit 3", out));
    EXPECT_EQ(out, "partial\n");
    EXPECT_FALSE(GetSimpleCommand("zev-no-such-command-here 2>/dev/null", out));
    EXPECT_FALSE(GetSimpleCommand("kill -9 $$", out));
    EXPECT_FALSE(GetSimpleCommand(nullptr, out));

    // Output larger than any pipe buffer arrives whole.
    EXPECT_TRUE(GetSimpleCommand("head -c 200000 /dev/zero | tr '\\0' 'z'", out));
    EXPECT_EQ(out, std::string(200000, 'z'));

    hostshim::SetCommandObserver(nullptr);
    EXPECT_TRUE(GetSimpleCommand("true", out));
    EXPECT_EQ(seen.size(), 6u);
    EXPECT_EQ(seen.front(), "printf 'one\\ntwo\\n\\nlast'");
}
