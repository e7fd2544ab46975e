// Forked test bodies, log reading and the fake package-manager programs.
#include "CollectorTestSupport.h"

#include "HostShim.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwarePackageObject.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace collectortest {

namespace {

int ChildResult(const std::function<void()>& body) {
    body();
    return ::testing::Test::HasFailure() ? 1 : 0;
}

// One script serves as both tools; it tells them apart by the name it was called by.
std::string FakeScript(const std::string& dir) {
    return "#!/bin/sh\n"
           "d='" + dir + "'\n"
           "tool=$(basename \"$0\")\n"
           "{ printf '%s' \"$tool\"; for a in \"$@\"; do printf ' [%s]' \"$a\"; done; printf '\\n'; } >> \"$d/calls\"\n"
           "answer() { f=\"$d/$1/$(printf '%s' \"$2\" | tr '/' '_')\"; [ -f \"$f\" ] || exit 1; cat \"$f\"; exit 0; }\n"
           "case \"$tool\" in\n"
           "dpkg-query)\n"
           "  if [ \"$1\" = \"--listfiles\" ]; then answer files \"$2\"; fi\n"
           "  if [ $# -eq 3 ]; then answer list list; fi\n"
           "  answer query \"$4\" ;;\n"
           "rpm)\n"
           "  case \"$1\" in\n"
           "  -qa) answer list list ;;\n"
           "  -ql) answer files \"$2\" ;;\n"
           "  -qf) answer owner \"$2\" ;;\n"
           "  -q) answer query \"$2\" ;;\n"
           "  esac ;;\n"
           "esac\n"
           "exit 1\n";
}

}  // namespace

int Forked(const std::function<void()>& body) {
    return testutil::RunInChild([&] { return ChildResult(body); });
}

int Isolated(const std::function<void()>& body) {
    return testutil::RunInPrivateMounts([&] { return ChildResult(body); });
}

std::vector<std::string> LogMessages(const std::string& path) {
    std::vector<std::string> messages;
    std::istringstream in(testutil::ReadFileText(path));
    std::string line;
    while (std::getline(in, line)) messages.push_back(line.size() >= 19 ? line.substr(19) : line);
    return messages;
}

bool ContainsRun(const std::vector<std::string>& messages, const std::vector<std::string>& wanted) {
    return std::search(messages.begin(), messages.end(), wanted.begin(), wanted.end()) != messages.end();
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

CSoftwarePackageObject* PackageAt(CInvMap& map, const std::string& key) {
    CObject* value = nullptr;
    if (!map.Lookup(key, value)) return nullptr;
    return static_cast<CSoftwarePackageObject*>(value);
}

CommandRecorder::CommandRecorder() {
    hostshim::SetCommandObserver([this](const char* command) { commands.push_back(command); });
}

CommandRecorder::~CommandRecorder() { hostshim::SetCommandObserver({}); }

FakePackageManager::FakePackageManager() {
    for (const char* sub : {"/bin", "/list", "/query", "/files", "/owner"}) testutil::MakeDirs(m_dir.path() + sub);
    const std::string script = FakeScript(m_dir.path());
    testutil::WriteFileText(m_dir.file("bin/dpkg-query"), script, 0755);
    testutil::WriteFileText(m_dir.file("bin/rpm"), script, 0755);
    testutil::WriteFileText(m_dir.file("calls"), "");

    const char* old = std::getenv("PATH");
    m_hadPath = old != nullptr;
    if (old) m_oldPath = old;
    const std::string path = m_dir.file("bin") + (m_hadPath ? ":" + m_oldPath : std::string());
    setenv("PATH", path.c_str(), 1);
}

FakePackageManager::~FakePackageManager() {
    if (m_hadPath)
        setenv("PATH", m_oldPath.c_str(), 1);
    else
        unsetenv("PATH");
}

void FakePackageManager::Answer(const std::string& kind, const std::string& key, const std::string& text) {
    std::string name = key;
    std::replace(name.begin(), name.end(), '/', '_');
    testutil::WriteFileText(m_dir.file(kind + "/" + name), text);
}

void FakePackageManager::SetList(const std::string& text) { Answer("list", "list", text); }
void FakePackageManager::SetQuery(const std::string& name, const std::string& text) { Answer("query", name, text); }
void FakePackageManager::SetFiles(const std::string& name, const std::string& text) { Answer("files", name, text); }
void FakePackageManager::SetOwner(const std::string& path, const std::string& text) { Answer("owner", path, text); }

std::string FakePackageManager::Calls() const { return testutil::ReadFileText(m_dir.file("calls")); }
void FakePackageManager::ClearCalls() { testutil::WriteFileText(m_dir.file("calls"), ""); }

}  // namespace collectortest
