// Ordered map from pointer to pointer: the archive's store map (object -> index)
// and its schema map (class -> stored schema). Not serialisable.
#pragma once

#include "ObList.h"

#include <map>

class CMapPtrToPtr : public CObject {
    DECLARE_RUNTIME_CLASS(CMapPtrToPtr)
public:
    explicit CMapPtrToPtr(int nBlockSize = 10);   // the block size is accepted and unused
    ~CMapPtrToPtr() override = default;

    int GetCount() const { return static_cast<int>(m_map.size()); }
    bool Lookup(void* key, void*& rValue) const;
    void*& operator[](void* key);
    void SetAt(void* key, void* newValue);
    bool RemoveKey(void* key);
    void RemoveAll();
    void* GetValueAt(void* key) const;   // null when absent

    POSITION GetStartPosition();
    void GetNextAssoc(POSITION& rNextPosition, void*& rKey, void*& rValue);
    bool GetItemByPosition(int index, bool& bLast, void*& rKey, void*& rValue);

private:
    using Map = std::map<void*, void*>;
    Map::iterator Seek(std::uint32_t index);

    Map m_map;
    std::uint32_t m_nCursor = 0;
    Map::iterator m_iter;
    std::uint32_t m_nIterIndex = 0;
    bool m_bIterValid = false;
};
