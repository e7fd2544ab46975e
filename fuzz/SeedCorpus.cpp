// Writes the seed corpora of the fuzz targets, one folder per target below the
// folder given on the command line. Every seed is made by the project's own
// writers: the component's real run and acknowledgement (with a fake package
// manager on PATH), the inventory map, the archive, the message and the
// configuration file. A few deliberately odd seeds are built from those writers'
// output too, by cutting or patching bytes. Made at build time, so the seeds
// always follow the formats the code writes today and nothing binary is kept.
#include "HostShim.h"
#include "SettingsMessage.h"
#include "TestUtil.h"

#include "component/ComponentGlobals.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"
#include "softwarelist/softwarelist.h"
#include "support/Config.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Strings = std::vector<std::string>;

std::string g_out;
int g_written = 0;

void Seed(const std::string& target, const std::string& name, const Bytes& bytes) {
    // libFuzzer runs with -max_len=65536: a longer seed would be cut.
    if (bytes.size() > 65536) {
        std::fprintf(stderr, "seed %s/%s is %zu bytes, over 64 KiB\n", target.c_str(), name.c_str(), bytes.size());
        std::exit(1);
    }
    std::filesystem::create_directories(g_out + "/" + target);
    testutil::WriteFileBytes(g_out + "/" + target + "/" + name, bytes);
    ++g_written;
}

void Seed(const std::string& target, const std::string& name, const std::string& text) {
    Seed(target, name, Bytes(text.begin(), text.end()));
}

Bytes Prefixed(std::uint8_t first, const Bytes& bytes) {
    Bytes out{first};
    out.insert(out.end(), bytes.begin(), bytes.end());
    return out;
}

// Stores through an archive into memory: the object's Serialize, or WriteObject for a top-level object.
template <class Write>
Bytes Archived(Write write, int bufSize = 4096) {
    CMemFile file(1024);
    {
        CArchive ar(&file, CArchive::store, bufSize);
        write(ar);
        ar.Close();
    }
    const auto length = static_cast<size_t>(file.GetLength());
    unsigned char* block = file.Detach();
    Bytes out(block, block + length);
    std::free(block);
    return out;
}

Bytes MessageBytes(CNDKMessage& message) {
    void* block = nullptr;
    const int length = message.ToBuffer(&block);
    Bytes out(static_cast<std::uint8_t*>(block), static_cast<std::uint8_t*>(block) + length);
    std::free(block);
    return out;
}

CSoftwarePackageObject* Package(const std::string& name, const std::string& version, const std::string& vendor,
                                const std::string& description) {
    auto* record = new CSoftwarePackageObject;
    record->m_strName = name, record->m_strVersion = version, record->m_strVendor = vendor;
    record->m_strDescription = description, record->m_nFlags = 128;
    return record;
}

CSoftwareObject* Executable(int i) {
    auto* record = new CSoftwareObject;
    record->m_strVersion = std::to_string(i % 4) + "." + std::to_string(i);
    record->m_strDescription = i % 3 ? "tool number " + std::to_string(i) : std::string(300, 'd');
    record->m_strCompanyName = i % 2 ? "Halvorn Ltd" : "";
    record->m_strInfo1 = "/opt/tools/bin/tool" + std::to_string(i);
    record->m_strInfo2 = i % 5 ? "" : "x\\y";
    record->m_nInfo5 = i * 1000 - 7;
    record->m_nInfo6 = 0xFFFFFFF0u + static_cast<unsigned>(i);
    record->m_strPackage = "tools\\Halvorn Ltd\\" + record->m_strVersion;
    return record;
}

// Records as an older component wrote them: the class record names the real class
// with an older schema, and only that schema's fields follow.
struct OldPackage : CSoftwarePackageObject {
    static CRuntimeClass record;
    CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(CArchive& ar) override { ar << m_strName << m_strVersion << m_strVendor << m_strExtra1 << m_nFlags << m_strExtra2; }
};
CRuntimeClass OldPackage::record = {"CSoftwarePackageObject", int(sizeof(OldPackage)), 1, nullptr,
                                    &CListObject::classCListObject};

template <unsigned Schema>
struct OldExecutable : CSoftwareObject {
    static CRuntimeClass record;
    CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(CArchive& ar) override {
        ar << m_strVersion << m_strDescription << m_strCompanyName << m_strInfo1 << m_strInfo2 << m_strInfo3 << m_strInfo4;
        ar << static_cast<unsigned int>(m_nInfo5);
        if (Schema > 1) ar << m_nInfo6;
    }
};
template <unsigned Schema>
CRuntimeClass OldExecutable<Schema>::record = {"CSoftwareObject", int(sizeof(OldExecutable)), Schema, nullptr,
                                               &CListObject::classCListObject};

// The fake package manager's answers, "name^version^description^origin" each.
Strings PackageAnswers(int round) {
    Strings answers = {"alpha^1.0^Alpha tool\n A longer text on the second line^Debian", "beta^2.0^Beta^",
                       "kernel-2.6.18^2.6.18^Kernel^Debian", "lib\\odd^0.1^Back\\slash^Vendor\\Inc",
                       "utf8^1^Ünïcödé text^Debian", "long^9^" + std::string(400, 'L') + "^Debian"};
    for (int i = 0; i < 20; ++i) {
        const bool changed = round == 2 && i % 6 == 0;   // the second round changes, drops and adds some
        if (round == 2 && i % 7 == 3) continue;
        answers.push_back("pkg" + std::to_string(i) + "^" + std::to_string(i / 3) + "." + std::to_string(i) + "^" +
                          (changed ? "Package, second edition^" : "Package^") + (i % 2 ? "Debian" : "Ubuntu"));
    }
    if (round == 2) answers.push_back("newcomer^0.9^Arrived in round two^Debian");
    return answers;
}

void SetPackages(testutil::FakePackageManager& fake, const Strings& answers) {
    std::string list;
    for (const std::string& answer : answers) {
        const std::string name = answer.substr(0, answer.find('^'));
        fake.Set("query", name, answer);
        list += name + "\n";
    }
    fake.Set("list", "", list);
}

struct Component {
    CSoftwareListApp app;
    std::string home;
    explicit Component(const std::string& homePath) : home(homePath) {
        hostshim::SetHomePath(home);
        g_pSoftwareListApp = &app;
        CInitInfo info(true);
        info.m_strHomePath = home;
        app.InitClient(&info);
    }
    ~Component() {
        CInitInfo info(false);
        app.InitClient(&info);
        g_pSoftwareListApp = nullptr;
    }
    Bytes Run(unsigned int command, CNDKMessage reply) {
        CExecuteInfo info(false, 0, nullptr);
        if (app.Execute(command, reply, &info) != 3) std::fprintf(stderr, "the run made no reply\n"), std::exit(1);
        return MessageBytes(reply);
    }
    void Ack() { CNDKMessage none; app.DataSent(none); }
};

Bytes SettingsMessage(const std::string& text, const Strings& paths) {
    CNDKMessage message(9);
    swinv::BuildSettingsMessage(message, text, paths);
    return MessageBytes(message);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: %s OUTDIR\n", argv[0]), 2;
    g_out = argv[1];
    std::filesystem::remove_all(g_out);

    // The component's own files and replies: a full inventory, its acknowledgement, then a
    // run that finds packages added, deleted and changed, and executables left by earlier software.
    testutil::TempDir dir;
    const std::string home = dir.path() + "/", data = home + "data/";
    testutil::MakeDirs(data);
    testutil::WriteFileText(data + ".Software_Inventory_Config", "Mode=1\n");
    testutil::FakePackageManager fake;
    Bytes fullReply, diffReply, hostReply, swList, swPackage;
    {
        Component component(home);
        SetPackages(fake, PackageAnswers(1));
        fullReply = component.Run(10, CNDKMessage(3));
        component.Ack();
        swPackage = testutil::ReadFileBytes(data + "SWPackage.bin");
        CInvMap stored;   // executables stored by earlier software: the next run deletes them
        for (int i = 0; i < 12; ++i) stored.SetAt("tool" + std::to_string(i), Executable(i));
        stored.ToFile(data + "SWList.bin");
        swList = testutil::ReadFileBytes(data + "SWList.bin");
        SetPackages(fake, PackageAnswers(2));
        CNDKMessage host(42);   // the host's own four elements stay in front of the reply
        host.Add(std::string("host")), host.Add(1), host.Add(2u), host.Add(static_cast<short>(3));
        hostReply = component.Run(0, host);
        diffReply = component.Run(0, CNDKMessage());
        component.Ack();
        CNDKMessage settings;
        const Bytes message = SettingsMessage("Logging=\"1\"; Scan=\"*.iso\"", {"/srv/a", "/srv/b"});
        settings.FromBuffer(message.data(), static_cast<int>(message.size()));
        component.app.SetConfig(settings);
    }
    const Bytes swSearch = testutil::ReadFileBytes(data + "swsearch.bin");
    const std::string configFile = testutil::ReadFileText(data + ".Software_Inventory_Config");

    // One list of about fifty mixed records, and lists in older schemas.
    CInvMap mixed;
    mixed.FromMemory(swPackage.data(), static_cast<int>(swPackage.size()));
    for (int i = 12; i < 36; ++i) mixed.SetAt("tool" + std::to_string(i), Executable(i));
    const std::string mixedPath = home + "mixed.bin";
    mixed.ToFile(mixedPath);
    const Bytes mixedList = testutil::ReadFileBytes(mixedPath);
    const Bytes oldSchemas = Archived([](CArchive& ar) {
        CInvMap map;
        for (int i = 0; i < 3; ++i) {
            auto* old = new OldPackage;
            old->m_strName = "old" + std::to_string(i), old->m_strVersion = "1." + std::to_string(i), old->m_nFlags = 128;
            map.SetAt("old" + std::to_string(i) + "\\\\1." + std::to_string(i), old);
            auto* exe = new OldExecutable<2>;
            CSoftwareObject* fields = Executable(i);
            exe->CopyItems(fields);
            delete fields;
            map.SetAt("exe" + std::to_string(i), exe);
        }
        map.Serialize(ar);
    });
    const Bytes oldExecutables = Archived([](CArchive& ar) {
        CInvMap map;
        auto* exe = new OldExecutable<1>;
        exe->m_strInfo1 = "/usr/bin/old";
        map.SetAt("exe", exe);
        map.SetAt("pkg\\V\\1", Package("pkg", "1", "V", "current schema"));
        map.Serialize(ar);
    });
    // Values other than records: a nested inventory map, a list, a string array, a null.
    const Bytes nested = Archived([](CArchive& ar) {
        CInvMap map, inner;
        CObList list;
        CStringArray strings;
        inner.SetAt("inner", Package("inner", "1", "V", "nested"));
        list.AddTail(Package("in list", "2", "V", "")), list.AddTail(&inner), list.AddTail(static_cast<CObject*>(nullptr));
        strings.Add("one"), strings.Add(std::string(300, 's'));
        map.SetAt("a nested map", &inner), map.SetAt("b list", &list), map.SetAt("c strings", &strings);
        map.SetAt("d null", nullptr), map.SetAt("e record", Package("e", "5", "V", "plain"));
        map.Serialize(ar);
        delete list.RemoveHead();
        for (const char* key : {"a nested map", "b list", "c strings", "d null"}) map.RemoveKey(key);
    });
    const Bytes emptyMap = Archived([](CArchive& ar) { CInvMap().Serialize(ar); });
    const Strings lists = {"SWList.bin", "SWPackage.bin", "mixed.bin", "old_schemas.bin", "old_executable.bin",
                           "nested_values.bin", "empty.bin"};
    const std::vector<const Bytes*> listBytes = {&swList, &swPackage, &mixedList, &oldSchemas, &oldExecutables, &nested, &emptyMap};
    for (size_t i = 0; i < lists.size(); ++i) {
        Seed("fuzz_invmap", lists[i], *listBytes[i]);
        Seed("fuzz_swinv_show", lists[i], *listBytes[i]);
    }
    // Odd: a list cut inside a record, and one whose count promises one more entry.
    Seed("fuzz_invmap", "cut.bin", Bytes(mixedList.begin(), mixedList.begin() + mixedList.size() / 2));
    Bytes more = swPackage;
    more[0] += 1;
    Seed("fuzz_invmap", "count_too_high.bin", more);

    // Collections through the archive, for fuzz_archive: the first byte picks the target
    // (0 map, 1 list, 2 string array, 3 one top-level object) and bit 4 the small buffer.
    CStringArray paths;
    paths.Add("/srv/a"), paths.Add(std::string(300, 'p')), paths.Add(std::string("nul\0inside", 10));
    CMapStringToOb graph, innerMap;
    CObList list;
    innerMap.SetAt("x", &paths);
    list.AddTail(&paths), list.AddTail(&innerMap), list.AddTail(&paths), list.AddTail(static_cast<CObject*>(nullptr));
    graph.SetAt("array", &paths), graph.SetAt("list", &list), graph.SetAt("map", &innerMap), graph.SetAt("null", nullptr);
    graph.SetAt(std::string(260, 'k'), &list);
    Seed("fuzz_archive", "map", Prefixed(0, Archived([&](CArchive& ar) { graph.Serialize(ar); })));
    Seed("fuzz_archive", "map_small_buffer", Prefixed(4, Archived([&](CArchive& ar) { graph.Serialize(ar); }, 128)));
    Seed("fuzz_archive", "list", Prefixed(1, Archived([&](CArchive& ar) { list.Serialize(ar); })));
    Seed("fuzz_archive", "strings", Prefixed(2, Archived([&](CArchive& ar) { paths.Serialize(ar); })));
    Seed("fuzz_archive", "swsearch", Prefixed(2, swSearch));
    Seed("fuzz_archive", "object_map", Prefixed(3, Archived([&](CArchive& ar) { ar.WriteObject(&graph); })));
    Seed("fuzz_archive", "object_list", Prefixed(7, Archived([&](CArchive& ar) { ar.WriteObject(&list); }, 128)));
    Seed("fuzz_archive", "object_null", Prefixed(3, Archived([&](CArchive& ar) { ar.WriteObject(nullptr); })));

    // Messages: the component's replies, settings messages, and one of every element type.
    CNDKMessage every(-5);
    every.Add(static_cast<unsigned char>(0x41)), every.Add('c'), every.Add(static_cast<unsigned short>(2));
    every.Add(static_cast<short>(-3)), every.Add(4u), every.Add(-5), every.Add(8.5f), every.Add(9.25);
    every.Add(std::string("ten")), every.AddUnc("eleven", 6), every.Add(12ull), every.Add(std::string(300, 'm'));
    every.Add(std::string(200, 'z').data(), 200u), every.Add("short", 5u), every.SetAt(20, 7);
    const Bytes everyType = MessageBytes(every);
    const Bytes settings = SettingsMessage("Mode=\"5\"; IncExt=\"/srv\"; Scan=\"*.iso\"", {"/srv/one", "/srv/two"});
    const Bytes settingsOnly = SettingsMessage("Logging=\"1\"\tRunAtStartup = \"0\"; Note=\"a=b; c\"", {});
    const Bytes pathsOnly = SettingsMessage("", {"/only/a/path"});
    const Bytes longText = SettingsMessage("Include=\"" + std::string(2000, 'i') + "\"; Mode=\"2\"", {"/p"});
    for (const char* target : {"fuzz_message", "fuzz_swinv_show", "fuzz_setconfig"}) {
        Seed(target, "settings", settings);
        Seed(target, "settings_text_only", settingsOnly);
        Seed(target, "settings_paths_only", pathsOnly);
        Seed(target, "settings_long_text", longText);
    }
    for (const char* target : {"fuzz_message", "fuzz_swinv_show"}) {
        Seed(target, "reply_full", fullReply);
        Seed(target, "reply_differences", diffReply);
        Seed(target, "reply_behind_host_elements", hostReply);
        Seed(target, "every_element_type", everyType);
    }
    Seed("fuzz_swinv_show", "swsearch.bin", swSearch);
    CNDKMessage empty(7);
    Seed("fuzz_message", "empty_id_7", MessageBytes(empty));

    // Odd settings messages: the length element far beyond the block, a raw block, no
    // NUL in the text, no empty string closing the path list, and a block cut short.
    CNDKMessage odd(9);
    odd.Add(0xFFFFFFF0u), odd.Add("Mode=\"3\"", 9u), odd.Add(std::string("/a"));
    Seed("fuzz_setconfig", "length_too_large", MessageBytes(odd));
    odd = CNDKMessage(9);
    odd.Add(9u), odd.Add(0), odd.AddUnc("Mode=\"5\"", 9), odd.Add(std::string("/raw")), odd.Add(std::string());
    Seed("fuzz_setconfig", "raw_block", MessageBytes(odd));
    odd = CNDKMessage(9);
    odd.Add(8u), odd.Add("Mode=\"4\"", 8u), odd.Add(std::string("/x")), odd.Add(std::string("/y"));
    Seed("fuzz_setconfig", "no_nul_no_end", MessageBytes(odd));
    Seed("fuzz_setconfig", "cut", Bytes(longText.begin(), longText.begin() + longText.size() - 5));

    // Configuration files as the writer leaves them, and settings texts as the server sends them.
    Seed("fuzz_config", "component_config", configFile);
    {
        const std::string path = home + "config";
        Config long_(path.c_str());
        long_.setItems("Include=\"/home/a|/home/b|/srv\"; Exclude=\"/proc|/sys\"; SizeKB=\"-20\"; Empty=\"\"", false);
        long_.updateConfigFile();
        Seed("fuzz_config", "written", testutil::ReadFileText(path));
        Config shorter(path.c_str());   // a shorter rewrite leaves the old tail behind
        shorter.removeKeysStartingWith("");
        shorter.setValue("Mode", "2");
        shorter.updateConfigFile();
        Seed("fuzz_config", "rewritten_shorter", testutil::ReadFileText(path));
    }
    Seed("fuzz_config", "settings_text", "Mode=\"5\"; IncExt=\"/srv\"; Scan=\"*.iso\"");
    Seed("fuzz_config", "settings_odd_items", " A = \"x y\"\t;;B=\"1=2\" C=2\" D=\"\" E=");
    Seed("fuzz_config", "crlf_and_blanks", "Mode=1\r\n key=2\n=3\nx y=1\n#c=4\n\nLast=" + std::string(1000, 'v'));

    std::printf("%d seeds in %s\n", g_written, g_out.c_str());
    return 0;
}
