// Unit tests of swinv's parts that need no component library: home and library
// choice, reply and file decoding, the settings message, progress counting and
// the isolated decoder process.
#include "FileDecoder.h"
#include "HomeFolder.h"
#include "InventoryReply.h"
#include "Isolated.h"
#include "LibraryLocator.h"
#include "Progress.h"
#include "SettingsMessage.h"
#include "SwinvError.h"

#include "TestUtil.h"

#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"

#include <gtest/gtest.h>

#include <cstdlib>

using swinv::Json;

namespace {

CSoftwarePackageObject* Package(const std::string& name, const std::string& version, const std::string& description) {
    auto* record = new CSoftwarePackageObject;
    record->m_strName = name;
    record->m_strVersion = version;
    record->m_strVendor = "Debian";
    record->m_nFlags = 128;
    record->m_strDescription = description;
    return record;
}

std::vector<unsigned char> MapBytes(CInvMap& map) {
    unsigned char* block = nullptr;
    const int length = map.ToMemory(&block);
    std::vector<unsigned char> bytes(block, block + length);
    std::free(block);
    return bytes;
}

void AddMap(CNDKMessage& reply, CInvMap& map) {
    const auto bytes = MapBytes(map);
    reply.Add(static_cast<unsigned int>(bytes.size()));
    reply.Add(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

// The component's reply layout, behind one host element; `packages` fills the package add map.
CNDKMessage MakeReply(CInvMap& packages) {
    CNDKMessage reply;
    reply.Add(std::string("host element"));
    reply.Add(std::string("01 Jan 2026 10:00:00"));
    CInvMap empty;
    for (int i = 0; i < 4; ++i) AddMap(reply, empty);
    reply.Add(static_cast<short>(1));
    AddMap(reply, packages);
    AddMap(reply, empty);
    AddMap(reply, empty);
    reply.Add(static_cast<short>(0));
    return reply;
}

std::vector<unsigned char> MessageBytes(CNDKMessage& message) {
    void* block = nullptr;
    const int length = message.ToBuffer(&block);
    std::vector<unsigned char> bytes(static_cast<unsigned char*>(block), static_cast<unsigned char*>(block) + length);
    std::free(block);
    return bytes;
}

}  // namespace

TEST(SwinvHome, OptionThenEnvironmentThenPerUserStateFolder) {
    EXPECT_EQ(swinv::ChooseHome("/x", "/env", "/state", "/home/u", "/cwd").path, "/x/");
    EXPECT_EQ(swinv::ChooseHome("rel/h", nullptr, nullptr, "/home/u", "/cwd").path, "/cwd/rel/h/");
    const auto env = swinv::ChooseHome("", "/env/", "/state", "/home/u", "/cwd");
    EXPECT_EQ(env.path, "/env/");
    EXPECT_EQ(env.source, "ZEV_HOME");
    EXPECT_EQ(swinv::ChooseHome("", "", "/state", "/home/u", "/cwd").path, "/state/swinv/");
    // A relative XDG_STATE_HOME is invalid and ignored.
    EXPECT_EQ(swinv::ChooseHome("", nullptr, "state", "/home/u", "/cwd").path, "/home/u/.local/state/swinv/");
}

TEST(SwinvHome, PrepareCreatesDataAndBinAndNamesAFileInTheWay) {
    testutil::TempDir dir;
    swinv::PrepareHome({dir.path() + "/a/b/", "--home"});
    EXPECT_TRUE(testutil::FileExists(dir.path() + "/a/b/data"));
    EXPECT_TRUE(testutil::FileExists(dir.path() + "/a/b/bin"));

    testutil::WriteFileText(dir.file("plain"), "x");
    try {
        swinv::PrepareHome({dir.path() + "/plain/home/", "--home"});
        FAIL() << "a home below a file was accepted";
    } catch (const swinv::SwinvError& e) {
        EXPECT_NE(std::string(e.what()).find("cannot create the home folder"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("--home DIR"), std::string::npos) << e.what();
        EXPECT_EQ(e.exitCode(), swinv::kExitFailure);
    }
}

TEST(SwinvLibrary, BuildTreeOnlyForTheBuildTreeExecutable) {
    const auto fromBuild = swinv::LibraryCandidates("/b/tools/swinv/swinv", "/b/component/libsoftware.so.0", "/b/tools/swinv");
    ASSERT_EQ(fromBuild.size(), 3u);
    EXPECT_EQ(fromBuild[0], "/b/component/libsoftware.so.0");
    EXPECT_EQ(fromBuild[1], "/b/tools/swinv/../zev/slib/libsoftware.so.0");
    EXPECT_EQ(fromBuild[2], "/usr/zev/slib/libsoftware.so.0");

    const auto installed = swinv::LibraryCandidates("/opt/p/bin/swinv", "/b/component/libsoftware.so.0", "/b/tools/swinv");
    ASSERT_EQ(installed.size(), 2u);
    EXPECT_EQ(installed[0], "/opt/p/bin/../zev/slib/libsoftware.so.0");

    try {
        swinv::LocateLibrary({"/no/such/one.so", "/no/such/two.so"});
        FAIL() << "a missing library was located";
    } catch (const swinv::SwinvError& e) {
        const std::string text = e.what();
        EXPECT_NE(text.find("/no/such/one.so"), std::string::npos) << text;
        EXPECT_NE(text.find("/no/such/two.so"), std::string::npos) << text;
        EXPECT_NE(text.find("--library PATH"), std::string::npos) << text;
    }
}

TEST(SwinvReply, DecodesTheLayoutBehindHostElementsThroughTheWireBytes) {
    CInvMap packages;
    // Enough records to exceed 100 bytes, so the block travels compressed.
    for (int i = 0; i < 20; ++i) {
        const std::string name = "pkg" + std::to_string(i);
        packages.SetAt(name + "\\Debian\\1." + std::to_string(i), Package(name, "1." + std::to_string(i), "summary " + name));
    }
    CNDKMessage reply = MakeReply(packages);
    const auto bytes = MessageBytes(reply);
    CNDKMessage received;
    received.FromBuffer(bytes.data(), static_cast<int>(bytes.size()));

    const Json decoded = swinv::DecodeReply(received, 1);
    EXPECT_EQ(decoded["kind"], "reply");
    EXPECT_EQ(decoded["scan_time"], "01 Jan 2026 10:00:00");
    EXPECT_TRUE(decoded["software"]["baseline_missing"].get<bool>());
    EXPECT_FALSE(decoded["packages"]["baseline_missing"].get<bool>());
    EXPECT_TRUE(decoded["software"]["reserved"].empty());
    ASSERT_EQ(decoded["packages"]["added"].size(), 20u);
    // Byte order of the keys: '\\' sorts after the digits, so pkg10 comes right after pkg0.
    const Json& first = decoded["packages"]["added"][0];
    EXPECT_EQ(first["key"], "pkg0\\Debian\\1.0");
    EXPECT_EQ(first["class"], "CSoftwarePackageObject");
    EXPECT_EQ(first["name"], "pkg0");
    EXPECT_EQ(first["version"], "1.0");
    EXPECT_EQ(first["vendor"], "Debian");
    EXPECT_EQ(first["flags"], 128);
    EXPECT_EQ(first["description"], "summary pkg0");
    EXPECT_EQ(decoded["packages"]["added"][1]["key"], "pkg10\\Debian\\1.10");

    // Without the skip the host's string is taken for the scan time and the layout breaks.
    EXPECT_THROW(swinv::DecodeReply(received, 0), swinv::ReplyFormatError);
}

TEST(SwinvReply, RejectsShortLayoutsAndWrongLengths) {
    CInvMap empty;
    CNDKMessage shortReply;
    shortReply.Add(std::string("time"));
    AddMap(shortReply, empty);
    try {
        swinv::DecodeReply(shortReply, 0);
        FAIL() << "a reply with one map was accepted";
    } catch (const swinv::ReplyFormatError& e) {
        EXPECT_NE(std::string(e.what()).find("ends before"), std::string::npos) << e.what();
    }

    // A length element one byte longer than the block.
    CInvMap one;
    one.SetAt("a", Package("a", "1", std::string(200, 'x')));
    const auto block = MapBytes(one);
    CNDKMessage wrong;
    wrong.Add(std::string("time"));
    wrong.Add(static_cast<unsigned int>(block.size() + 1));
    wrong.Add(block.data(), static_cast<unsigned int>(block.size()));
    EXPECT_THROW(swinv::DecodeReply(wrong, 0), swinv::ReplyFormatError);

    // Elements after the last flag.
    CInvMap none;
    CNDKMessage extra = MakeReply(none);
    extra.Add(7);
    EXPECT_THROW(swinv::DecodeReply(extra, 1), swinv::ReplyFormatError);
}

TEST(SwinvFiles, KindComesFromTheContent) {
    CInvMap map;
    map.SetAt("bash\\Debian\\5.2", Package("bash", "5.2", "shell"));
    auto* program = new CSoftwareObject;
    program->m_strVersion = "2.0";
    program->m_strPackage = "bash\\Debian\\5.2";
    map.SetAt("/usr/bin/x", program);
    const auto mapBytes = MapBytes(map);

    Json decoded = swinv::DecodeFileBytes(mapBytes, "anything.dat", 0);
    EXPECT_EQ(decoded["kind"], "inventory map");
    ASSERT_EQ(decoded["records"].size(), 2u);
    EXPECT_EQ(decoded["records"][0]["class"], "CSoftwareObject");
    EXPECT_EQ(decoded["records"][0]["package"], "bash\\Debian\\5.2");
    EXPECT_EQ(decoded["records"][1]["name"], "bash");

    CStringArray paths;
    paths.Add("/opt");
    paths.Add("/srv");
    CMemFile file(1024);
    {
        CArchive archive(&file, CArchive::store, 4096);
        paths.Serialize(archive);
        archive.Close();
    }
    const auto length = static_cast<unsigned int>(file.GetLength());
    unsigned char* raw = file.Detach();
    const std::vector<unsigned char> pathBytes(raw, raw + length);
    std::free(raw);
    decoded = swinv::DecodeFileBytes(pathBytes, "x", 0);
    EXPECT_EQ(decoded["kind"], "search paths");
    EXPECT_EQ(decoded["paths"], Json::array({"/opt", "/srv"}));

    // Two zero bytes are both an empty map and an empty path list: the name decides.
    EXPECT_EQ(swinv::DecodeFileBytes({0, 0}, "SWList.bin", 0)["kind"], "inventory map");
    EXPECT_EQ(swinv::DecodeFileBytes({0, 0}, "swsearch.bin", 0)["kind"], "search paths");

    CInvMap none;
    CNDKMessage reply = MakeReply(none);
    EXPECT_EQ(swinv::DecodeFileBytes(MessageBytes(reply), "r", 1)["kind"], "reply");
    CNDKMessage settings;
    swinv::BuildSettingsMessage(settings, "Mode=\"1\"", {});
    decoded = swinv::DecodeFileBytes(MessageBytes(settings), "s", 0);
    EXPECT_EQ(decoded["kind"], "message");
    EXPECT_EQ(decoded["elements"][0]["type"], "uint");
    EXPECT_EQ(decoded["elements"][0]["value"], 9);
}

TEST(SwinvFiles, MalformedFilesFailCleanlyEvenWhereTheArchiveWouldAbort) {
    testutil::TempDir dir;
    CInvMap map;
    map.SetAt("a", Package("a", "1", "d"));
    auto bytes = MapBytes(map);
    bytes.push_back(0x41);   // one byte too many
    testutil::WriteFileBytes(dir.file("trailing.bin"), bytes);
    testutil::WriteFileText(dir.file("text.txt"), "hello world, this is not an archive\n");
    testutil::WriteFileText(dir.file("empty.bin"), "");
    for (const char* name : {"trailing.bin", "text.txt", "empty.bin", "missing.bin"}) {
        try {
            swinv::DecodeFile(dir.file(name), 0);
            ADD_FAILURE() << name << " was decoded";
        } catch (const swinv::SwinvError& e) {
            EXPECT_NE(std::string(e.what()).find(dir.file(name)), std::string::npos) << e.what();
        }
    }
}

TEST(SwinvSettings, MessageReadsBackAsTheComponentReadsIt) {
    const std::string text = "Mode=\"5\"; Include=\"/opt|/srv\"; Scan=\"" + std::string(150, 'p') + "\"";
    CNDKMessage message;
    swinv::BuildSettingsMessage(message, text, {"/opt/a", "/srv/b"});
    const auto bytes = MessageBytes(message);
    CNDKMessage received;
    received.FromBuffer(bytes.data(), static_cast<int>(bytes.size()));

    unsigned int length = 0;
    received.GetNext(length);
    ASSERT_EQ(length, text.size() + 1);
    std::vector<char> block(length, 'z');
    received.GetNext(block.data(), length);
    EXPECT_EQ(std::string(block.data()), text);
    EXPECT_EQ(block.back(), '\0');
    std::string path;
    received.GetNext(path);
    EXPECT_EQ(path, "/opt/a");
    received.GetNext(path);
    EXPECT_EQ(path, "/srv/b");
    received.GetNext(path);
    EXPECT_EQ(path, "");
    EXPECT_TRUE(received.IsLastCurrentIndex());
}

TEST(SwinvSettings, RequestChecks) {
    EXPECT_TRUE(swinv::CheckSettingsRequest("Mode=\"5\"", {}).empty());
    EXPECT_TRUE(swinv::CheckSettingsRequest("", {"/opt"}).empty());
    EXPECT_EQ(swinv::CheckSettingsRequest("Mode=5", {}).size(), 1u);   // unquoted value
    EXPECT_EQ(swinv::CheckSettingsRequest("  ", {}).size(), 1u);
    EXPECT_EQ(swinv::CheckSettingsRequest("Mode=\"1\"", {""}).size(), 1u);
    EXPECT_EQ(swinv::UnknownKeys("Mode=\"1\"; Foo=\"2\"; Logging=\"1\""), std::vector<std::string>{"Foo"});
}

TEST(SwinvProgress, CountsOnlyThePerPackageQueries) {
    EXPECT_TRUE(swinv::IsPackageQuery("dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' bash"));
    EXPECT_FALSE(swinv::IsPackageQuery("dpkg-query --show --showformat '${Package}\n'"));
    EXPECT_FALSE(swinv::IsPackageQuery("dpkg-query --listfiles bash | grep bin"));
    EXPECT_TRUE(swinv::IsPackageQuery("rpm -q bash --queryformat '%{NAME}'"));
    EXPECT_FALSE(swinv::IsPackageQuery("rpm -qa"));
    EXPECT_FALSE(swinv::IsPackageQuery("rpm -qf /usr/bin/x"));
    EXPECT_FALSE(swinv::IsPackageQuery("cat /usr/zev/bin/VERSION"));
    EXPECT_FALSE(swinv::IsPackageQuery(nullptr));

    testutil::TempDir dir;
    std::FILE* out = std::fopen(dir.file("progress").c_str(), "w+");
    ASSERT_NE(out, nullptr);
    {
        swinv::Progress progress(out, 2);
        progress.OnCommand("rpm -qa");
        progress.OnCommand("rpm -q a --queryformat x");
        progress.OnCommand("rpm -q b --queryformat x");
        EXPECT_EQ(progress.queried(), 2u);
        progress.Finish("inventory");
    }
    std::fclose(out);
    const std::string text = testutil::ReadFileText(dir.file("progress"));
    EXPECT_NE(text.find("2/2"), std::string::npos) << text;
    EXPECT_NE(text.find("inventory: 2 packages queried in"), std::string::npos) << text;

    swinv::Progress silent(nullptr, 0);
    silent.OnCommand("rpm -q a --queryformat x");
    silent.Finish("inventory");
    EXPECT_EQ(silent.queried(), 1u);
}

TEST(SwinvIsolated, ResultsExceptionsAndCrashesOfTheChild) {
    auto returned = swinv::RunIsolated([] { return std::string(200000, 'r'); });   // more than a pipe holds
    EXPECT_EQ(returned.outcome, swinv::IsolatedResult::kReturned);
    EXPECT_EQ(returned.text.size(), 200000u);
    auto threw = swinv::RunIsolated([]() -> std::string { throw std::runtime_error("bad bytes"); });
    EXPECT_EQ(threw.outcome, swinv::IsolatedResult::kThrew);
    EXPECT_EQ(threw.text, "bad bytes");
    auto died = swinv::RunIsolated([]() -> std::string { std::abort(); });
    EXPECT_EQ(died.outcome, swinv::IsolatedResult::kDied);
}
