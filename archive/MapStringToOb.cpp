// CMapStringToOb: byte-string keys in ascending order, walked by an index cursor.
// The remembered iterator (see IndexCursor.h) keeps a full pass O(n) and stays
// right when the entry just returned by GetNextAssoc is removed mid-walk.
#include "archive/MapStringToOb.h"

#include "archive/IndexCursor.h"
#include "archive/arcobj.h"

IMPLEMENT_PERSISTENT(CMapStringToOb, CObject, 0)

using Cursor = IndexCursor<CMapStringToOb::Map>;

CMapStringToOb::CMapStringToOb(int) {}

bool CMapStringToOb::Lookup(std::string_view key, CObject*& rValue) const {
    const auto it = m_map.find(key);
    if (it == m_map.end()) return false;
    rValue = it->second;
    return true;
}

bool CMapStringToOb::LookupKey(std::string_view key, std::string& rKey) const {
    const auto it = m_map.find(key);
    if (it == m_map.end()) return false;
    rKey.assign(it->first.data(), it->first.size());
    return true;
}

CObject*& CMapStringToOb::operator[](std::string_view key) {
    auto it = m_map.lower_bound(key);
    if (it != m_map.end() && it->first == key) return it->second;
    // The key copy takes the map's pool through the map's allocator.
    it = m_map.emplace_hint(it, std::piecewise_construct, std::forward_as_tuple(key), std::forward_as_tuple(nullptr));
    Cursor::NoteInsert(m_map, it, m_iter, m_nIterIndex, m_bIterValid);
    return it->second;
}

void CMapStringToOb::SetAt(std::string_view key, CObject* newValue) { (*this)[key] = newValue; }

bool CMapStringToOb::RemoveKey(std::string_view key) {
    const auto it = m_map.find(key);
    if (it == m_map.end()) return false;
    Cursor::NoteErase(m_map, it, m_iter, m_nIterIndex, m_bIterValid);
    m_map.erase(it);
    return true;
}

void CMapStringToOb::RemoveAll() {
    m_pool.BeginRelease();
    m_map.clear();
    m_pool.Release();   // an emptied map gives its memory back
    m_bIterValid = false;
}

POSITION CMapStringToOb::GetStartPosition() {
    m_nCursor = 0;
    return m_map.empty() ? nullptr : &m_nCursor;
}

CMapStringToOb::Map::iterator CMapStringToOb::Seek(std::uint32_t index) {
    return Cursor::Seek(m_map, index, m_iter, m_nIterIndex, m_bIterValid);
}

void CMapStringToOb::GetNextAssoc(POSITION& rNextPosition, std::string& rKey, CObject*& rValue) {
    if (!rNextPosition) return;
    const auto it = Cursor::Next(m_map, rNextPosition, m_iter, m_nIterIndex, m_bIterValid);
    if (it == m_map.end()) {
        // The walk ran past the end (entries were removed); no stale value is handed out.
        rValue = nullptr;
        return;
    }
    rKey.assign(it->first.data(), it->first.size());
    rValue = it->second;
    if (rNextPosition) __builtin_prefetch(m_iter->first.data());
}

bool CMapStringToOb::GetItemByPosition(int index, bool& bLast, std::string& rKey, CObject*& rValue) {
    if (index < 0) return false;
    const auto it = Seek(static_cast<std::uint32_t>(index));
    if (it == m_map.end()) return false;
    rKey.assign(it->first.data(), it->first.size());
    rValue = it->second;
    bLast = std::next(it) == m_map.end();
    return true;
}

void CMapStringToOb::Serialize(CArchive& ar) {
    CObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar.WriteCount(static_cast<std::uint32_t>(m_map.size()));
        for (const auto& entry : m_map) {
            ar << entry.first;
            ar.WriteObject(entry.second);
        }
    } else {
        // One key variable for all pairs: a key stored empty reuses the previous
        // pair's key, because reading an empty string leaves its target as it was.
        std::string key;
        for (std::uint32_t n = ar.ReadCount(); n > 0; --n) {
            ar >> key;
            CObject* value = ar.ReadObject(nullptr);
            SetAt(key, value);
        }
    }
}
