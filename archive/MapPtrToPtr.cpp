// CMapPtrToPtr: pointer keys ordered by address, with the same index-cursor walk
// as the string map. The archive uses it as its store map and schema map.
#include "archive/MapPtrToPtr.h"

#include "archive/IndexCursor.h"

#include <functional>

IMPLEMENT_RUNTIME_CLASS(CMapPtrToPtr, CObject, 0xFFFF)

using Cursor = IndexCursor<std::map<void*, void*>>;

CMapPtrToPtr::CMapPtrToPtr(int) {}

bool CMapPtrToPtr::Lookup(void* key, void*& rValue) const {
    const auto it = m_map.find(key);
    if (it == m_map.end()) return false;
    rValue = it->second;
    return true;
}

void*& CMapPtrToPtr::operator[](void* key) {
    const auto res = m_map.emplace(key, nullptr);
    if (res.second) Cursor::NoteInsert(m_map, res.first, m_iter, m_nIterIndex, m_bIterValid);
    return res.first->second;
}

void CMapPtrToPtr::SetAt(void* key, void* newValue) { (*this)[key] = newValue; }

bool CMapPtrToPtr::RemoveKey(void* key) {
    const auto it = m_map.find(key);
    if (it == m_map.end()) return false;
    Cursor::NoteErase(m_map, it, m_iter, m_nIterIndex, m_bIterValid);
    m_map.erase(it);
    return true;
}

void CMapPtrToPtr::RemoveAll() {
    m_map.clear();
    m_bIterValid = false;
}

void* CMapPtrToPtr::GetValueAt(void* key) const {
    const auto it = m_map.find(key);
    return it == m_map.end() ? nullptr : it->second;
}

POSITION CMapPtrToPtr::GetStartPosition() {
    m_nCursor = 0;
    return m_map.empty() ? nullptr : &m_nCursor;
}

CMapPtrToPtr::Map::iterator CMapPtrToPtr::Seek(std::uint32_t index) {
    return Cursor::Seek(m_map, index, m_iter, m_nIterIndex, m_bIterValid);
}

void CMapPtrToPtr::GetNextAssoc(POSITION& rNextPosition, void*& rKey, void*& rValue) {
    if (!rNextPosition) return;
    const auto it = Cursor::Next(m_map, rNextPosition, m_iter, m_nIterIndex, m_bIterValid);
    if (it == m_map.end()) {
        rValue = nullptr;
        return;
    }
    rKey = it->first;
    rValue = it->second;
}

bool CMapPtrToPtr::GetItemByPosition(int index, bool& bLast, void*& rKey, void*& rValue) {
    if (index < 0) return false;
    const auto it = Seek(static_cast<std::uint32_t>(index));
    if (it == m_map.end()) return false;
    rKey = it->first;
    rValue = it->second;
    bLast = std::next(it) == m_map.end();
    return true;
}
