// CStringArray: a vector of byte strings; the format of "swsearch.bin".
#include "archive/StringArray.h"

#include "archive/arcobj.h"

IMPLEMENT_PERSISTENT(CStringArray, CObject, 0)

int CStringArray::Add(const char* newElement) {
    m_items.emplace_back(newElement ? newElement : "");
    return static_cast<int>(m_items.size() - 1);
}

int CStringArray::Add(const std::string& newElement) {
    m_items.push_back(newElement);
    return static_cast<int>(m_items.size() - 1);
}

void CStringArray::Serialize(CArchive& ar) {
    CObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar.WriteCount(static_cast<std::uint32_t>(m_items.size()));
        for (const std::string& s : m_items) ar << s;
    } else {
        m_items.clear();
        // Never reserve by the stored count: it is untrusted until the strings arrive.
        for (std::uint32_t n = ar.ReadCount(); n > 0; --n) {
            std::string s;
            ar >> s;
            m_items.push_back(std::move(s));
        }
    }
}
