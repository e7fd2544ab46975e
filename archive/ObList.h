// Ordered list of object pointers with one built-in iteration cursor.
// A POSITION is the address of that cursor, so one iteration runs at a time:
// starting a second one resets the first. The list does not own its objects.
#pragma once

#include "Object.h"

#include <cstdint>
#include <vector>

using POSITION = std::uint32_t*;

class CObList : public CObject {
    DECLARE_PERSISTENT(CObList)
public:
    CObList() = default;
    ~CObList() override = default;

    void AddHead(CObject* newElement);
    void AddTail(CObject* newElement);
    void AddTail(const CObList* pNewList);
    CObject* RemoveHead();        // null for an empty list
    CObject* RemoveTail();        // null for an empty list
    void RemoveAt(POSITION position);
    void RemoveAll();             // forgets the objects; never deletes them
    int GetCount() const { return static_cast<int>(m_items.size()); }
    bool IsEmpty() const { return m_items.empty(); }

    POSITION GetHeadPosition();   // cursor := 0; null for an empty list
    POSITION GetTailPosition();   // cursor := last; null for an empty list
    // Element at the cursor; moves it on and nulls `rPosition` after the last one.
    CObject*& GetNext(POSITION& rPosition);
    CObject*& GetPrev(POSITION& rPosition);
    // A null or out-of-range position yields a reference to a static null pointer.
    CObject*& GetAt(POSITION position);

    void Serialize(CArchive& ar) override;

private:
    CObject*& NullSlot();

    std::vector<CObject*> m_items;
    std::uint32_t m_nCursor = 0;
    CObject* m_pNullSlot = nullptr;
};
