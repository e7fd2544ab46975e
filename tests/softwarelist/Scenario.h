// One host session against the built libsoftware.so.0: a private home folder,
// a fake package manager first on PATH, and helpers to drive the entry points
// and to take the 17-element inventory reply apart with the host's own copy of
// the message and inventory classes. The library can be loaded only once per
// process, so each test needs a process of its own (ctest runs them that way).
#pragma once

#include "LibraryHost.h"
#include "TestUtil.h"
#include "inventory/InvMap.h"

#include <map>
#include <string>
#include <vector>

class CSoftwarePackageObject;

namespace scenario {

struct FakePackage {
    std::string name;   // the line the list command prints
    std::string show;   // the per-package query output, as printed
};

class Session {
public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const libhost::Exports& lib() const { return m_lib; }
    const std::string& Home() const { return m_home; }   // ends with '/'
    std::string DataFile(const std::string& name) const { return m_home + "data/" + name; }

    void SetPackages(const std::vector<FakePackage>& packages);
    // The list command waits this long (0: not at all); also clears the start marker.
    void SetListDelay(int seconds);
    bool ListStarted() const;   // the list command has begun since the last SetListDelay
    std::string Calls() const;   // one line per fake package manager call
    void ClearCalls();

    void WriteConfig(const std::string& text);
    std::string Log() const;     // "" when there is no log file
    void ClearLog();

    // GetComponentApp, then InitClient with the home path and the initialise flag.
    void Start();
    int Init(bool init);
    int Run(unsigned int command, CNDKMessage& reply, unsigned int flags = 0);
    void Ack();
    // InitClient(false), then Unload(0).
    void Stop();

private:
    const libhost::Exports& m_lib;
    testutil::TempDir m_dir;
    std::string m_home;
    std::string m_db;
    std::string m_oldPath;
};

// The run's part of a reply, as the host reads it.
struct Reply {
    std::string scanTime;
    unsigned int lengths[7] = {};
    CInvMap swAdd, swDelete, swChange, swEmpty;
    short swFlag = -1;
    CInvMap pkAdd, pkDelete, pkChange;
    short pkFlag = -1;
};

// Checks the raw element layout behind `hostElements` leading host elements
// (gtest failures) and decodes every block with CInvMap::FromMemory.
void Decode(CNDKMessage& reply, int hostElements, Reply& out);

std::vector<std::string> Keys(CInvMap& map);
CSoftwarePackageObject* Package(CInvMap& map, const std::string& key);   // null when absent
// Lines of a log file without their time stamps ("dd/mm/yy HH:MM:SS  ").
std::vector<std::string> LogMessages(const std::string& log);
std::vector<std::uint8_t> Bytes(CNDKMessage& message);   // ToBuffer

}  // namespace scenario
