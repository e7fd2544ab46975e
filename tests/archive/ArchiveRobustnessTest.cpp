// Round trips over disk and memory files with both buffer sizes, every truncated
// prefix and corrupted bytes of a valid stream, and the bounds the loader keeps on
// hostile input (no reads outside the load array, no allocation sized by a claim).
#include "ArchiveTestSupport.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

using testutil::Hex;
using testutil::TempDir;

// Largest single request seen by operator new while tracking is on.
namespace {
std::atomic<bool> g_trackAllocations{false};
std::atomic<std::size_t> g_largestAllocation{0};
}  // namespace

void* operator new(std::size_t n) {
    if (g_trackAllocations.load(std::memory_order_relaxed)) {
        std::size_t prev = g_largestAllocation.load();
        while (n > prev && !g_largestAllocation.compare_exchange_weak(prev, n)) {
        }
    }
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace {

struct LargestAllocation {
    LargestAllocation() {
        g_largestAllocation = 0;
        g_trackAllocations = true;
    }
    ~LargestAllocation() { g_trackAllocations = false; }
    std::size_t Value() const { return g_largestAllocation.load(); }
};

// Hands out at most seven bytes per Read, like a pipe or a slow disk would.
class CTrickleFile : public CMemFile {
public:
    using CMemFile::CMemFile;
    long Read(void* lpBuf, unsigned int nCount) override {
        return CMemFile::Read(lpBuf, std::min(nCount, 7u));
    }
};

const unsigned kStringLengths[] = {0, 1, 127, 128, 129, 254, 255, 256, 4095, 4096, 4097, 9000, 70000};

// A graph that exercises every tag: shared objects, nested collections, nulls,
// a self reference and strings on both sides of each prefix and buffer boundary.
struct Graph {
    CObList top;
    CStringArray strings;
    CMapStringToOb map;
    std::vector<std::unique_ptr<CTestItem>> items;

    explicit Graph(bool large) {
        for (unsigned len : kStringLengths) {
            if (!large && len > 300) continue;
            std::string s(len, 'a');
            for (unsigned i = 0; i < len; ++i) s[i] = static_cast<char>('a' + i % 26);
            strings.Add(s);
            items.push_back(std::make_unique<CTestItem>(len, s));
        }
        for (auto& item : items) top.AddTail(item.get());
        top.AddTail(&strings);
        top.AddTail(static_cast<CObject*>(nullptr));
        map.SetAt("second", items[1].get());
        map.SetAt("first", items[0].get());
        map.SetAt("null", nullptr);
        map.SetAt("", items[2].get());
        map.SetAt("strings", &strings);
        top.AddTail(&map);
        top.AddTail(items[0].get());
        top.AddTail(static_cast<CObject*>(&top));
    }
};

Bytes StoreGraph(const Graph& g, int bufSize) {
    return StoreBytes([&](CArchive& ar) { ar << &g.top; }, bufSize);
}

// Loads one top-level object; true when it loaded, false on a thrown rejection.
bool TryLoad(const Bytes& bytes, int bufSize, CObject*& top) {
    top = nullptr;
    try {
        LoadBytes(bytes, [&](CArchive& ar) { top = ar.ReadObject(nullptr); }, bufSize);
        return true;
    } catch (CFileException* e) {
        delete e;
    } catch (ShortStringAbort&) {
    }
    return false;
}

void ExpectSameGraph(const CObList& original, CObject* loaded) {
    ASSERT_NE(nullptr, loaded);
    ASSERT_TRUE(loaded->IsKindOf(CLASS_RECORD(CObList)));
    auto* list = static_cast<CObList*>(loaded);
    EXPECT_EQ(const_cast<CObList&>(original).GetCount(), list->GetCount());
    EXPECT_EQ(list, list->GetAt(list->GetTailPosition()));   // the self reference
}

}  // namespace

TEST(ArchiveRoundTrip, MemoryAndDiskFilesWithBothBufferSizes) {
    Graph g(true);
    TempDir dir;
    const Bytes reference = StoreGraph(g, 4096);
    for (int bufSize : {128, 4096}) {
        SCOPED_TRACE(bufSize);
        // The buffer size never shows in the bytes.
        const Bytes bytes = StoreGraph(g, bufSize);
        ASSERT_EQ(reference, bytes);

        // Memory: load, store again, compare.
        TrackedCreation tracked;
        CObject* loaded = nullptr;
        ASSERT_TRUE(TryLoad(bytes, bufSize, loaded));
        ExpectSameGraph(g.top, loaded);
        EXPECT_EQ(bytes, StoreBytes([&](CArchive& ar) { ar << loaded; }, bufSize));
        TrackedCreation::DeleteLive();

        // Disk: write through CFile, read back through CFile and through short reads.
        const std::string path = dir.file("graph" + std::to_string(bufSize) + ".bin");
        {
            CFile file(path.c_str(), CFile::modeCreate | CFile::modeWrite);
            CArchive ar(&file, CArchive::store, bufSize);
            ar << &g.top;
            ar.Close();
        }
        ASSERT_EQ(bytes, testutil::ReadFileBytes(path));
        {
            CFile file(path.c_str(), CFile::modeRead);
            CArchive ar(&file, CArchive::load, bufSize);
            std::unique_ptr<CObject> owner;
            CObject* fromDisk = ar.ReadObject(nullptr);
            ExpectSameGraph(g.top, fromDisk);
            EXPECT_EQ(bytes, StoreBytes([&](CArchive& out) { out << fromDisk; }, bufSize));
        }
        {
            CTrickleFile trickle(const_cast<unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()), 0);
            CArchive ar(&trickle, CArchive::load, bufSize);
            CObject* trickled = ar.ReadObject(nullptr);
            ExpectSameGraph(g.top, trickled);
            EXPECT_EQ(bytes, StoreBytes([&](CArchive& out) { out << trickled; }, bufSize));
        }
    }
}

TEST(ArchiveRoundTrip, LoadingCloseHandsUnreadBytesBack) {
    Bytes bytes(300, 0x11);
    CMemFile file(bytes.data(), static_cast<unsigned>(bytes.size()), 0);
    CArchive ar(&file, CArchive::load, 128);
    unsigned short w = 0;
    ar >> w;
    EXPECT_EQ(128u, file.GetPosition());   // one buffer was read ahead
    ar.Close();
    EXPECT_EQ(2u, file.GetPosition());
    EXPECT_EQ(nullptr, ar.GetFile());
}

TEST(ArchiveRoundTrip, UserBufferAndTinyBufferSizes) {
    Graph g(false);
    const Bytes reference = StoreGraph(g, 4096);
    unsigned char userBuffer[256];
    CMemFile file(1024);
    {
        CArchive ar(&file, CArchive::store, sizeof(userBuffer), userBuffer);
        ar << &g.top;
    }   // the destructor flushes
    EXPECT_EQ(reference.size(), file.GetLength());
    // Below 128 the size is raised and a supplied buffer ignored.
    EXPECT_EQ(reference, StoreGraph(g, 1));
    EXPECT_EQ(reference, StoreGraph(g, -5));
}

TEST(ArchiveRobustness, EveryTruncatedPrefixIsRejected) {
    Graph g(false);
    const Bytes full = StoreGraph(g, 128);
    TrackedCreation tracked;
    ThrowingAssertScope throwing;
    for (int bufSize : {128, 4096}) {
        for (std::size_t len = 0; len < full.size(); ++len) {
            const Bytes prefix(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(len));
            CObject* top = nullptr;
            EXPECT_FALSE(TryLoad(prefix, bufSize, top)) << "prefix " << len;
            TrackedCreation::DeleteLive();
        }
    }
    EXPECT_EQ(0u, TrackedCreation::LiveCount());
}

TEST(ArchiveRobustnessDeathTest, ShortStringEndsTheProcessThroughTheAssertion) {
    const Bytes cut = {0x05, 'a', 'b'};
    std::string target;
    EXPECT_DEATH(LoadBytes(cut, [&](CArchive& ar) { ar >> target; }), "arcobj\\.cpp\\(925\\): assertion failed");
    // A handler that returns does not let the load go on.
    SetArchiveAssertHandler([](const char*, int) {});
    EXPECT_DEATH(LoadBytes(cut, [&](CArchive& ar) { ar >> target; }), "");
    SetArchiveAssertHandler(nullptr);
}

TEST(ArchiveRobustness, CorruptedBytesNeverMisbehave) {
    Graph g(false);
    const Bytes full = StoreGraph(g, 128);
    TrackedCreation tracked;
    ThrowingAssertScope throwing;
    int loaded = 0, rejected = 0;
    for (std::size_t i = 0; i < full.size(); ++i) {
        for (int variant = 0; variant < 5; ++variant) {
            Bytes bad = full;
            const std::uint8_t values[] = {static_cast<std::uint8_t>(full[i] ^ 0xFF), 0x00, 0xFF, 0x7F,
                                           static_cast<std::uint8_t>(full[i] + 1)};
            bad[i] = values[variant];
            CObject* top = nullptr;
            (TryLoad(bad, 128, top) ? loaded : rejected)++;
            TrackedCreation::DeleteLive();
        }
    }
    EXPECT_GT(rejected, 0);
    EXPECT_GT(loaded, 0);
    EXPECT_EQ(0u, TrackedCreation::LiveCount());
}

TEST(ArchiveRobustness, BadClassesAndIndicesGiveNullAndStopTheStream) {
    TrackedCreation tracked;
    auto expectNullThenThrow = [](const Bytes& bytes, int good = 0) {
        SCOPED_TRACE(Hex(bytes));
        LoadBytes(Cat({bytes, Le32(0)}), [&](CArchive& ar) {
            for (int i = 0; i < good; ++i) EXPECT_NE(nullptr, ar.ReadObject(nullptr));
            EXPECT_EQ(nullptr, ar.ReadObject(nullptr));
            unsigned int dw = 0;
            EXPECT_TRUE(ThrowsFileException([&] { ar >> dw; }));
        });
    };
    expectNullThenThrow(Cat({{0xFF, 0xFF}, ClassRecord(0, "CNoSuchClass")}));
    expectNullThenThrow(Cat({{0xFF, 0xFF}, ClassRecord(0, "cobList")}));    // case matters
    expectNullThenThrow(Cat({{0xFF, 0xFF}, ClassRecord(0, "CPtrArray")}));  // not registered
    expectNullThenThrow(Cat({{0xFF, 0xFF}, ClassRecord(0, std::string(64, 'C'))}));
    // A class tag pointing at an object's slot, or past the load array.
    expectNullThenThrow(Cat({{0xFF, 0xFF}, ClassRecord(1, "CTestItem"), Le32(1), {0x00}, {0x02, 0x80}}), 1);
    expectNullThenThrow({0x09, 0x80});
    expectNullThenThrow(Cat({{0xFF, 0x7F}, Le32(0xFFFFFFFF)}));
    TrackedCreation::DeleteLive();

    // Object tags pointing past the array or at a class give null, the stream goes on.
    const Bytes bytes = Cat({{0xFF, 0xFF}, ClassRecord(1, "CTestItem"), Le32(1), {0x00},
                             {0x01, 0x00}, {0x07, 0x00}, {0xFF, 0x7F}, Le32(0x7FFFFFFF), {0x02, 0x00}});
    LoadBytes(bytes, [](CArchive& ar) {
        CObject* item = ar.ReadObject(nullptr);
        ASSERT_NE(nullptr, item);
        EXPECT_EQ(nullptr, ar.ReadObject(nullptr));   // slot 1 is the class
        EXPECT_EQ(nullptr, ar.ReadObject(nullptr));   // slot 7 does not exist
        EXPECT_EQ(nullptr, ar.ReadObject(nullptr));
        EXPECT_EQ(item, ar.ReadObject(nullptr));
    });

    // A requested class that is not serialisable reads nothing at all.
    LoadBytes({0x05, 0x00}, [](CArchive& ar) {
        EXPECT_EQ(nullptr, ar.ReadObject(CLASS_RECORD(CPtrArray)));
        unsigned short w = 0;
        ar >> w;
        EXPECT_EQ(5, w);
    });
}

TEST(ArchiveRobustness, DataEndingInsideIntegersAndCountsThrows) {
    auto expectThrow = [](const Bytes& bytes, const std::function<void(CArchive&)>& read) {
        SCOPED_TRACE(Hex(bytes));
        EXPECT_TRUE(ThrowsFileException([&] { LoadBytes(bytes, read); }));
    };
    unsigned char b;
    unsigned short w;
    unsigned int dw;
    expectThrow({}, [&](CArchive& ar) { ar >> b; });
    expectThrow({0x01}, [&](CArchive& ar) { ar >> w; });
    expectThrow({0x01, 0x02, 0x03}, [&](CArchive& ar) { ar >> dw; });
    expectThrow({0xFF}, [&](CArchive& ar) { ar.ReadCount(); });
    expectThrow({0xFF, 0xFF, 0x01, 0x02, 0x03}, [&](CArchive& ar) { ar.ReadCount(); });
    std::string s;
    expectThrow({0xFF, 0xFF}, [&](CArchive& ar) { ar >> s; });
    expectThrow({0xFF, 0xFF, 0xFF, 0x01}, [&](CArchive& ar) { ar >> s; });
    expectThrow({0xFF, 0xFE, 0xFF}, [&](CArchive& ar) { ar >> s; });
    // A cut class name is the end of the data too, not an unknown class.
    expectThrow(Cat({{0xFF, 0xFF}, Le16(0), Le16(7), Str("CObL")}), [&](CArchive& ar) { ar.ReadObject(nullptr); });
}

TEST(ArchiveRobustness, ClaimedSizesDoNotDriveAllocation) {
    ThrowingAssertScope throwing;
    TrackedCreation tracked;
    {
        // A 2 GB string prefix followed by a few bytes.
        LargestAllocation largest;
        std::string s;
        EXPECT_THROW(LoadBytes(Cat({{0xFF, 0xFF, 0xFF}, Le32(0x7FFFFFF0), Str("tiny")}),
                               [&](CArchive& ar) { ar >> s; }),
                     ShortStringAbort);
        EXPECT_LT(largest.Value(), 1u << 20);
    }
    {
        // Four billion strings claimed, three present.
        LargestAllocation largest;
        CStringArray array;
        EXPECT_TRUE(ThrowsFileException([&] {
            LoadBytes(Cat({{0xFF, 0xFF}, Le32(0xFFFFFFFF), {0x01, 'a', 0x01, 'b', 0x00}}),
                      [&](CArchive& ar) { array.Serialize(ar); });
        }));
        EXPECT_EQ(3, array.GetSize());
        EXPECT_LT(largest.Value(), 1u << 20);
    }
    {
        // Four billion list elements claimed, all of them null.
        LargestAllocation largest;
        CObList list;
        Bytes bytes = Cat({{0xFF, 0xFF}, Le32(0xFFFFFFFF)});
        bytes.resize(bytes.size() + 2000, 0x00);
        EXPECT_TRUE(ThrowsFileException([&] { LoadBytes(bytes, [&](CArchive& ar) { list.Serialize(ar); }); }));
        EXPECT_EQ(1000, list.GetCount());
        EXPECT_LT(largest.Value(), 1u << 20);
    }
}

TEST(ArchiveRobustness, NestingDepthIsBounded) {
    TrackedCreation tracked;
    // Lists inside lists: the first carries the class record, the rest the class tag.
    auto nested = [](int depth) {
        Bytes bytes = Cat({{0xFF, 0xFF}, ClassRecord(0, "CObList")});
        for (int i = 1; i < depth; ++i) bytes = Cat({bytes, {0x01, 0x00, 0x01, 0x80}});
        return Cat({bytes, {0x00, 0x00}});
    };
    CObject* top = nullptr;
    EXPECT_TRUE(TryLoad(nested(200), 4096, top));
    ASSERT_NE(nullptr, top);
    TrackedCreation::DeleteLive();
    EXPECT_FALSE(TryLoad(nested(5000), 4096, top));
}
