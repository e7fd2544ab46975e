// Base record of an inventory: no fields of its own. It exists so the map can
// copy and compare records of any class through one interface.
#include "ListObject.h"

IMPLEMENT_PERSISTENT(CListObject, CObject, 1)

void CListObject::Serialize(CArchive& ar) { CObject::Serialize(ar); }

void CListObject::CopyItems(CObject*) {}

bool CListObject::IsTheSameAs(CObject*) { return true; }

CArchive& operator>>(CArchive& ar, CListObject*& pOb) {
    CObject* p = ar.ReadObject(CLASS_RECORD(CListObject));
    // The archive does not check the class it read; a foreign one reads as null here.
    pOb = (p && p->IsKindOf(CLASS_RECORD(CListObject))) ? static_cast<CListObject*>(p) : nullptr;
    return ar;
}
