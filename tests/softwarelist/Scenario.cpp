// Host session, fake package manager and reply decoding for the end-to-end tests.
#include "Scenario.h"

#include "HostShim.h"
#include "inventory/SoftwarePackageObject.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

namespace scenario {

namespace {

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

Session::Session() : m_lib(libhost::Library()) {
    if (m_lib.IsLoaded()) throw std::runtime_error("the library was loaded earlier in this process; run one test per process");
    m_home = m_dir.path() + "/";
    testutil::MakeDirs(m_home + "data");
    testutil::MakeDirs(m_home + "bin");
    m_db = m_dir.file("fakedpkg");
    testutil::MakeDirs(m_db + "/show");
    testutil::MakeDirs(m_db + "/files");
    hostshim::SetHomePath(m_home);
    m_oldPath = Env("PATH");
    setenv("PATH", (std::string(ZEV_FAKEBIN_DIR) + ":" + m_oldPath).c_str(), 1);
    setenv("ZEV_FAKE_DPKG", m_db.c_str(), 1);
}

Session::~Session() {
    setenv("PATH", m_oldPath.c_str(), 1);
    unsetenv("ZEV_FAKE_DPKG");
}

void Session::SetPackages(const std::vector<FakePackage>& packages) {
    std::string list;
    for (const FakePackage& p : packages) {
        list += p.name + "\n";
        testutil::WriteFileText(m_db + "/show/" + p.name, p.show);
    }
    testutil::WriteFileText(m_db + "/packages", list);
}

void Session::SetListDelay(int seconds) {
    std::remove((m_db + "/list-started").c_str());
    if (seconds > 0)
        testutil::WriteFileText(m_db + "/delay", std::to_string(seconds));
    else
        std::remove((m_db + "/delay").c_str());
}

bool Session::ListStarted() const { return testutil::FileExists(m_db + "/list-started"); }

std::string Session::Calls() const {
    return testutil::FileExists(m_db + "/calls") ? testutil::ReadFileText(m_db + "/calls") : "";
}

void Session::ClearCalls() { std::remove((m_db + "/calls").c_str()); }

void Session::WriteConfig(const std::string& text) {
    testutil::WriteFileText(DataFile(".Software_Inventory_Config"), text, 0600);
}

std::string Session::Log() const {
    const std::string path = DataFile("Software.log");
    return testutil::FileExists(path) ? testutil::ReadFileText(path) : "";
}

void Session::ClearLog() { std::remove(DataFile("Software.log").c_str()); }

void Session::Start() {
    ASSERT_NE(m_lib.GetComponentApp(), nullptr);
    ASSERT_EQ(Init(true), 1);
}

int Session::Init(bool init) {
    CInitInfo info(init);
    info.m_strHomePath = m_home;
    return m_lib.InitClient(&info);
}

int Session::Run(unsigned int command, CNDKMessage& reply, unsigned int flags) {
    CExecuteInfo info(false, flags, nullptr);
    return m_lib.Execute(command, reply, &info);
}

void Session::Ack() {
    CNDKMessage message;
    m_lib.DataSent(message);
}

void Session::Stop() {
    Init(false);
    EXPECT_EQ(m_lib.Unload(0), 1);
}

void Decode(CNDKMessage& reply, int hostElements, Reply& out) {
    // Raw type codes after the host's elements; each block is a hidden length, then the bytes.
    const int block[] = {NDKUInt, NDKUInt, NDKBuffer};
    std::vector<int> expected = {NDKString};
    for (int i = 0; i < 4; ++i) expected.insert(expected.end(), block, block + 3);
    expected.push_back(NDKShort);
    for (int i = 0; i < 3; ++i) expected.insert(expected.end(), block, block + 3);
    expected.push_back(NDKShort);

    const int raw = reply.GetElements().GetSize();
    ASSERT_EQ(raw, hostElements + static_cast<int>(expected.size()));
    ASSERT_EQ(reply.GetNbElements(), hostElements + 17);
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(reply.GetDataTypeAt(hostElements + static_cast<long>(i)), expected[i]) << "raw element " << hostElements + i;

    reply.ResetCurrentIndex();
    for (int i = 0; i < hostElements; ++i) reply.AdvanceCurrIndex();
    reply.GetNext(out.scanTime);
    CInvMap* maps[] = {&out.swAdd, &out.swDelete, &out.swChange, &out.swEmpty, &out.pkAdd, &out.pkDelete, &out.pkChange};
    for (int i = 0; i < 7; ++i) {
        if (i == 4) reply.GetNext(out.swFlag);
        unsigned int length = 0;
        reply.GetNext(length);
        out.lengths[i] = length;
        std::vector<unsigned char> bytes(length);
        reply.GetNext(bytes.data(), length);
        EXPECT_TRUE(maps[i]->FromMemory(bytes.data(), static_cast<int>(length))) << "block " << i;
    }
    reply.GetNext(out.pkFlag);
}

std::vector<std::string> Keys(CInvMap& map) {
    std::vector<std::string> keys;
    POSITION pos = map.GetStartPosition();
    while (pos) {
        std::string key;
        CObject* value = nullptr;
        map.GetNextAssoc(pos, key, value);
        keys.push_back(key);
    }
    return keys;
}

CSoftwarePackageObject* Package(CInvMap& map, const std::string& key) {
    CObject* value = nullptr;
    if (!map.Lookup(key, value) || !value || !value->IsKindOf(CLASS_RECORD(CSoftwarePackageObject))) return nullptr;
    return static_cast<CSoftwarePackageObject*>(value);
}

std::vector<std::string> LogMessages(const std::string& log) {
    std::vector<std::string> lines;
    std::string::size_type start = 0;
    while (start < log.size()) {
        std::string::size_type end = log.find('\n', start);
        if (end == std::string::npos) end = log.size();
        const std::string line = log.substr(start, end - start);
        lines.push_back(line.size() >= 19 ? line.substr(19) : line);
        start = end + 1;
    }
    return lines;
}

std::vector<std::uint8_t> Bytes(CNDKMessage& message) {
    void* buffer = nullptr;
    const int length = message.ToBuffer(&buffer);
    std::vector<std::uint8_t> bytes(static_cast<std::uint8_t*>(buffer), static_cast<std::uint8_t*>(buffer) + (length > 0 ? length : 0));
    std::free(buffer);
    return bytes;
}

}  // namespace scenario
