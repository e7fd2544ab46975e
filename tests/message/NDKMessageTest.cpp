// The message wire format as golden bytes, round trips through the flat buffer,
// truncated and corrupted buffers, and the padding, limit and equality rules.
#include "message/NDKMessage.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <functional>
#include <vector>

using testutil::Hex;
using Bytes = std::vector<std::uint8_t>;

namespace {

Bytes ToBytes(CNDKMessage& message) {
    void* block = nullptr;
    const int n = message.ToBuffer(&block);
    Bytes bytes(static_cast<std::uint8_t*>(block), static_cast<std::uint8_t*>(block) + n);
    std::free(block);
    return bytes;
}

// True when FromBuffer loaded, false when it threw CFileException*.
bool Load(CNDKMessage& message, const Bytes& bytes) {
    try {
        message.FromBuffer(bytes.data(), static_cast<int>(bytes.size()));
        return true;
    } catch (CFileException* e) {
        delete e;
        return false;
    }
}

Bytes Cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes Header(unsigned id, unsigned count, unsigned hidden) {
    Bytes b;
    for (unsigned v : {id, count, hidden})
        for (int shift = 0; shift < 32; shift += 8) b.push_back(static_cast<std::uint8_t>(v >> shift));
    return b;
}

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
        EXPECT_EQ(Hex(Cat(Header(0x01020304, 1, 0), c.second)), Hex(ToBytes(m)));
    }
    CNDKMessage empty(7);
    EXPECT_EQ("07 00 00 00 00 00 00 00 00 00 00 00", Hex(ToBytes(empty)));
}

TEST(NDKMessageWire, BlocksOf99BytesGoRawAnd100BytesCompressed) {
    const Bytes data99 = Pattern(99);
    CNDKMessage raw(2);
    raw.Add(data99.data(), 99);
    EXPECT_EQ(Hex(Cat(Cat(Header(2, 2, 1), {0x04, 0, 0, 0, 0, 0, 0, 0, 0, 0x0B, 99, 0, 0, 0}), data99)),
              Hex(ToBytes(raw)));

    // 100 bytes: a hidden uint holding the compressed length, then the level-9 zlib block.
    const Bytes data100(100, 'A');
    CNDKMessage packed(2);
    packed.Add(data100.data(), 100);
    const Bytes wire = ToBytes(packed);
    ASSERT_GE(wire.size(), 28u);
    const unsigned c = wire[13] | wire[14] << 8 | wire[15] << 16 | static_cast<unsigned>(wire[16]) << 24;
    const Bytes typesAndLengths = {0x04, wire[13], wire[14], wire[15], wire[16], 0, 0, 0, 0, 0x0B, wire[13], wire[14], wire[15], wire[16], 0x78, 0xDA};
    EXPECT_EQ(Hex(Cat(Header(2, 2, 1), typesAndLengths)), Hex(Bytes(wire.begin(), wire.begin() + 28)));
    ASSERT_EQ(wire.size(), 26u + c);
    Bytes inflated(200);
    uLongf n = inflated.size();
    ASSERT_EQ(Z_OK, uncompress(inflated.data(), &n, &wire[26], c));
    EXPECT_EQ(data100, Bytes(inflated.begin(), inflated.begin() + static_cast<long>(n)));
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
    for (const auto& skipped : kElements) loaded.AdvanceCurrIndex(), (void)skipped;
    Bytes out(2000, 0);
    loaded.GetNext(out.data(), 1500);   // less than the block holds: no overrun
    EXPECT_EQ(Cat(Bytes(large.begin(), large.begin() + 1500), Bytes(500, 0)), out);

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
    EXPECT_FALSE(Load(m, Header(1, 0x7FFFFFFF, 0)));
    EXPECT_FALSE(Load(m, Cat(Header(1, 1, 0), {0x0B, 0xF0, 0xFF, 0xFF, 0xFF, 1, 2, 3})));
}

TEST(NDKMessage, PaddingLimitsAndOddities) {
    CNDKMessage m;
    m.SetAt(2, std::string("x"));   // pads with int zeros
    m.SetAt(-1, 5);
    ASSERT_EQ(3, m.GetElements().GetSize());
    int zero = -1;
    m.GetAt(1, zero);
    EXPECT_TRUE(m.GetDataTypeAt(0) == NDKInt && m.GetDataTypeAt(1) == NDKInt && zero == 0);
    EXPECT_TRUE(m.GetDataTypeAt(-1) == 10 && m.GetDataTypeAt(3) == 10);

    CElements elements;
    elements.SetAtGrow(3, CNDKMessageData(std::string("x")));
    EXPECT_TRUE(elements.GetAt(0) == CNDKMessageData(0) && elements.GetAt(2) == CNDKMessageData(0));
    elements.SetAt(4, CNDKMessageData(9));   // past the end: ignored
    EXPECT_EQ(4, elements.GetSize());
    elements.SetAtGrow(5, elements.GetAt(3));   // source inside the growing array
    EXPECT_EQ(CNDKMessageData(std::string("x")), elements.GetAt(5));

    CNDKMessage six;
    for (int i = 0; i < 6; ++i) six.Add(i);
    six.LimitSize(4);
    EXPECT_EQ(4, six.GetElements().GetSize());
    six.LimitSize(10);
    EXPECT_EQ(4, six.GetElements().GetSize());

    // Pairs of messages that differ in one thing each; only the alike pairs compare equal, both ways.
    using Build = std::function<void(CNDKMessage&)>;
    const Build base = [](CNDKMessage& m) { m.SetId(7), m.Add(1), m.Add(std::string("a")); };
    const Build block = [&](CNDKMessage& m) { base(m), m.Add("xy", 2); };   // hidden length 0, then the bytes
    const struct { const char* what; Build a, b; bool equal; } pairs[] = {
        {"alike", base, base, true},
        {"alike with a block", block, block, true},
        {"identifier", base, [&](CNDKMessage& m) { base(m), m.SetId(8); }, false},
        {"element count", base, [&](CNDKMessage& m) { base(m), m.Add(2); }, false},
        {"element type", base, [](CNDKMessage& m) { m.SetId(7), m.Add(1u), m.Add(std::string("a")); }, false},
        {"element value", base, [](CNDKMessage& m) { m.SetId(7), m.Add(1), m.Add(std::string("b")); }, false},
        {"hidden element", block, [&](CNDKMessage& m) { base(m), m.Add(0u), m.AddUnc("xy", 2); }, false}};
    for (const auto& p : pairs) {
        CNDKMessage a, b;
        p.a(a), p.b(b);
        EXPECT_TRUE((a == b) == p.equal && (b == a) == p.equal) << p.what;
    }

    // A 64-bit element never compares equal, not even to itself.
    CNDKMessage copy(six);
    EXPECT_TRUE(copy == six);
    six.Add(1ULL);
    copy = six;
    EXPECT_FALSE(copy == six || six == six);
}
