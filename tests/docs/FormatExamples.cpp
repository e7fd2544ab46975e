// format_examples OUTDIR: writes the small examples that docs/formats.md shows byte by byte, each made by
// the project's own code. The built libsoftware.so.0 is driven as the agent drives it, over a fake package
// manager with two packages: the settings message it is sent, the "swsearch.bin" and settings file that
// message leaves, the reply of a first inventory, and the list files its acknowledgement writes. The
// component itself never makes executable records, so a list of two is written by the inventory layer.
#include "HostShim.h"
#include "LibraryHost.h"
#include "TestUtil.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The run's own clock would change the reply on every run.
const char* const kScanTime = "01 Jan 2025 12:00:00";

const char* const kPackages[] = {"bash^5.2.15-2^GNU Bourne Again SHell^Debian",
                                 "zlib1g^1:1.2.13.dfsg-1^compression library - runtime^Debian"};

bool WriteMessage(CNDKMessage& message, const std::string& path) {
    void* bytes = nullptr;
    const int length = message.ToBuffer(&bytes);
    testutil::WriteFileText(path, std::string(static_cast<const char*>(bytes), static_cast<size_t>(length)));
    std::free(bytes);
    return length > 0;
}

bool Copy(const std::string& from, const std::string& to) {
    if (!testutil::FileExists(from)) return std::fprintf(stderr, "format_examples: %s was not written\n", from.c_str()), false;
    testutil::WriteFileText(to, testutil::ReadFileText(from));
    return true;
}

CSoftwareObject* Executable(const char* path, const char* version, const char* package, int info5) {
    auto* record = new CSoftwareObject;
    record->m_strVersion = version;
    record->m_strDescription = "Example runner";
    record->m_strCompanyName = "Example";
    record->m_strInfo1 = path;
    record->m_nInfo5 = info5;
    record->m_strPackage = package;
    return record;
}

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
    std::string list;
    for (const std::string line : kPackages) {
        const std::string name = line.substr(0, line.find('^'));
        packageManager.Set("query", name, line);
        list += name + "\n";
    }
    packageManager.Set("list", "", list);

    const libhost::Exports& lib = libhost::Library();
    CInitInfo init(true);
    init.m_strHomePath = home;
    if (!lib.GetComponentApp() || lib.InitClient(&init) != 1) return std::fprintf(stderr, "format_examples: no component\n"), 1;

    // Settings as the server sends them: the text's length, the text with its NUL as a block, search paths, "".
    const std::string text = "Mode=\"1\"; Include=\"/opt|/srv\"";
    CNDKMessage settings;
    settings.Add(static_cast<unsigned int>(text.size() + 1));
    settings.Add(const_cast<char*>(text.c_str()), static_cast<unsigned int>(text.size() + 1));
    for (const char* path : {"/opt/tools", "/srv/bin", ""}) settings.Add(std::string(path));
    bool ok = WriteMessage(settings, out + "settings.bin");
    settings.ResetCurrentIndex();
    lib.SetConfig(settings);

    CNDKMessage reply;
    CExecuteInfo info(false, 0, nullptr);
    if (lib.Execute(0, reply, &info) != 3) return std::fprintf(stderr, "format_examples: no inventory\n"), 1;
    reply.SetAt(0, std::string(kScanTime));
    ok = WriteMessage(reply, out + "reply.bin") && ok;
    CNDKMessage none;
    lib.DataSent(none);
    CInitInfo stop(false);
    lib.InitClient(&stop);
    lib.Unload(0);

    for (const char* name : {"swsearch.bin", ".Software_Inventory_Config", "SWPackage.bin", "SWList.bin"})
        ok = Copy(data + name, out + name) && ok;

    CInvMap executables;
    executables.SetAt("/opt/example/bin/run", Executable("/opt/example/bin/run", "2.1", "example\\Example\\2.1", 40960));
    executables.SetAt("/opt/example/bin/stop", Executable("/opt/example/bin/stop", "2.1", "", -1));
    return ok && executables.ToFile(out + "executables.bin") ? 0 : 1;
}
