// A host of its own whose settings state the component knows nothing of: it loads libsoftware.so.0, runs and
// acknowledges an inventory, shuts down and unloads with a real dlclose, twice: first keeping nothing (so the library
// is unmapped), then keeping the reply past dlclose as a queued reply would be. Exit 0: no crash, its own state intact.
#include "ComponentLibrary.h"
#include "TestUtil.h"
#include "component/HostSettings.h"
#include "message/NDKMessage.h"

#include <dlfcn.h>

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
    packages.SetPackages({"alpha^1.0^Alpha tool^Debian"});
    testutil::TempDir home;
    g_home = home.path() + "/";
    testutil::MakeDirs(g_home + "data");

    std::unique_ptr<CNDKMessage> kept;
    for (const bool keepReply : {false, true}) {
        if (void* stale = dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD))
            return dlclose(stale), Fail("the library stayed mapped although the host kept nothing of it");
        const hostshim::ComponentLibrary library(argv[1]);
        const hostshim::ComponentExports& lib = library.exports();
        if (!lib.GetComponentApp()) return Fail("no component");
        CInitInfo start(true), stop(false);
        start.m_strHomePath = g_home;
        auto reply = std::make_unique<CNDKMessage>();
        CNDKMessage ack;
        CExecuteInfo run(false, 0, nullptr);
        if (lib.InitClient(&start) != 1 || lib.Execute(10, *reply, &run) != 3) return Fail("no inventory");
        lib.DataSent(ack);   // the pending maps become the list files and are released
        if (keepReply) kept = std::move(reply);
        reply.reset();
        if (lib.InitClient(&stop) != 1 || lib.Unload(0) != 1) return Fail("no shutdown");
        if (std::remove((g_home + "data/SWPackage.bin").c_str()) != 0) return Fail("no package list");
    }
    // The library is closed; the elements' destructors are still its code.
    if (kept->GetNbElements() != 17) return Fail("the kept reply lost its elements");
    kept.reset();
    // One settings object per load of the library, each as its host made it.
    if (g_impls.size() != 2) return Fail("settings objects not made once per load");
    for (const auto& impl : g_impls)
        if (impl->nMagic != 0x5E7714C5 || impl->folders.size() != 2 || impl->counters.size() != 2)
            return Fail("the host's settings state was changed");
    return 0;
}
