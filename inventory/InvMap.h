// One inventory: records keyed by text, owned by the map. Computes the add,
// delete and change maps between two inventories and persists itself to list
// files and memory blocks in the archive format of CMapStringToOb.
// Each record belongs to exactly one map under exactly one key.
#pragma once

#include "ListObject.h"

#include <string>

class CInvMap : public CMapStringToOb {
    DECLARE_PERSISTENT(CInvMap)
public:
    CInvMap();
    ~CInvMap() override;   // destroys every record
    CInvMap(const CInvMap&) = delete;
    CInvMap& operator=(const CInvMap&) = delete;

    // Owning SetAt: a record replaced by a different pointer is destroyed; the map
    // then owns `newValue`. (Hides the non-owning base version.)
    void SetAt(std::string_view key, CObject* newValue);

    // Same bytes as CMapStringToOb; loading stores through the owning SetAt and
    // rejects (CFileException*) values a corrupt stream would make shared or foreign.
    void Serialize(CArchive& ar) override;

    // Crash-safe where it can be (see ListFile.h); otherwise as an in-place write.
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

    // Union; `other`'s records (as copies) win on common keys.
    // Adding a map to itself changes nothing.
    CInvMap& operator+=(CInvMap& other);

private:
    // Destroys one value, emptying a nested map first; null is fine.
    static void DestroyValue(CObject* pValue);
    // Fresh copy of a record through its class record; null for anything else.
    static CObject* CopyRecord(CObject* pValue);
    // Copies the records whose keys only this map (bMine) or only pOther holds.
    bool CopyOneSided(const CInvMap* pOther, CInvMap* pResult, bool bMine);
    // Serialize through an archive; an exception abandons the archive and gives false.
    bool SerializeThrough(CArchive& ar);
    // Loads from an open file, turning archive errors into false; closes the file.
    bool LoadFrom(CFile& file);
    // Reads one value of a stored entry; only freshly created objects are accepted.
    static CObject* ReadOwnedValue(CArchive& ar);
};

CArchive& operator>>(CArchive& ar, CInvMap*& pOb);
