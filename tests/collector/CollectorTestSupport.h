// Helpers of the collector tests: forked and namespaced test bodies that report
// failures through their exit status, log files read without their time stamps,
// and fake package-manager programs placed first on PATH.
#pragma once

#include "Namespace.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

class CInvMap;
class CSoftwarePackageObject;

#include <functional>
#include <string>
#include <vector>

#define SKIP_UNLESS_ROOT()                                                                   \
    do {                                                                                     \
        if (!testutil::CanUsePrivateMounts())                                                \
            GTEST_SKIP() << "needs root: the test fakes system folders in a private mount namespace"; \
    } while (0)

// Runs a body through Forked or Isolated and fails the test when the child did; the
// child's own failure messages are already in the output.
#define EXPECT_CHILD_OK(runner, ...)                                                \
    do {                                                                             \
        const int childStatus = runner(__VA_ARGS__);                                 \
        EXPECT_EQ(0, childStatus) << "the child's failures are printed above";      \
    } while (0)

namespace collectortest {

// Runs a body of gtest expectations in a forked child; 0 when it recorded no failure.
// The child's failure messages appear in the test output as they happen.
int Forked(const std::function<void()>& body);
// The same inside a private mount namespace.
int Isolated(const std::function<void()>& body);

// The messages of a log file, each line without its 19-character time stamp and the
// two blanks after it.
std::vector<std::string> LogMessages(const std::string& path);
// True when `messages` holds `wanted` as a contiguous run.
bool ContainsRun(const std::vector<std::string>& messages, const std::vector<std::string>& wanted);

// The map's keys in its (ascending) order.
std::vector<std::string> Keys(CInvMap& map);
// The package record under `key`, or null.
CSoftwarePackageObject* PackageAt(CInvMap& map, const std::string& key);

// Collects every command line handed to GetSimpleCommand while it lives.
class CommandRecorder {
public:
    CommandRecorder();
    ~CommandRecorder();
    CommandRecorder(const CommandRecorder&) = delete;
    CommandRecorder& operator=(const CommandRecorder&) = delete;
    std::vector<std::string> commands;
};

// Fake "dpkg-query" and "rpm" first on PATH. Their answers come from files set up
// here; each call appends "<tool> [arg1] [arg2]...\n" to a call log. A question with
// no answer set fails with status 1 and no output. Restores PATH on destruction.
class FakePackageManager {
public:
    FakePackageManager();
    ~FakePackageManager();
    FakePackageManager(const FakePackageManager&) = delete;
    FakePackageManager& operator=(const FakePackageManager&) = delete;

    // Output of the list command.
    void SetList(const std::string& text);
    // Output of the package query for `name` (a package name or, for the owner
    // query, a file path).
    void SetQuery(const std::string& name, const std::string& text);
    // Output of the file list of `name`, before "| grep bin".
    void SetFiles(const std::string& name, const std::string& text);
    // Output of the rpm owner query for `path`.
    void SetOwner(const std::string& path, const std::string& text);

    std::string Calls() const;
    void ClearCalls();
    const std::string& dir() const { return m_dir.path(); }

private:
    void Answer(const std::string& kind, const std::string& key, const std::string& text);

    testutil::TempDir m_dir;
    std::string m_oldPath;
    bool m_hadPath = false;
};

}  // namespace collectortest
