// format_examples OUTDIR: writes the examples docs/formats.md dumps: the built libsoftware.so.0 driven as the agent
// drives it over two fake packages (settings message, the files it leaves, a first reply, the acknowledged lists), a
// stored list of one snap and one flatpak app from stand-in commands, and two executable records from the inventory
// layer, which the component never makes.
#include "HostShim.h"
#include "LibraryHost.h"
#include "TestUtil.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void WriteMessage(CNDKMessage& message, const std::string& path) {
    void* bytes = nullptr;
    const int length = message.ToBuffer(&bytes);
    testutil::WriteFileText(path, std::string(static_cast<const char*>(bytes), static_cast<size_t>(length)));
    std::free(bytes);
}

int Fail(const char* what) { return std::fprintf(stderr, "format_examples: %s\n", what), 1; }

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: format_examples OUTDIR\n"), 2;
    const std::string out = std::string(argv[1]) + "/";
    testutil::MakeDirs(out);
    testutil::TempDir dir;
    const std::string home = dir.path() + "/", data = home + "data/";
    testutil::MakeDirs(data);
    hostshim::SetHomePath(home);
    testutil::FakePackageManager packageManager;
    packageManager.Set("list", "", "bash\nzlib1g\n");
    packageManager.Set("query", "bash", "bash^5.2.15-2^GNU Bourne Again SHell^Debian");
    packageManager.Set("query", "zlib1g", "zlib1g^1:1.2.13.dfsg-1^compression library - runtime^Debian");

    const libhost::Exports& lib = libhost::Library();
    CInitInfo init(true);
    init.m_strHomePath = home;
    if (!lib.GetComponentApp() || lib.InitClient(&init) != 1) return Fail("no component");

    // Settings as the server sends them: the text's length, the text with its NUL as a block, search paths, "".
    const std::string text = "Mode=\"1\"; Include=\"/opt|/srv\"";
    CNDKMessage settings;
    settings.Add(static_cast<unsigned int>(text.size() + 1));
    settings.Add(const_cast<char*>(text.c_str()), static_cast<unsigned int>(text.size() + 1));
    for (const char* path : {"/opt/tools", "/srv/bin", ""}) settings.Add(std::string(path));
    WriteMessage(settings, out + "settings.bin");
    settings.ResetCurrentIndex();
    lib.SetConfig(settings);

    CNDKMessage reply, none;
    CExecuteInfo info(false, 0, nullptr);
    if (lib.Execute(0, reply, &info) != 3) return Fail("no inventory");
    reply.SetAt(0, std::string("01 Jan 2025 12:00:00"));   // the run's own clock would change it every run
    WriteMessage(reply, out + "reply.bin");
    lib.DataSent(none);
    for (const char* name : {"swsearch.bin", ".Software_Inventory_Config", "SWPackage.bin", "SWList.bin"})
        testutil::WriteFileText(out + name, testutil::ReadFileText(data + name));   // a missing one fails as an empty dump

    // No package any more, one snap and one flatpak app: the stored list then holds just their records.
    packageManager.Set("list", "", "");
    packageManager.SetTool("snap", "Name     Version    Rev   Tracking       Publisher  Notes\n"
                                   "zevnotes  128.0.3-1  4650  latest/stable  zevsoft**  -\n");
    packageManager.SetTool("flatpak", "org.zev.Boxes\t\tstable\tzev-apps\tBoxes\n");
    testutil::WriteFileText(data + ".Software_Inventory_Config", "Mode=1\nSources=snap|flatpak\n");
    CNDKMessage sources;
    if (lib.Execute(0, sources, &info) != 3) return Fail("no inventory with the extra sources");
    lib.DataSent(none);
    testutil::WriteFileText(out + "sources.bin", testutil::ReadFileText(data + "SWPackage.bin"));
    CInitInfo stop(false);
    lib.InitClient(&stop);
    lib.Unload(0);

    CInvMap executables;
    for (const std::string name : {"run", "stop"}) {
        auto* record = new CSoftwareObject;
        record->m_strVersion = "2.1", record->m_strDescription = "Example runner", record->m_strCompanyName = "Example";
        record->m_strInfo1 = "/opt/example/bin/" + name;
        record->m_nInfo5 = name == "run" ? 40960 : -1;
        record->m_strPackage = name == "run" ? "example\\Example\\2.1" : "";
        executables.SetAt(record->m_strInfo1, record);
    }
    return executables.ToFile(out + "executables.bin") ? 0 : 1;
}
