// A small host of the Software Inventory component, to start a host program from.
// It supplies what the component takes from its host (the settings object and the
// command runner), loads libsoftware.so.0, runs one inventory, prints how many
// items were added, deleted and changed, and unloads the component.
//   build: g++ -std=c++17 -o zev-host-example example-host.cpp $(pkg-config --cflags --libs zev-software)
//      or: cmake -S . -B build && cmake --build build
//     run: zev-host-example HOME [LIBRARY]    (LIBRARY: /usr/zev/slib/libsoftware.so.0)
#include "component/HostSettings.h"
#include "component/basecomponent.h"
#include "message/NDKMessage.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

// ---- The host's side of the contract: the component calls these from its own code.

// The host's private settings state; the component only holds a pointer to it.
struct zev::Settings_t::Impl {
    std::string homePath;
};

namespace {

std::string g_home;   // set before the library loads: its settings object is built then
zev::Settings_t::Impl g_settings;

}  // namespace

zev::Settings_t::Settings_t() : m_pImpl(&g_settings) { g_settings.homePath = g_home; }

std::string zev::Settings_t::getHomePath() const { return m_pImpl->homePath; }

bool GetSimpleCommand(const char* command, std::string& output) {
    output.clear();
    FILE* pipe = command ? popen(command, "r") : nullptr;
    if (!pipe) return false;
    char buffer[4096];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, got);
    return pclose(pipe) == 0;
}

// ---- Loading the component and reading its reply.

namespace {

struct Component {
    CBaseComponentApp* (*GetComponentApp)();
    int (*InitClient)(CInitInfo*);
    int (*Execute)(unsigned int, CNDKMessage&, CExecuteInfo*);
    int (*Unload)(int);
};

template <typename F>
bool Resolve(void* library, const char* name, F& function) {
    void* symbol = dlsym(library, name);
    function = reinterpret_cast<F>(symbol);
    return symbol != nullptr;
}

// The number of records in the next map of the reply: its length element, then its
// block, whose first item is the map's entry count.
unsigned int NextMapCount(CNDKMessage& reply) {
    unsigned int length = 0;
    reply.GetNext(length);
    std::vector<unsigned char> block(length ? length : 1);
    reply.GetNext(block.data(), length);   // inflates the block
    if (length == 0) return 0;
    CMemFile file(block.data(), length);
    CArchive archive(&file, CArchive::load);
    return archive.ReadCount();
}

// Scan time, then the software and the package maps: added, deleted, changed.
void PrintCounts(CNDKMessage& reply) {
    std::string scanTime;
    reply.GetNext(scanTime);
    std::printf("scan time: %s\n", scanTime.c_str());
    unsigned int software[4];
    for (unsigned int& count : software) count = NextMapCount(reply);   // the fourth map is always empty
    short noBaseline = 0;
    reply.GetNext(noBaseline);
    std::printf("software: %u added, %u deleted, %u changed\n", software[0], software[1], software[2]);
    unsigned int packages[3];
    for (unsigned int& count : packages) count = NextMapCount(reply);
    std::printf("packages: %u added, %u deleted, %u changed\n", packages[0], packages[1], packages[2]);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: %s HOME [LIBRARY]\n", argv[0]);
        return 2;
    }
    g_home = argv[1];
    if (g_home.back() != '/') g_home += '/';
    // The component keeps its settings, lists and log in HOME/data/.
    mkdir(g_home.c_str(), 0755);
    mkdir((g_home + "data").c_str(), 0755);

    const char* path = argc == 3 ? argv[2] : "/usr/zev/slib/libsoftware.so.0";
    // RTLD_NOW: the settings object and the command runner above must resolve at once.
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    Component component{};
    if (!library || !Resolve(library, "GetComponentApp", component.GetComponentApp) ||
        !Resolve(library, "InitClient", component.InitClient) || !Resolve(library, "Execute", component.Execute) ||
        !Resolve(library, "Unload", component.Unload) || !component.GetComponentApp()) {
        std::fprintf(stderr, "cannot load the component %s: %s\n", path, library ? "no component in it" : dlerror());
        return 1;
    }

    CInitInfo start(true);
    start.m_strHomePath = g_home;
    component.InitClient(&start);
    int result = 0;
    {
        // Command 0: an inventory against the one last delivered (none here, so all is added).
        // The reply is freed before Unload: the component stays mapped while a host holds what it made.
        CNDKMessage reply;
        CExecuteInfo info(false, 0, nullptr);
        if (component.Execute(0, reply, &info) == 3) {
            PrintCounts(reply);
        } else {
            std::fprintf(stderr, "the component sent no inventory\n");
            result = 1;
        }
    }
    CInitInfo stop(false);
    component.InitClient(&stop);
    component.Unload(0);
    dlclose(library);
    return result;
}
