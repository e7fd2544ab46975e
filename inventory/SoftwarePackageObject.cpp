// Package record: persistence with the list-file field order (flags before
// m_strExtra2) and schema-dependent loading (schema 1 has no description).
#include "SoftwarePackageObject.h"

IMPLEMENT_PERSISTENT(CSoftwarePackageObject, CListObject, 0x80000002)

CSoftwarePackageObject::CSoftwarePackageObject(const CSoftwarePackageObject* pSrc) {
    if (pSrc) *this = *pSrc;
}

CSoftwarePackageObject::CSoftwarePackageObject(const CSoftwarePackageObject& src) : CListObject() { *this = src; }

CSoftwarePackageObject& CSoftwarePackageObject::operator=(const CSoftwarePackageObject& src) {
    if (this == &src) return *this;
    m_strName = src.m_strName;
    m_strVersion = src.m_strVersion;
    m_strVendor = src.m_strVendor;
    m_strExtra1 = src.m_strExtra1;
    m_strExtra2 = src.m_strExtra2;
    m_nFlags = src.m_nFlags;
    m_strDescription = src.m_strDescription;
    return *this;
}

void CSoftwarePackageObject::Serialize(CArchive& ar) {
    CListObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar << m_strName << m_strVersion << m_strVendor << m_strExtra1;
        ar << m_nFlags;
        ar << m_strExtra2 << m_strDescription;
    } else {
        const unsigned int nSchema = ar.GetObjectSchema();
        ar >> m_strName >> m_strVersion >> m_strVendor >> m_strExtra1;
        ar >> m_nFlags;
        ar >> m_strExtra2;
        if (nSchema > 1) ar >> m_strDescription;
    }
}

// The callers pair records of one class; a record of another class is left alone
// rather than read as the wrong type.
void CSoftwarePackageObject::CopyItems(CObject* pSrc) {
    if (!pSrc || !pSrc->IsKindOf(CLASS_RECORD(CSoftwarePackageObject))) return;
    *this = *static_cast<CSoftwarePackageObject*>(pSrc);
}

// A record of another class is never the same.
bool CSoftwarePackageObject::IsTheSameAs(CObject* pOther) {
    if (!pOther || !pOther->IsKindOf(CLASS_RECORD(CSoftwarePackageObject))) return false;
    if (!CListObject::IsTheSameAs(pOther)) return false;
    const auto* o = static_cast<const CSoftwarePackageObject*>(pOther);
    return m_strName == o->m_strName && m_strVersion == o->m_strVersion &&
           m_strVendor == o->m_strVendor && m_nFlags == o->m_nFlags &&
           m_strExtra1 == o->m_strExtra1 && m_strExtra2 == o->m_strExtra2 &&
           m_strDescription == o->m_strDescription;
}

CArchive& operator>>(CArchive& ar, CSoftwarePackageObject*& pOb) {
    CObject* p = ar.ReadObject(CLASS_RECORD(CSoftwarePackageObject));
    pOb = (p && p->IsKindOf(CLASS_RECORD(CSoftwarePackageObject)))
              ? static_cast<CSoftwarePackageObject*>(p)
              : nullptr;
    return ar;
}
