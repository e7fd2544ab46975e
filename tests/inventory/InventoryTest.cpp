// Inventory records and map: sameness, differences, ownership, list-file bytes and crash-safe list files.
#include "inventory/InvMap.h"
#include "inventory/ListFile.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"

#include "../archive/ArchiveBytes.h"
#include "TestUtil.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>

namespace fs = std::filesystem;
using Bytes8 = std::vector<std::uint8_t>;
using Entries = std::vector<std::pair<std::string, CObject*>>;
using Bytes = ArchiveBytes;

static CSoftwarePackageObject* Pkg(std::string n, std::string v, std::string vendor = "Acme", std::string d = "d") {
    auto* p = new CSoftwarePackageObject;
    p->m_strName = n, p->m_strVersion = v, p->m_strVendor = vendor, p->m_strDescription = d, p->m_nFlags = 128;
    return p;
}

static CSoftwareObject* Sw(const std::string& version, const std::string& package, unsigned info6 = 7) {
    auto* s = new CSoftwareObject;
    s->m_strVersion = version, s->m_strDescription = "Runner", s->m_strCompanyName = "Acme";
    s->m_strInfo1 = "/srv/run", s->m_nInfo5 = -2, s->m_nInfo6 = info6, s->m_nTransient = 99, s->m_strPackage = package;
    return s;
}

static CInvMap& Fill(CInvMap& m, const Entries& es) { for (const auto& e : es) m.SetAt(e.first, e.second); return m; }

static CInvMap& Many(CInvMap& m, int n, const std::string& version) {   // n packages of one version
    for (int i = 0; i < n; ++i) m.SetAt("p" + std::to_string(i) + "\\" + version, Pkg("p", version));
    return m;
}

static Bytes8 ToBytes(CInvMap& m) {
    unsigned char* p = nullptr;
    const int n = m.ToMemory(&p);
    return Bytes8(std::unique_ptr<unsigned char, void (*)(void*)>(p, std::free).get(), p + n);   // freed after the copy
}

static Bytes8 MapBytes(const Entries& entries) { CInvMap m; return ToBytes(Fill(m, entries)); }

static Bytes8 Reload(const Bytes8& b) {   // the bytes of the map loaded from b; nothing when loading fails
    CInvMap m;
    return m.FromMemory(b.data(), static_cast<int>(b.size())) ? ToBytes(m) : Bytes8();
}

TEST(InvRecords, SamenessFieldParticipation) {
    using S = CSoftwareObject;
    using P = CSoftwarePackageObject;
    S base(std::unique_ptr<S>(Sw("1", "pkg")).get());
    const std::pair<std::string S::*, bool> texts[] = {{&S::m_strInfo1, true}, {&S::m_strInfo3, true},   // true: same
        {&S::m_strInfo4, true}, {&S::m_strVersion, false}, {&S::m_strInfo2, false}, {&S::m_strPackage, false},
        {&S::m_strCompanyName, false}, {&S::m_strDescription, false}};
    for (const auto& [field, same] : texts) {
        S other(&base);
        EXPECT_EQ((other.*field += "x", other.IsTheSameAs(&base)), same) << other.*field;
    }
    S other(base);
    EXPECT_TRUE((other.m_nInfo5 = 9, other.m_nTransient = 0, other.IsTheSameAs(&base)));
    EXPECT_FALSE((other.m_nInfo6 = 8, other.IsTheSameAs(&base)));
    P pkg(std::unique_ptr<P>(Pkg("a", "1")).get());
    for (auto field : {&P::m_strName, &P::m_strVersion, &P::m_strVendor, &P::m_strExtra1, &P::m_strExtra2,
                       &P::m_strDescription}) {
        P changed(&pkg);
        EXPECT_FALSE((changed.*field += "x", changed.IsTheSameAs(&pkg))) << changed.*field;
    }
}

TEST(InvMap, DifferenceMapsMergeAndOwnership) {
    CInvMap cur, prev, add, del, chg, empty, r1, busy, chg2;
    Fill(cur, {{"A", Pkg("a", "1")}, {"B", Pkg("b", "2")}});
    Fill(prev, {{"B", Pkg("b", "1")}, {"C", Sw("3", "c")}});
    EXPECT_TRUE(cur.CreateAddMap(&prev, &add) && cur.CreateDeleteMap(&prev, &del) && cur.CreateChangeMap(&prev, &chg));
    EXPECT_EQ(ToBytes(add), MapBytes({{"A", Pkg("a", "1")}}));
    EXPECT_EQ(ToBytes(del), MapBytes({{"C", Sw("3", "c")}}));
    EXPECT_EQ(ToBytes(chg), MapBytes({{"B", Pkg("b", "2")}}));
    EXPECT_FALSE(empty.CreateAddMap(&r1, &r1) || empty.CreateDeleteMap(&r1, &r1) || empty.CreateChangeMap(&r1, &r1) ||
                 cur.CreateChangeMap(&empty, &r1) || empty.CreateChangeMap(&cur, &r1) ||
                 cur.CreateDeleteMap(&empty, &r1));
    // A result map that held entries before: they stay and count.
    Fill(busy, {{"A", Pkg("stale", "0")}, {"old", Pkg("o", "1")}});
    EXPECT_TRUE(cur.CreateChangeMap(&cur, &busy) && cur.CreateAddMap(&prev, &busy));
    EXPECT_EQ(ToBytes(busy), MapBytes({{"A", Pkg("a", "1")}, {"old", Pkg("o", "1")}}));
    prev.SetAt("A", Sw("1", ""));   // another record class under the same key is a change
    EXPECT_TRUE(cur.CreateChangeMap(&prev, &chg2));
    EXPECT_EQ(ToBytes(chg2), MapBytes({{"A", Pkg("a", "1")}, {"B", Pkg("b", "2")}}));

    // Merging; the sanitizer build turns a record with two owners or none into a failure.
    CInvMap left, right;
    Fill(left, {{"A", Pkg("a", "1")}, {"B", Pkg("b", "1")}});
    Fill(right, {{"B", Pkg("b", "2")}, {"C", Sw("2", "")}});
    const Bytes8 merged = MapBytes({{"A", Pkg("a", "1")}, {"B", Pkg("b", "2")}, {"C", Sw("2", "")}});
    EXPECT_EQ(ToBytes(left += right), merged);
    EXPECT_EQ(ToBytes(right), MapBytes({{"B", Pkg("b", "2")}, {"C", Sw("2", "")}}));
    // The map itself as the other side: CleanMap first, or every key common and nothing left to add.
    CInvMap self;
    for (int round = 0; round < 2; ++round) {
        self.ReplaceList(&left);
        Fill(self, {{"N", &Fill(*new CInvMap, {{"N", Pkg("n", "1")}, {"o", Pkg("o", "1")}})}, {"null", nullptr}});
        EXPECT_EQ((round ? self += self : (self.ReplaceList(&self), self)).GetCount(), 0) << round;
    }
    CObject* a = testutil::At<CObject>(left, "A");
    Fill(left, {{"A", a}, {"B", Pkg("b", "3")}, {"N", &Fill(*new CInvMap, {{"n", Pkg("n", "1")}})}, {"null", nullptr}});
    EXPECT_TRUE(a && left.RemoveItem("B") && !left.RemoveItem("B"));   // above, the same pointer again was kept
}

// Two package records around one executable record; the second package reuses the class tag. Loaded, each stream
// below must be stored again byte for byte: the golden bytes of both directions.
static Bytes8 Golden() {
    return Bytes().u16(3).str("alpha\\Acme\\1.0").cls(2, "CSoftwarePackageObject").pkg("alpha", "1.0", "Acme", "First")
        .str("bin/run").cls(3, "CSoftwareObject").sw1().u32(7).str("alpha\\Acme\\1.0")
        .str("zeta\\Zed\\2").u16(0x8001).pkg("zeta", "2", "Zed", "Last").b;
}

TEST(InvFormat, OlderSchemas) {
    // Package schema 1; the second record reuses the class and its old schema.
    const auto two = [](std::uint16_t schema, const char* desc) {
        return Bytes().u16(2).str("a").cls(schema, "CSoftwarePackageObject").pkg("a", "1", "V", desc).str("b")
            .u16(0x8001).pkg("b", "2", "V", desc).b;
    };
    EXPECT_EQ(testutil::Hex(Reload(two(1, nullptr))), testutil::Hex(two(2, "")));
    // Executable schemas 1 to 3, each followed by a record that reads right only after exactly their own bytes.
    for (std::uint16_t schema = 1; schema <= 3; ++schema) {
        Bytes in;
        in.u16(2).str("s").cls(schema, "CSoftwareObject").sw1();
        (schema > 2 ? in.u32(7).str("pkg") : schema > 1 ? in.u32(7) : in).str("t").cls(2, "CSoftwarePackageObject");
        in.pkg("t", "9", "Acme", "d");
        const Entries want = {{"s", Sw("2.5", schema > 2 ? "pkg" : "", schema > 1 ? 7 : 0)}, {"t", Pkg("t", "9")}};
        EXPECT_EQ(Reload(in.b), MapBytes(want)) << schema;
    }
}

// Plain records and values of every class, shared, nested and looping: loaded over themselves, removed in every
// order, changed, cut anywhere (refused) and with any byte changed (loaded or refused, no sanitizer finding).
TEST(InvFormat, LoadsValuesOfEveryClassSharedNestedAndLoopingAndBadInput) {
    // Classes and objects share one numbering from 1, in order of appearance.
    Bytes list, inner, map, loop, dup, self, deep;
    // {a: list [P#4, P#5], b: #5, c: {x: #5}}: a record inside a list, under a key and in a nested inventory map.
    list.u16(3).str("a").cls(0, "CObList").u16(2).cls(2, "CSoftwarePackageObject").pkg("p", "1", "V", "d")
        .u16(0x8003).pkg("q", "2", "V", "d").str("b").u16(0x0005).str("c").cls(1, "CInvMap").u16(1).str("x").u16(0x0005);
    // {a: R, b: {x: R}}: all fresh, but the nested inventory map refers to a record of the outer one.
    inner.u16(2).str("a").cls(1, "CListObject").str("b").cls(1, "CInvMap").u16(1).str("x").u16(0x0002);
    // {m: plain map {x: record, y: null}, s: strings [one, two]}
    map.u16(2).str("m").cls(0, "CMapStringToOb").u16(2).str("x").cls(1, "CListObject").str("y").u16(0)
        .str("s").cls(0, "CStringArray").u16(2).str("one").str("two");
    // {c: L = [L, null], n: N = {p: R, q: N}, r: R}: loops, and a record shared across a nested inventory map.
    loop.u16(3).str("c").cls(0, "CObList").u16(2).u16(0x0002).u16(0).str("n").cls(1, "CInvMap").u16(2)
        .str("p").cls(1, "CListObject").str("q").u16(0x0004).str("r").u16(0x0006);
    // {a: R1, "" (a again): R2, b: R1}: the repeated key replaces a record the stream refers to later.
    dup.u16(3).str("a").cls(1, "CListObject").str("").u16(0x8001).str("b").u16(0x0002);
    const Bytes8 dupLoaded = Bytes().u16(2).str("a").cls(1, "CListObject").str("b").u16(0x8001).b;

    const ArchiveAssertHandler previous = SetArchiveAssertHandler([](const char*, int) { throw new CFileException; });
    for (const Bytes8& in : {Golden(), list.b, inner.b, map.b, loop.b}) {
        const int n = static_cast<int>(in.size());
        const auto with = [&](int i, std::uint8_t v) { Bytes8 bad = in; return bad[i] = v, bad; };
        CInvMap twice, merged, copy;
        EXPECT_TRUE(twice.FromMemory(in.data(), n) && twice.FromMemory(in.data(), n));
        EXPECT_EQ(testutil::Hex(ToBytes(twice)), testutil::Hex(in));   // the second load replaced every value
        const std::vector<std::string> keys = testutil::Keys(twice);
        for (size_t first = 0; first < keys.size(); ++first) {   // removal in every rotation of the key order
            CInvMap m;
            ASSERT_TRUE(m.FromMemory(in.data(), n));
            for (size_t i = 0; i < keys.size(); ++i) EXPECT_TRUE(m.RemoveItem(keys[(first + i) % keys.size()]));
            EXPECT_TRUE(m.GetCount() == 0 && m.FromMemory(in.data(), n));   // loads again into the emptied map
        }
        twice.SetAt(keys[0], Sw("1", ""));   // the owning SetAt over a held value
        merged.ReplaceList(&twice);            // records only, as fresh copies
        merged += twice;
        copy.ReplaceList(&merged);
        EXPECT_TRUE(ToBytes(copy) == ToBytes(merged) && testutil::At<CSoftwareObject>(merged, keys[0])->m_strVersion == "1");
        twice.CleanMap();
        EXPECT_TRUE(twice.GetCount() == 0 && twice.FromMemory(in.data(), n));
        for (int cut = 0; cut < n; ++cut) EXPECT_FALSE(CInvMap().FromMemory(in.data(), cut)) << cut;
        for (int i = 0; i < n; ++i)
            for (std::uint8_t v : {0x00, 0xFF, in[i] ^ 0x01, in[i] ^ 0x80}) Reload(with(i, v));
    }
    EXPECT_EQ(testutil::Hex(Reload(dup.b)), testutil::Hex(dupLoaded));
    // Endless nesting is the one stream refused beyond what the archive itself refuses.
    deep.u16(1).str("k").cls(1, "CInvMap");
    for (int i = 0; i < 100000; ++i) deep.u16(1).str("k").u16(0x8001);
    EXPECT_TRUE(Reload(deep.b).empty());
    SetArchiveAssertHandler(previous);

    // A map loaded through the archive's object reader can hold itself; deleting it deletes it once.
    self.cls(1, "CInvMap").u16(1).str("k").u16(0x0002);
    CMemFile file(self.b.data(), static_cast<unsigned int>(self.b.size()), 0);
    CArchive ar(&file, CArchive::load, 4096);
    CInvMap* pSelf = nullptr;
    ar >> pSelf;
    ASSERT_NE(pSelf, nullptr);
    EXPECT_EQ(testutil::At<CObject>(*pSelf, "k"), pSelf);
    delete pSelf;
}

static struct stat StatOf(const std::string& path) {
    struct stat st {};
    ::lstat(path.c_str(), &st);
    return st;
}

static size_t FolderSize(const std::string& folder) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

// Links are followed, also to a target not there yet; a FIFO is written in place; a rewrite replaces the file whole.
TEST(ListFile, LinksAreFollowedFifosWrittenInPlaceAndRewritesKeepTheMode) {
    testutil::TempDir dir;
    testutil::MakeDirs(dir.file("data")), testutil::MakeDirs(dir.file("sub"));
    fs::create_symlink("data/real.bin", dir.file("SWList.bin"));     // relative, dangling
    fs::create_symlink(dir.file("sub/next"), dir.file("chain"));     // absolute, to a link relative to its own folder
    fs::create_symlink("../data/chained.bin", dir.file("sub/next"));
    fs::create_symlink("loop2", dir.file("loop1")), fs::create_symlink("loop1", dir.file("loop2"));
    const std::string fifo = dir.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    // The FIFO's reader is there before the write-open, which therefore does not wait; the map fits the pipe's buffer.
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    CInvMap m;
    EXPECT_TRUE(Many(m, 20, "1").ToFile(dir.file("SWList.bin")) && m.ToFile(dir.file("chain")) && m.ToFile(fifo));
    EXPECT_FALSE(m.ToFile(dir.file("loop1")));
    Bytes8 got(1 << 16);
    got.resize(static_cast<size_t>(std::max<ssize_t>(0, ::read(reader, got.data(), got.size()))));
    ::close(reader);
    EXPECT_TRUE(fs::is_fifo(fifo) && got == ToBytes(m));
    for (const char* link : {"SWList.bin", "chain", "sub/next", "loop1", "loop2"}) EXPECT_TRUE(fs::is_symlink(dir.file(link)));
    for (const char* target : {"data/real.bin", "data/chained.bin"}) {
        EXPECT_EQ(testutil::ReadFileBytes(dir.file(target)), ToBytes(m)) << target;
        EXPECT_EQ(StatOf(dir.file(target)).st_mode & 07777, 0600u) << target;
    }
    const std::string chained = dir.file("data/chained.bin");   // now there, it is replaced whole and keeps its mode
    const ino_t before = StatOf(chained).st_ino;
    ::chmod(chained.c_str(), 0640);
    EXPECT_TRUE(Many(m, 3, "2").ToFile(dir.file("chain")) && testutil::ReadFileBytes(chained) == ToBytes(m));
    EXPECT_TRUE(StatOf(chained).st_ino != before && (StatOf(chained).st_mode & 07777) == 0640);
    EXPECT_TRUE(FolderSize(dir.path()) == 7 && FolderSize(dir.file("data")) == 2 && FolderSize(dir.file("sub")) == 1);
}

// Owner, group and mode (set-group-id too) are kept; a caller who may not write is refused; a locked folder: in place.
TEST(ListFile, ExistingFilesOwnerModeAndTheCallersRights) {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files to and acting as another user needs root";
    const struct { uid_t owner; mode_t mode, folder; bool asNobody, written; } rows[] = {
        {65534, 02750, 0700, false, true}, {0, 0644, 0777, true, false}, {65534, 0400, 0777, true, false},
        {65534, 0600, 0711, true, true}};
    for (const auto& r : rows) {
        testutil::TempDir dir;
        const std::string path = dir.file("SWList.bin");
        CInvMap old, next;
        ASSERT_TRUE(Many(old, 30, "1").ToFile(path));
        Many(next, 4, "2");
        ASSERT_TRUE(::chown(path.c_str(), r.owner, r.owner) == 0 && ::chmod(path.c_str(), r.mode) == 0);
        ::chmod(dir.path().c_str(), r.folder);
        if (r.asNobody)   // in a child that gave up root for user and group 65534 (exit 2 if it could not)
            EXPECT_EXIT(std::exit(::setgroups(0, nullptr) || ::setresgid(65534, 65534, 65534) ||
                                  ::setresuid(65534, 65534, 65534) ? 2 : !next.ToFile(path)),
                        testing::ExitedWithCode(r.written ? 0 : 1), "") << std::oct << r.mode;
        else
            EXPECT_EQ(next.ToFile(path), r.written) << std::oct << r.mode;
        const struct stat st = StatOf(path);
        EXPECT_TRUE(st.st_uid == r.owner && st.st_gid == r.owner && (st.st_mode & 07777) == r.mode) << std::oct << r.mode;
        EXPECT_TRUE(testutil::ReadFileBytes(path) == ToBytes(r.written ? next : old) && FolderSize(dir.path()) == 1);
    }
}

// Failed writes leave no temporary (one failing half way is the fault table's full data folder); a write removes
// that list's leftover temporaries, not other lists' ones, names that only look alike, or what is no regular file.
TEST(ListFile, FailuresLeaveNothingAndLeftoverTemporariesGo) {
    testutil::TempDir dir;
    const auto temporary = [&](const std::string& chars, const std::string& list = "SWList.bin") {
        std::string name = listfile::TemporaryPattern(list);
        return name.replace(name.size() - 6, 6, chars);
    };
    std::vector<std::string> kept = {temporary("Ab12Cd", "SWPackage.bin"), temporary("Ab12C"), temporary("Ab12Cd7"),
                                     temporary("Ab-2Cd"), "SWList.bin.backup", "x" + temporary("Ab12Cd")};
    for (const std::string& name : kept) testutil::WriteFileText(dir.file(name), "keep");
    for (const std::string& name : {temporary("Ab12Cd"), temporary("zzzzzz")}) testutil::WriteFileText(dir.file(name), "old");
    testutil::MakeDirs(dir.file(kept.emplace_back(temporary("Folder"))));
    fs::create_symlink("SWList.bin", dir.file(kept.emplace_back(temporary("Linked"))));
    testutil::MakeDirs(dir.file(kept.emplace_back("adir")));   // a folder cannot be replaced by a file
    CInvMap good;
    EXPECT_FALSE(Many(good, 10, "1").ToFile(dir.file("missing/SWList.bin")) || good.ToFile("") || good.ToFile(dir.file("adir")));
    EXPECT_TRUE(fs::is_empty(dir.file("adir")));
    ASSERT_TRUE(good.ToFile(dir.file(kept.emplace_back("SWList.bin"))));
    std::vector<std::string> left;
    for (const auto& e : fs::directory_iterator(dir.path())) left.push_back(e.path().filename());
    std::sort(left.begin(), left.end()), std::sort(kept.begin(), kept.end());
    EXPECT_EQ(left, kept);
}

TEST(ListFile, KilledWriterLeavesOldOrNewFile) {
    if (fs::is_directory("/dev/shm")) ::setenv("TMPDIR", "/dev/shm", 1);   // in memory: on disk most kills land in fsync
    testutil::TempDir dir;
    const std::string path = dir.file("SWPackage.bin");
    CInvMap oldMap, newMap;
    const Bytes8 oldBytes = ToBytes(Many(oldMap, 400, "old")), newBytes = ToBytes(Many(newMap, 250, "new"));
    std::mt19937 rng(12345);
    for (int round = 0; round < 300; ++round) {   // a kill before the rename leaves a temporary, which the next write removes
        testutil::WriteFileBytes(path, oldBytes);
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
            for (;;) newMap.ToFile(path), oldMap.ToFile(path);
        ::usleep(std::uniform_int_distribution<unsigned>(0, 2500)(rng));
        ::kill(pid, SIGKILL), ::waitpid(pid, nullptr, 0);
        CInvMap loaded;
        ASSERT_TRUE(loaded.FromFile(path) && (ToBytes(loaded) == oldBytes || ToBytes(loaded) == newBytes)) << round;
    }
}
