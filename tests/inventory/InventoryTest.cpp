// Inventory records and map: sameness, differences, ownership, list-file bytes and crash-safe list files.
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>

namespace {

namespace fs = std::filesystem;
using Bytes8 = std::vector<std::uint8_t>;
using Entries = std::vector<std::pair<std::string, CObject*>>;

CSoftwarePackageObject* Pkg(std::string name, std::string ver, std::string vendor = "Acme", std::string desc = "d") {
    auto* p = new CSoftwarePackageObject;
    p->m_strName = name, p->m_strVersion = ver, p->m_strVendor = vendor, p->m_strDescription = desc, p->m_nFlags = 128;
    return p;
}

CSoftwareObject* Sw(const std::string& version, const std::string& package) {
    auto* s = new CSoftwareObject;
    s->m_strVersion = version, s->m_strDescription = "Runner", s->m_strCompanyName = "Acme";
    s->m_strInfo1 = "/srv/run", s->m_nInfo5 = -2, s->m_nInfo6 = 7, s->m_nTransient = 99, s->m_strPackage = package;
    return s;
}

CInvMap& Fill(CInvMap& m, const Entries& entries) {
    for (const auto& e : entries) m.SetAt(e.first, e.second);
    return m;
}

Bytes8 ToBytes(CInvMap& m) {
    unsigned char* p = nullptr;
    const int n = m.ToMemory(&p);
    const Bytes8 out(p, p + n);
    std::free(p);
    return out;
}

Bytes8 MapBytes(const Entries& entries) {
    CInvMap m;
    return ToBytes(Fill(m, entries));
}

// The bytes of the map loaded from b; nothing when loading fails.
Bytes8 Reload(const Bytes8& b) {
    CInvMap m;
    return m.FromMemory(b.data(), static_cast<int>(b.size())) ? ToBytes(m) : Bytes8();
}

Entries Many(int n, const std::string& version) {
    Entries out;
    for (int i = 0; i < n; ++i) out.emplace_back("p" + std::to_string(i) + "\\" + version, Pkg("p", version));
    return out;
}

// Archive bytes written by hand, little-endian, strings shorter than 255.
struct Bytes {
    Bytes8 b;
    Bytes& u8(std::uint8_t v) { return b.push_back(v), *this; }
    Bytes& u16(std::uint16_t v) { return u8(v & 0xFF).u8(v >> 8); }
    Bytes& u32(std::uint32_t v) { return u16(v & 0xFFFF).u16(v >> 16); }
    Bytes& raw(const std::string& s) { return b.insert(b.end(), s.begin(), s.end()), *this; }
    Bytes& str(const std::string& s) { return u8(static_cast<std::uint8_t>(s.size())).raw(s); }
    Bytes& str16(const std::string& s) { return u16(static_cast<std::uint16_t>(s.size())).raw(s); }
    Bytes& cls(std::uint16_t schema, const std::string& name) { return u16(0xFFFF).u16(schema).str16(name); }
    Bytes& pkg(const std::string& name, const std::string& ver, const std::string& vendor, const std::string& desc) {
        return str(name).str(ver).str(vendor).str("").u32(128).str("").str(desc);
    }
};

// Two package records around one executable record; the second package reuses the class tag.
Bytes8 SmallGolden() {
    Bytes b;
    b.u16(3).str("alpha\\Acme\\1.0").cls(2, "CSoftwarePackageObject").pkg("alpha", "1.0", "Acme", "First");
    b.str("bin/run").cls(3, "CSoftwareObject").str("2.5").str("Runner").str("Acme").str("/srv/run").str("").str("");
    b.str("").u32(0xFFFFFFFE).u32(7).str("alpha\\Acme\\1.0");
    b.str("zeta\\Zed\\2").u16(0x8001).pkg("zeta", "2", "Zed", "Last");
    return b.b;
}

bool g_assertHit = false;

}  // namespace

TEST(InvRecords, SamenessFieldParticipation) {
    using S = CSoftwareObject;
    using P = CSoftwarePackageObject;
    S base(std::unique_ptr<S>(Sw("1", "pkg")).get());
    const std::pair<std::string S::*, bool> texts[] = {
        {&S::m_strInfo1, true},       {&S::m_strInfo3, true},  {&S::m_strInfo4, true},    {&S::m_strVersion, false},
        {&S::m_strDescription, false}, {&S::m_strInfo2, false}, {&S::m_strPackage, false},
        {&S::m_strCompanyName, false}};
    for (const auto& [field, ignored] : texts) {
        S other(&base);
        other.*field += "x";
        EXPECT_EQ(other.IsTheSameAs(&base), ignored) << other.*field;
    }
    S other(base);
    other.m_nInfo5 = 9, other.m_nTransient = 0;
    EXPECT_TRUE(other.IsTheSameAs(&base));
    other.m_nInfo6 = 8;
    EXPECT_FALSE(other.IsTheSameAs(&base));
    P pkg(std::unique_ptr<P>(Pkg("a", "1")).get());
    for (auto field :
         {&P::m_strName, &P::m_strVersion, &P::m_strVendor, &P::m_strExtra1, &P::m_strExtra2, &P::m_strDescription}) {
        P changed(&pkg);
        changed.*field += "x";
        EXPECT_FALSE(changed.IsTheSameAs(&pkg)) << changed.*field;
    }
    EXPECT_FALSE(pkg.IsTheSameAs(&base));
}

TEST(InvMap, DifferenceMaps) {
    CInvMap cur, prev, add, del, chg, empty, r1, r2, r3, busy, chg2;
    Fill(cur, {{"A", Pkg("a", "1")}, {"B", Pkg("b", "2")}});
    Fill(prev, {{"B", Pkg("b", "1")}, {"C", Sw("3", "c")}});
    EXPECT_TRUE(cur.CreateAddMap(&prev, &add) && cur.CreateDeleteMap(&prev, &del) && cur.CreateChangeMap(&prev, &chg));
    EXPECT_EQ(ToBytes(add), MapBytes({{"A", Pkg("a", "1")}}));
    EXPECT_EQ(ToBytes(del), MapBytes({{"C", Sw("3", "c")}}));
    EXPECT_EQ(ToBytes(chg), MapBytes({{"B", Pkg("b", "2")}}));
    EXPECT_FALSE(empty.CreateAddMap(&r1, &r1) || empty.CreateDeleteMap(&r1, &r1) || empty.CreateChangeMap(&r1, &r1));
    EXPECT_FALSE(cur.CreateChangeMap(&empty, &r1) || empty.CreateChangeMap(&cur, &r1) ||
                 cur.CreateDeleteMap(&empty, &r1));
    EXPECT_TRUE(cur.CreateAddMap(&empty, &r2) && empty.CreateDeleteMap(&cur, &r3));
    EXPECT_TRUE(ToBytes(r2) == ToBytes(cur) && ToBytes(r3) == ToBytes(cur));
    // A result map that held entries before: they stay and count.
    Fill(busy, {{"A", Pkg("stale", "0")}, {"old", Pkg("o", "1")}});
    EXPECT_TRUE(cur.CreateChangeMap(&cur, &busy) && cur.CreateAddMap(&prev, &busy));
    EXPECT_EQ(ToBytes(busy), MapBytes({{"A", Pkg("a", "1")}, {"old", Pkg("o", "1")}}));
    prev.SetAt("A", Sw("1", ""));   // another record class under the same key is a change
    EXPECT_TRUE(cur.CreateChangeMap(&prev, &chg2));
    EXPECT_EQ(ToBytes(chg2), MapBytes({{"A", Pkg("a", "1")}, {"B", Pkg("b", "2")}}));
}

// The sanitizer build turns a record with two owners or none into a failure.
TEST(InvMap, MergeAndOwnership) {
    CInvMap left, right;
    Fill(left, {{"A", Pkg("a", "1")}, {"B", Pkg("b", "1")}});
    Fill(right, {{"B", Pkg("b", "2")}, {"C", Sw("2", "")}});
    left += right;
    const Bytes8 merged = MapBytes({{"A", Pkg("a", "1")}, {"B", Pkg("b", "2")}, {"C", Sw("2", "")}});
    EXPECT_EQ(ToBytes(left), merged);
    EXPECT_EQ(ToBytes(right), MapBytes({{"B", Pkg("b", "2")}, {"C", Sw("2", "")}}));
    left += left;
    EXPECT_EQ(ToBytes(left), merged);
    CObject* a = nullptr;
    ASSERT_TRUE(left.Lookup("A", a));
    Fill(left, {{"A", a}, {"B", Pkg("b", "3")}, {"N", &Fill(*new CInvMap, {{"n", Pkg("n", "1")}})}, {"null", nullptr}});
    EXPECT_TRUE(left.RemoveItem("B") && !left.RemoveItem("B"));   // above, the same pointer again was kept
}

TEST(InvFormat, GoldenBytesReuseTheClassTag) {
    CInvMap m, empty;
    Fill(m, {{"alpha\\Acme\\1.0", Pkg("alpha", "1.0", "Acme", "First")}, {"bin/run", Sw("2.5", "alpha\\Acme\\1.0")},
             {"zeta\\Zed\\2", Pkg("zeta", "2", "Zed", "Last")}});
    EXPECT_EQ(testutil::Hex(ToBytes(m)), testutil::Hex(SmallGolden()));
    EXPECT_EQ(testutil::Hex(Reload(SmallGolden())), testutil::Hex(SmallGolden()));
    EXPECT_EQ(testutil::Hex(ToBytes(empty)), "00 00");
}

TEST(InvFormat, OlderSchemasLoadWithDefaults) {
    // Package schema 1 has no description; the second record reuses the class and its old schema.
    Bytes p1, p2;
    p1.u16(2).str("a").cls(1, "CSoftwarePackageObject").str("a").str("1").str("V").str("").u32(128).str("");
    p1.str("b").u16(0x8001).str("b").str("2").str("V").str("").u32(128).str("");
    p2.u16(2).str("a").cls(2, "CSoftwarePackageObject").pkg("a", "1", "V", "").str("b").u16(0x8001);
    p2.pkg("b", "2", "V", "");
    EXPECT_EQ(testutil::Hex(Reload(p1.b)), testutil::Hex(p2.b));
    // Executable schemas 1 to 3, each followed by a package record that only reads
    // right when the executable record took exactly its own bytes.
    for (std::uint16_t schema = 1; schema <= 3; ++schema) {
        Bytes in;
        in.u16(2).str("s").cls(schema, "CSoftwareObject").str("2.5").str("Runner").str("Acme").str("/srv/run");
        in.str("").str("").str("").u32(0xFFFFFFFE);
        if (schema > 1) in.u32(7);
        if (schema > 2) in.str("pkg");
        in.str("t").cls(2, "CSoftwarePackageObject").pkg("t", "9", "Acme", "tail");
        auto* s = Sw("2.5", schema > 2 ? "pkg" : "");
        s->m_nInfo6 = schema > 1 ? 7 : 0;
        EXPECT_EQ(Reload(in.b), MapBytes({{"s", s}, {"t", Pkg("t", "9", "Acme", "tail")}})) << schema;
    }
}

TEST(InvFormat, TruncatedAndCorruptedInputNeverCrash) {
    const Bytes8 golden = SmallGolden();
    testutil::TempDir dir;
    const std::string path = dir.file("SWList.bin");
    const auto throwing = [](const char*, int) { g_assertHit = true; throw new CFileException; };
    const ArchiveAssertHandler previous = SetArchiveAssertHandler(throwing);
    std::vector<size_t> assertingCuts;
    for (size_t n = 0; n < golden.size(); ++n) {
        testutil::WriteFileBytes(path, Bytes8(golden.begin(), golden.begin() + n));
        CInvMap m;
        g_assertHit = false;
        EXPECT_FALSE(m.FromFile(path)) << "prefix " << n;
        if (g_assertHit) assertingCuts.push_back(n);
    }
    for (size_t i = 0; i < golden.size(); ++i)
        for (std::uint8_t v : {0x00, 0xFF, golden[i] ^ 0x01, golden[i] ^ 0x80}) {
            Bytes8 bad = golden;
            bad[i] = v;
            Reload(bad);   // loaded or refused, without a sanitizer finding
        }
    // A second owner for the first record, a class that is no inventory value, endless nesting.
    Bytes backRef, foreign, deep;
    backRef.u16(2).str("a").cls(2, "CSoftwarePackageObject").pkg("a", "1", "V", "d").str("b").u16(0x0002);
    foreign.u16(1).str("a").cls(0, "CObList").u16(0);
    deep.u16(1).str("k").cls(1, "CInvMap");
    for (int i = 0; i < 100000; ++i) deep.u16(1).str("k").u16(0x8001);
    EXPECT_TRUE(Reload(backRef.b).empty() && Reload(foreign.b).empty() && Reload(deep.b).empty());
    SetArchiveAssertHandler(previous);
    // Without the handler, those cuts end the process through the archive's one assertion.
    ASSERT_FALSE(assertingCuts.empty());
    for (size_t n : assertingCuts)
        EXPECT_DEATH(CInvMap().FromMemory(golden.data(), static_cast<int>(n)), "arcobj\\.cpp") << n;
}

TEST(ListFile, FailuresKeepTheOldFileAndLeaveNoTemporary) {
    testutil::TempDir dir;
    const std::string path = dir.file("SWList.bin");
    CInvMap good, big;
    Fill(good, Many(10, "1"));
    ASSERT_TRUE(good.ToFile(path));
    const Bytes8 oldBytes = ToBytes(good);
    EXPECT_EQ(testutil::ReadFileBytes(path), oldBytes);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    EXPECT_FALSE(good.ToFile(dir.file("missing/SWList.bin")) || good.ToFile(""));
    testutil::MakeDirs(dir.file("adir"));   // a folder cannot be replaced by a file
    EXPECT_FALSE(good.ToFile(dir.file("adir")));
    Fill(big, Many(5000, "3"));   // a write that fails half way: the file size limit, in a child
    const auto cappedWrite = [&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit lim{8192, 8192};
        return ::setrlimit(RLIMIT_FSIZE, &lim) == 0 && !big.ToFile(path);
    };
    EXPECT_EXIT(std::exit(cappedWrite() ? 0 : 1), testing::ExitedWithCode(0), "");
    EXPECT_EQ(testutil::ReadFileBytes(path), oldBytes);
    EXPECT_TRUE(fs::is_empty(dir.file("adir")) && std::distance(fs::directory_iterator(dir.path()), {}) == 2);
}

TEST(ListFile, RewriteKeepsModeAndFollowsLinks) {
    testutil::TempDir dir;
    const std::string target = dir.file("real.bin"), link = dir.file("SWList.bin");
    CInvMap map;
    Fill(map, Many(3, "1"));
    ASSERT_TRUE(map.ToFile(target));
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    fs::create_symlink(target, link);
    ASSERT_TRUE(map.ToFile(link));
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::status(target).permissions(), fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    EXPECT_EQ(testutil::ReadFileBytes(link), ToBytes(map));
}

TEST(ListFile, KilledWriterLeavesOldOrNewFile) {
    testutil::TempDir dir;   // in memory when CMake found /dev/shm: on disk most kills would land in fsync
    const std::string path = dir.file("SWPackage.bin");
    CInvMap oldMap, newMap;
    Fill(oldMap, Many(400, "old"));
    Fill(newMap, Many(250, "new"));
    const Bytes8 oldBytes = ToBytes(oldMap), newBytes = ToBytes(newMap);
    std::mt19937 rng(12345);
    for (int round = 0; round < 300; ++round) {
        testutil::WriteFileBytes(path, oldBytes);
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
            for (;;) newMap.ToFile(path), oldMap.ToFile(path);
        ::usleep(std::uniform_int_distribution<unsigned>(0, 2500)(rng));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        CInvMap loaded;
        ASSERT_TRUE(loaded.FromFile(path)) << "round " << round;
        ASSERT_TRUE(ToBytes(loaded) == oldBytes || ToBytes(loaded) == newBytes) << "round " << round;
        for (const auto& e : fs::directory_iterator(dir.path()))   // a kill before the rename leaves a temporary
            if (e.path() != path) fs::remove(e.path());
    }
}
