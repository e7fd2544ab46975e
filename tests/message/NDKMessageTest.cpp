// The message: golden wire bytes per element type and for compressed blocks,
// round trips through the flat buffer and the object archive, every truncated
// prefix and corrupted bytes, and the cursor, padding, limit and append rules.
#include "message/NDKMessage.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes ToBytes(CNDKMessage& message) {
    void* block = nullptr;
    const int n = message.ToBuffer(&block);
    Bytes bytes(static_cast<const std::uint8_t*>(block), static_cast<const std::uint8_t*>(block) + n);
    std::free(block);
    return bytes;
}

// FromBuffer's outcome: true when loaded, false when it threw CFileException*.
bool Load(CNDKMessage& message, const Bytes& bytes) {
    try {
        message.FromBuffer(bytes.data(), static_cast<int>(bytes.size()));
        return true;
    } catch (CFileException* e) {
        delete e;
        return false;
    }
}

Bytes Header(int id, int count, unsigned hidden) {
    Bytes b;
    for (unsigned v : {static_cast<unsigned>(id), static_cast<unsigned>(count), hidden})
        for (int k = 0; k < 4; ++k) b.push_back(static_cast<std::uint8_t>(v >> (8 * k)));
    return b;
}

Bytes Pattern(size_t n, unsigned seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<std::uint8_t>(((i * 7 + seed) % 251) ^ (i >> 5));
    return b;
}

// One element of every type constructed by this module, plus a raw and a compressed block.
CNDKMessage Sample() {
    CNDKMessage m(-42);
    m.Add(static_cast<unsigned char>(0xAB));
    m.Add('z');
    m.Add(static_cast<unsigned short>(0xBEEF));
    m.Add(static_cast<short>(-300));
    m.Add(0xCAFEBABEu);
    m.Add(-123456);
    m.Add(3.25f);
    m.Add(-2.5e300);
    m.Add(0x0102030405060708ULL);
    m.Add(std::string(300, 'S'));
    m.AddUnc("raw", 3);
    const Bytes small = Pattern(40, 1), large = Pattern(2000, 2);
    m.Add(small.data(), 40);
    m.Add(large.data(), 2000);
    return m;
}

}  // namespace

TEST(NDKMessageWire, GoldenBytesOfEveryElementType) {
    struct Case {
        void (*add)(CNDKMessage&);
        Bytes element;
    };
    const Case cases[] = {
        {[](CNDKMessage& m) { m.Add(static_cast<unsigned char>(0x41)); }, {0x00, 0x41, 0, 0, 0, 0, 0, 0, 0}},
        {[](CNDKMessage& m) { m.Add(static_cast<char>(-2)); }, {0x01, 0xFE, 0, 0, 0, 0, 0, 0, 0}},
        {[](CNDKMessage& m) { m.Add(static_cast<unsigned short>(0x1234)); }, {0x02, 0x34, 0x12, 0, 0, 0, 0, 0, 0}},
        {[](CNDKMessage& m) { m.Add(static_cast<short>(-2)); }, {0x03, 0xFE, 0xFF, 0, 0, 0, 0, 0, 0}},
        {[](CNDKMessage& m) { m.Add(0xDEADBEEFu); }, {0x04, 0xEF, 0xBE, 0xAD, 0xDE, 0, 0, 0, 0}},
        {[](CNDKMessage& m) { m.Add(-1); }, {0x05, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}},
        {[](CNDKMessage& m) { m.Add(1.5f); }, {0x08, 0x00, 0x00, 0xC0, 0x3F, 0, 0, 0, 0}},
        {[](CNDKMessage& m) { m.Add(1.5); }, {0x09, 0, 0, 0, 0, 0, 0, 0xF8, 0x3F}},
        {[](CNDKMessage& m) { m.Add(0x0102030405060708ULL); }, {0x0C, 8, 7, 6, 5, 4, 3, 2, 1}},
        {[](CNDKMessage& m) { m.Add(std::string("abc")); }, {0x0A, 0x03, 'a', 'b', 'c'}},
        {[](CNDKMessage& m) { m.Add(std::string()); }, {0x0A, 0x00}},
        {[](CNDKMessage& m) { m.AddUnc("xy", 2); }, {0x0B, 0x02, 0, 0, 0, 'x', 'y'}},
        {[](CNDKMessage& m) { m.AddUnc(nullptr, 0); }, {0x0B, 0, 0, 0, 0}},
    };
    for (const Case& c : cases) {
        CNDKMessage m(0x01020304);
        c.add(m);
        Bytes expected = Header(0x01020304, 1, 0);
        expected.insert(expected.end(), c.element.begin(), c.element.end());
        EXPECT_EQ(testutil::Hex(ToBytes(m)), testutil::Hex(expected));
    }

    CNDKMessage empty(7);
    EXPECT_EQ(testutil::Hex(ToBytes(empty)), "07 00 00 00 00 00 00 00 00 00 00 00");

    // A 255-byte string takes the 0xFF escape and a 16-bit length.
    CNDKMessage longText(1);
    longText.Add(std::string(255, 'L'));
    const Bytes wire = ToBytes(longText);
    ASSERT_EQ(wire.size(), 12u + 4 + 255);
    EXPECT_EQ(testutil::Hex(Bytes(wire.begin() + 12, wire.begin() + 16)), "0A FF FF 00");
}

TEST(NDKMessageWire, BlocksOf99BytesGoRawAnd100BytesCompressed) {
    const Bytes data99 = Pattern(99, 3);
    CNDKMessage raw(2);
    EXPECT_EQ(raw.Add(data99.data(), 99), 1);
    Bytes expected = Header(2, 2, 1);
    const Bytes rawElements = {0x04, 0, 0, 0, 0, 0, 0, 0, 0, 0x0B, 99, 0, 0, 0};
    expected.insert(expected.end(), rawElements.begin(), rawElements.end());
    expected.insert(expected.end(), data99.begin(), data99.end());
    EXPECT_EQ(testutil::Hex(ToBytes(raw)), testutil::Hex(expected));

    const Bytes data100(100, 'A');
    CNDKMessage packed(2);
    packed.Add(data100.data(), 100);
    const Bytes wire = ToBytes(packed);
    ASSERT_GE(wire.size(), 12u + 9 + 5);
    EXPECT_EQ(testutil::Hex(Bytes(wire.begin(), wire.begin() + 12)), testutil::Hex(Header(2, 2, 1)));
    const std::uint32_t c = wire[13] | wire[14] << 8 | wire[15] << 16 | static_cast<std::uint32_t>(wire[16]) << 24;
    EXPECT_EQ(wire[12], 0x04);
    EXPECT_EQ(wire[21], 0x0B);
    EXPECT_EQ(0, std::memcmp(&wire[13], &wire[22], 4));   // hidden element holds the compressed length
    ASSERT_EQ(wire.size(), 12u + 9 + 5 + c);
    EXPECT_LT(c, 100u);
    EXPECT_EQ(wire[26], 0x78);   // zlib stream header, maximum compression
    EXPECT_EQ(wire[27], 0xDA);
    Bytes inflated(200);
    uLongf n = inflated.size();
    ASSERT_EQ(uncompress(inflated.data(), &n, &wire[26], c), Z_OK);
    inflated.resize(n);
    EXPECT_EQ(inflated, data100);
}

TEST(NDKMessageWire, RoundTripsThroughTheBufferAndTheObjectArchive) {
    CNDKMessage original = Sample();
    const Bytes wire = ToBytes(original);
    CNDKMessage loaded(99);
    loaded.Add(1);   // FromBuffer replaces existing content
    ASSERT_TRUE(Load(loaded, wire));
    EXPECT_EQ(ToBytes(loaded), wire);
    EXPECT_EQ(loaded.GetId(), -42);
    EXPECT_EQ(loaded.GetHiddenElements(), 2u);
    EXPECT_EQ(loaded.GetNbElements(), 13);

    unsigned char uc = 0; char ch = 0; unsigned short us = 0; short s = 0; unsigned u = 0; int i = 0;
    float f = 0; double d = 0; unsigned long long ull = 0; std::string text; char three[3];
    loaded.GetNext(uc); loaded.GetNext(ch); loaded.GetNext(us); loaded.GetNext(s); loaded.GetNext(u);
    loaded.GetNext(i); loaded.GetNext(f); loaded.GetNext(d); loaded.GetNext(ull); loaded.GetNext(text);
    loaded.GetNextUnc(three, 3);
    EXPECT_EQ(uc, 0xAB); EXPECT_EQ(ch, 'z'); EXPECT_EQ(us, 0xBEEF); EXPECT_EQ(s, -300);
    EXPECT_EQ(u, 0xCAFEBABEu); EXPECT_EQ(i, -123456); EXPECT_EQ(f, 3.25f); EXPECT_EQ(d, -2.5e300);
    EXPECT_EQ(ull, 0x0102030405060708ULL); EXPECT_EQ(text, std::string(300, 'S'));
    EXPECT_EQ(0, std::memcmp(three, "raw", 3));
    Bytes small(40), large(2000);
    loaded.GetNext(small.data(), 40);
    loaded.GetNext(large.data(), 2000);
    EXPECT_EQ(small, Pattern(40, 1));
    EXPECT_EQ(large, Pattern(2000, 2));
    EXPECT_EQ(loaded.GetHiddenElements(), 0u);
    EXPECT_TRUE(loaded.IsLastCurrentIndex());

    // Through the object archive: class record "CNDKMessage" schema 1, then the body.
    CMemFile file(1024);
    {
        CArchive ar(&file, CArchive::store);
        ar << static_cast<const CObject*>(&original);
        ar.Close();
    }
    file.SeekToBegin();
    CArchive ar(&file, CArchive::load);
    CNDKMessage* copy = nullptr;
    ar >> copy;
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(ToBytes(*copy), wire);
    delete copy;

    CNDKMessage sink;
    sink.Add(5);
    ASSERT_TRUE(Load(sink, Header(3, 0, 9)));
    EXPECT_EQ(sink.GetElements().GetSize(), 0);
    EXPECT_EQ(sink.GetHiddenElements(), 9u);
}

TEST(NDKMessageWire, UnknownAndReservedCodesAreKeptAsRawScalars) {
    Bytes wire = Header(1, 3, 0);
    for (std::uint8_t code : {6, 7, 255}) {
        wire.push_back(code);
        for (int k = 0; k < 8; ++k) wire.push_back(static_cast<std::uint8_t>(code + k));
    }
    CNDKMessage m;
    ASSERT_TRUE(Load(m, wire));
    EXPECT_EQ(m.GetDataTypeAt(2), 255);
    EXPECT_EQ(m.GetSize(), 8);   // 6 and 7 count as 32-bit values, 255 as nothing
    EXPECT_EQ(ToBytes(m), wire);
}

TEST(NDKMessageWire, TruncatedAndCorruptedBuffersThrowOrLoadStably) {
    CNDKMessage original = Sample();
    const Bytes wire = ToBytes(original);
    for (size_t n = 0; n < wire.size(); ++n) {
        CNDKMessage m;
        EXPECT_FALSE(Load(m, Bytes(wire.begin(), wire.begin() + static_cast<long>(n)))) << "prefix " << n;
    }
    for (size_t pos = 0; pos < wire.size(); ++pos) {
        for (std::uint8_t flip : {0x01, 0x80, 0xFF}) {
            Bytes bad = wire;
            bad[pos] ^= flip;
            CNDKMessage m;
            if (!Load(m, bad)) continue;
            const Bytes again = ToBytes(m);
            CNDKMessage m2;
            ASSERT_TRUE(Load(m2, again));
            EXPECT_EQ(ToBytes(m2), again);
            Bytes out(2000);
            while (!m.IsLastCurrentIndex()) m.GetNext(out.data(), 2000);   // corrupt blocks inflate safely
        }
    }

    // Counts and lengths far beyond the data are refused without allocating for them.
    Bytes huge = Header(1, 0x7FFFFFFF, 0);
    CNDKMessage m;
    EXPECT_FALSE(Load(m, huge));
    huge = Header(1, 1, 0);
    for (std::uint8_t b : {0x0B, 0xF0, 0xFF, 0xFF, 0xFF, 1, 2, 3}) huge.push_back(b);
    EXPECT_FALSE(Load(m, huge));
    bool thrown = false;
    try {
        m.FromBuffer(nullptr, 12);
    } catch (CFileException* e) {
        delete e;
        thrown = true;
    }
    EXPECT_TRUE(thrown);
}

TEST(NDKMessage, CompressedBlocksReadBackWithoutOverrunningTheDestination) {
    CNDKMessage m;
    m.Add(7);
    const Bytes data = Pattern(500, 9);
    EXPECT_EQ(m.Add(data.data(), 500), 2);
    EXPECT_EQ(m.GetNbElements(), 2);
    EXPECT_EQ(m.GetElements().GetSize(), 3);

    int first = 0;
    m.GetNext(first);
    Bytes out(300 + 16, 0xEE);
    m.GetNext(out.data(), 300);   // smaller than the inflated size
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 300), Bytes(data.begin(), data.begin() + 300));
    EXPECT_EQ(Bytes(out.begin() + 300, out.end()), Bytes(16, 0xEE));
    EXPECT_EQ(m.GetHiddenElements(), 0u);
    EXPECT_EQ(m.GetNbElements(), 3);
}

TEST(NDKMessage, CursorAndInvalidIndices) {
    CNDKMessage m(3);
    m.Add(11);
    EXPECT_EQ(m.GetDataTypeAt(-1), NDKString);
    EXPECT_EQ(m.GetDataTypeAt(1), NDKString);
    EXPECT_EQ(m.GetDataTypeAt(0), NDKInt);

    int v = 0;
    m.GetNext(v);
    EXPECT_EQ(v, 11);
    v = -5;
    m.GetNext(v);   // past the end: untouched, but the cursor still moves
    EXPECT_EQ(v, -5);
    EXPECT_EQ(m.GetCurrentIndex(), 2);
    EXPECT_TRUE(m.IsLastCurrentIndex());
    EXPECT_FALSE(m.AdvanceCurrIndex());
    m.ResetCurrentIndex();
    EXPECT_FALSE(m.IsLastCurrentIndex());
    EXPECT_TRUE(m.AdvanceCurrIndex());
    char buf[4];
    EXPECT_FALSE(m.GetAtUnc(5, buf, 4));
    EXPECT_FALSE(m.GetAtUnc(0, buf, 4));   // not a buffer element

    // RemoveAll keeps identifier, cursor and hidden count.
    m.Add("0123", 4);
    m.RemoveAll();
    EXPECT_EQ(m.GetId(), 3);
    EXPECT_EQ(m.GetCurrentIndex(), 1);
    EXPECT_EQ(m.GetHiddenElements(), 1u);
    EXPECT_EQ(m.GetNbElements(), -1);
}

TEST(NDKMessage, SetAtPadsLimitSizeTruncatesAppendCopiesRawElements) {
    CNDKMessage m;
    m.SetAt(2, std::string("x"));
    m.SetAt(-1, 5);
    m.SetAt(0x100000000L, 5);
    ASSERT_EQ(m.GetElements().GetSize(), 3);
    EXPECT_EQ(m.GetDataTypeAt(0), NDKInt);
    EXPECT_EQ(m.GetDataTypeAt(1), NDKInt);
    std::string text;
    m.GetAt(2, text);
    EXPECT_EQ(text, "x");
    m.SetAt(1, "raw", 3);   // raw bytes, no hidden element
    EXPECT_EQ(m.GetDataTypeAt(1), NDKBuffer);
    EXPECT_EQ(m.GetHiddenElements(), 0u);

    CNDKMessage six;
    for (int i = 0; i < 6; ++i) six.Add(i);
    six.LimitSize(4);
    EXPECT_EQ(six.GetElements().GetSize(), 4);
    six.LimitSize(10);
    EXPECT_EQ(six.GetElements().GetSize(), 4);

    CNDKMessage five;
    for (int i = 10; i < 14; ++i) five.Add(i);
    five.Add(std::string("a"));
    CNDKMessage target(1);
    target.Add(static_cast<unsigned char>(1));
    target.Append(five, 2);
    ASSERT_EQ(target.GetElements().GetSize(), 4);
    int third = 0;
    target.GetAt(1, third);
    EXPECT_EQ(third, 12);
    target.Append(five, 9);
    EXPECT_EQ(target.GetElements().GetSize(), 4);
    target.Append(target);
    EXPECT_EQ(target.GetElements().GetSize(), 8);
    EXPECT_EQ(target.GetHiddenElements(), 0u);

    CNDKMessage hidden;
    hidden.Add("abc", 3);
    target.Append(hidden);
    EXPECT_EQ(target.GetElements().GetSize(), 10);
    EXPECT_EQ(target.GetHiddenElements(), 0u);   // Append leaves the hidden count alone
}

TEST(NDKMessage, EqualityCopiesAndPayloadSize) {
    CNDKMessage a(5);
    a.Add(1);
    a.Add(std::string("abc"));
    a.Add("blob", 4);
    CNDKMessage b(a);
    EXPECT_TRUE(a == b);
    b.SetId(6);
    EXPECT_TRUE(a != b);
    CNDKMessage c;
    c = a;
    EXPECT_TRUE(a == c);
    c.SetAt(1, std::string("ABC"));
    EXPECT_TRUE(a != c);
    // 1 (int) 4 + 3 + hidden uint 4 + 4 bytes
    EXPECT_EQ(a.GetSize(), 15);

    a.Add(1ULL);
    CNDKMessage copy(a);
    EXPECT_FALSE(a == copy);   // a 64-bit element is never equal
    EXPECT_FALSE(a == a);
    EXPECT_EQ(a.GetSize(), 15);   // and counts nothing in the payload size

    CNDKMessage sizes;
    sizes.Add('c'); sizes.Add(static_cast<short>(1)); sizes.Add(1.0f); sizes.Add(1.0);
    EXPECT_EQ(sizes.GetSize(), 1 + 2 + 4 + 8);
}
