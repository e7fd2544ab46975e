// CObject, the class records and the registry of creatable classes.
// The registry is a plain singly linked list filled by AFX_CLASSINIT objects
// during static initialisation, so its head must be constant-initialised.
#include "archive/Object.h"

#include "archive/arcobj.h"

#include <cstring>

CRuntimeList* g_runtimeClasses = nullptr;

CRuntimeClass CObject::classCObject = {"CObject", int(sizeof(CObject)), 0xFFFF, nullptr, nullptr};

CObject* CRuntimeClass::CreateObject() const {
    return m_pfnCreateObject ? m_pfnCreateObject() : nullptr;
}

bool CRuntimeClass::IsDerivedFrom(const CRuntimeClass* base) const {
    for (const CRuntimeClass* p = this; p; p = p->m_pBaseClass)
        if (p == base) return true;
    return false;
}

void CRuntimeClass::Store(CArchive& ar) const {
    const std::size_t len = std::strlen(m_lpszClassName);
    ar << static_cast<unsigned short>(m_wSchema);
    ar << static_cast<unsigned short>(len);
    ar.Write(m_lpszClassName, static_cast<unsigned int>(len));
}

CRuntimeClass* CRuntimeClass::Load(CArchive& ar, unsigned int* pwSchemaNum) {
    unsigned short schema = 0;
    unsigned short len = 0;
    ar >> schema;
    if (pwSchemaNum) *pwSchemaNum = schema;
    ar >> len;
    char name[64];
    if (len >= sizeof(name) || ar.Read(name, len) != len) return nullptr;
    for (CRuntimeList* node = g_runtimeClasses; node; node = node->m_pNext) {
        const char* candidate = node->m_pClass->m_lpszClassName;
        if (std::strlen(candidate) == len && std::memcmp(candidate, name, len) == 0)
            return node->m_pClass;
    }
    return nullptr;
}

void AfxClassInit(CRuntimeClass* pClass) {
    g_runtimeClasses = new CRuntimeList{g_runtimeClasses, pClass};
}

void AfxClassClose(CRuntimeClass* pClass) {
    for (CRuntimeList** link = &g_runtimeClasses; *link; link = &(*link)->m_pNext) {
        CRuntimeList* node = *link;
        if (node->m_pClass == pClass &&
            std::strcmp(node->m_pClass->m_lpszClassName, pClass->m_lpszClassName) == 0) {
            *link = node->m_pNext;
            delete node;
            return;
        }
    }
}

AFX_CLASSINIT::AFX_CLASSINIT(CRuntimeClass* pClass) : m_pClass(pClass) { AfxClassInit(pClass); }

AFX_CLASSINIT::~AFX_CLASSINIT() { AfxClassClose(m_pClass); }

void CObject::Serialize(CArchive&) {}

CRuntimeClass* CObject::GetRuntimeClass() const { return &classCObject; }

bool CObject::IsKindOf(const CRuntimeClass* pClass) const {
    return GetRuntimeClass()->IsDerivedFrom(pClass);
}

bool CObject::IsSerializable() const { return GetRuntimeClass()->m_wSchema != 0xFFFF; }
