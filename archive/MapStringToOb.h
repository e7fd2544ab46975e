// Ordered map from byte-string key to object pointer, iterated in ascending key
// order through one built-in index cursor (a POSITION is its address). The map
// does not own its objects; CInvMap derives from it and does. Nodes and key bytes
// come from the map's own pool, so a pass over a large map streams through memory;
// the pool takes memory only as entries arrive.
#pragma once

#include "MapPool.h"
#include "ObList.h"

#include <map>
#include <memory_resource>
#include <string>
#include <string_view>

class CMapStringToOb : public CObject {
    DECLARE_PERSISTENT(CMapStringToOb)
public:
    explicit CMapStringToOb(int nBlockSize = 10);
    ~CMapStringToOb() override { m_pool.BeginRelease(); }   // the nodes go back with their chunks

    int GetCount() const { return static_cast<int>(m_map.size()); }
    bool IsEmpty() const { return m_map.empty(); }

    bool Lookup(std::string_view key, CObject*& rValue) const;
    bool LookupKey(std::string_view key, std::string& rKey) const;
    CObject*& operator[](std::string_view key);   // inserts a null value for a new key
    void SetAt(std::string_view key, CObject* newValue);
    bool RemoveKey(std::string_view key);
    void RemoveAll();

    POSITION GetStartPosition();   // cursor := 0; null for an empty map
    // Entry at the cursor index; advances it, or nulls `rNextPosition` after the last entry.
    // Removing the entry just returned (and only that) keeps the walk valid.
    void GetNextAssoc(POSITION& rNextPosition, std::string& rKey, CObject*& rValue);
    // Entry `index` steps from the first; `bLast` tells whether it is the final one.
    bool GetItemByPosition(int index, bool& bLast, std::string& rKey, CObject*& rValue);

    void Serialize(CArchive& ar) override;

    // Byte-wise key order; transparent, so lookups need no key copy.
    struct KeyLess {
        using is_transparent = void;
        bool operator()(std::string_view a, std::string_view b) const { return a < b; }
    };
    using Key = std::pmr::string;
    using Map = std::pmr::map<Key, CObject*, KeyLess>;

protected:
    // Walks to entry `index`, reusing the remembered iterator when the map was not changed otherwise.
    Map::iterator Seek(std::uint32_t index);

    // Nodes and keys share chunks, filled in insertion order (key order for scans and
    // loaded lists). Declared before the map it serves.
    MapPool m_pool;
    Map m_map{&m_pool};
    std::uint32_t m_nCursor = 0;

private:
    // Iterator matching m_nIterIndex while m_bIterValid holds; keeps a full pass O(n).
    Map::iterator m_iter;
    std::uint32_t m_nIterIndex = 0;
    bool m_bIterValid = false;
};
