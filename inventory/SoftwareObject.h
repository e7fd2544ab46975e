// One executable file found on disk. Only some fields take part in sameness,
// and m_nTransient is never persisted.
#pragma once

#include "ListObject.h"

#include <string>

class CSoftwareObject : public CListObject {
    DECLARE_PERSISTENT(CSoftwareObject)
public:
    CSoftwareObject() = default;
    explicit CSoftwareObject(const CSoftwareObject* pSrc);
    CSoftwareObject(const CSoftwareObject& src);
    CSoftwareObject& operator=(const CSoftwareObject& src);
    ~CSoftwareObject() override = default;

    void Serialize(CArchive& ar) override;
    void CopyItems(CObject* pSrc) override;
    bool IsTheSameAs(CObject* pOther) override;

    void SetVersion(std::string& str) { m_strVersion = str; }
    void SetDescription(std::string& str) { m_strDescription = str; }
    void SetCompanyName(std::string& str) { m_strCompanyName = str; }

    std::string m_strVersion;
    std::string m_strDescription;
    std::string m_strCompanyName;
    std::string m_strInfo1;   // the file scans keep the file's path here
    std::string m_strInfo2;
    std::string m_strInfo3;
    std::string m_strInfo4;
    int m_nInfo5 = 0;
    unsigned int m_nInfo6 = 0;
    unsigned int m_nTransient = 0;
    std::string m_strPackage;  // inventory key of the owning package
};

CArchive& operator>>(CArchive& ar, CSoftwareObject*& pOb);
