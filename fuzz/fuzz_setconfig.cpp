// The server's settings message, as the host receives it, through the real
// CSoftwareListApp::SetConfig on a temporary home with logging on. The home's
// files are put back before every input, so inputs are independent. Bytes that
// FromBuffer refuses are no message and never reach SetConfig. Checked: the result
// is 1, a merge never loses a key the file had, and a written "swsearch.bin" loads
// to exactly its length as a string array of non-empty paths the message carried.
#include "HostShim.h"
#include "LoadMessage.h"

#include "archive/arcobj.h"
#include "softwarelist/softwarelist.h"
#include "support/Config.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

const char kBaseConfig[] = "Include=/home/\nLogging=1\nMode=1\nScan=*.jpg|*.bmp\n";
const char* const kBaseKeys[] = {"Include", "Logging", "Mode", "Scan"};

std::string g_data;
CSoftwareListApp* g_app = nullptr;

void WriteFile(const std::string& path, const char* text, size_t size) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || write(fd, text, size) != static_cast<ssize_t>(size)) std::abort();
    close(fd);
}

// The home as every input finds it: the base settings, no search paths, an empty log.
void ResetHome() {
    WriteFile(g_data + ".Software_Inventory_Config", kBaseConfig, sizeof kBaseConfig - 1);
    unlink((g_data + "swsearch.bin").c_str());
    WriteFile(g_data + "Software.log", "", 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // A home of its own on tmpfs when there is one: every input writes files.
    const std::string base = std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    std::string home = base + "/fuzz_setconfig.XXXXXX";
    if (!mkdtemp(home.data())) std::abort();
    home += "/";
    g_data = home + "data/";
    std::filesystem::create_directories(g_data);
    hostshim::SetHomePath(home);
    ResetHome();
    g_app = new CSoftwareListApp;
    CInitInfo info(true);
    info.m_strHomePath = home;
    g_app->InitClient(&info);   // "Logging" is 1: every log line of SetConfig is formatted and written
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CNDKMessage message;
    if (!LoadMessage(message, data, size)) return 0;
    std::set<std::string> carried;   // every string the message holds
    for (int i = 0; i < message.GetElements().GetSize(); ++i) {
        std::string text;
        if (message.GetElements().GetAt(i).Get(text)) carried.insert(text);
    }

    ResetHome();
    if (g_app->SetConfig(message) != 1) std::abort();

    Config config((g_data + ".Software_Inventory_Config").c_str());
    config.readConfigFile();
    for (const char* key : kBaseKeys)
        if (config.items().count(key) == 0) std::abort();

    const std::string search = g_data + "swsearch.bin";
    std::ifstream in(search, std::ios::binary);
    if (in) {
        std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        CStringArray paths;
        CMemFile file(bytes.data(), static_cast<unsigned int>(bytes.size()), 0);
        {
            CArchive ar(&file, CArchive::load, 4096);
            paths.Serialize(ar);   // must not throw: the component wrote it
            ar.Close();
        }
        if (file.GetPosition() != bytes.size() || paths.GetSize() == 0) std::abort();
        for (int i = 0; i < paths.GetSize(); ++i)
            if (paths.GetAt(i).empty() || carried.count(paths.GetAt(i)) == 0) std::abort();
    }
    return 0;
}
