// What swinv's end-to-end runs cannot reach: file kinds told apart on ambiguous or malformed bytes, reply layouts
// the component never sends, the progress count of the component's command lines; and the whole of what 'show' and
// 'status' print, as text and as JSON, for files made here, a fixed clock, and the temporary folder shown as TMP.
#include "Commands.h"
#include "ComponentLog.h"
#include "FileDecoder.h"
#include "InventoryReply.h"
#include "Progress.h"
#include "SwinvError.h"
#include "TestUtil.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

namespace {

using Bytes = std::vector<unsigned char>;
using swinv::Json;

const std::string kSearchPaths("\x02\x00\x0A/opt/tools\x08/srv/bin", 22);   // two paths, as "swsearch.bin" holds them

CSoftwarePackageObject* Package(const char* name, const char* version, const char* vendor, const std::string& description,
                                const char* extra1 = "", const char* extra2 = "") {
    auto* record = new CSoftwarePackageObject;
    record->m_strName = name, record->m_strVersion = version, record->m_strVendor = vendor;
    record->m_strExtra1 = extra1, record->m_strExtra2 = extra2, record->m_nFlags = 128, record->m_strDescription = description;
    return record;
}

// An executable's record with every field set, each to a value of its own.
CSoftwareObject* Executable() {
    auto* record = new CSoftwareObject;
    record->m_strVersion = "2.1", record->m_strDescription = "Example runner", record->m_strCompanyName = "Example";
    record->m_strInfo1 = "/opt/ex/run", record->m_strInfo2 = "two", record->m_strInfo3 = "three", record->m_strInfo4 = "four";
    record->m_nInfo5 = -1, record->m_nInfo6 = 4294967295u, record->m_strPackage = "ex\\Example\\2.1";
    return record;
}

// The archived map of `records`, each filed under its key.
Bytes MapBytes(const std::vector<std::pair<std::string, CObject*>>& records) {
    CInvMap map;
    for (const auto& [key, record] : records) map.SetAt(key, record);
    unsigned char* block = nullptr;
    const int length = map.ToMemory(&block);
    const Bytes bytes(block, block + length);
    std::free(block);
    return bytes;
}

// The component's layout behind one host element, every map the same; `lengthError` is added to the last map's length.
CNDKMessage Reply(unsigned int lengthError) {
    CNDKMessage reply;
    reply.Add(std::string("host element"));
    reply.Add(std::string("01 Jan 2026 10:00:00"));
    const Bytes map = MapBytes({{"a", Package("a", "", "", std::string(300, 'x'))}});   // compressed: over 100 bytes
    for (int i = 0; i < 7; ++i) {
        reply.Add(static_cast<unsigned int>(map.size()) + (i == 6 ? lengthError : 0));
        reply.Add(map.data(), static_cast<unsigned int>(map.size()));
        if (i == 3 || i == 6) reply.Add(static_cast<short>(i == 3));
    }
    return reply;
}

// The rows of a status settings table as its JSON holds them.
std::string SettingsJson(const std::string& table) {
    const std::regex row(R"re(  (\S+) +"(.*)" +(file|default) +(.*))re");
    Json settings = Json::array();
    std::smatch cells;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);)
        if (std::regex_match(line, cells, row))
            settings.push_back(
                {{"key", cells.str(1)}, {"value", cells.str(2)}, {"from", cells.str(3)}, {"meaning", cells.str(4)}});
    return settings.dump();
}

// A row's printed text compares whole; JSON as a whole value, members in order (the indentation aside).
std::string Normal(const std::string& printed, bool json) { return json ? Json::parse(printed).dump(1) : printed; }

}  // namespace

TEST(SwinvDecoding, AmbiguousAndMalformedFilesAndReplies) {
    EXPECT_EQ(swinv::DecodeFileBytes({0, 0}, "SWList.bin", 0)["kind"], "inventory map");
    EXPECT_EQ(swinv::DecodeFileBytes({0, 0}, "swsearch.bin", 0)["kind"], "search paths");
    testutil::TempDir dir;
    Bytes bytes = MapBytes({{"a", Package("a", "", "", std::string(300, 'x'))}}), cut(bytes.begin(), bytes.end() - 40);
    bytes.push_back(0x41);
    for (const Bytes& bad : {cut, bytes, Bytes()}) {   // cut short, a byte too many, empty
        testutil::WriteFileBytes(dir.file("bad.bin"), bad);
        EXPECT_THROW(swinv::DecodeFile(dir.file("bad.bin"), 0), swinv::SwinvError) << bad.size();
    }

    CNDKMessage reply = Reply(0), wrongLength = Reply(1), tooShort, inflated = Reply(200u << 20);
    EXPECT_EQ(swinv::DecodeReply(reply, 1)["packages"]["deleted"][0]["description"], std::string(300, 'x'));
    tooShort.Add(std::string("01 Jan 2026 10:00:00"));
    EXPECT_THROW(swinv::DecodeReply(reply, 0), swinv::ReplyFormatError);   // the host element is no scan time
    EXPECT_THROW(swinv::DecodeReply(wrongLength, 1), swinv::ReplyFormatError);
    EXPECT_THROW(swinv::DecodeReply(tooShort, 0), swinv::ReplyFormatError);
    EXPECT_THAT([&] { swinv::DecodeReply(inflated, 1); },   // 200 MiB: more than its small compressed block can inflate to
                testing::ThrowsMessage<swinv::ReplyFormatError>(testing::HasSubstr("lengths do not agree")));
    reply.Add(7);   // an element after the last map
    EXPECT_THROW(swinv::DecodeReply(reply, 1), swinv::ReplyFormatError);
}

TEST(SwinvProgress, PackagesEachCommandAsksAbout) {
    const std::pair<const char*, std::size_t> commands[] = {
        {"dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' bash", 1},
        {"dpkg-query --show --showformat '${Package}\x1F${Package}^${Version}\x1E' bash zlib1g  gcc-12", 3},
        {"rpm -q --queryformat '%{NVR}\x1F%{NAME}\x1E' a-1-1.noarch b-2-1.x86_64", 2}, {"rpm -q bash --queryformat 'x'", 1},
        {"dpkg-query --show --showformat '${Package}\n'", 0}, {"dpkg-query --listfiles bash | grep bin", 0}, {"rpm -qa", 0},
        {"rpm -qf /bin/sh", 0}, {"rpm -ql bash | grep bin", 0}, {"", 0}, {nullptr, 0}};
    for (const auto& [command, packages] : commands)
        EXPECT_EQ(packages, swinv::PackagesQueried(command)) << (command ? command : "null");
}

// What a run logged is told from what earlier runs did: an old failure is never given as this run's reason.
TEST(SwinvLog, OnlyTheLinesWrittenSinceTheCommandStarted) {
    testutil::TempDir dir;
    const std::string path = dir.file("Software.log"), stamp = "24/11/26 06:41:00  ";
    const swinv::ComponentLog missing(path);
    testutil::WriteFileText(path, stamp + "Package list failed: exit status 2\n" + stamp + "Scan Packages failed\n");
    const swinv::ComponentLog log(path);
    std::ofstream(path, std::ios::app) << stamp << "Enum Software\nshort\n";
    EXPECT_EQ(log.NewMessages(), std::vector<std::string>{"Enum Software"});
    EXPECT_EQ(missing.NewMessages().size(), 3u);
}

TEST(SwinvGolden, ShowPrintsEachKindOfFileWhole) {
    testutil::TempDir dir;
    testutil::WriteFileBytes(dir.file("SWPackage.bin"), MapBytes({
        {"bash\\Debian\\5.2.15-2", Package("bash", "5.2.15-2", "Debian", "GNU Bourne Again SHell", "one", "two")},
        {"zlib1g\\\\1:1.2.13",
         Package("zlib1g", "1:1.2.13", " ", "compression library - runtime: the deflate and inflate functions")}}));
    testutil::WriteFileBytes(dir.file("SWList.bin"), MapBytes({{"/opt/ex/run", Executable()}}));
    testutil::WriteFileText(dir.file("swsearch.bin"), kSearchPaths);
    CNDKMessage message(-1234567);   // negative and large numbers of every type
    message.Add(static_cast<unsigned char>(255)), message.Add(static_cast<char>(-128));
    message.Add(static_cast<unsigned short>(65535)), message.Add(static_cast<short>(-32768)), message.Add(4294967295u);
    message.Add(-1), message.Add(-0.25f), message.Add(-1e300), message.Add(18446744073709551615ull);
    message.Add(std::string("text")), message.Add("\xFF\x00\x01", 3);
    void* wire = nullptr;
    const int length = message.ToBuffer(&wire);
    testutil::WriteFileText(dir.file("message.bin"), std::string(static_cast<char*>(wire), length));
    std::free(wire);

    const std::tuple<const char*, bool, std::string> rows[] = {   // file, --json, the whole output
        {"SWPackage.bin", false, R"(SWPackage.bin: inventory list, 2 record(s)
  NAME    VERSION   VENDOR  DESCRIPTION
  bash    5.2.15-2  Debian  GNU Bourne Again SHell
  zlib1g  1:1.2.13          compression library - runtime: the deflate and inflate fu...
)"},
        {"SWPackage.bin", true, R"({"kind": "inventory map", "file": "SWPackage.bin", "count": 2, "records": [
  {"key": "bash\\Debian\\5.2.15-2", "class": "CSoftwarePackageObject", "name": "bash", "version": "5.2.15-2",
   "vendor": "Debian", "extra1": "one", "extra2": "two", "flags": 128, "description": "GNU Bourne Again SHell"},
  {"key": "zlib1g\\\\1:1.2.13", "class": "CSoftwarePackageObject", "name": "zlib1g", "version": "1:1.2.13",
   "vendor": " ", "extra1": "", "extra2": "", "flags": 128,
   "description": "compression library - runtime: the deflate and inflate functions"}]})"},
        {"SWList.bin", false, R"(SWList.bin: inventory list, 1 record(s)
  KEY          CLASS            VERSION  PACKAGE
  /opt/ex/run  CSoftwareObject  2.1      ex\Example\2.1
)"},
        {"SWList.bin", true, R"({"kind": "inventory map", "file": "SWList.bin", "count": 1, "records": [
  {"key": "/opt/ex/run", "class": "CSoftwareObject", "version": "2.1", "description": "Example runner", "company": "Example",
   "info1": "/opt/ex/run", "info2": "two", "info3": "three", "info4": "four", "info5": -1, "info6": 4294967295,
   "package": "ex\\Example\\2.1"}]})"},
        {"swsearch.bin", false, "swsearch.bin: extra search paths, 2\n  /opt/tools\n  /srv/bin\n"},
        {"swsearch.bin", true, R"({"kind": "search paths", "file": "swsearch.bin", "paths": ["/opt/tools", "/srv/bin"]})"},
        {"message.bin", false, "message.bin: message -1234567, 12 element(s), not an inventory "
                               R"((element 0 should be the scan time (string) but is a uchar)
  0  uchar  255
  1  char  -128
  2  ushort  65535
  3  short  -32768
  4  uint  4294967295
  5  int  -1
  6  float  -0.25
  7  double  -1e+300
  8  uint64  18446744073709551615
  9  string  text
  10  uint  0
  11  buffer  3 bytes
)"},
        {"message.bin", true, R"({"kind": "message", "file": "message.bin", "not_an_inventory":
  "element 0 should be the scan time (string) but is a uchar", "id": -1234567, "hidden_elements": 1, "elements": [
  {"type": "uchar", "value": 255}, {"type": "char", "value": -128}, {"type": "ushort", "value": 65535},
  {"type": "short", "value": -32768}, {"type": "uint", "value": 4294967295}, {"type": "int", "value": -1},
  {"type": "float", "value": -0.25}, {"type": "double", "value": -1e300},
  {"type": "uint64", "value": 18446744073709551615}, {"type": "string", "value": "text"}, {"type": "uint", "value": 0},
  {"type": "buffer", "length": 3}]})"}};
    for (const auto& [file, json, expected] : rows) {
        swinv::GlobalOptions global;
        global.json = json;
        std::ostringstream out;
        swinv::ShowCommand(global, {dir.file(file), 0}, out);
        EXPECT_EQ(Normal(out.str(), json), Normal(expected, json)) << file << (json ? " --json" : "");
    }
}

TEST(SwinvGolden, StatusPrintsTheSettingsAndEachFilesAge) {
    // The keys the component reads, as the configuration file below leaves them; the JSON holds the same rows.
    // A new key or a changed default is edited here.
    const std::string settingsText = R"(  KEY            VALUE          FROM     MEANING
  Mode           "5"            file     bit set: 1 packages, 2 executables below Include, 4 files matching Scan
  Include        "/home/"       default  folders of the executable scan, separated by |
  Scan           "*.jpg|*.bmp"  default  file name patterns of the file scan, separated by |
  ExtInSelected  "1"            default  file scan: 1 = only the IncExt folders, 0 = everything but Exclude
  IncExt         ""             default  file scan: folders to scan, separated by |
  Exclude        ""             default  file scan: folders to leave out, separated by |
  LeastMost      "0"            default  file scan: 0 = SizeKB is a minimum, otherwise a maximum
  SizeKB         "12"           file     file scan: size limit in KiB (0 = none)
  Logging        "0"            default  1 = write data/Software.log
  RunAtStartup   "1"            default  0 = skip the inventory the agent starts at its own start-up
  BatchQuery     "1"            default  1 = ask the package manager once for all packages; 0 = once per package
  Sources        ""             default  with Mode 1, extra package sources separated by |: snap, flatpak
)";

    testutil::TempDir dir;
    const std::string data = dir.file("home/data/");
    testutil::MakeDirs(data);
    testutil::WriteFileText(dir.file("libsoftware.so.0"), "");
    const time_t now = 1767261600;   // 2026-01-01 10:00:00 UTC
    const std::tuple<const char*, std::string, long> files[] = {   // name, content (empty: a map), age: each unit's top, and none
        {".Software_Inventory_Config", "Mode=5\nFoo=bar\nSizeKB=12abc\n", 89}, {"SWChange.bin", "not a list", 90 * 60 - 1},
        {"swsearch.bin", kSearchPaths, 48 * 3600 - 1},
        {"SWPackage.bin", "", 3 * 86400 + 7}, {"Software.log", "a log line\n", 0}};
    for (const auto& [name, content, age] : files) {
        if (content.empty())
            testutil::WriteFileBytes(data + name, MapBytes({{"a\\b\\1", Package("a", "1", "b", "")}}));
        else
            testutil::WriteFileText(data + name, content);
        const timeval times[2] = {{now - age, 0}, {now - age, 0}};
        ASSERT_EQ(0, utimes((data + name).c_str(), times)) << name;
    }

    const std::pair<bool, std::string> rows[] = {   // --json, the whole output
        {false, R"(Home:     TMP/home/  (from --home)
Library:  TMP/libsoftware.so.0

Configuration (TMP/home/data/.Software_Inventory_Config):
)" + settingsText + R"(  Foo="bar"  (not read by the component)

Files (TMP/home/data/):
  FILE                        CHANGED     CONTENT
  SWList.bin                  -           -            missing
  SWPackage.bin               3 days ago  1 record(s)
  SWChange.bin                89 min ago  unreadable
  swsearch.bin                47 h ago    2 record(s)
  .Software_Inventory_Config  89 s ago    28 bytes
  Software.log                0 s ago     11 bytes
)"},
        {true, R"({"kind": "status", "home": "TMP/home/", "home_from": "--home", "library": "TMP/libsoftware.so.0",
 "config": {"file": "TMP/home/data/.Software_Inventory_Config", "settings": )" + SettingsJson(settingsText) + R"(,
  "other_keys": {"Foo": "bar"}},
 "files": [{"name": "SWList.bin", "path": "TMP/home/data/SWList.bin", "exists": false},
  {"name": "SWPackage.bin", "path": "TMP/home/data/SWPackage.bin", "exists": true, "bytes": 49, "age_seconds": 259207,
   "records": 1},
  {"name": "SWChange.bin", "path": "TMP/home/data/SWChange.bin", "exists": true, "bytes": 10, "age_seconds": 5399,
   "error": "TMP/home/data/SWChange.bin is not a list file or reply: its bytes are none of the known formats; give SWList.bin, )"
                R"(SWPackage.bin or swsearch.bin from the data folder, or a reply saved with 'swinv run --save-reply FILE'"},
  {"name": "swsearch.bin", "path": "TMP/home/data/swsearch.bin", "exists": true, "bytes": 22, "age_seconds": 172799,
   "records": 2},
  {"name": ".Software_Inventory_Config", "path": "TMP/home/data/.Software_Inventory_Config", "exists": true, "bytes": 28,
   "age_seconds": 89},
  {"name": "Software.log", "path": "TMP/home/data/Software.log", "exists": true, "bytes": 11, "age_seconds": 0}]})"}};
    for (const auto& [json, expected] : rows) {
        swinv::GlobalOptions global;
        global.json = json, global.home = dir.file("home"), global.library = dir.file("libsoftware.so.0");
        std::ostringstream out;
        swinv::StatusCommand(global, out, now);
        EXPECT_EQ(Normal(std::regex_replace(out.str(), std::regex(dir.path()), "TMP"), json), Normal(expected, json));
    }
}
