// Helpers shared by the tests: temporary folders, whole files, mount namespaces, a fake package manager.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class CObject;

namespace testutil {

// mkdtemp below $TMPDIR (or /tmp); removed with its contents on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

std::vector<std::uint8_t> ReadFileBytes(const std::string& path);
std::string ReadFileText(const std::string& path);
void WriteFileBytes(const std::string& path, const std::vector<std::uint8_t>& bytes);
void WriteFileText(const std::string& path, const std::string& text, unsigned mode = 0644);
bool FileExists(const std::string& path);
void MakeDirs(const std::string& path);
// "0A 0B ...", so that failed golden-byte comparisons read well.
std::string Hex(const std::vector<std::uint8_t>& bytes);
// The lines of a log file that start with `prefix` (after their 19-character time stamps), without both.
std::vector<std::string> LogMessages(const std::string& path, const std::string& prefix = "");

// Runs `body` in a forked child in a private mount namespace; its result is the exit status
// (128 + signal if killed, 125 when the namespace cannot be set up).
int RunInPrivateMounts(const std::function<int()>& body);
// Inside RunInPrivateMounts: lays a writable, empty overlay kept in the empty folder `scratch` on `target`.
bool OverlayFolder(const std::string& target, const std::string& scratch);

// Fake "dpkg-query" and "rpm" first on PATH; each call adds "tool [arg]...\n" to Calls(). Set(kind, key, text)
// answers "list" (key ""), "query", "files" or "owner"; other calls fail. A batch query (a format holding 0x1F, or
// rpm -q --queryformat) prints per name its "batch" text, else its query answer as one record (name, 0x1F, answer,
// 0x1E), and fails when a name has neither. A file "delay" ("delay.batch") makes the list command (a batch query)
// touch "started" ("started.batch"), then sleep that many seconds.
class FakePackageManager {
public:
    FakePackageManager();
    ~FakePackageManager();
    void Set(const std::string& kind, std::string key, const std::string& text);
    // Lists these packages and answers each one's query, from their "name^version^description^origin" answers.
    void SetPackages(const std::vector<std::string>& queryOutputs);
    // A stand-in `tool` beside them that adds its call to Calls() as they do, prints `output` and exits with `status`.
    void SetTool(const std::string& tool, const std::string& output, int status = 0);
    std::string Calls() const { return ReadFileText(m_dir.file("calls")); }
    void ClearCalls() { WriteFileText(m_dir.file("calls"), ""); }
    std::string file(const std::string& name) const { return m_dir.file(name); }

private:
    TempDir m_dir;
    std::string m_oldPath;
};

// An inventory map's keys in its (ascending) order, and the record under a key (or null).
template <class Map>
std::vector<std::string> Keys(Map& map) {
    std::vector<std::string> keys;
    CObject* value = nullptr;
    for (auto pos = map.GetStartPosition(); pos;) map.GetNextAssoc(pos, keys.emplace_back(), value);
    return keys;
}

template <class T, class Map>
T* At(Map& map, const std::string& key) {
    CObject* value = nullptr;
    return map.Lookup(key, value) ? static_cast<T*>(value) : nullptr;
}

// Every package record of a map as "key: name|vendor|description|version|flags", in key order.
template <class Record, class Map>
std::vector<std::string> Records(Map&& map) {
    std::vector<std::string> all;
    for (const std::string& key : Keys(map)) {
        const Record* r = At<Record>(map, key);
        all.push_back(key + ": " + r->m_strName + "|" + r->m_strVendor + "|" + r->m_strDescription + "|" + r->m_strVersion +
                      "|" + std::to_string(r->m_nFlags));
    }
    return all;
}

}  // namespace testutil
