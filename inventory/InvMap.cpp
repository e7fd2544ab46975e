// Inventory map: owns its records, computes difference maps by one ordered walk
// of both maps, and persists itself. List files are written through ListFile.h.
#include "InvMap.h"

#include "ListFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <vector>

IMPLEMENT_PERSISTENT(CInvMap, CMapStringToOb, 1)

namespace {

using EntryMap = CMapStringToOb::Map;
using Entry = EntryMap::value_type;

// Walks two maps in ascending key order together and calls f(key, inA, inB), where
// an entry missing from one side is null. Inserting keys already passed, or
// replacing values, in either map during the walk is safe.
template <class F>
void WalkTogether(const EntryMap& a, const EntryMap* b, F&& f) {
    static const EntryMap kEmpty;
    const EntryMap& bb = b ? *b : kEmpty;
    auto ia = a.begin();
    auto ib = bb.begin();
    while (ia != a.end() || ib != bb.end()) {
        // One three-way comparison per step: key bytes are the costly part of the walk.
        const int cmp = ia == a.end() ? 1 : ib == bb.end() ? -1 : ia->first.compare(ib->first);
        if (cmp < 0) {
            const Entry& e = *ia++;
            f(e.first, &e, nullptr);
        } else if (cmp > 0) {
            const Entry& e = *ib++;
            f(e.first, nullptr, &e);
        } else {
            const Entry& ea = *ia++;
            const Entry& eb = *ib++;
            f(ea.first, &ea, &eb);
        }
    }
}

// CFile only prints a failed write; a list file about to replace the old one
// must fail loudly instead, and must not lose bytes to short writes or EINTR.
class CCheckedFile : public CFile {
public:
    explicit CCheckedFile(int fd) : CFile(fd) {}
    void Write(const void* lpBuf, unsigned int nCount) override {
        const char* p = static_cast<const char*>(lpBuf);
        while (nCount > 0) {
            const ssize_t n = ::write(m_hFile, p, nCount);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) throw new CFileException;
            p += n;
            nCount -= static_cast<unsigned int>(n);
        }
    }
};

// CMemFile grows in fixed 256-byte steps, which turns a large map into tens of
// thousands of reallocations; this one doubles instead. The bytes are the same.
class CDoublingMemFile : public CMemFile {
public:
    CDoublingMemFile(unsigned char* lpBuffer, unsigned int nBufferSize, unsigned int nGrowBytes)
        : CMemFile(lpBuffer, nBufferSize, nGrowBytes) {}

protected:
    void GrowFile(unsigned long long dwNewLen) override {
        if (dwNewLen <= m_nBufferSize) return;
        unsigned long long n = m_nBufferSize ? m_nBufferSize : m_nGrowBytes;
        while (n < dwNewLen) n *= 2;
        if (n > 0xFFFFFFFFull) n = dwNewLen;
        CMemFile::GrowFile(n);
    }
};

}  // namespace

CInvMap::CInvMap() : CMapStringToOb(10) {}

CInvMap::~CInvMap() { CleanMap(); }

void CInvMap::DestroyValue(CObject* pValue) {
    if (!pValue) return;
    if (pValue->IsKindOf(CLASS_RECORD(CInvMap))) static_cast<CInvMap*>(pValue)->CleanMap();
    delete pValue;
}

CObject* CInvMap::CopyRecord(CObject* pValue) {
    if (!pValue || !pValue->IsKindOf(CLASS_RECORD(CListObject))) return nullptr;
    CObject* pNew = pValue->GetRuntimeClass()->CreateObject();
    if (!pNew) return nullptr;
    if (!pNew->IsKindOf(CLASS_RECORD(CListObject))) {
        delete pNew;
        return nullptr;
    }
    static_cast<CListObject*>(pNew)->CopyItems(pValue);
    return pNew;
}

void CInvMap::SetAt(std::string_view key, CObject* newValue) {
    CObject* pOld = nullptr;
    const bool bHad = Lookup(key, pOld);
    CMapStringToOb::SetAt(key, newValue);
    if (bHad && pOld != newValue) DestroyValue(pOld);
}

void CInvMap::CleanMap() {
    // Empty the map before destroying, so no destructor can see a dangling entry.
    std::vector<CObject*> values;
    values.reserve(m_map.size());
    for (const auto& e : m_map) values.push_back(e.second);
    RemoveAll();
    for (CObject* p : values) DestroyValue(p);
}

bool CInvMap::RemoveItem(std::string strKey) {
    CObject* pValue = nullptr;
    if (!Lookup(strKey, pValue)) return false;
    RemoveKey(strKey);
    // Only the same-named entry of a nested map goes; the nested map is then destroyed anyway.
    if (pValue && pValue->IsKindOf(CLASS_RECORD(CInvMap)))
        static_cast<CInvMap*>(pValue)->RemoveItem(strKey);
    DestroyValue(pValue);
    return true;
}

void CInvMap::ReplaceList(const CInvMap* pSource) {
    if (pSource == this) return;   // cleaning first would destroy the source
    CleanMap();
    if (!pSource) return;
    for (const auto& e : pSource->m_map)
        if (CObject* pCopy = CopyRecord(e.second)) SetAt(e.first, pCopy);
}

bool CInvMap::CopyOneSided(const CInvMap* pOther, CInvMap* pResult, bool bMine) {
    if (!pResult) return false;
    WalkTogether(m_map, pOther ? &pOther->m_map : nullptr,
                 [&](const Key& key, const Entry* pMine, const Entry* pTheirs) {
                     const Entry* pOnly = bMine ? (pTheirs ? nullptr : pMine) : (pMine ? nullptr : pTheirs);
                     if (pOnly)
                         if (CObject* pCopy = CopyRecord(pOnly->second)) pResult->SetAt(key, pCopy);
                 });
    return pResult->GetCount() > 0;
}

bool CInvMap::CreateAddMap(const CInvMap* pOther, CInvMap* pResult) { return CopyOneSided(pOther, pResult, true); }

bool CInvMap::CreateDeleteMap(const CInvMap* pOther, CInvMap* pResult) {
    return CopyOneSided(pOther, pResult, false);
}

bool CInvMap::CreateChangeMap(const CInvMap* pOther, CInvMap* pResult) {
    if (!pResult) return false;
    const CRuntimeClass* pListClass = CLASS_RECORD(CListObject);
    WalkTogether(m_map, pOther ? &pOther->m_map : nullptr,
                 [&](const Key& key, const Entry* pMine, const Entry* pTheirs) {
                     if (!pMine || !pTheirs) return;
                     CObject* pCur = pMine->second;
                     CObject* pOld = pTheirs->second;
                     if (!pCur || !pOld || !pCur->IsKindOf(pListClass) || !pOld->IsKindOf(pListClass))
                         return;
                     if (static_cast<CListObject*>(pCur)->IsTheSameAs(pOld)) return;
                     // The current record is reported, not the previous one.
                     if (CObject* pCopy = CopyRecord(pCur)) pResult->SetAt(key, pCopy);
                 });
    return pResult->GetCount() > 0;
}

CInvMap& CInvMap::operator+=(CInvMap& other) {
    if (&other == this) return *this;
    // Removing the entry just visited leaves the following iterator valid.
    auto it = m_map.begin();
    auto io = other.m_map.begin();
    while (it != m_map.end() && io != other.m_map.end()) {
        const int cmp = it->first.compare(io->first);
        if (cmp < 0) {
            ++it;
        } else if (cmp > 0) {
            ++io;
        } else {
            const std::string key(it->first);
            ++it;
            ++io;
            RemoveItem(key);
        }
    }
    other.CreateAddMap(this, this);
    return *this;
}

void CInvMap::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        CMapStringToOb::Serialize(ar);
        return;
    }
    CObject::Serialize(ar);
    const std::uint32_t nCount = ar.ReadCount();
    // One key variable for all pairs: a key stored empty repeats the previous one.
    std::string key;
    for (std::uint32_t i = 0; i < nCount; ++i) {
        ar >> key;
        SetAt(key, ReadOwnedValue(ar));
    }
}

CObject* CInvMap::ReadOwnedValue(CArchive& ar) {
    // Endless nesting in a corrupt (or hostile) stream is refused, not recursed.
    CArchive::NestingScope nesting(ar);
    std::uint32_t nTag = 0xFFFFFFFF;
    CRuntimeClass* pClass = ar.ReadClass(nullptr, nullptr, &nTag);
    if (!pClass) {
        if (nTag == 0) return nullptr;
        // A reference to an earlier object would make two owners; an unknown class ends the stream.
        throw new CFileException;
    }
    if (!pClass->IsDerivedFrom(CLASS_RECORD(CListObject)) && !pClass->IsDerivedFrom(CLASS_RECORD(CInvMap)))
        throw new CFileException;
    CObject* pOb = pClass->CreateObject();
    if (!pOb) throw new CFileException;
    // The object takes its index before its own contents, as ReadObject numbers them.
    // If loading fails the archive is abandoned, so its slot never serves a reference.
    ar.MapObject(pOb);
    try {
        pOb->Serialize(ar);   // the schema ReadClass found is waiting in the archive
    } catch (...) {
        DestroyValue(pOb);
        throw;
    }
    return pOb;
}

bool CInvMap::ToFile(std::string strFileName) {
    return listfile::Write(strFileName, [this](int fd) {
        CCheckedFile file(fd);
        CArchive ar(&file, CArchive::store, 4096);
        return SerializeThrough(ar);
    });
}

bool CInvMap::SerializeThrough(CArchive& ar) {
    try {
        Serialize(ar);
        ar.Close();
        return true;
    } catch (CFileException* e) {
        delete e;
    } catch (...) {
    }
    ar.Abort();
    return false;
}

bool CInvMap::LoadFrom(CFile& file) {
    bool bOk;
    {
        CArchive ar(&file, CArchive::load, 4096);
        bOk = SerializeThrough(ar);
    }
    file.Close();
    return bOk;
}

bool CInvMap::FromFile(std::string strFileName) {
    CFile file;
    if (!file.Open(strFileName.c_str(), CFile::modeRead)) return false;
    return LoadFrom(file);
}

int CInvMap::ToMemory(unsigned char** ppBuffer) {
    auto* pBlock = static_cast<unsigned char*>(std::malloc(1024));
    CDoublingMemFile file(pBlock, 1024, 256);
    {
        CArchive ar(&file, CArchive::store, 4096);
        try {
            Serialize(ar);
            ar.Close();
        } catch (...) {
            // The caller sees the exception; the block must not leak with it.
            ar.Abort();
            std::free(file.Detach());
            throw;
        }
    }
    const int nLength = static_cast<int>(file.SeekToEnd());
    unsigned char* pData = file.Detach();
    file.Close();
    if (nLength == 0) {
        std::free(pData);
        pData = nullptr;
    }
    *ppBuffer = pData;
    return nLength;
}

bool CInvMap::FromMemory(const unsigned char* pBuffer, int nLength) {
    if (nLength < 0 || (!pBuffer && nLength > 0)) return false;
    // A fixed block (grow-by 0) is read in place and never written.
    CMemFile file(const_cast<unsigned char*>(pBuffer), static_cast<unsigned int>(nLength), 0);
    return LoadFrom(file);
}

CArchive& operator>>(CArchive& ar, CInvMap*& pOb) {
    CObject* p = ar.ReadObject(CLASS_RECORD(CInvMap));
    pOb = (p && p->IsKindOf(CLASS_RECORD(CInvMap))) ? static_cast<CInvMap*>(p) : nullptr;
    return ar;
}
