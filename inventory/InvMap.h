// One inventory: records keyed by text, owned by the map. Computes the add,
// delete and change maps between two inventories and persists itself to list
// files and memory blocks in the archive format of CMapStringToOb.
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

    // Crash-safe: writes a 0600 temporary file beside the target, fsyncs and renames it over.
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
    CInvMap& operator+=(CInvMap& other);
};

CArchive& operator>>(CArchive& ar, CInvMap*& pOb);
