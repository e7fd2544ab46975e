// Base of the inventory records: adds to CObject the two operations the
// difference computation needs, copying a record and comparing two records.
#pragma once

#include "archive/arcobj.h"

class CListObject : public CObject {
    DECLARE_PERSISTENT(CListObject)
public:
    CListObject() = default;
    ~CListObject() override = default;

    void Serialize(CArchive& ar) override;
    // Copies every field of `pSrc`, which must be a record of the same class.
    virtual void CopyItems(CObject* pSrc);
    // True when `pOther` (same class, unchecked) describes the same state of the item.
    virtual bool IsTheSameAs(CObject* pOther);
};

CArchive& operator>>(CArchive& ar, CListObject*& pOb);
