// Software records: defaults, copies, sameness and the class records.
#include "InvTestUtil.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

using invtest::SameFields;

namespace {

CSoftwarePackageObject FullPkg() {
    CSoftwarePackageObject p;
    p.m_strName = "tool";
    p.m_strVersion = "1.0";
    p.m_strVendor = "Acme";
    p.m_strExtra1 = "x1";
    p.m_strExtra2 = "x2";
    p.m_nFlags = 128;
    p.m_strDescription = "A tool";
    return p;
}

CSoftwareObject FullSw() {
    CSoftwareObject s;
    s.m_strVersion = "2.1";
    s.m_strDescription = "runner";
    s.m_strCompanyName = "Acme";
    s.m_strInfo1 = "/opt/x/run";
    s.m_strInfo2 = "i2";
    s.m_strInfo3 = "i3";
    s.m_strInfo4 = "i4";
    s.m_nInfo5 = -7;
    s.m_nInfo6 = 9;
    s.m_nTransient = 5;
    s.m_strPackage = "pkg\\Acme\\2.1";
    return s;
}

}  // namespace

TEST(RecordsTest, DefaultsAndClassRecords) {
    CSoftwarePackageObject p;
    EXPECT_EQ(p.m_nFlags, 0u);
    EXPECT_TRUE(p.m_strName.empty() && p.m_strDescription.empty());
    CSoftwareObject s;
    EXPECT_EQ(s.m_nInfo5, 0);
    EXPECT_EQ(s.m_nInfo6, 0u);
    EXPECT_EQ(s.m_nTransient, 0u);

    struct Expect {
        CRuntimeClass* cls;
        const char* name;
        unsigned schema;
        CRuntimeClass* base;
    };
    const Expect table[] = {
        {CLASS_RECORD(CListObject), "CListObject", 1, CLASS_RECORD(CObject)},
        {CLASS_RECORD(CSoftwarePackageObject), "CSoftwarePackageObject", 0x80000002, CLASS_RECORD(CListObject)},
        {CLASS_RECORD(CSoftwareObject), "CSoftwareObject", 0x80000003, CLASS_RECORD(CListObject)},
        {CLASS_RECORD(CInvMap), "CInvMap", 1, CLASS_RECORD(CMapStringToOb)},
    };
    for (const auto& e : table) {
        SCOPED_TRACE(e.name);
        EXPECT_STREQ(e.cls->m_lpszClassName, e.name);
        EXPECT_EQ(e.cls->m_wSchema, e.schema);
        EXPECT_EQ(e.cls->m_pBaseClass, e.base);
        bool registered = false;
        for (CRuntimeList* n = g_runtimeClasses; n; n = n->m_pNext) registered |= n->m_pClass == e.cls;
        EXPECT_TRUE(registered);
        std::unique_ptr<CObject> ob(e.cls->CreateObject());
        ASSERT_TRUE(ob);
        EXPECT_EQ(ob->GetRuntimeClass(), e.cls);
    }
    EXPECT_TRUE(s.IsKindOf(CLASS_RECORD(CListObject)));
    EXPECT_FALSE(s.IsKindOf(CLASS_RECORD(CSoftwarePackageObject)));
}

TEST(RecordsTest, CopiesCarryEveryField) {
    CSoftwarePackageObject p = FullPkg();
    CSoftwarePackageObject pCopy(&p);
    EXPECT_TRUE(SameFields(&p, &pCopy));
    CSoftwarePackageObject pAssigned;
    pAssigned = p;
    pAssigned = pAssigned;   // self-assignment keeps the contents
    EXPECT_TRUE(SameFields(&p, &pAssigned));
    CSoftwarePackageObject pItems;
    pItems.CopyItems(&p);
    EXPECT_TRUE(SameFields(&p, &pItems));
    EXPECT_TRUE(pItems.IsTheSameAs(&p));

    CSoftwareObject s = FullSw();
    CSoftwareObject sCopy(&s);
    CSoftwareObject sAssigned;
    sAssigned = s;
    CSoftwareObject sItems;
    sItems.CopyItems(&s);
    for (CSoftwareObject* c : {&sCopy, &sAssigned, &sItems}) {
        EXPECT_TRUE(SameFields(&s, c));
        EXPECT_EQ(c->m_nTransient, 5u);   // copied although never persisted
        EXPECT_TRUE(c->IsTheSameAs(&s));
    }
}

TEST(RecordsTest, PackageSamenessUsesEveryPersistedField) {
    const std::vector<std::function<void(CSoftwarePackageObject&)>> changes = {
        [](CSoftwarePackageObject& o) { o.m_strName += "x"; },
        [](CSoftwarePackageObject& o) { o.m_strVersion += "x"; },
        [](CSoftwarePackageObject& o) { o.m_strVendor = "ACME"; },   // letter case counts
        [](CSoftwarePackageObject& o) { o.m_strExtra1 += "x"; },
        [](CSoftwarePackageObject& o) { o.m_strExtra2 += "x"; },
        [](CSoftwarePackageObject& o) { o.m_nFlags = 0; },
        [](CSoftwarePackageObject& o) { o.m_strDescription += "x"; },
    };
    CSoftwarePackageObject base = FullPkg();
    for (size_t i = 0; i < changes.size(); ++i) {
        CSoftwarePackageObject other = FullPkg();
        changes[i](other);
        EXPECT_FALSE(base.IsTheSameAs(&other)) << "change " << i;
        EXPECT_FALSE(other.IsTheSameAs(&base)) << "change " << i;
    }
    CSoftwarePackageObject same = FullPkg();
    EXPECT_TRUE(base.IsTheSameAs(&same));
    CSoftwareObject sw;
    EXPECT_FALSE(base.IsTheSameAs(&sw));   // another record class is never the same
    EXPECT_FALSE(base.IsTheSameAs(nullptr));
}

TEST(RecordsTest, SoftwareSamenessIgnoresPathAndScanFields) {
    using Change = std::function<void(CSoftwareObject&)>;
    const std::vector<Change> ignored = {
        [](CSoftwareObject& o) { o.m_strInfo1 = "/elsewhere"; },
        [](CSoftwareObject& o) { o.m_strInfo3 += "x"; },
        [](CSoftwareObject& o) { o.m_strInfo4 += "x"; },
        [](CSoftwareObject& o) { o.m_nInfo5 = 1234; },
        [](CSoftwareObject& o) { o.m_nTransient = 99; },
    };
    const std::vector<Change> counted = {
        [](CSoftwareObject& o) { o.m_strVersion += "x"; },
        [](CSoftwareObject& o) { o.m_strDescription += "x"; },
        [](CSoftwareObject& o) { o.m_strCompanyName = "ACME"; },
        [](CSoftwareObject& o) { o.m_strInfo2 += "x"; },
        [](CSoftwareObject& o) { o.m_nInfo6 = 10; },
        [](CSoftwareObject& o) { o.m_strPackage += "x"; },
    };
    CSoftwareObject base = FullSw();
    for (size_t i = 0; i < ignored.size(); ++i) {
        CSoftwareObject other = FullSw();
        ignored[i](other);
        EXPECT_TRUE(base.IsTheSameAs(&other)) << "ignored change " << i;
    }
    for (size_t i = 0; i < counted.size(); ++i) {
        CSoftwareObject other = FullSw();
        counted[i](other);
        EXPECT_FALSE(base.IsTheSameAs(&other)) << "counted change " << i;
    }
    CSoftwarePackageObject pkg;
    EXPECT_FALSE(base.IsTheSameAs(&pkg));
    // A mismatched CopyItems source is ignored rather than read as the wrong type.
    CSoftwareObject untouched = FullSw();
    untouched.CopyItems(&pkg);
    EXPECT_TRUE(SameFields(&untouched, &base));
}
