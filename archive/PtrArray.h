// Counted array of untyped pointers with a fixed growth rule: the archive's
// load array (index -> object or class). Not serialisable.
#pragma once

#include "Object.h"

class CPtrArray : public CObject {
    DECLARE_RUNTIME_CLASS(CPtrArray)
public:
    CPtrArray() = default;
    ~CPtrArray() override;
    CPtrArray(const CPtrArray&) = delete;
    CPtrArray& operator=(const CPtrArray&) = delete;

    int GetSize() const { return m_nSize; }
    int GetUpperBound() const { return m_nSize - 1; }
    int GetAllocatedSize() const { return m_nMaxSize; }
    // nGrowBy -1 keeps the current step; a step of 0 means size/8 clamped to [4, 1024].
    void SetSize(int nNewSize, int nGrowBy = -1);
    void FreeExtra();
    void RemoveAll() { SetSize(0); }

    void* GetAt(int nIndex) const { return m_pData[nIndex]; }   // unchecked
    void SetAt(int nIndex, void* newElement) { m_pData[nIndex] = newElement; }
    void*& ElementAt(int nIndex) { return m_pData[nIndex]; }
    void SetAtGrow(int nIndex, void* newElement);
    int Add(void* newElement);
    int Append(const CPtrArray& src);
    void Copy(const CPtrArray& src);
    void InsertAt(int nIndex, void* newElement, int nCount = 1);
    void InsertAt(int nStartIndex, const CPtrArray* pNewArray);
    void RemoveAt(int nIndex, int nCount = 1);
    void** GetData() { return m_pData; }

private:
    void** m_pData = nullptr;
    int m_nSize = 0;
    int m_nMaxSize = 0;
    int m_nGrowBy = 0;
};
