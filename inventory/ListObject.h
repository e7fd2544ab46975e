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
    // Copies every field of `pSrc`, a record of the same class; the derived
    // records leave themselves unchanged for any other source.
    virtual void CopyItems(CObject* pSrc);
    // True when `pOther` describes the same state of the item; a record of another
    // class never does in the derived records (this base level answers true).
    virtual bool IsTheSameAs(CObject* pOther);
};

CArchive& operator>>(CArchive& ar, CListObject*& pOb);
