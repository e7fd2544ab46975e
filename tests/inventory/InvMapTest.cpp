// Inventory map: ownership, difference maps, merge and deep copy.
#include "InvTestUtil.h"

#include <gtest/gtest.h>

#include <string>

using invtest::MakePkg;
using invtest::MakeSw;
using invtest::SameFields;

namespace {

// Counts live instances, so destruction by the map is observed directly.
struct CountedPkg : CSoftwarePackageObject {
    static int live;
    CountedPkg() { ++live; }
    ~CountedPkg() override { --live; }
};
int CountedPkg::live = 0;

CObject* Get(CInvMap& m, const std::string& key) {
    CObject* v = nullptr;
    return m.Lookup(key, v) ? v : nullptr;
}

std::string VersionOf(CInvMap& m, const std::string& key) {
    auto* p = static_cast<CSoftwarePackageObject*>(Get(m, key));
    return p ? p->m_strVersion : "<absent>";
}

}  // namespace

TEST(InvMapTest, AddDeleteChangeOnOverlappingMaps) {
    CInvMap cur, prev;
    cur.SetAt("A", MakePkg("a", "1", "V", "d"));
    cur.SetAt("B", MakePkg("b", "2", "V", "d"));
    prev.SetAt("B", MakePkg("b", "1", "V", "d"));
    prev.SetAt("C", MakeSw("3", "c", "V", "C-pkg"));

    CInvMap add, del, chg;
    EXPECT_TRUE(cur.CreateAddMap(&prev, &add));
    EXPECT_TRUE(cur.CreateDeleteMap(&prev, &del));
    EXPECT_TRUE(cur.CreateChangeMap(&prev, &chg));
    ASSERT_EQ(add.GetCount(), 1);
    ASSERT_EQ(del.GetCount(), 1);
    ASSERT_EQ(chg.GetCount(), 1);
    // Fresh copies of the right records, never the source pointers.
    EXPECT_NE(Get(add, "A"), Get(cur, "A"));
    EXPECT_TRUE(SameFields(Get(add, "A"), Get(cur, "A")));
    EXPECT_NE(Get(del, "C"), Get(prev, "C"));
    EXPECT_TRUE(SameFields(Get(del, "C"), Get(prev, "C")));
    EXPECT_EQ(VersionOf(chg, "B"), "2");   // the current contents
    EXPECT_NE(Get(chg, "B"), Get(cur, "B"));

    // Same contents: no change; records of different classes under one key: changed.
    CInvMap cur2, prev2, chg2;
    cur2.SetAt("B", MakePkg("b", "2", "V", "d"));
    prev2.SetAt("B", MakePkg("b", "2", "V", "d"));
    EXPECT_FALSE(cur2.CreateChangeMap(&prev2, &chg2));
    EXPECT_EQ(chg2.GetCount(), 0);
    prev2.SetAt("B", MakeSw("2", "d", "V", ""));
    EXPECT_TRUE(cur2.CreateChangeMap(&prev2, &chg2));
    EXPECT_TRUE(Get(chg2, "B")->IsKindOf(CLASS_RECORD(CSoftwarePackageObject)));
}

TEST(InvMapTest, ResultRuleCountsEntriesHeldBefore) {
    CInvMap a, b, result;
    EXPECT_FALSE(a.CreateAddMap(&b, &result));
    EXPECT_FALSE(a.CreateDeleteMap(&b, &result));
    EXPECT_FALSE(a.CreateChangeMap(&b, &result));
    EXPECT_EQ(result.GetCount(), 0);

    result.SetAt("old", MakePkg("o", "1", "V", ""));
    a.SetAt("same", MakePkg("s", "1", "V", ""));
    b.SetAt("same", MakePkg("s", "1", "V", ""));
    EXPECT_TRUE(a.CreateAddMap(&b, &result));
    EXPECT_TRUE(a.CreateDeleteMap(&b, &result));
    EXPECT_TRUE(a.CreateChangeMap(&b, &result));
    EXPECT_EQ(result.GetCount(), 1);

    // Null values and nested maps are never copied.
    a.SetAt("null", nullptr);
    auto* nested = new CInvMap;
    nested->SetAt("n", MakePkg("n", "1", "V", ""));
    a.SetAt("nested", nested);
    CInvMap add;
    EXPECT_FALSE(a.CreateAddMap(&b, &add));
    EXPECT_EQ(add.GetCount(), 0);
}

TEST(InvMapTest, OwnsRecordsThroughSetAtRemoveAndClean) {
    CountedPkg::live = 0;
    {
        CInvMap m;
        auto* first = new CountedPkg;
        m.SetAt("k", first);
        m.SetAt("k", first);   // the same pointer again: kept, not destroyed
        EXPECT_EQ(CountedPkg::live, 1);
        m.SetAt("k", new CountedPkg);   // a replaced record is destroyed
        EXPECT_EQ(CountedPkg::live, 1);
        m.SetAt("j", new CountedPkg);
        EXPECT_FALSE(m.RemoveItem("absent"));
        EXPECT_EQ(m.GetCount(), 2);
        EXPECT_TRUE(m.RemoveItem("j"));
        EXPECT_EQ(CountedPkg::live, 1);

        auto* nested = new CInvMap;
        nested->SetAt("x", new CountedPkg);
        nested->SetAt("y", new CountedPkg);
        m.SetAt("x", nested);
        EXPECT_EQ(CountedPkg::live, 3);
        EXPECT_TRUE(m.RemoveItem("x"));   // the nested map goes with all its records
        EXPECT_EQ(CountedPkg::live, 1);

        auto* nested2 = new CInvMap;
        nested2->SetAt("z", new CountedPkg);
        m.SetAt("n", nested2);
        m.SetAt("null", nullptr);
        m.CleanMap();
        EXPECT_EQ(m.GetCount(), 0);
        EXPECT_EQ(CountedPkg::live, 0);
        m.SetAt("last", new CountedPkg);
    }
    EXPECT_EQ(CountedPkg::live, 0);   // the destructor cleans up
}

TEST(InvMapTest, MergeTakesCopiesOfTheOtherSide) {
    CInvMap left, right;
    left.SetAt("A", MakePkg("a", "1", "V", ""));
    left.SetAt("B", MakePkg("b", "1", "V", ""));
    left.SetAt("D", MakePkg("d", "1", "V", ""));
    right.SetAt("B", MakePkg("b", "2", "V", ""));
    right.SetAt("C", MakePkg("c", "2", "V", ""));
    right.SetAt("D", MakePkg("d", "2", "V", ""));

    left += right;
    ASSERT_EQ(left.GetCount(), 4);
    EXPECT_EQ(VersionOf(left, "A"), "1");
    EXPECT_EQ(VersionOf(left, "B"), "2");
    EXPECT_EQ(VersionOf(left, "C"), "2");
    EXPECT_EQ(VersionOf(left, "D"), "2");
    for (const char* k : {"B", "C", "D"}) EXPECT_NE(Get(left, k), Get(right, k)) << k;
    EXPECT_EQ(right.GetCount(), 3);

    left += left;   // a map merged with itself stays as it is
    EXPECT_EQ(left.GetCount(), 4);
    EXPECT_EQ(VersionOf(left, "A"), "1");
    // Both maps are destroyed here; the sanitizer build catches a shared record.
}

TEST(InvMapTest, ReplaceListDeepCopiesRecordsOnly) {
    CInvMap src, dst;
    src.SetAt("p", MakePkg("p", "1", "V", ""));
    src.SetAt("s", MakeSw("1", "d", "V", "p"));
    src.SetAt("null", nullptr);
    auto* nested = new CInvMap;
    nested->SetAt("n", MakePkg("n", "1", "V", ""));
    src.SetAt("nested", nested);
    dst.SetAt("gone", MakePkg("g", "1", "V", ""));

    dst.ReplaceList(&src);
    EXPECT_EQ(dst.GetCount(), 2);
    EXPECT_FALSE(Get(dst, "gone"));
    EXPECT_TRUE(SameFields(Get(dst, "s"), Get(src, "s")));
    EXPECT_NE(Get(dst, "s"), Get(src, "s"));

    dst.ReplaceList(&dst);   // replacing with itself keeps the contents
    EXPECT_EQ(dst.GetCount(), 2);
}
