// List files: written whole or not at all. Failures leave the old file and no
// temporary file; a writer killed at any moment leaves the old or the new file.
#include "InvTestUtil.h"
#include "TestUtil.h"

#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

using invtest::MakePkg;
using invtest::ToBytes;

namespace {

std::vector<std::string> Names(const std::string& dir) {
    std::vector<std::string> out;
    if (DIR* d = ::opendir(dir.c_str())) {
        while (dirent* e = ::readdir(d)) {
            const std::string n = e->d_name;
            if (n != "." && n != "..") out.push_back(n);
        }
        ::closedir(d);
    }
    return out;
}

void Fill(CInvMap& m, int n, const std::string& version) {
    for (int i = 0; i < n; ++i) {
        const std::string name = "package-" + std::to_string(i);
        m.SetAt(name + "\\Vendor\\" + version,
                MakePkg(name, version, "Vendor", "Description of " + name + " at " + version));
    }
}

// A record whose storing fails, as a full disk or a broken stream would.
struct FailingRecord : CSoftwarePackageObject {
    void Serialize(CArchive& ar) override {
        if (ar.IsStoring()) throw new CFileException;
        CSoftwarePackageObject::Serialize(ar);
    }
};

// A private folder in memory when the machine has one: fsync on a disk costs tens
// of milliseconds and would leave the kill rounds hitting nothing but fsync.
class FastDir {
public:
    FastDir() {
        char tmpl[] = "/dev/shm/zevinv.XXXXXX";
        if (::mkdtemp(tmpl)) m_path = tmpl;
    }
    ~FastDir() {
        std::error_code ec;
        if (!m_path.empty()) std::filesystem::remove_all(m_path, ec);
    }
    FastDir(const FastDir&) = delete;
    FastDir& operator=(const FastDir&) = delete;
    std::string path() const { return m_path.empty() ? m_fallback.path() : m_path; }
    std::string file(const std::string& n) const { return path() + "/" + n; }

private:
    std::string m_path;
    testutil::TempDir m_fallback;
};

}  // namespace

TEST(ListFileTest, WritesMode0600AndReplacesWholeFile) {
    testutil::TempDir dir;
    const std::string path = dir.file("SWPackage.bin");
    testutil::WriteFileText(path, std::string(100000, 'o'), 0644);
    CInvMap small;
    Fill(small, 3, "1");
    ASSERT_TRUE(small.ToFile(path));
    EXPECT_EQ(testutil::ReadFileBytes(path), ToBytes(small));   // nothing of the longer old file
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(Names(dir.path()), std::vector<std::string>{"SWPackage.bin"});

    CInvMap loaded;
    loaded.SetAt("kept", MakePkg("kept", "1", "V", ""));
    ASSERT_TRUE(loaded.FromFile(path));   // loads into the existing contents
    EXPECT_EQ(loaded.GetCount(), 4);
    EXPECT_FALSE(loaded.FromFile(dir.file("missing.bin")));
}

TEST(ListFileTest, FailuresKeepTheOldFileAndLeaveNoTemporary) {
    testutil::TempDir dir;
    const std::string path = dir.file("SWList.bin");
    CInvMap good;
    Fill(good, 10, "1");
    ASSERT_TRUE(good.ToFile(path));
    const auto oldBytes = testutil::ReadFileBytes(path);

    EXPECT_FALSE(good.ToFile(dir.file("missing/SWList.bin")));
    EXPECT_FALSE(good.ToFile(""));

    CInvMap failing;
    Fill(failing, 10, "2");
    failing.SetAt("zz-failing", new FailingRecord);
    EXPECT_FALSE(failing.ToFile(path));

    testutil::MakeDirs(dir.file("adir"));   // a folder cannot be replaced by a file
    EXPECT_FALSE(good.ToFile(dir.file("adir")));

    // A write that fails half way (file size limit) in a child process.
    CInvMap big;
    Fill(big, 5000, "3");
    const auto r = invtest::RunInChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        rlimit lim{8192, 8192};
        ::setrlimit(RLIMIT_FSIZE, &lim);
        return big.ToFile(path) ? 1 : 0;
    });
    EXPECT_TRUE(r.exited);
    EXPECT_EQ(r.exitCode, 0) << r.err;

    EXPECT_EQ(testutil::ReadFileBytes(path), oldBytes);
    auto names = Names(dir.path());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"SWList.bin", "adir"}));
    EXPECT_TRUE(Names(dir.file("adir")).empty());
}

TEST(ListFileTest, KilledWriterLeavesOldOrNewFile) {
    FastDir dir;
    const std::string path = dir.file("SWPackage.bin");
    CInvMap oldMap, newMap;
    Fill(oldMap, 400, "old");
    Fill(newMap, 250, "new");
    const auto oldBytes = ToBytes(oldMap);
    const auto newBytes = ToBytes(newMap);

    std::mt19937 rng(12345);
    int sawOld = 0, sawNew = 0;
    for (int round = 0; round < 300; ++round) {
        testutil::WriteFileBytes(path, oldBytes);
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            for (;;) {
                newMap.ToFile(path);
                oldMap.ToFile(path);
            }
        }
        ::usleep(std::uniform_int_distribution<unsigned>(0, 2500)(rng));
        ::kill(pid, SIGKILL);
        int status = 0;
        ::waitpid(pid, &status, 0);

        const auto bytes = testutil::ReadFileBytes(path);
        const bool isOld = bytes == oldBytes, isNew = bytes == newBytes;
        ASSERT_TRUE(isOld || isNew) << "round " << round << ": torn file of " << bytes.size() << " bytes";
        sawOld += isOld;
        sawNew += isNew;
        CInvMap loaded;
        ASSERT_TRUE(loaded.FromFile(path));
        EXPECT_EQ(loaded.GetCount(), isOld ? 400 : 250);
        // A kill between creating and renaming the temporary leaves it behind; sweep it.
        for (const auto& n : Names(dir.path()))
            if (n != "SWPackage.bin") {
                EXPECT_EQ(n.rfind("SWPackage.bin.", 0), 0u) << n;
                ::unlink(dir.file(n).c_str());
            }
    }
    RecordProperty("old_files", sawOld);
    RecordProperty("new_files", sawNew);
    std::printf("after 300 kills: %d old files, %d new files\n", sawOld, sawNew);
}
