// List-file and memory-block format of the inventory map: golden bytes, bytes
// written by hand for older schemas, round trips, every truncated prefix and
// corrupted bytes.
#include "InvTestUtil.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

using invtest::Bytes;
using invtest::MakePkg;
using invtest::MakeSw;
using invtest::SameFields;
using invtest::SameMaps;
using invtest::ToBytes;

namespace {

const std::string kPkgClass = "CSoftwarePackageObject";
const std::string kSwClass = "CSoftwareObject";

bool g_assertHit = false;
[[noreturn]] void ThrowingAssert(const char*, int) {
    g_assertHit = true;
    throw new CFileException;
}

// Turns the short-string assertion into a rejection for the scope.
struct AssertAsRejection {
    AssertAsRejection() : prev(SetArchiveAssertHandler(&ThrowingAssert)) { g_assertHit = false; }
    ~AssertAsRejection() { SetArchiveAssertHandler(prev); }
    ArchiveAssertHandler prev;
};

bool Load(CInvMap& m, const std::vector<std::uint8_t>& b) {
    return m.FromMemory(b.data(), static_cast<int>(b.size()));
}

Bytes& PkgFields(Bytes& b, const std::string& name, const std::string& ver, const std::string& vendor,
                 std::uint32_t flags, const std::string& desc) {
    return b.str(name).str(ver).str(vendor).str("").u32(flags).str("").str(desc);
}

// The small mixed map of the golden test: two package records around one executable record.
void FillSmall(CInvMap& m) {
    m.SetAt("alpha\\Acme\\1.0", MakePkg("alpha", "1.0", "Acme", "First"));
    CSoftwareObject* sw = MakeSw("2.5", "Runner", "Acme", "alpha\\Acme\\1.0");
    sw->m_strInfo1 = "/srv/run";
    sw->m_nInfo5 = -2;
    sw->m_nInfo6 = 7;
    sw->m_nTransient = 99;   // never written
    m.SetAt("bin/run", sw);
    m.SetAt("zeta\\Zed\\2", MakePkg("zeta", "2", "Zed", "Last"));
}

std::vector<std::uint8_t> SmallGolden() {
    Bytes b;
    b.u8(0x03).u8(0x00);
    b.str("alpha\\Acme\\1.0").u8(0xFF).u8(0xFF).u8(0x02).u8(0x00).u8(0x16).u8(0x00).raw(kPkgClass);
    PkgFields(b, "alpha", "1.0", "Acme", 128, "First");
    b.str("bin/run").u8(0xFF).u8(0xFF).u8(0x03).u8(0x00).u8(0x0F).u8(0x00).raw(kSwClass);
    b.str("2.5").str("Runner").str("Acme").str("/srv/run").str("").str("").str("");
    b.u8(0xFE).u8(0xFF).u8(0xFF).u8(0xFF).u8(0x07).u8(0x00).u8(0x00).u8(0x00).str("alpha\\Acme\\1.0");
    // Class index 1 again: tag 0x8001.
    b.str("zeta\\Zed\\2").u8(0x01).u8(0x80);
    PkgFields(b, "zeta", "2", "Zed", 128, "Last");
    return b.get();
}

}  // namespace

TEST(InvMapFormatTest, GoldenBytesReuseTheClassTag) {
    CInvMap m;
    FillSmall(m);
    const auto golden = SmallGolden();
    EXPECT_EQ(testutil::Hex(ToBytes(m)), testutil::Hex(golden));

    CInvMap back;
    ASSERT_TRUE(Load(back, golden));
    EXPECT_TRUE(SameMaps(m, back));
    EXPECT_EQ(testutil::Hex(ToBytes(back)), testutil::Hex(golden));

    CInvMap empty;
    EXPECT_EQ(testutil::Hex(ToBytes(empty)), "00 00");
}

TEST(InvMapFormatTest, OlderSchemasLoadWithDefaults) {
    // Package schema 1 has no description; the second record reuses the class and its old schema.
    Bytes p1;
    p1.u16(2).str("a").newClass(1, kPkgClass).str("a").str("1").str("V").str("e1").u32(128).str("e2");
    p1.str("b").u16(0x8001).str("b").str("2").str("W").str("").u32(5).str("");
    CInvMap m1;
    ASSERT_TRUE(Load(m1, p1.get()));
    ASSERT_EQ(m1.GetCount(), 2);
    CObject* v = nullptr;
    ASSERT_TRUE(m1.Lookup("a", v));
    auto* a = static_cast<CSoftwarePackageObject*>(v);
    EXPECT_EQ(a->m_strExtra1, "e1");
    EXPECT_EQ(a->m_nFlags, 128u);
    EXPECT_EQ(a->m_strExtra2, "e2");
    EXPECT_EQ(a->m_strDescription, "");
    ASSERT_TRUE(m1.Lookup("b", v));
    EXPECT_EQ(static_cast<CSoftwarePackageObject*>(v)->m_nFlags, 5u);
    EXPECT_EQ(static_cast<CSoftwarePackageObject*>(v)->m_strDescription, "");

    // Executable schemas 1, 2 and 3, each followed by a package record that only reads
    // right when the executable record consumed exactly its own bytes.
    for (std::uint16_t schema = 1; schema <= 3; ++schema) {
        SCOPED_TRACE(schema);
        Bytes b;
        b.u16(2).str("s").newClass(schema, kSwClass);
        b.str("v").str("d").str("c").str("i1").str("i2").str("i3").str("i4").u32(0xFFFFFFFF);
        if (schema > 1) b.u32(6);
        if (schema > 2) b.str("pkg");
        b.str("t").newClass(2, kPkgClass);
        PkgFields(b, "t", "9", "V", 128, "tail");
        CInvMap m;
        ASSERT_TRUE(Load(m, b.get()));
        ASSERT_TRUE(m.Lookup("s", v));
        auto* s = static_cast<CSoftwareObject*>(v);
        EXPECT_EQ(s->m_strInfo4, "i4");
        EXPECT_EQ(s->m_nInfo5, -1);
        EXPECT_EQ(s->m_nInfo6, schema > 1 ? 6u : 0u);
        EXPECT_EQ(s->m_strPackage, schema > 2 ? "pkg" : "");
        ASSERT_TRUE(m.Lookup("t", v));
        EXPECT_EQ(static_cast<CSoftwarePackageObject*>(v)->m_strDescription, "tail");
    }
}

TEST(InvMapFormatTest, RoundTripsLongAndHighBitStrings) {
    CInvMap m;
    std::string high;
    for (int c = 1; c < 256; ++c) high.push_back(static_cast<char>(c));
    m.SetAt(std::string(300, 'k'), MakePkg(std::string(254, 'n'), std::string(255, 'v'), high, ""));
    m.SetAt(high, MakeSw(std::string(0x10000, 'x'), "", "C", ""));
    m.SetAt("null", nullptr);
    auto* nested = new CInvMap;
    nested->SetAt("inner", MakePkg("i", "1", "V", "d"));
    m.SetAt("nested", nested);

    const auto bytes = ToBytes(m);
    CInvMap back;
    ASSERT_TRUE(Load(back, bytes));
    EXPECT_TRUE(SameMaps(m, back));
    EXPECT_EQ(ToBytes(back), bytes);

    testutil::TempDir dir;
    ASSERT_TRUE(m.ToFile(dir.file("SWList.bin")));
    EXPECT_EQ(testutil::ReadFileBytes(dir.file("SWList.bin")), bytes);
    CInvMap fromFile;
    ASSERT_TRUE(fromFile.FromFile(dir.file("SWList.bin")));
    EXPECT_TRUE(SameMaps(m, fromFile));
}

TEST(InvMapFormatTest, EveryTruncatedPrefixIsRejected) {
    CInvMap full;
    FillSmall(full);
    const auto golden = SmallGolden();
    std::vector<size_t> assertingCuts;
    {
        AssertAsRejection guard;
        for (size_t n = 0; n < golden.size(); ++n) {
            g_assertHit = false;
            CInvMap m;
            EXPECT_FALSE(m.FromMemory(golden.data(), static_cast<int>(n))) << "prefix " << n;
            if (g_assertHit) assertingCuts.push_back(n);
            // Whatever loaded before the cut is complete and correct.
            POSITION pos = m.GetStartPosition();
            while (pos) {
                std::string key;
                CObject* v = nullptr;
                m.GetNextAssoc(pos, key, v);
                CObject* want = nullptr;
                ASSERT_TRUE(full.Lookup(key, want)) << "prefix " << n;
                EXPECT_TRUE(SameFields(v, want)) << "prefix " << n << " key " << key;
            }
        }
    }
    ASSERT_FALSE(assertingCuts.empty());
    // Without the handler those cuts end the process through the archive's one assertion.
    for (size_t n : assertingCuts) {
        const auto r = invtest::RunInChild([&] {
            CInvMap m;
            return m.FromMemory(golden.data(), static_cast<int>(n)) ? 1 : 0;
        });
        EXPECT_FALSE(r.exited) << "prefix " << n;
        EXPECT_NE(r.err.find("arcobj.cpp"), std::string::npos) << "prefix " << n << ": " << r.err;
    }
    CInvMap m;
    EXPECT_FALSE(m.FromMemory(nullptr, 0));
    EXPECT_FALSE(m.FromMemory(golden.data(), -1));
}

TEST(InvMapFormatTest, CorruptedBytesNeverCrash) {
    AssertAsRejection guard;
    const auto golden = SmallGolden();
    int loaded = 0;
    for (size_t i = 0; i < golden.size(); ++i) {
        for (std::uint8_t v : {std::uint8_t(0x00), std::uint8_t(0xFF), std::uint8_t(golden[i] ^ 0x01),
                               std::uint8_t(golden[i] ^ 0x80)}) {
            auto bad = golden;
            bad[i] = v;
            CInvMap m;
            loaded += Load(m, bad) ? 1 : 0;
            m.CleanMap();   // the sanitizer build checks ownership of whatever was loaded
        }
    }
    EXPECT_GT(loaded, 0);   // corrupted field contents still load
}

TEST(InvMapFormatTest, HostileStructuresAreRejected) {
    AssertAsRejection guard;
    auto pkg = [](Bytes& b, const std::string& key) {
        b.str(key).newClass(2, kPkgClass);
        PkgFields(b, key, "1", "V", 128, "d");
    };
    {   // A reference back to the first record would give it two owners.
        Bytes b;
        b.u16(2);
        pkg(b, "a");
        b.str("b").u16(0x0002);
        CInvMap m;
        EXPECT_FALSE(Load(m, b.get()));
        EXPECT_EQ(m.GetCount(), 1);   // entries before the failure stay
    }
    {   // A reference to a class slot, an unknown class, an over-long class name.
        Bytes ref, unknown, longName;
        ref.u16(2);
        pkg(ref, "a");
        ref.str("b").u16(0x0001);
        unknown.u16(1).str("a").newClass(1, "CNoSuchClass").str("x");
        longName.u16(1).str("a").newClass(1, std::string(64, 'C'));
        for (const auto* b : {&ref, &unknown, &longName}) {
            CInvMap m;
            EXPECT_FALSE(Load(m, b->get()));
        }
    }
    {   // Registered classes that are not inventory values are refused before creation.
        Bytes b;
        b.u16(1).str("a").newClass(0, "CObList").u16(0);
        CInvMap m;
        EXPECT_FALSE(Load(m, b.get()));
        EXPECT_EQ(m.GetCount(), 0);
    }
    {   // An empty stored key repeats the previous key: the second record replaces the first.
        Bytes b;
        b.u16(3);
        pkg(b, "a");
        b.str("").u16(0x8001);
        PkgFields(b, "second", "2", "V", 128, "d");
        b.str("n").u16(0x0000);
        CInvMap m;
        ASSERT_TRUE(Load(m, b.get()));
        ASSERT_EQ(m.GetCount(), 2);
        CObject* v = nullptr;
        ASSERT_TRUE(m.Lookup("a", v));
        EXPECT_EQ(static_cast<CSoftwarePackageObject*>(v)->m_strName, "second");
        ASSERT_TRUE(m.Lookup("n", v));
        EXPECT_EQ(v, nullptr);
    }
    {   // Nested maps load a few levels deep; endless nesting is refused, not recursed.
        auto nest = [](int depth) {
            Bytes b;
            b.u16(1).str("k").newClass(1, "CInvMap");
            for (int i = 1; i < depth; ++i) b.u16(1).str("k").u16(0x8001);
            b.u16(0);
            return b;
        };
        CInvMap shallow;
        EXPECT_TRUE(Load(shallow, nest(4).get()));
        CInvMap deep;
        EXPECT_FALSE(Load(deep, nest(100000).get()));
    }
    {   // A huge count with nothing behind it.
        Bytes b;
        b.u16(0xFFFF).u32(0xFFFFFFFF);
        pkg(b, "a");
        CInvMap m;
        EXPECT_FALSE(Load(m, b.get()));
        EXPECT_EQ(m.GetCount(), 1);
    }
}
