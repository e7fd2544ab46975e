// The class registry: lookup by exact name through CRuntimeClass::Load, type
// questions along the base chain, and registration that ends with its object.
#include "ArchiveTestSupport.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class CTestDerived : public CTestItem {
    DECLARE_PERSISTENT(CTestDerived)
};
// Deliberately without a registration object: registered by hand in the test.
CObject* CTestDerived::CreateObject() { return new CTestDerived; }
CRuntimeClass CTestDerived::classCTestDerived = {"CTestDerived", int(sizeof(CTestDerived)), 4,
                                                 CTestDerived::CreateObject, CLASS_RECORD(CTestItem)};
CRuntimeClass* CTestDerived::GetRuntimeClass() const { return CLASS_RECORD(CTestDerived); }

CRuntimeClass* LoadClassRecord(const std::string& name, unsigned* schema = nullptr) {
    CRuntimeClass* found = nullptr;
    unsigned s = 0;
    LoadBytes(ClassRecord(3, name), [&](CArchive& ar) { found = CRuntimeClass::Load(ar, &s); });
    if (schema) *schema = s;
    return found;
}

}  // namespace

TEST(RuntimeClass, KindsAndSerialisability) {
    CTestDerived derived;
    CTestItem item;
    CMemFile memFile;
    CPtrArray array;
    CObList list;
    for (const CObject* ob : std::initializer_list<const CObject*>{&derived, &item, &memFile, &array, &list})
        EXPECT_TRUE(ob->IsKindOf(CLASS_RECORD(CObject)));
    EXPECT_TRUE(derived.IsKindOf(CLASS_RECORD(CTestItem)));
    EXPECT_FALSE(item.IsKindOf(CLASS_RECORD(CTestDerived)));
    EXPECT_FALSE(derived.IsKindOf(CLASS_RECORD(CTestVersioned)));
    EXPECT_TRUE(memFile.IsKindOf(CLASS_RECORD(CFile)));

    EXPECT_FALSE(memFile.IsSerializable());
    EXPECT_FALSE(array.IsSerializable());
    EXPECT_TRUE(list.IsSerializable());
    EXPECT_TRUE(derived.IsSerializable());

    EXPECT_EQ(nullptr, CLASS_RECORD(CFile)->CreateObject());
    std::unique_ptr<CObject> made(CLASS_RECORD(CStringArray)->CreateObject());
    ASSERT_TRUE(made);
    EXPECT_EQ(CLASS_RECORD(CStringArray), made->GetRuntimeClass());
    EXPECT_EQ(nullptr, CObject::classCObject.m_pBaseClass);
    EXPECT_EQ(0xFFFFu, CObject::classCObject.m_wSchema);
}

TEST(RuntimeClass, RegistryLookupFollowsRegistration) {
    unsigned schema = 0;
    EXPECT_EQ(CLASS_RECORD(CObList), LoadClassRecord("CObList", &schema));
    EXPECT_EQ(3u, schema);
    EXPECT_EQ(CLASS_RECORD(CMapStringToOb), LoadClassRecord("CMapStringToOb"));
    EXPECT_EQ(nullptr, LoadClassRecord("CPtrArray"));      // not registered
    EXPECT_EQ(nullptr, LoadClassRecord("CMemFile"));
    EXPECT_EQ(nullptr, LoadClassRecord("cobList"));        // exact case
    EXPECT_EQ(nullptr, LoadClassRecord("CObLis"));
    EXPECT_EQ(nullptr, LoadClassRecord(std::string("CObList\0", 8)));

    EXPECT_EQ(nullptr, LoadClassRecord("CTestDerived"));
    {
        AFX_CLASSINIT registration(CLASS_RECORD(CTestDerived));
        EXPECT_EQ(CLASS_RECORD(CTestDerived), LoadClassRecord("CTestDerived"));
        {
            // The latest registration of a name wins while it lives.
            CRuntimeClass shadow = *CLASS_RECORD(CTestDerived);
            AFX_CLASSINIT second(&shadow);
            EXPECT_EQ(&shadow, LoadClassRecord("CTestDerived"));
        }
        EXPECT_EQ(CLASS_RECORD(CTestDerived), LoadClassRecord("CTestDerived"));
        // Closing a record that is not registered changes nothing.
        CRuntimeClass stranger = *CLASS_RECORD(CTestDerived);
        AfxClassClose(&stranger);
        EXPECT_EQ(CLASS_RECORD(CTestDerived), LoadClassRecord("CTestDerived"));
    }
    EXPECT_EQ(nullptr, LoadClassRecord("CTestDerived"));

    // Names of 64 bytes or more are refused before any lookup.
    const std::string longName(64, 'N');
    CRuntimeClass named = {"", 0, 0, nullptr, CLASS_RECORD(CObject)};
    const std::string name63(63, 'N');
    named.m_lpszClassName = name63.c_str();
    AFX_CLASSINIT registration(&named);
    EXPECT_EQ(&named, LoadClassRecord(name63));
    EXPECT_EQ(nullptr, LoadClassRecord(longName));
}
