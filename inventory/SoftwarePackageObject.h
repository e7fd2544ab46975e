// One installed package, or one Halvorn product found by its install folder.
// The persisted field order is the list-file format: the flags come before
// m_strExtra2, not in declaration order.
#pragma once

#include "ListObject.h"

#include <string>

class CSoftwarePackageObject : public CListObject {
    DECLARE_PERSISTENT(CSoftwarePackageObject)
public:
    CSoftwarePackageObject() = default;
    explicit CSoftwarePackageObject(const CSoftwarePackageObject* pSrc);
    CSoftwarePackageObject(const CSoftwarePackageObject& src);
    CSoftwarePackageObject& operator=(const CSoftwarePackageObject& src);
    ~CSoftwarePackageObject() override = default;

    void Serialize(CArchive& ar) override;
    void CopyItems(CObject* pSrc) override;
    bool IsTheSameAs(CObject* pOther) override;

    std::string m_strName;
    std::string m_strVersion;
    std::string m_strVendor;
    std::string m_strExtra1;
    std::string m_strExtra2;
    unsigned int m_nFlags = 0;   // every scan that makes a record sets 128
    std::string m_strDescription;
};

CArchive& operator>>(CArchive& ar, CSoftwarePackageObject*& pOb);
