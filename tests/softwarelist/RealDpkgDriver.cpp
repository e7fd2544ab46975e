// Host program for the end-to-end check against the machine's own package
// database: one inventory run (Mode 1) in a fresh home on the real PATH, the
// reply's buffer bytes saved to a file, then DataSent to store the lists.
// Usage: real_dpkg_driver HOME REPLY_FILE   (HOME ends with '/', has data/)
#include "LibraryHost.h"

#include "HostShim.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s HOME REPLY_FILE\n", argv[0]);
        return 2;
    }
    const std::string home = argv[1];
    hostshim::SetHomePath(home);
    const libhost::Exports& lib = libhost::Library();
    if (!lib.GetComponentApp()) return 1;
    CInitInfo init(true);
    init.m_strHomePath = home;
    if (lib.InitClient(&init) != 1) return 1;

    CNDKMessage reply;
    CExecuteInfo info(false, 0, nullptr);
    const int result = lib.Execute(0, reply, &info);
    if (result != 3) {
        std::fprintf(stderr, "Execute returned %d\n", result);
        return 1;
    }
    void* buffer = nullptr;
    const int length = reply.ToBuffer(&buffer);
    std::ofstream out(argv[2], std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(buffer), length);
    out.close();
    const bool written = static_cast<bool>(out);
    std::free(buffer);
    if (!written) return 1;

    CNDKMessage ack;
    lib.DataSent(ack);
    CInitInfo shutdown(false);
    lib.InitClient(&shutdown);
    return lib.Unload(0) == 1 ? 0 : 1;
}
