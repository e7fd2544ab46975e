// Golden bytes for every byte rule of the archive, each checked in both
// directions: the writer produces the bytes and the reader takes them back.
#include "ArchiveTestSupport.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

#include <memory>

using testutil::Hex;

namespace {

void ExpectBytes(const Bytes& expected, const Bytes& actual) {
    EXPECT_EQ(Hex(expected), Hex(actual));
}

}  // namespace

TEST(ArchiveFormat, IntegersAreLittleEndianRawBytes) {
    const Bytes bytes = StoreBytes([](CArchive& ar) {
        ar << static_cast<unsigned char>(0xAB) << static_cast<unsigned short>(0x1234)
           << static_cast<unsigned int>(0xDEADBEEF);
    });
    ExpectBytes({0xAB, 0x34, 0x12, 0xEF, 0xBE, 0xAD, 0xDE}, bytes);
    LoadBytes(bytes, [](CArchive& ar) {
        unsigned char b = 0;
        unsigned short w = 0;
        unsigned int dw = 0;
        ar >> b >> w >> dw;
        EXPECT_EQ(0xAB, b);
        EXPECT_EQ(0x1234, w);
        EXPECT_EQ(0xDEADBEEFu, dw);
    });
}

TEST(ArchiveFormat, CountPrefixBoundaries) {
    const struct {
        std::uint32_t count;
        Bytes bytes;
    } cases[] = {
        {0, {0x00, 0x00}},
        {0xFFFE, {0xFE, 0xFF}},
        {0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}},
        {0x12345678, {0xFF, 0xFF, 0x78, 0x56, 0x34, 0x12}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.count);
        ExpectBytes(c.bytes, StoreBytes([&](CArchive& ar) { ar.WriteCount(c.count); }));
        LoadBytes(c.bytes, [&](CArchive& ar) { EXPECT_EQ(c.count, ar.ReadCount()); });
    }
}

TEST(ArchiveFormat, StringLengthPrefixBoundaries) {
    const struct {
        std::uint32_t length;
        Bytes prefix;
    } cases[] = {
        {1, {0x01}},
        {254, {0xFE}},
        {255, {0xFF, 0xFF, 0x00}},
        {0xFFFD, {0xFF, 0xFD, 0xFF}},
        {0xFFFE, {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}},
        {0x10001, {0xFF, 0xFF, 0xFF, 0x01, 0x00, 0x01, 0x00}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.length);
        std::string text(c.length, 'x');
        text.front() = 'A';
        text.back() = 'Z';
        const Bytes bytes = StoreBytes([&](CArchive& ar) { ar << text; });
        ExpectBytes(Cat({c.prefix, Str(text)}), bytes);
        std::string back;
        LoadBytes(bytes, [&](CArchive& ar) { ar >> back; });
        EXPECT_EQ(text, back);
    }
    ExpectBytes({0x00}, StoreBytes([](CArchive& ar) { ar << std::string(); }));
}

TEST(ArchiveFormat, StringReadingQuirks) {
    // An empty stored string leaves the target as it was.
    std::string target = "keep";
    LoadBytes({0x00}, [&](CArchive& ar) { ar >> target; });
    EXPECT_EQ("keep", target);

    // The bytes are taken as NUL-terminated text.
    const std::string withNul("ab\0cd", 5);
    const Bytes stored = StoreBytes([&](CArchive& ar) { ar << withNul; });
    ExpectBytes({0x05, 'a', 'b', 0x00, 'c', 'd'}, stored);
    LoadBytes(stored, [&](CArchive& ar) { ar >> target; });
    EXPECT_EQ("ab", target);

    // The wide marker doubles the byte count; one-byte and 16-bit second prefixes.
    LoadBytes({0xFF, 0xFE, 0xFF, 0x02, 'A', 0x00, 'B', 0x00, 0x01, 'q'}, [&](CArchive& ar) {
        ar >> target;
        EXPECT_EQ("A", target);
        std::string next;
        ar >> next;
        EXPECT_EQ("q", next);   // exactly four bytes were consumed
    });
    Bytes wide16 = {0xFF, 0xFE, 0xFF, 0xFF, 0x00, 0x01};
    Bytes wideBody(0x200, 'w');
    wide16.insert(wide16.end(), wideBody.begin(), wideBody.end());
    LoadBytes(wide16, [&](CArchive& ar) { ar >> target; });
    EXPECT_EQ(std::string(0x200, 'w'), target);
}

TEST(ArchiveFormat, ObjectReferencesNewClassKnownObjectAndNull) {
    CTestItem item(7, "ab");
    const Bytes bytes = StoreBytes([&](CArchive& ar) {
        ar << &item;
        ar << &item;
        ar << static_cast<const CObject*>(nullptr);
    });
    ExpectBytes(Cat({{0xFF, 0xFF}, ClassRecord(1, "CTestItem"), Le32(7), {0x02, 'a', 'b'},
                     {0x02, 0x00},
                     {0x00, 0x00}}),
                bytes);

    LoadBytes(bytes, [](CArchive& ar) {
        CObject* first = nullptr;
        CObject* second = nullptr;
        CTestItem sentinel;
        CObject* third = &sentinel;
        ar >> first >> second >> third;
        std::unique_ptr<CObject> owner(first);
        ASSERT_NE(nullptr, first);
        EXPECT_EQ(first, second);
        EXPECT_EQ(nullptr, third);
        ASSERT_TRUE(first->IsKindOf(CLASS_RECORD(CTestItem)));
        auto* loaded = static_cast<CTestItem*>(first);
        EXPECT_EQ(7u, loaded->m_value);
        EXPECT_EQ("ab", loaded->m_text);
        EXPECT_EQ(1u, loaded->m_loadedSchema);
    });
}

TEST(ArchiveFormat, TwoObjectsOfOneClassShareTheClassRecord) {
    CTestItem a(1, "x"), b(2, "y");
    const Bytes bytes = StoreBytes([&](CArchive& ar) {
        ar << &a << &b;
    });
    ExpectBytes(Cat({{0xFF, 0xFF}, ClassRecord(1, "CTestItem"), Le32(1), {0x01, 'x'},
                     {0x01, 0x80}, Le32(2), {0x01, 'y'}}),
                bytes);
    LoadBytes(bytes, [](CArchive& ar) {
        std::unique_ptr<CObject> a2(ar.ReadObject(nullptr));
        std::unique_ptr<CObject> b2(ar.ReadObject(nullptr));
        ASSERT_TRUE(a2 && b2);
        EXPECT_NE(a2.get(), b2.get());
        EXPECT_EQ(2u, static_cast<CTestItem*>(b2.get())->m_value);
        EXPECT_EQ(1u, static_cast<CTestItem*>(b2.get())->m_loadedSchema);
    });
}

TEST(ArchiveFormat, BigTagsAboveIndex7FFE) {
    // Objects mapped beforehand occupy indices 1..0x7FFC on both sides.
    std::vector<CTestItem> filler(0x7FFC);
    CTestItem x(10, "x"), y(11, "y");
    CTestVersioned z, w;
    z.m_word = 0x2222;
    w.m_word = 0x3333;
    const Bytes bytes = StoreBytes([&](CArchive& ar) {
        for (CTestItem& f : filler) ar.MapObject(&f);
        ar << &x;   // class 0x7FFD, object 0x7FFE
        ar << &x;   // 0x7FFE still fits 16 bits
        ar << &y;   // class tag 0x8000|0x7FFD, object 0x7FFF
        ar << &y;   // 0x7FFF needs the big tag
        ar << &z;   // class 0x8000, object 0x8001
        ar << &w;   // class index 0x8000 needs the big class tag
        ar << &filler[4];
    });
    ExpectBytes(Cat({{0xFF, 0xFF}, ClassRecord(1, "CTestItem"), Le32(10), {0x01, 'x'},
                     {0xFE, 0x7F},
                     {0xFD, 0xFF}, Le32(11), {0x01, 'y'},
                     {0xFF, 0x7F}, Le32(0x7FFF),
                     {0xFF, 0xFF}, ClassRecord(2, "CTestVersioned"), Le16(0x2222),
                     {0xFF, 0x7F}, Le32(0x80008000), Le16(0x3333),
                     {0x05, 0x00}}),
                bytes);

    LoadBytes(bytes, [&](CArchive& ar) {
        for (CTestItem& f : filler) ar.MapObject(&f);
        std::unique_ptr<CObject> x1(ar.ReadObject(nullptr));
        CObject* x2 = ar.ReadObject(nullptr);
        std::unique_ptr<CObject> y1(ar.ReadObject(nullptr));
        CObject* y2 = ar.ReadObject(nullptr);
        std::unique_ptr<CObject> z1(ar.ReadObject(nullptr));
        std::unique_ptr<CObject> w1(ar.ReadObject(nullptr));
        CObject* f4 = ar.ReadObject(nullptr);
        EXPECT_EQ(x1.get(), x2);
        EXPECT_EQ(y1.get(), y2);
        ASSERT_TRUE(y1 && w1);
        EXPECT_EQ(11u, static_cast<CTestItem*>(y1.get())->m_value);
        EXPECT_EQ(0x3333, static_cast<CTestVersioned*>(w1.get())->m_word);
        EXPECT_EQ(&filler[4], f4);
    });
}

TEST(ArchiveFormat, ClassRecordsAndSchemas) {
    CObList list;
    ExpectBytes(Cat({{0xFF, 0xFF}, ClassRecord(0, "CObList"), {0x00, 0x00}}),
                StoreBytes([&](CArchive& ar) { ar << &list; }));

    // A versionable class written with an older schema reports it for every object;
    // the current one (2) is reported when the stored schema matches.
    for (unsigned stored : {1u, 2u}) {
        SCOPED_TRACE(stored);
        const Bytes old = Cat({{0xFF, 0xFF}, ClassRecord(stored, "CTestVersioned"), Le16(5),
                               {0x01, 0x80}, Le16(6)});
        LoadBytes(old, [&](CArchive& ar) {
            std::unique_ptr<CObject> a(ar.ReadObject(nullptr));
            std::unique_ptr<CObject> b(ar.ReadObject(nullptr));
            ASSERT_TRUE(a && b);
            EXPECT_EQ(stored, static_cast<CTestVersioned*>(a.get())->m_loadedSchema);
            EXPECT_EQ(stored, static_cast<CTestVersioned*>(b.get())->m_loadedSchema);
            EXPECT_EQ(6, static_cast<CTestVersioned*>(b.get())->m_word);
        });
    }

    // A non-versionable class accepts another schema silently.
    const Bytes odd = Cat({{0xFF, 0xFF}, ClassRecord(9, "CTestItem"), Le32(3), {0x00}});
    LoadBytes(odd, [](CArchive& ar) {
        std::unique_ptr<CObject> a(ar.ReadObject(nullptr));
        ASSERT_TRUE(a);
        EXPECT_EQ(3u, static_cast<CTestItem*>(a.get())->m_value);
        EXPECT_EQ(0xFFFFFFFFu, ar.GetObjectSchema());   // restored after the object
    });

    // SerializeClass writes and reads a bare class reference.
    const Bytes classes = StoreBytes([](CArchive& ar) {
        ar.SerializeClass(CLASS_RECORD(CTestItem));
        ar.SerializeClass(CLASS_RECORD(CTestItem));
    });
    ExpectBytes(Cat({{0xFF, 0xFF}, ClassRecord(1, "CTestItem"), {0x01, 0x80}}), classes);
    LoadBytes(classes, [](CArchive& ar) {
        ar.SerializeClass(CLASS_RECORD(CTestItem));
        EXPECT_EQ(1u, ar.GetObjectSchema());
        EXPECT_EQ(0xFFFFFFFFu, ar.GetObjectSchema());
        EXPECT_EQ(CLASS_RECORD(CTestItem), ar.ReadClass());
    });
}

TEST(ArchiveFormat, WriteStringWritesNothingAndReadStringReadsLines) {
    ExpectBytes({}, StoreBytes([](CArchive& ar) { ar.WriteString("hello\n"); }));

    LoadBytes(Str("one\r\ntwo\nthree"), [](CArchive& ar) {
        char buf[16];
        ASSERT_NE(nullptr, ar.ReadString(buf, 15));
        EXPECT_STREQ("one", buf);   // CR and the byte after it are consumed
        ASSERT_NE(nullptr, ar.ReadString(buf, -15));
        EXPECT_STREQ("two\n", buf);   // a negative maximum keeps the line feed
        ASSERT_NE(nullptr, ar.ReadString(buf, 3));
        EXPECT_STREQ("thr", buf);     // stops at the maximum
        ASSERT_NE(nullptr, ar.ReadString(buf, 15));
        EXPECT_STREQ("ee", buf);
        EXPECT_EQ(nullptr, ar.ReadString(buf, 15));
    });

    std::string longLine(300, 'L');
    LoadBytes(Str(longLine + "\nnext"), [&](CArchive& ar) {
        std::string line;
        EXPECT_TRUE(ar.ReadString(line));
        // The line feed becomes a NUL in place; the length keeps it.
        EXPECT_EQ(longLine + std::string(1, '\0'), line);
        EXPECT_TRUE(ar.ReadString(line));
        EXPECT_EQ("next", line);
    });
}
