// The archive's byte rules both ways, round trips, hostile input, and container rules; list files cover disk files.
#include "archive/arcobj.h"
#include "ArchiveBytes.h"
#include "TestUtil.h"
#include "TrackedObjects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>

using testutil::Hex;
using Bytes = std::vector<std::uint8_t>;
using A = ArchiveBytes;

namespace {

Bytes StoreBytes(const std::function<void(CArchive&)>& store, int bufSize = 4096) {
    CMemFile file;
    { CArchive ar(&file, CArchive::store, bufSize); store(ar); }   // the destructor flushes
    const std::size_t len = file.GetLength();
    std::unique_ptr<unsigned char, decltype(&std::free)> block(file.Detach(), &std::free);
    return Bytes(block.get(), block.get() + len);
}

// Loads from a copy of exactly the bytes' size on the heap, so ASan sees every read past the end.
void LoadBytes(Bytes bytes, const std::function<void(CArchive&)>& load, int bufSize = 4096) {
    CMemFile file(bytes.data(), static_cast<unsigned>(bytes.size()), 0);
    CArchive ar(&file, CArchive::load, bufSize);
    load(ar);
}

// How `fn` ends: it returns, throws CFileException*, or (under HostileLoads) hits the assertion.
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

// For loads that may fail: the collections they create are tracked and freed, and the assertion throws ShortString.
class HostileLoads {
    CRuntimeClass m_records[3] = {TrackedRecord<CObList>("CObList"), TrackedRecord<CStringArray>("CStringArray"),
                                  TrackedRecord<CMapStringToOb>("CMapStringToOb")};
    ArchiveAssertHandler m_previous = SetArchiveAssertHandler([](const char*, int) { throw ShortString{}; });
public:
    HostileLoads() { for (CRuntimeClass& c : m_records) AfxClassInit(&c); }
    ~HostileLoads() {
        DeleteLiveObjects();
        for (CRuntimeClass& c : m_records) AfxClassClose(&c);
        SetArchiveAssertHandler(m_previous);
    }
};

// One string per object, lengths across every boundary; shared objects, nested collections, nulls, a self reference.
struct Graph {
    CObList top;
    CMapStringToOb map;
    std::vector<std::unique_ptr<CStringArray>> items;
    explicit Graph(bool large) {
        for (unsigned len : {0u, 1u, 127u, 128u, 129u, 254u, 255u, 256u, 4095u, 4096u, 4097u, 70000u}) {
            if (!large && len > 300) continue;
            std::string s;
            for (unsigned i = 0; i < len; ++i) s += static_cast<char>('a' + i % 26);
            items.emplace_back(std::make_unique<CStringArray>())->Add(s);
            top.AddTail(items.back().get());
        }
        map.SetAt("a", items[1].get()), map.SetAt("", &top), map.SetAt("null", nullptr);
        for (CObject* ob : std::initializer_list<CObject*>{items[2].get(), nullptr, &map, &top}) top.AddTail(ob);
    }
    Bytes Store(int bufSize) const { return StoreBytes([&](CArchive& ar) { ar << &top; }, bufSize); }
};

}  // namespace

TEST(ArchiveFormat, CountsAndStringPrefixes) {
    const std::pair<std::uint32_t, Bytes> counts[] = {
        {0, {0x00, 0x00}}, {0xFFFE, {0xFE, 0xFF}}, {0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}}};
    for (const auto& c : counts) {
        EXPECT_EQ(Hex(c.second), Hex(StoreBytes([&](CArchive& ar) { ar.WriteCount(c.first); })));
        LoadBytes(c.second, [&](CArchive& ar) { EXPECT_EQ(c.first, ar.ReadCount()); });
    }
    const std::pair<std::uint32_t, Bytes> strings[] = {{0, {0x00}}, {254, {0xFE}}, {255, {0xFF, 0xFF, 0x00}},
        {0xFFFD, {0xFF, 0xFD, 0xFF}}, {0xFFFE, {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}},
        {0x10001, {0xFF, 0xFF, 0xFF, 0x01, 0x00, 0x01, 0x00}}};
    for (const auto& c : strings) {
        std::string text(c.first, 'x'), back;
        if (c.first) text.back() = 'Z';
        const Bytes bytes = StoreBytes([&](CArchive& ar) { ar << text; });
        EXPECT_EQ(Hex(A{c.second}.raw(text).b), Hex(bytes)) << c.first;
        LoadBytes(bytes, [&](CArchive& ar) { ar >> back; });
        EXPECT_EQ(text, back);
    }
}

// New class, known class, known object and null tags, below and from the big-tag index 0x7FFF on.
TEST(ArchiveFormat, ObjectAndClassTagsSmallAndBig) {
    std::vector<CStringArray> filler(0x7FFC);   // mapped beforehand: indices 1..0x7FFC on both sides
    CStringArray x, y;
    x.Add("x"), y.Add("y");
    CObList z, w;
    const Bytes bytes = StoreBytes([&](CArchive& ar) {
        for (CStringArray& f : filler) ar.MapObject(&f);
        ar << &x << &x << &y << &y << &z << &w << &filler[4] << static_cast<CObject*>(nullptr);
    });
    EXPECT_EQ(Hex(A().cls(0, "CStringArray").u16(1).str("x").u16(0x7FFE)         // class 0x7FFD, x 0x7FFE: fit
                      .u16(0xFFFD).u16(1).str("y").u16(0x7FFF).u32(0x7FFF)        // y 0x7FFF: big tag
                      .cls(0, "CObList").u16(0).u16(0x7FFF).u32(0x80008000).u16(0)   // class 0x8000
                      .u16(5).u16(0).b),
              Hex(bytes));
    LoadBytes(bytes, [&](CArchive& ar) {
        for (CStringArray& f : filler) ar.MapObject(&f);
        CObject* got[8];
        for (CObject*& p : got) p = ar.ReadObject(nullptr);
        EXPECT_TRUE(got[0] == got[1] && got[2] == got[3] && got[0] != got[2] && got[6] == &filler[4] && !got[7]);
        ASSERT_TRUE(got[2] && got[5] && got[5]->IsKindOf(CLASS_RECORD(CObList)));
        EXPECT_EQ("y", static_cast<CStringArray*>(got[2])->GetAt(0));
        for (int i : {0, 2, 4, 5}) delete got[i];
    });
}

// Lines read one after another, "|" between them, "(end)" when none is left. ReadString(buffer, max)
// for a max, ReadString(string) for 0: 128-byte pieces up to a line feed, a final LF becoming a NUL ("$").
TEST(ArchiveFormat, LineReadingBothOverloads) {
    const std::string s128(128, 'y'), s300(300, 'x');
    const struct { std::string input; int max; std::string lines; } cases[] = {
        {"ab\ncd", 10, "ab|cd|(end)"}, {"ab\r\ncd\r\n", 10, "ab|cd|(end)"}, {"abcdef\n", 4, "abcd|ef|(end)"},
        {"ab\rXcd", 10, "ab|cd|(end)"},             // the byte after CR is taken unseen
        {"ab\ncd", -10, "ab\n|cd|(end)"},           // a negative maximum keeps the LF
        {"line\nnext", 0, "line$|next|(end)"}, {"a\r\nb", 0, "a$|b|(end)"}, {s300 + "\n", 0, s300 + "$|(end)"},
        {"a\rXb", 0, "aX|b|(end)"},                 // a piece ends at CR plus one byte, LF or not
        {s128 + "\n" + s128, 0, s128 + "$|" + s128 + "|(end)"}, {s128 + s128, 0, s128 + s128 + "|(end)"}};
    for (const auto& c : cases) {
        std::string lines;
        char buffer[16];
        LoadBytes(A().raw(c.input).b, [&](CArchive& ar) {
            for (int i = 0; i < 4 && lines.find("(end)") == std::string::npos; ++i) {
                std::string line = !c.max ? "stale" : ar.ReadString(buffer, c.max) ? buffer : "";
                if (!c.max) { EXPECT_TRUE(ar.ReadString(line)); }
                std::replace(line.begin(), line.end(), '\0', '$');
                lines += (i ? "|" : "") + (line.empty() ? "(end)" : line);
            }
        });
        EXPECT_EQ(c.lines, lines) << c.input.substr(0, 20) << " max " << c.max;
    }
}

TEST(ArchiveRoundTrip, BothBufferSizesAndEveryTruncatedPrefix) {
    Graph g(true);
    const Bytes reference = g.Store(4096);
    const Bytes full = Graph(false).Store(128);
    HostileLoads hostile;
    for (int bufSize : {128, 4096}) {
        SCOPED_TRACE(bufSize);
        ASSERT_EQ(reference, g.Store(bufSize));
        CObject* loaded = nullptr;
        LoadBytes(reference, [&](CArchive& ar) { loaded = ar.ReadObject(nullptr); }, bufSize);
        ASSERT_TRUE(loaded && loaded->IsKindOf(CLASS_RECORD(CObList)));
        EXPECT_EQ(reference, StoreBytes([&](CArchive& ar) { ar << loaded; }, bufSize));
        for (std::size_t len = 0; len < full.size(); ++len) {
            EXPECT_NE(kLoaded, OutcomeOf([&] { LoadBytes(Bytes(&full[0], &full[len]), ReadOne, bufSize); })) << len;
            DeleteLiveObjects();
        }
    }
}

TEST(ArchiveRobustnessDeathTest, ShortStringEndsTheProcessThroughTheAssertion) {
    std::string s;
    const auto cut = [&] { LoadBytes({0x05, 'a', 'b'}, [&](CArchive& ar) { ar >> s; }); };
    EXPECT_DEATH(cut(), "arcobj\\.cpp\\(925\\): assertion failed");
    SetArchiveAssertHandler([](const char*, int) {});   // a handler that returns does not let the load go on
    EXPECT_DEATH(cut(), "");
    SetArchiveAssertHandler(nullptr);
}

// Bad object tags give null and the stream goes on; bad classes give null and end it. Data ending inside a number
// or prefix throws, not the assertion; so does a huge claimed count (the heap peak test bounds what such claims cost).
TEST(ArchiveRobustness, BadTagsShortDataAndHugeClaims) {
    HostileLoads hostile;
    const Bytes item = A().cls(0, "CStringArray").u16(1).str("s").b;   // class 1, object 2
    LoadBytes(A{item}.u16(1).u16(7).u16(0x7FFF).u32(0x7FFFFFFF).u16(2).b, [](CArchive& ar) {
        CObject* first = ar.ReadObject(nullptr);
        ASSERT_NE(nullptr, first);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(nullptr, ar.ReadObject(nullptr));
        EXPECT_EQ(first, ar.ReadObject(nullptr));
    });
    const auto badClass = [](CArchive& ar) {
        EXPECT_EQ(nullptr, ar.ReadObject(nullptr));
        unsigned dw;
        ar >> dw;
    };
    const auto itemThenBadClass = [&](CArchive& ar) { EXPECT_NE(nullptr, ar.ReadObject(nullptr)); badClass(ar); };
    const auto str = [](CArchive& ar) { std::string s; ar >> s; };
    const std::pair<Bytes, std::function<void(CArchive&)>> cases[] = {
        {A().cls(0, "CNoSuchClass").u32(0).b, badClass}, {A().cls(0, "cobList").u32(0).b, badClass},
        {A().cls(0, "CPtrArray").u32(0).b, badClass}, {A{item}.u16(0x8002).u32(0).b, itemThenBadClass},
        {A().u16(0x8009).u32(0).b, badClass}, {A().u16(0x7FFF).u32(0xFFFFFFFF).u32(0).b, badClass},
        {{}, [](CArchive& ar) { unsigned char b; ar >> b; }}, {{0x01, 0x02, 0x03}, [](CArchive& ar) { unsigned dw; ar >> dw; }},
        {{0xFF, 0xFF, 0x01, 0x02, 0x03}, [](CArchive& ar) { ar.ReadCount(); }}, {{0xFF, 0xFE, 0xFF}, str},
        {A().u16(0xFFFF).u16(0).u16(7).raw("CObL").b, ReadOne},
        {A().u16(0xFFFF).u32(0xFFFFFFFF).str("a").str("b").u8(0).b, [](CArchive& ar) { CStringArray().Serialize(ar); }},
        {A().u16(0xFFFF).u32(0xFFFFFFFF).raw(std::string(2000, '\0')).b, [](CArchive& ar) { CObList().Serialize(ar); }}};
    for (const auto& [bytes, load] : cases) EXPECT_EQ(kFileException, OutcomeOf([&] { LoadBytes(bytes, load); })) << Hex(bytes);
    // A string that claims more bytes than there are hits the assertion.
    EXPECT_EQ(kAssertion, OutcomeOf([&] { LoadBytes(A().u8(0xFF).u16(0xFFFF).u32(0x7FFFFFF0).raw("tiny").b, str); }));
}

TEST(Containers, PtrArrayAndMemFileGrowth) {
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
    const std::vector<char> big(1025, 'b');
    CMemFile file(1024);
    file.Write(big.data(), 1025);
    EXPECT_EQ(2048u, file.GetBufferSize());
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
    CObList item;
    CMapStringToOb map;
    std::string key;
    CObject* value;
    auto walk = [&](POSITION pos, bool removeEach) {
        std::string seen;
        for (; pos; seen += value ? key : "-") {
            map.GetNextAssoc(pos, key, value);
            if (value && removeEach) { EXPECT_TRUE(map.RemoveKey(key)); }
        }
        return seen;
    };
    // Removing the entry just returned shifts the rest under the index: every other one is seen, then a null.
    for (const char* k : {"a", "b", "c", "d"}) map.SetAt(k, &item);
    EXPECT_EQ("ac-", walk(map.GetStartPosition(), true));
    // Inserts before the cursor keep the index meaning "entry n".
    for (const char* k : {"b", "d", "f"}) map.SetAt(k, &item);
    POSITION pos = map.GetStartPosition();
    map.GetNextAssoc(pos, key, value);   // b; cursor 1
    map.SetAt("a", &item);               // a b d f: index 1 is b again
    map.SetAt("e", &item);
    EXPECT_EQ("bdef", walk(pos, false));
}

// Collisions and growth show in the big-tag test; here what the store map does that no test of the archive reaches.
TEST(Containers, PtrIndexOverwritesAndForgets) {
    PtrIndex index;
    const int keys[2] = {};
    index.Set(&keys[0], 1), index.Set(&keys[1], 2), index.Set(&keys[0], 3);
    EXPECT_TRUE(*index.Find(&keys[0]) == 3 && *index.Find(&keys[1]) == 2 && !index.Find(nullptr));
    index.Clear();
    EXPECT_TRUE(index.Empty() && !index.Find(&keys[0]));
}
