// Ordered map from byte-string key to object pointer, iterated in ascending key
// order through one built-in index cursor (a POSITION is its address). The map
// does not own its objects; CInvMap derives from it and does.
#pragma once

#include "ObList.h"

#include <map>
#include <string>

class CMapStringToOb : public CObject {
    DECLARE_PERSISTENT(CMapStringToOb)
public:
    explicit CMapStringToOb(int nBlockSize = 10);
    ~CMapStringToOb() override = default;

    int GetCount() const { return static_cast<int>(m_map.size()); }
    bool IsEmpty() const { return m_map.empty(); }

    bool Lookup(const std::string& key, CObject*& rValue) const;
    bool LookupKey(const std::string& key, std::string& rKey) const;
    CObject*& operator[](const std::string& key);   // inserts a null value for a new key
    void SetAt(const std::string& key, CObject* newValue);
    bool RemoveKey(const std::string& key);
    void RemoveAll();

    POSITION GetStartPosition();   // cursor := 0; null for an empty map
    // Entry at the cursor index; advances it, or nulls `rNextPosition` after the last entry.
    // Removing the entry just returned (and only that) keeps the walk valid.
    void GetNextAssoc(POSITION& rNextPosition, std::string& rKey, CObject*& rValue);
    // Entry `index` steps from the first; `bLast` tells whether it is the final one.
    bool GetItemByPosition(int index, bool& bLast, std::string& rKey, CObject*& rValue);

    void Serialize(CArchive& ar) override;

protected:
    using Map = std::map<std::string, CObject*>;
    // Walks to entry `index`, reusing the remembered iterator when the map was not changed otherwise.
    Map::iterator Seek(std::uint32_t index);

    Map m_map;
    std::uint32_t m_nCursor = 0;

private:
    // Iterator matching m_nIterIndex while m_bIterValid holds; keeps a full pass O(n).
    Map::iterator m_iter;
    std::uint32_t m_nIterIndex = 0;
    bool m_bIterValid = false;
};
