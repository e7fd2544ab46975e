// CStringArray: a vector of byte strings; the format of "swsearch.bin".
#include "archive/StringArray.h"

#include "archive/arcobj.h"

#include <algorithm>

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
        // Room for the stored count, but never for more strings than the data can hold
        // (each takes a byte at least), so a bogus count costs nothing.
        std::uint32_t n = ar.ReadCount();
        m_items.reserve(std::min<std::uint64_t>(n, ar.GetBytesKnownLeft()));
        for (; n > 0; --n) {
            std::string s;
            ar >> s;
            m_items.push_back(std::move(s));
        }
    }
}
