// The message wire format as golden bytes, round trips through the flat buffer, truncated and corrupted buffers,
// and the padding, limit and equality rules.
#include "../archive/ArchiveBytes.h"
#include "MessageBytes.h"
#include "TestUtil.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <functional>
#include <iterator>
#include <vector>

using testutil::Hex;
using Bytes = std::vector<std::uint8_t>;

namespace {

ArchiveBytes Header(unsigned id, unsigned count, unsigned hidden) { return ArchiveBytes().u32(id).u32(count).u32(hidden); }

Bytes Pattern(size_t n) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<std::uint8_t>((i * 7 % 251) ^ (i >> 5));
    return b;
}

const std::pair<std::function<void(CNDKMessage&)>, Bytes> kElements[] = {
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
    {[](CNDKMessage& m) { m.AddUnc("xy", 2); }, {0x0B, 0x02, 0, 0, 0, 'x', 'y'}},
};

}  // namespace

TEST(NDKMessageWire, GoldenBytesOfEveryElementType) {
    for (const auto& c : kElements) {
        CNDKMessage m(0x01020304);
        c.first(m);
        EXPECT_EQ(Hex(Header(0x01020304, 1, 0).raw(c.second).b), Hex(ToBytes(m)));
    }
    CNDKMessage empty(7);
    EXPECT_EQ("07 00 00 00 00 00 00 00 00 00 00 00", Hex(ToBytes(empty)));
}

// A block goes raw behind a hidden 0 up to 99 bytes, and from 100 on as a level-9 zlib block behind its length.
TEST(NDKMessageWire, BlocksOf99BytesGoRawAnd100BytesCompressed) {
    for (const unsigned size : {99u, 100u}) {
        const Bytes data = Pattern(size);
        Bytes packed(compressBound(size));
        uLongf n = packed.size();
        ASSERT_EQ(Z_OK, compress2(packed.data(), &n, data.data(), size, 9));
        packed.resize(n);
        const Bytes& block = size < 100 ? data : packed;
        const unsigned length = static_cast<unsigned>(block.size()), hidden = size < 100 ? 0 : length;
        CNDKMessage m(2);
        m.Add(data.data(), size);
        EXPECT_EQ(Hex(Header(2, 2, 1).u8(0x04).u32(hidden).u32(0).u8(0x0B).u32(length).raw(block).b), Hex(ToBytes(m)));
    }
}

TEST(NDKMessageWire, RoundTripsTruncationAndCorruption) {
    CNDKMessage original(-42);
    for (const auto& c : kElements) c.first(original);
    const Bytes large = Pattern(2000);
    original.Add(large.data(), 2000);
    const Bytes wire = ToBytes(original);

    CNDKMessage loaded(99);
    loaded.Add(1);   // FromBuffer replaces existing content
    ASSERT_TRUE(Load(loaded, wire));
    EXPECT_EQ(wire, ToBytes(loaded));
    for (size_t i = 0; i < std::size(kElements); ++i) loaded.AdvanceCurrIndex();
    Bytes out(2000, 0);
    loaded.GetNext(out.data(), 1500);   // less than the block holds: no overrun
    EXPECT_EQ(ArchiveBytes().raw(Bytes(large.begin(), large.begin() + 1500)).raw(Bytes(500, 0)).b, out);

    for (size_t n = 0; n < wire.size(); ++n) {
        CNDKMessage m;
        EXPECT_FALSE(Load(m, Bytes(wire.begin(), wire.begin() + static_cast<long>(n)))) << "prefix " << n;
    }
    for (size_t pos = 0; pos < wire.size(); ++pos) {
        for (std::uint8_t flip : {0x01, 0x80, 0xFF}) {
            Bytes bad = wire;
            bad[pos] ^= flip;
            CNDKMessage m, again;
            if (!Load(m, bad)) continue;
            const Bytes stored = ToBytes(m);
            ASSERT_TRUE(Load(again, stored));
            EXPECT_EQ(stored, ToBytes(again));
            while (!m.IsLastCurrentIndex()) m.GetNext(out.data(), 2000);   // corrupt blocks inflate safely
        }
    }
    CNDKMessage m;   // counts and lengths far beyond the data
    EXPECT_FALSE(Load(m, Header(1, 0x7FFFFFFF, 0).b));
    EXPECT_FALSE(Load(m, Header(1, 1, 0).u8(0x0B).u32(0xFFFFFFF0).raw("\x01\x02\x03").b));
}

TEST(NDKMessage, PaddingLimitsAndOddities) {
    CNDKMessage m;
    m.SetAt(2, std::string("x"));   // pads with int zeros; a negative index is ignored
    m.SetAt(-1, 5);
    const Bytes int0 = {0x05, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(Hex(Header(0, 3, 0).raw(int0).raw(int0).u8(0x0A).str("x").b), Hex(ToBytes(m)));
    EXPECT_TRUE(m.GetDataTypeAt(-1) == NDKString && m.GetDataTypeAt(3) == NDKString);   // an invalid index's answer

    CNDKMessage six, copy;
    for (int i = 0; i < 6; ++i) six.Add(i);
    six.LimitSize(4), six.LimitSize(10), copy = six;
    EXPECT_TRUE(six.GetElements().GetSize() == 4 && CNDKMessage(six) == six && copy == six);

    // Pairs differing in one thing; only alike pairs are equal, both ways. A 64-bit element is never equal, even to itself.
    using Build = std::function<void(CNDKMessage&)>;
    const Build base = [](CNDKMessage& m) { m.SetId(7), m.Add(1), m.Add(std::string("a")); };
    const Build block = [&](CNDKMessage& m) { base(m), m.Add("xy", 2); };   // hidden length 0, then the bytes
    const struct { const char* what; Build a, b; bool equal; } pairs[] = {
        {"alike", base, base, true}, {"alike with a block", block, block, true},
        {"identifier", base, [&](CNDKMessage& m) { base(m), m.SetId(8); }, false},
        {"element count", base, [&](CNDKMessage& m) { base(m), m.Add(2); }, false},
        {"element type", base, [](CNDKMessage& m) { m.SetId(7), m.Add(1u), m.Add(std::string("a")); }, false},
        {"element value", base, [](CNDKMessage& m) { m.SetId(7), m.Add(1), m.Add(std::string("b")); }, false},
        {"hidden element", block, [&](CNDKMessage& m) { base(m), m.Add(0u), m.AddUnc("xy", 2); }, false},
        {"64-bit element", [&](CNDKMessage& m) { base(m), m.Add(1ULL); }, [&](CNDKMessage& m) { base(m), m.Add(1ULL); }, false}};
    for (const auto& p : pairs) {
        CNDKMessage a, b;
        p.a(a), p.b(b);
        EXPECT_TRUE((a == b) == p.equal && (b == a) == p.equal && (a == a) == (p.what[0] != '6')) << p.what;
    }
}
