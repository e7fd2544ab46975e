// CObList: a vector of object pointers walked through the list's own cursor.
// Positions are the cursor's address, so a second walk resets the first; that is
// deliberate (callers rely on it) and nothing nests walks over one list.
#include "archive/ObList.h"

#include "archive/arcobj.h"

#include <algorithm>

IMPLEMENT_PERSISTENT(CObList, CObject, 0)

// What a null or stale position yields. The slot belongs to the list (each list is
// used by one thread at a time) and is reset before each use, so a caller's write
// through the reference cannot leak into the next answer.
CObject*& CObList::NullSlot() {
    m_pNullSlot = nullptr;
    return m_pNullSlot;
}

void CObList::AddHead(CObject* newElement) { m_items.insert(m_items.begin(), newElement); }

void CObList::AddTail(CObject* newElement) { m_items.push_back(newElement); }

void CObList::AddTail(const CObList* pNewList) {
    if (!pNewList) return;
    const std::vector<CObject*> copy = pNewList->m_items;   // the list may be this one
    m_items.insert(m_items.end(), copy.begin(), copy.end());
}

CObject* CObList::RemoveHead() {
    if (m_items.empty()) return nullptr;
    CObject* ob = m_items.front();
    m_items.erase(m_items.begin());
    return ob;
}

CObject* CObList::RemoveTail() {
    if (m_items.empty()) return nullptr;
    CObject* ob = m_items.back();
    m_items.pop_back();
    return ob;
}

void CObList::RemoveAt(POSITION position) {
    if (position && *position < m_items.size()) m_items.erase(m_items.begin() + *position);
}

void CObList::RemoveAll() { m_items.clear(); }

POSITION CObList::GetHeadPosition() {
    m_nCursor = 0;
    return m_items.empty() ? nullptr : &m_nCursor;
}

POSITION CObList::GetTailPosition() {
    m_nCursor = m_items.empty() ? 0 : static_cast<std::uint32_t>(m_items.size() - 1);
    return m_items.empty() ? nullptr : &m_nCursor;
}

CObject*& CObList::GetNext(POSITION& rPosition) {
    if (!rPosition || *rPosition >= m_items.size()) return NullSlot();
    CObject*& ob = m_items[*rPosition];
    if (++*rPosition >= m_items.size()) rPosition = nullptr;
    return ob;
}

CObject*& CObList::GetPrev(POSITION& rPosition) {
    if (!rPosition || *rPosition >= m_items.size()) return NullSlot();
    CObject*& ob = m_items[*rPosition];
    if (*rPosition == 0)
        rPosition = nullptr;
    else
        --*rPosition;
    return ob;
}

CObject*& CObList::GetAt(POSITION position) {
    if (!position || *position >= m_items.size()) return NullSlot();
    return m_items[*position];
}

void CObList::Serialize(CArchive& ar) {
    CObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar.WriteCount(static_cast<std::uint32_t>(m_items.size()));
        for (CObject* ob : m_items) ar.WriteObject(ob);
    } else {
        // Appends to what the list already holds. Every element takes at least two
        // bytes, so room is made for no more than the data can hold, at once: growing
        // step by step would for a moment hold the old and the new array together.
        std::uint32_t n = ar.ReadCount();
        m_items.reserve(m_items.size() + std::min<std::uint64_t>(n, ar.GetBytesKnownLeft() / 2));
        for (; n > 0; --n) AddTail(ar.ReadObject(nullptr));
    }
}
