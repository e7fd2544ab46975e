// Menu records are copied whole, the host-only m_strAux included.
#include "component/CompMenuList.h"

#include <gtest/gtest.h>

TEST(CompMenuList, RecordsAreCopiedWhole) {
    CCompMenuInfo empty;
    EXPECT_TRUE(empty.m_strText.empty());
    EXPECT_TRUE(empty.m_strAux.empty());
    EXPECT_EQ(empty.m_wFlags, 0);
    EXPECT_EQ(empty.m_dwData, 0u);

    CCompMenuInfo info(10, "Full inventory", 0xBEEF, 0xCAFEF00Du);
    EXPECT_EQ(info.m_nCommand, 10u);
    EXPECT_EQ(info.m_strText, "Full inventory");
    EXPECT_TRUE(info.m_strAux.empty());
    info.m_strAux = "aux";

    const CCompMenuInfo copy(info);
    CCompMenuInfo assigned;
    CCompMenuInfo& result = (assigned = info);
    EXPECT_EQ(&result, &assigned);
    for (const CCompMenuInfo* r : {&copy, const_cast<const CCompMenuInfo*>(&assigned)}) {
        EXPECT_EQ(r->m_nCommand, 10u);
        EXPECT_EQ(r->m_strText, "Full inventory");
        EXPECT_EQ(r->m_strAux, "aux");
        EXPECT_EQ(r->m_wFlags, 0xBEEF);
        EXPECT_EQ(r->m_dwData, 0xCAFEF00Du);
    }
}

TEST(CompMenuList, AddStoresCopiesInOrder) {
    CCompMenuList list;
    EXPECT_EQ(list.GetCount(), 0);
    CCompMenuInfo first(1, "one", 1, 11);
    first.m_strAux = "a1";
    CCompMenuInfo second(2, "two", 2, 22);
    list.Add(first);
    list.Add(second);
    first.m_strText = "changed after Add";

    ASSERT_EQ(list.GetCount(), 2);
    EXPECT_EQ(list[0].m_strText, "one");
    EXPECT_EQ(list[0].m_strAux, "a1");
    EXPECT_EQ(list[1].m_nCommand, 2u);
    EXPECT_EQ(list[1].m_dwData, 22u);
}
