// A host of its own, as the agent is, whose settings state the component knows nothing of: it loads
// libsoftware.so.0, runs an inventory, acknowledges it, shuts down and unloads, once closed for good (exit-time
// destructors run at dlclose) and once kept mapped (they run at exit). Exit 0 when its state was left alone.
#include "ComponentLibrary.h"
#include "TestUtil.h"
#include "component/HostSettings.h"
#include "message/NDKMessage.h"

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct zev::Settings_t::Impl {
    int nMagic = 0x5E7714C5;
    std::vector<std::string> folders{"/var/lib/agent/components/software-inventory/cache", "/var/log/agent"};
    std::map<std::string, int> counters{{"components loaded by this host", 1}, {"runs", 0}};
};

namespace {

std::string g_home;
std::vector<std::unique_ptr<zev::Settings_t::Impl>> g_impls;   // the host's own record; outlives every load

int Fail(const char* what) { return std::fprintf(stderr, "foreign host: %s\n", what), 1; }

}  // namespace

zev::Settings_t::Settings_t() : m_pImpl(g_impls.emplace_back(std::make_unique<Impl>()).get()) {}

std::string zev::Settings_t::getHomePath() const { return g_home; }

bool GetSimpleCommand(const char* command, std::string& output) {
    output.clear();
    FILE* pipe = command ? ::popen(command, "r") : nullptr;
    if (!pipe) return false;
    char buffer[4096];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, got);
    return ::pclose(pipe) == 0;
}

int main(int argc, char** argv) {
    if (argc != 2) return Fail("usage: component_foreign_host LIBRARY");
    testutil::FakePackageManager packages;
    packages.Set("list", "", "alpha\n");
    packages.Set("query", "alpha", "alpha^1.0^Alpha tool^Debian");
    testutil::TempDir home;
    g_home = home.path() + "/";
    testutil::MakeDirs(g_home + "data");

    for (const bool keepMapped : {false, true}) {
        const hostshim::ComponentLibrary library(argv[1], keepMapped);
        const hostshim::ComponentExports& lib = library.exports();
        if (!lib.GetComponentApp()) return Fail("no component");
        CInitInfo start(true), stop(false);
        start.m_strHomePath = g_home;
        CNDKMessage reply, ack;
        CExecuteInfo run(false, 0, nullptr);
        if (lib.InitClient(&start) != 1 || lib.Execute(10, reply, &run) != 3) return Fail("no inventory");
        lib.DataSent(ack);   // the pending maps become the list files and are released
        if (lib.InitClient(&stop) != 1 || lib.Unload(0) != 1) return Fail("no shutdown");
        if (std::remove((g_home + "data/SWPackage.bin").c_str()) != 0) return Fail("no package list");
    }
    // One settings object per load of the library, each as its host made it.
    if (g_impls.size() != 2) return Fail("settings objects not made once per load");
    for (const auto& impl : g_impls)
        if (impl->nMagic != 0x5E7714C5 || impl->folders.size() != 2 || impl->counters.size() != 2)
            return Fail("the host's settings state was changed");
    return 0;
}
