// The archive's byte rules both ways, round trips over disk and memory files, hostile
// input (truncation, bad indices, huge claims), and container and memory file rules.
#include "archive/arcobj.h"
#include "TestUtil.h"
#include "TrackedObjects.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <set>

using testutil::Hex;
using Bytes = std::vector<std::uint8_t>;

// Largest single request to operator new while tracking is on.
static bool g_trackAllocations = false;
static std::size_t g_largestAllocation = 0;
void* operator new(std::size_t n) {
    if (g_trackAllocations && n > g_largestAllocation) g_largestAllocation = n;
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
// Once inlined into library code, free() meets pointers the optimiser saw come from
// operator new and it warns, although these replacements pair them correctly.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

class CTestItem : public CObject {
    DECLARE_PERSISTENT(CTestItem)
public:
    CTestItem(unsigned value = 0, std::string text = "") : m_value(value), m_text(std::move(text)) {}
    void Serialize(CArchive& ar) override { ar.IsStoring() ? void(ar << m_value << m_text) : void(ar >> m_value >> m_text); }
    unsigned m_value;
    std::string m_text;
};
IMPLEMENT_PERSISTENT(CTestItem, CObject, 1)

namespace {

Bytes StoreBytes(const std::function<void(CArchive&)>& store, int bufSize = 4096) {
    CMemFile file;
    { CArchive ar(&file, CArchive::store, bufSize); store(ar); }   // the destructor flushes
    const std::size_t len = file.GetLength();
    std::unique_ptr<unsigned char, decltype(&std::free)> block(file.Detach(), &std::free);
    return Bytes(block.get(), block.get() + len);
}

// Loads from an exactly sized heap copy, so ASan sees every read past the end.
void LoadBytes(const Bytes& bytes, const std::function<void(CArchive&)>& load, int bufSize = 4096) {
    std::unique_ptr<unsigned char[]> block(new unsigned char[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), block.get());
    CMemFile file(block.get(), static_cast<unsigned>(bytes.size()), 0);
    CArchive ar(&file, CArchive::load, bufSize);
    load(ar);
}

Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}
Bytes Le16(unsigned v) { return {std::uint8_t(v), std::uint8_t(v >> 8)}; }
Bytes Le32(unsigned v) { return Cat({Le16(v), Le16(v >> 16)}); }
Bytes B(const std::string& s) { return Bytes(s.begin(), s.end()); }
Bytes ClassRecord(unsigned schema, const std::string& name) {
    return Cat({{0xFF, 0xFF}, Le16(schema), Le16(static_cast<unsigned>(name.size())), B(name)});
}

// How `fn` ends: it returns, throws CFileException*, or (under ThrowingAssert) hits the assertion.
enum Outcome { kLoaded, kFileException, kAssertion };
struct ShortString {};
Outcome OutcomeOf(const std::function<void()>& fn) {
    try {
        fn();
        return kLoaded;
    } catch (CFileException* e) {
        delete e;
        return kFileException;
    } catch (ShortString&) {
        return kAssertion;
    }
}
const auto ReadOne = [](CArchive& ar) { ar.ReadObject(nullptr); };

struct ThrowingAssert {
    ArchiveAssertHandler previous = SetArchiveAssertHandler([](const char*, int) { throw ShortString{}; });
    ~ThrowingAssert() { SetArchiveAssertHandler(previous); }
};

class TrackedScope {
    CRuntimeClass m_records[4] = {TrackedRecord<CObList>("CObList"), TrackedRecord<CStringArray>("CStringArray"),
                                  TrackedRecord<CMapStringToOb>("CMapStringToOb"),
                                  TrackedRecord<CTestItem>("CTestItem", 1)};
public:
    TrackedScope() { for (CRuntimeClass& c : m_records) AfxClassInit(&c); }
    ~TrackedScope() {
        DeleteLiveObjects();
        for (CRuntimeClass& c : m_records) AfxClassClose(&c);
    }
};

// Shared objects, nested collections, nulls, a self reference, strings across every boundary.
struct Graph {
    CObList top;
    CStringArray strings;
    CMapStringToOb map;
    std::vector<std::unique_ptr<CTestItem>> items;
    explicit Graph(bool large) {
        for (unsigned len : {0u, 1u, 127u, 128u, 129u, 254u, 255u, 256u, 4095u, 4096u, 4097u, 70000u}) {
            if (!large && len > 300) continue;
            std::string s;
            for (unsigned i = 0; i < len; ++i) s += static_cast<char>('a' + i % 26);
            strings.Add(s);
            items.push_back(std::make_unique<CTestItem>(len, s));
            top.AddTail(items.back().get());
        }
        map.SetAt("a", items[1].get());
        map.SetAt("", &strings);
        map.SetAt("null", nullptr);
        for (CObject* ob : std::initializer_list<CObject*>{&strings, nullptr, &map, &top}) top.AddTail(ob);
    }
    Bytes Store(int bufSize) const { return StoreBytes([&](CArchive& ar) { ar << &top; }, bufSize); }
};

}  // namespace

TEST(ArchiveFormat, IntegersCountsAndStringPrefixes) {
    const Bytes ints = StoreBytes([](CArchive& ar) { ar << std::uint8_t(0xAB) << std::uint16_t(0x1234) << 0xDEADBEEFu; });
    EXPECT_EQ(Hex({0xAB, 0x34, 0x12, 0xEF, 0xBE, 0xAD, 0xDE}), Hex(ints));
    const std::pair<std::uint32_t, Bytes> counts[] = {{0, {0x00, 0x00}}, {0xFFFE, {0xFE, 0xFF}}, {0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}}};
    for (const auto& c : counts) {
        EXPECT_EQ(Hex(c.second), Hex(StoreBytes([&](CArchive& ar) { ar.WriteCount(c.first); })));
        LoadBytes(c.second, [&](CArchive& ar) { EXPECT_EQ(c.first, ar.ReadCount()); });
    }
    const std::pair<std::uint32_t, Bytes> strings[] = {{0, {0x00}}, {254, {0xFE}}, {255, {0xFF, 0xFF, 0x00}}, {0xFFFD, {0xFF, 0xFD, 0xFF}},
                   {0xFFFE, {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}},
                   {0x10001, {0xFF, 0xFF, 0xFF, 0x01, 0x00, 0x01, 0x00}}};
    for (const auto& c : strings) {
        std::string text(c.first, 'x'), back;
        if (c.first) text.back() = 'Z';
        const Bytes bytes = StoreBytes([&](CArchive& ar) { ar << text; });
        EXPECT_EQ(Hex(Cat({c.second, B(text)})), Hex(bytes)) << c.first;
        LoadBytes(bytes, [&](CArchive& ar) { ar >> back; });
        EXPECT_EQ(text, back);
    }
}

TEST(ArchiveFormat, NewClassKnownClassKnownObjectAndNull) {
    CTestItem a(1, "x"), b(2, "y");
    const Bytes bytes = StoreBytes([&](CArchive& ar) { ar << &a << &a << static_cast<CObject*>(nullptr) << &b; });
    EXPECT_EQ(Hex(Cat({ClassRecord(1, "CTestItem"), Le32(1), {0x01, 'x'}, {0x02, 0x00}, {0x00, 0x00},
                       {0x01, 0x80}, Le32(2), {0x01, 'y'}})),
              Hex(bytes));
    TrackedScope tracked;
    CObject* got[4];
    LoadBytes(bytes, [&](CArchive& ar) { for (CObject*& p : got) p = ar.ReadObject(nullptr); });
    EXPECT_TRUE(got[0] && got[0] == got[1] && !got[2] && got[3] != got[0]);
    EXPECT_EQ("y", static_cast<CTestItem*>(got[3])->m_text);
}

TEST(ArchiveFormat, BigTagsFromIndex7FFF) {
    std::vector<CTestItem> filler(0x7FFC);   // mapped beforehand: indices 1..0x7FFC on both sides
    CTestItem x(10, "x"), y(11, "y");
    CObList z, w;
    const Bytes bytes = StoreBytes([&](CArchive& ar) {
        for (CTestItem& f : filler) ar.MapObject(&f);
        ar << &x << &x << &y << &y << &z << &w << &filler[4];
    });
    EXPECT_EQ(Hex(Cat({ClassRecord(1, "CTestItem"), Le32(10), {0x01, 'x'}, {0xFE, 0x7F},   // class 0x7FFD, x 0x7FFE: still fits
                       {0xFD, 0xFF}, Le32(11), {0x01, 'y'}, {0xFF, 0x7F}, Le32(0x7FFF),     // y 0x7FFF: big tag
                       ClassRecord(0, "CObList"), {0x00, 0x00}, {0xFF, 0x7F}, Le32(0x80008000), {0x00, 0x00},   // class 0x8000
                       {0x05, 0x00}})),
              Hex(bytes));
    LoadBytes(bytes, [&](CArchive& ar) {
        for (CTestItem& f : filler) ar.MapObject(&f);
        CObject* got[7];
        for (CObject*& p : got) p = ar.ReadObject(nullptr);
        EXPECT_TRUE(got[0] == got[1] && got[2] == got[3] && got[6] == &filler[4]);
        ASSERT_TRUE(got[2] && got[5] && got[5]->IsKindOf(CLASS_RECORD(CObList)));
        EXPECT_EQ(11u, static_cast<CTestItem*>(got[2])->m_value);
        for (int i : {0, 2, 4, 5}) delete got[i];
    });
}

TEST(ArchiveFormat, StringArrayAndTheEmptyMapKeyRule) {
    CStringArray array;
    array.Add("one");
    array.Add("");
    EXPECT_EQ(Hex({0x02, 0x00, 0x03, 'o', 'n', 'e', 0x00}), Hex(StoreBytes([&](CArchive& ar) { array.Serialize(ar); })));
    // An empty stored key reuses the key before it; as the first key it stays empty.
    CMapStringToOb reuse;
    LoadBytes({0x03, 0x00, 0x01, 'k', 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 'm', 0x00, 0x00},
              [&](CArchive& ar) { reuse.Serialize(ar); });
    CObject* value;
    EXPECT_TRUE(reuse.GetCount() == 2 && reuse.Lookup("k", value) && !reuse.Lookup("", value));
    LoadBytes({0x01, 0x00, 0x00, 0x00, 0x00}, [&](CArchive& ar) { reuse.Serialize(ar); });
    EXPECT_TRUE(reuse.Lookup("", value));
}

TEST(ArchiveFormat, LineReadingBothOverloads) {
    // ReadString(buffer, max): the lines read one after another, "|" between them; "(end)" when none is left.
    const std::string long300(300, 'x');
    const struct { std::string input; int max; std::string lines; } buffers[] = {
        {"ab\ncd", 10, "ab|cd|(end)"},
        {"ab\r\ncd\r\n", 10, "ab|cd|(end)"},
        {"ab\rXcd", 10, "ab|cd|(end)"},             // the byte after CR is taken unseen
        {"ab\ncd", -10, "ab\n|cd|(end)"},           // a negative maximum keeps the LF
        {"ab\r\ncd", -10, "ab\n|cd|(end)"},
        {"abcdef\n", 4, "abcd|ef|(end)"},
        {"", 10, "(end)"}};
    for (const auto& c : buffers) {
        std::string lines;
        LoadBytes(B(c.input), [&](CArchive& ar) {
            char buffer[16];
            for (int i = 0; i < 4 && lines.find("(end)") == std::string::npos; ++i)
                lines += (i ? "|" : "") + std::string(ar.ReadString(buffer, c.max) ? buffer : "(end)");
        });
        EXPECT_EQ(c.lines, lines) << c.input << " max " << c.max;
    }
    // ReadString(string): 128-byte pieces up to a line feed; a final LF becomes a NUL and the length stays.
    const std::string s128(128, 'y');
    const struct { std::string input; std::vector<std::string> lines; } strings[] = {
        {"line\nnext", {std::string("line\0", 5), "next"}},
        {"a\r\nb", {std::string("a\0", 2), "b"}},
        {"a\rXb", {"aX", "b"}},   // a piece ends at CR plus one byte, LF or not
        {long300 + "\n", {long300 + '\0'}},
        {s128 + "\n" + s128, {s128 + '\0', s128}},
        {s128 + s128, {s128 + s128}}};
    for (const auto& c : strings) {
        std::vector<std::string> lines;
        LoadBytes(B(c.input), [&](CArchive& ar) {
            for (std::string line = "stale"; lines.size() < c.lines.size(); lines.push_back(line)) EXPECT_TRUE(ar.ReadString(line));
        });
        EXPECT_EQ(c.lines, lines) << c.input.substr(0, 20);
    }
}

TEST(ArchiveRoundTrip, DiskAndMemoryFilesWithBothBufferSizes) {
    Graph g(true);
    testutil::TempDir dir;
    const std::string path = dir.file("graph.bin");
    const Bytes reference = g.Store(4096);
    TrackedScope tracked;
    for (int bufSize : {128, 4096}) {
        SCOPED_TRACE(bufSize);
        ASSERT_EQ(reference, g.Store(bufSize));
        CFile out(path.c_str(), CFile::modeCreate | CFile::modeWrite);
        CArchive store(&out, CArchive::store, bufSize);
        store << &g.top;
        store.Close();
        out.Close();
        ASSERT_EQ(reference, testutil::ReadFileBytes(path));
        CFile in(path.c_str(), CFile::modeRead);
        CObject* loaded[2] = {CArchive(&in, CArchive::load, bufSize).ReadObject(nullptr), nullptr};
        LoadBytes(reference, [&](CArchive& ar) { loaded[1] = ar.ReadObject(nullptr); }, bufSize);
        for (CObject* ob : loaded) {
            ASSERT_TRUE(ob && ob->IsKindOf(CLASS_RECORD(CObList)));
            EXPECT_EQ(reference, StoreBytes([&](CArchive& ar) { ar << ob; }, bufSize));
        }
    }
}

TEST(ArchiveRobustness, EveryTruncatedPrefixIsRejected) {
    const Bytes full = Graph(false).Store(128);
    TrackedScope tracked;
    ThrowingAssert throwing;
    for (int bufSize : {128, 4096}) {
        for (std::size_t len = 0; len < full.size(); ++len) {
            const Bytes prefix(full.begin(), full.begin() + static_cast<long>(len));
            EXPECT_NE(kLoaded, OutcomeOf([&] { LoadBytes(prefix, ReadOne, bufSize); })) << len;
            DeleteLiveObjects();
        }
    }
    EXPECT_EQ(kLoaded, OutcomeOf([&] { LoadBytes(full, ReadOne, 128); }));
}

TEST(ArchiveRobustnessDeathTest, ShortStringEndsTheProcessThroughTheAssertion) {
    const Bytes cut = {0x05, 'a', 'b'};
    std::string s;
    EXPECT_DEATH(LoadBytes(cut, [&](CArchive& ar) { ar >> s; }), "arcobj\\.cpp\\(925\\): assertion failed");
    SetArchiveAssertHandler([](const char*, int) {});   // a handler that returns does not let the load go on
    EXPECT_DEATH(LoadBytes(cut, [&](CArchive& ar) { ar >> s; }), "");
    SetArchiveAssertHandler(nullptr);
}

// Data ending inside integers, counts and length prefixes throws (not the assertion), and
// claimed sizes far beyond the data never drive an allocation.
TEST(ArchiveRobustness, ShortDataThrowsAndClaimedSizesDoNotDriveAllocation) {
    ThrowingAssert throwing;
    TrackedScope tracked;
    const auto str = [](CArchive& ar) { std::string s; ar >> s; };
    const std::tuple<Bytes, std::function<void(CArchive&)>, Outcome> cases[] = {
        {{}, [](CArchive& ar) { unsigned char b; ar >> b; }, kFileException},
        {{0x01, 0x02, 0x03}, [](CArchive& ar) { unsigned dw; ar >> dw; }, kFileException},
        {{0xFF, 0xFF, 0x01, 0x02, 0x03}, [](CArchive& ar) { ar.ReadCount(); }, kFileException},
        {{0xFF, 0xFE, 0xFF}, str, kFileException},
        {Cat({{0xFF, 0xFF}, Le16(0), Le16(7), B("CObL")}), ReadOne, kFileException},
        {Cat({{0xFF, 0xFF, 0xFF}, Le32(0x7FFFFFF0), B("tiny")}), str, kAssertion},
        {Cat({{0xFF, 0xFF}, Le32(0xFFFFFFFF), {0x01, 'a', 0x01, 'b', 0x00}}), [](CArchive& ar) { CStringArray().Serialize(ar); }, kFileException},
        {Cat({{0xFF, 0xFF}, Le32(0xFFFFFFFF), Bytes(2000, 0x00)}), [](CArchive& ar) { CObList().Serialize(ar); }, kFileException},
    };
    for (const auto& [bytes, load, outcome] : cases) {
        g_largestAllocation = 0;
        g_trackAllocations = true;
        EXPECT_EQ(outcome, OutcomeOf([&] { LoadBytes(bytes, load); })) << Hex(bytes);
        g_trackAllocations = false;
        EXPECT_LT(g_largestAllocation, 1u << 20) << Hex(bytes);
    }
}

TEST(ArchiveRobustness, BadIndicesAndClassesGiveNull) {
    TrackedScope tracked;
    const Bytes item = Cat({ClassRecord(1, "CTestItem"), Le32(1), {0x00}});
    // Object tags at a class slot or past the load array give null; the stream goes on.
    LoadBytes(Cat({item, {0x01, 0x00, 0x07, 0x00, 0xFF, 0x7F}, Le32(0x7FFFFFFF), {0x02, 0x00}}), [](CArchive& ar) {
        CObject* first = ar.ReadObject(nullptr);
        ASSERT_NE(nullptr, first);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(nullptr, ar.ReadObject(nullptr));
        EXPECT_EQ(first, ar.ReadObject(nullptr));
    });
    // Unknown or unregistered classes, class tags at an object slot or past the array:
    // null, and the archive reads nothing more.
    for (const Bytes& bad : {ClassRecord(0, "CNoSuchClass"), ClassRecord(0, "cobList"), ClassRecord(0, "CPtrArray"),
                             Cat({item, {0x02, 0x80}}), Bytes{0x09, 0x80}, Cat({{0xFF, 0x7F}, Le32(0xFFFFFFFF)})}) {
        LoadBytes(Cat({bad, Le32(0)}), [&](CArchive& ar) {
            CObject* ob = ar.ReadObject(nullptr);
            if (ob) ob = ar.ReadObject(nullptr);   // the valid object before the bad class tag
            EXPECT_EQ(nullptr, ob) << Hex(bad);
            EXPECT_EQ(kFileException, OutcomeOf([&] { unsigned dw; ar >> dw; }));
        });
    }
}

TEST(Containers, PtrArrayGrowth) {
    // Exactly n slots at first, then steps of size/8 within 4..1024 or the given step.
    const struct { int first, second, growBy, allocated; } cases[] = {
        {80, 81, -1, 90}, {8, 9, -1, 12}, {16000, 16001, -1, 17024}, {16000, 16005, 10, 16010}, {16000, 20000, 10, 20000}};
    for (const auto& c : cases) {
        CPtrArray a;
        a.SetSize(c.first);
        a.SetAt(c.first - 1, &a);
        EXPECT_EQ(c.first, a.GetAllocatedSize());
        a.SetSize(c.second, c.growBy);
        EXPECT_EQ(c.allocated, a.GetAllocatedSize()) << c.first;
        EXPECT_TRUE(a.GetAt(c.first - 1) == &a && a.GetAt(c.second - 1) == nullptr);
        a.Append(a);   // self append
        EXPECT_EQ(&a, a.GetAt(c.second + c.first - 1));
        a.SetSize(0);
        EXPECT_TRUE(a.GetAllocatedSize() == 0 && a.GetData() == nullptr);
    }
}

TEST(Containers, MemFileGrowth) {
    const std::vector<char> big(1025, 'b');
    CMemFile file(1024);
    file.Write(big.data(), 1025);
    EXPECT_EQ(2048u, file.GetBufferSize());
    file.Seek(1030, CFile::begin);   // a write past the end zero-fills the gap
    file.Write("z", 1);
    char gap[7];
    file.Seek(1025, CFile::begin);
    EXPECT_EQ(std::string("\0\0\0\0\0z", 6), std::string(gap, file.Read(gap, sizeof gap)));

    unsigned char fixed[5] = {'a', 'b', 'c', 'd', 'e'};
    CMemFile fixedFile(fixed, sizeof fixed, 0);   // fixed: the whole block is data and cannot grow
    EXPECT_EQ(kFileException, OutcomeOf([&] { fixedFile.Write("0123456789", 10); }));
    EXPECT_EQ(kFileException, OutcomeOf([&] { fixedFile.SetLength(6); }));

    CMemFile growable(static_cast<unsigned char*>(std::malloc(16)), 16, 256);   // growable: the block is room, not data
    EXPECT_EQ(0u, growable.GetLength());
    growable.Write(big.data(), 40);
    EXPECT_EQ(272u, growable.GetBufferSize());
    std::free(growable.Detach());
}

TEST(Containers, MapWalksFollowTheCursorIndex) {
    CTestItem item;
    CMapStringToOb map;
    std::string key;
    CObject* value;
    auto walk = [&](POSITION pos, bool removeEach) {
        std::string seen;
        while (pos) {
            map.GetNextAssoc(pos, key, value);
            seen += value ? key : "-";
            if (value && removeEach) { EXPECT_TRUE(map.RemoveKey(key)); }
        }
        return seen;
    };
    // Removing the entry just returned shifts the rest down under the index: every other one
    // is seen, and past the end the value is nulled.
    for (const char* k : {"a", "b", "c", "d"}) map.SetAt(k, &item);
    EXPECT_EQ("ac-", walk(map.GetStartPosition(), true));
    // Inserts before the cursor keep the index meaning "entry n".
    map.RemoveAll();
    for (const char* k : {"b", "d", "f"}) map.SetAt(k, &item);
    POSITION pos = map.GetStartPosition();
    map.GetNextAssoc(pos, key, value);   // b; cursor 1
    map.SetAt("a", &item);               // a b d f: index 1 is b again
    map.SetAt("e", &item);
    EXPECT_EQ("bdef", walk(pos, false));
}

TEST(Containers, PtrIndexKeepsEveryAddressThroughCollisionsAndGrowth) {
    // Densely packed small objects share lines, and objects at one offset of many pages
    // share a slot within their page's run: both collide on purpose.
    std::vector<std::uint64_t> dense(20000, 0);
    std::vector<char> pages(4096u * 3000);
    std::vector<const void*> keys{nullptr};
    for (auto& d : dense) keys.push_back(&d);
    for (std::size_t i = 0; i < pages.size(); i += 4096) keys.push_back(&pages[i]);
    PtrIndex index;
    EXPECT_TRUE(index.Empty());
    EXPECT_EQ(nullptr, index.Find(nullptr));
    for (std::uint32_t i = 0; i < keys.size(); ++i) index.Set(keys[i], i);
    index.Set(keys[7], 7000000);   // overwrites, adds nothing
    for (std::uint32_t i = 0; i < keys.size(); ++i) {
        const std::uint32_t* found = index.Find(keys[i]);
        ASSERT_NE(nullptr, found) << i;
        EXPECT_EQ(i == 7 ? 7000000u : i, *found);
    }
    EXPECT_EQ(nullptr, index.Find(&pages[8]));
    index.Clear();
    EXPECT_TRUE(index.Empty());
    EXPECT_EQ(nullptr, index.Find(keys[1]));
}
