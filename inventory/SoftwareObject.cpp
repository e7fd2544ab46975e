// Executable-file record: persistence with schema-dependent loading (schema 1
// lacks m_nInfo6 and m_strPackage, schema 2 lacks m_strPackage). m_nTransient
// is copied but never persisted or compared.
#include "SoftwareObject.h"

IMPLEMENT_PERSISTENT(CSoftwareObject, CListObject, 0x80000003)

CSoftwareObject::CSoftwareObject(const CSoftwareObject* pSrc) {
    if (pSrc) *this = *pSrc;
}

CSoftwareObject::CSoftwareObject(const CSoftwareObject& src) : CListObject() { *this = src; }

CSoftwareObject& CSoftwareObject::operator=(const CSoftwareObject& src) {
    if (this == &src) return *this;
    m_strVersion = src.m_strVersion;
    m_strDescription = src.m_strDescription;
    m_strCompanyName = src.m_strCompanyName;
    m_strInfo1 = src.m_strInfo1;
    m_strInfo2 = src.m_strInfo2;
    m_strInfo3 = src.m_strInfo3;
    m_strInfo4 = src.m_strInfo4;
    m_nInfo5 = src.m_nInfo5;
    m_nInfo6 = src.m_nInfo6;
    m_nTransient = src.m_nTransient;
    m_strPackage = src.m_strPackage;
    return *this;
}

void CSoftwareObject::Serialize(CArchive& ar) {
    CListObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar << m_strVersion << m_strDescription << m_strCompanyName;
        ar << m_strInfo1 << m_strInfo2 << m_strInfo3 << m_strInfo4;
        ar << static_cast<unsigned int>(m_nInfo5) << m_nInfo6;
        ar << m_strPackage;
    } else {
        const unsigned int nSchema = ar.GetObjectSchema();
        ar >> m_strVersion >> m_strDescription >> m_strCompanyName;
        ar >> m_strInfo1 >> m_strInfo2 >> m_strInfo3 >> m_strInfo4;
        unsigned int nInfo5 = 0;
        ar >> nInfo5;
        m_nInfo5 = static_cast<int>(nInfo5);
        if (nSchema > 1) ar >> m_nInfo6;
        if (nSchema > 2) ar >> m_strPackage;
    }
}

// The callers pair records of one class; a record of another class is left alone.
void CSoftwareObject::CopyItems(CObject* pSrc) {
    if (!pSrc || !pSrc->IsKindOf(CLASS_RECORD(CSoftwareObject))) return;
    *this = *static_cast<CSoftwareObject*>(pSrc);
}

// m_strInfo1, m_strInfo3, m_strInfo4, m_nInfo5 and m_nTransient deliberately take no part.
bool CSoftwareObject::IsTheSameAs(CObject* pOther) {
    if (!pOther || !pOther->IsKindOf(CLASS_RECORD(CSoftwareObject))) return false;
    if (!CListObject::IsTheSameAs(pOther)) return false;
    const auto* o = static_cast<const CSoftwareObject*>(pOther);
    return m_strVersion == o->m_strVersion && m_strDescription == o->m_strDescription &&
           m_strCompanyName == o->m_strCompanyName && m_strInfo2 == o->m_strInfo2 &&
           m_nInfo6 == o->m_nInfo6 && m_strPackage == o->m_strPackage;
}

CArchive& operator>>(CArchive& ar, CSoftwareObject*& pOb) {
    CObject* p = ar.ReadObject(CLASS_RECORD(CSoftwareObject));
    pOb = (p && p->IsKindOf(CLASS_RECORD(CSoftwareObject))) ? static_cast<CSoftwareObject*>(p)
                                                            : nullptr;
    return ar;
}
