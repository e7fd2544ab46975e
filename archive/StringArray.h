// Growable sequence of byte strings; "swsearch.bin" holds one.
#pragma once

#include "Object.h"

#include <string>
#include <vector>

class CStringArray : public CObject {
    DECLARE_PERSISTENT(CStringArray)
public:
    CStringArray() = default;
    ~CStringArray() override = default;

    int GetSize() const { return static_cast<int>(m_items.size()); }
    int Add(const char* newElement);
    int Add(const std::string& newElement);
    const std::string& GetAt(int nIndex) const { return m_items[static_cast<size_t>(nIndex)]; }
    std::string& ElementAt(int nIndex) { return m_items[static_cast<size_t>(nIndex)]; }
    void RemoveAll() { m_items.clear(); }

    void Serialize(CArchive& ar) override;

private:
    std::vector<std::string> m_items;
};
