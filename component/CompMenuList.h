// Command menu records a component may offer to the host's user interface.
// This component offers none; the classes complete the host contract.
#pragma once

#include "archive/Object.h"

#include <string>
#include <vector>

class CCompMenuInfo : public CObject {
public:
    CCompMenuInfo() = default;
    CCompMenuInfo(unsigned int command, const std::string& text, unsigned short flags, unsigned int data);
    CCompMenuInfo(const CCompMenuInfo& src);
    CCompMenuInfo& operator=(const CCompMenuInfo& src);

    unsigned int m_nCommand = 0;   // no command chosen yet; copying a default record stays defined
    std::string m_strText;
    std::string m_strAux;
    unsigned short m_wFlags = 0;
    unsigned int m_dwData = 0;
};

class CCompMenuList : public CObject {
public:
    void Add(CCompMenuInfo& info) { m_items.push_back(info); }
    CCompMenuInfo& operator[](int index) { return m_items[static_cast<size_t>(index)]; }   // unchecked
    int GetCount() const { return static_cast<int>(m_items.size()); }

private:
    std::vector<CCompMenuInfo> m_items;
};
