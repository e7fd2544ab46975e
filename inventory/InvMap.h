// One inventory: records keyed by text, owned by the map. Computes the add,
// delete and change maps between two inventories and persists itself to list
// files and memory blocks in the archive format of CMapStringToOb.
// A record put in by code belongs to exactly one map under exactly one key; what a
// stream loads may be shared, nested or cyclic, and the map keeps all of it until
// it is emptied.
#pragma once

#include "ListObject.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CInvMap : public CMapStringToOb {
    DECLARE_PERSISTENT(CInvMap)
public:
    CInvMap();
    ~CInvMap() override;   // destroys every record
    CInvMap(const CInvMap&) = delete;
    CInvMap& operator=(const CInvMap&) = delete;

    // Owning SetAt: a value replaced by a different pointer is destroyed (one a load
    // created stays with its graph); the map then owns `newValue`. (Hides the base version.)
    void SetAt(std::string_view key, CObject* newValue);

    // Loads exactly what CMapStringToOb loads, values of any class and references
    // to earlier objects included; see the ownership rules in InvMap.cpp.
    void Serialize(CArchive& ar) override;

    // Crash-safe where it can be (see ListFile.h); otherwise as an in-place write. On
    // false, errno tells why.
    bool ToFile(std::string strFileName);
    // Loads into the existing contents; false (entries loaded so far kept) on any error.
    bool FromFile(std::string strFileName);
    // Returns the length; the block goes to *ppBuffer (free() it), null when the length is 0.
    // Archive exceptions pass to the caller.
    int ToMemory(unsigned char** ppBuffer);
    bool FromMemory(const unsigned char* pBuffer, int nLength);

    void CleanMap();
    bool RemoveItem(std::string strKey);
    void ReplaceList(const CInvMap* pSource);

    // Each copies records (fresh objects through the class record) into pResult and
    // returns whether pResult holds any entry afterwards.
    bool CreateDeleteMap(const CInvMap* pOther, CInvMap* pResult);
    bool CreateAddMap(const CInvMap* pOther, CInvMap* pResult);
    bool CreateChangeMap(const CInvMap* pOther, CInvMap* pResult);

    // Union; `other`'s records (as copies) win on common keys. Adding a map to
    // itself empties it: every key is common and goes, and nothing is left to add.
    CInvMap& operator+=(CInvMap& other);

private:
    struct Graph;

    // True for a value a load created or referred to: the map keeps those apart.
    bool IsHeld(const CObject* pValue) const;
    // Destroys one value, emptying a nested map first; null and held values stay.
    void DestroyValue(CObject* pValue);
    // Destroys what loads left in the graph; only once no entry refers to it.
    void ReleaseGraph();
    // The loader of the outermost map of a stream, which keeps what the stream creates.
    void LoadOwning(CArchive& ar);
    // Takes into the graph every object created since load index nFirst, the values
    // that referred to objects outside them, and settles the values a repeated key pushed out.
    void Adopt(CArchive& ar, std::uint32_t nFirst, const std::vector<CObject*>& linked,
               const std::vector<CObject*>& replaced);
    // Fresh copy of a record through its class record; null for anything else.
    static CObject* CopyRecord(CObject* pValue);
    // Copies the records whose keys only this map (bMine) or only pOther holds.
    bool CopyOneSided(const CInvMap* pOther, CInvMap* pResult, bool bMine);
    // Serialize through an archive; an exception abandons the archive and gives false.
    bool SerializeThrough(CArchive& ar);
    // Loads from an open file, turning archive errors into false; closes the file.
    bool LoadFrom(CFile& file);

    std::unique_ptr<Graph> m_pGraph;   // null unless a load left more than plain records
};

CArchive& operator>>(CArchive& ar, CInvMap*& pOb);
