// Inventory map: owns its records, computes difference maps by one ordered walk
// of both maps, and persists itself. List files are written through ListFile.h.
//
// Ownership of loaded values. A stream may hold any registered class as a value,
// share one object under several keys or inside lists, nest maps and lists, and
// even loop (an object takes its index before its contents load). The map that
// loads a stream at the outermost level therefore keeps every object the stream
// creates in its graph, destroyed once when the map is emptied or destroyed; maps
// loaded inside it only refer to their values. Entries never destroy a held value.
// The common stream, one fresh record per new key, needs no graph: each record
// then simply belongs to its entry, as records put in by code do.
#include "InvMap.h"

#include "ListFile.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iterator>
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
            if (n == 0) errno = EIO;   // no progress and no reason given
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

// Objects a load left beyond plain records (see the top of this file).
struct CInvMap::Graph {
    std::vector<CObject*> owned;           // created by loads; destroyed with the graph
    std::vector<const CObject*> foreign;   // created before the load that referred to them
    bool Holds(const CObject* p) const {
        const std::less<const CObject*> less;
        return std::binary_search(owned.begin(), owned.end(), p, less) ||
               std::binary_search(foreign.begin(), foreign.end(), p, less);
    }
};

namespace {

// Merges the ascending `more` into the ascending `into`.
template <class T, class U>
void MergeSorted(std::vector<T>& into, const std::vector<U>& more) {
    std::vector<T> merged;
    merged.reserve(into.size() + more.size());
    std::merge(into.begin(), into.end(), more.begin(), more.end(), std::back_inserter(merged),
               std::less<const CObject*>());
    into.swap(merged);
}

// Clears the archive's load owner when the outermost loader leaves, however it leaves.
struct LoadOwnerScope {
    CArchive& ar;
    ~LoadOwnerScope() { ar.SetLoadOwner(nullptr); }
};

}  // namespace

CInvMap::CInvMap() : CMapStringToOb(10) {}

CInvMap::~CInvMap() { CleanMap(); }

bool CInvMap::IsHeld(const CObject* pValue) const { return m_pGraph && m_pGraph->Holds(pValue); }

void CInvMap::DestroyValue(CObject* pValue) {
    if (!pValue || IsHeld(pValue)) return;
    if (pValue->IsKindOf(CLASS_RECORD(CInvMap))) static_cast<CInvMap*>(pValue)->CleanMap();
    delete pValue;
}

void CInvMap::ReleaseGraph() {
    const std::unique_ptr<Graph> graph = std::move(m_pGraph);
    if (!graph) return;
    // Inventory maps among them would destroy their values, which the graph holds
    // itself: strip them all before the first goes. Other objects own nothing shared.
    for (CObject* p : graph->owned)
        if (p->IsKindOf(CLASS_RECORD(CInvMap))) static_cast<CInvMap*>(p)->CMapStringToOb::RemoveAll();
    for (CObject* p : graph->owned) delete p;
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
    ReleaseGraph();
}

bool CInvMap::RemoveItem(std::string strKey) {
    CObject* pValue = nullptr;
    if (!Lookup(strKey, pValue)) return false;
    RemoveKey(strKey);
    if (IsHeld(pValue)) {
        // Loaded objects may be referred to from elsewhere: they stay until the map is empty.
        if (m_map.empty()) ReleaseGraph();
        return true;
    }
    // Only the same-named entry of a nested map goes; the nested map is then destroyed anyway.
    if (pValue && pValue->IsKindOf(CLASS_RECORD(CInvMap)))
        static_cast<CInvMap*>(pValue)->RemoveItem(strKey);
    DestroyValue(pValue);
    return true;
}

void CInvMap::ReplaceList(const CInvMap* pSource) {
    CleanMap();   // the map itself as source: nothing is left to copy
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
    // Removing the entry just visited leaves the following iterators valid, also when
    // `other` is this map and both walks stand on the same entries.
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
    if (!ar.GetLoadOwner()) {
        LoadOwning(ar);
        return;
    }
    // Inside another map's stream: that map keeps what the stream creates and this one
    // only refers to its values. A failed load leaves it empty, so that deleting it
    // destroys nothing the outer map holds.
    try {
        CMapStringToOb::Serialize(ar);
    } catch (...) {
        CMapStringToOb::RemoveAll();
        throw;
    }
}

void CInvMap::LoadOwning(CArchive& ar) {
    CObject::Serialize(ar);
    const std::uint32_t nFirst = ar.GetLoadedCount();
    ar.SetLoadOwner(this);
    const LoadOwnerScope scope{ar};
    bool bPlain = true;               // so far each value is null or a fresh record under a new key
    std::vector<CObject*> linked;     // values that were not created by their own read
    std::vector<CObject*> replaced;   // values a repeated key pushed out
    try {
        // As CMapStringToOb: one key variable for all pairs, so a key stored empty
        // repeats the previous one; a repeated key replaces the value.
        std::string key;
        for (std::uint32_t n = ar.ReadCount(); n > 0; --n) {
            ar >> key;
            const std::uint32_t nBefore = ar.GetLoadedCount();
            CObject* pValue = ar.ReadObject(nullptr);
            const std::uint32_t nAfter = ar.GetLoadedCount();
            // The last object created by this read is the value itself only when the
            // value created nothing inside it.
            const bool bFresh = nAfter > nBefore && ar.GetLoadedObject(nAfter - 1) == pValue;
            if (pValue && !bFresh) linked.push_back(pValue);
            if (pValue && !(bFresh && pValue->IsKindOf(CLASS_RECORD(CListObject)))) bPlain = false;
            CObject* pOld = nullptr;
            if (Lookup(key, pOld)) {
                bPlain = false;
                replaced.push_back(pOld);
            }
            CMapStringToOb::SetAt(key, pValue);
        }
    } catch (...) {
        Adopt(ar, nFirst, linked, replaced);
        throw;
    }
    if (!bPlain) Adopt(ar, nFirst, linked, replaced);
}

void CInvMap::Adopt(CArchive& ar, std::uint32_t nFirst, const std::vector<CObject*>& linked,
                    const std::vector<CObject*>& replaced) {
    const std::less<const CObject*> less;
    std::vector<CObject*> created;
    const std::uint32_t nEnd = ar.GetLoadedCount();
    for (std::uint32_t i = nFirst; i < nEnd; ++i)
        if (CObject* p = ar.GetLoadedObject(i)) created.push_back(p);
    std::sort(created.begin(), created.end(), less);
    std::vector<const CObject*> outside;
    for (CObject* p : linked)
        if (!std::binary_search(created.begin(), created.end(), p, less)) outside.push_back(p);
    std::sort(outside.begin(), outside.end(), less);
    outside.erase(std::unique(outside.begin(), outside.end()), outside.end());

    if (!m_pGraph) m_pGraph = std::make_unique<Graph>();
    MergeSorted(m_pGraph->owned, created);
    MergeSorted(m_pGraph->foreign, outside);
    // A value pushed out is either held now or a record the map had before this load,
    // which nothing in the stream can refer to.
    for (CObject* p : replaced) DestroyValue(p);
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
