// CPtrArray: counted pointer array with a fixed growth step (grow-by, or
// size/8 clamped to [4, 1024] when grow-by is 0). Negative sizes and indices
// are ignored rather than trusted.
#include "archive/PtrArray.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <new>
#include <vector>

IMPLEMENT_RUNTIME_CLASS(CPtrArray, CObject, 0xFFFF)

CPtrArray::~CPtrArray() { std::free(m_pData); }

void CPtrArray::SetSize(int nNewSize, int nGrowBy) {
    if (nGrowBy != -1) m_nGrowBy = nGrowBy;
    if (nNewSize <= 0) {
        std::free(m_pData);
        m_pData = nullptr;
        m_nSize = m_nMaxSize = 0;
        return;
    }
    if (!m_pData) {
        m_pData = static_cast<void**>(std::calloc(static_cast<std::size_t>(nNewSize), sizeof(void*)));
        if (!m_pData) throw std::bad_alloc();
        m_nSize = m_nMaxSize = nNewSize;
        return;
    }
    if (nNewSize <= m_nMaxSize) {
        if (nNewSize > m_nSize) std::fill(m_pData + m_nSize, m_pData + nNewSize, nullptr);
        m_nSize = nNewSize;
        return;
    }
    long long step = m_nGrowBy;
    if (step <= 0) step = std::min(1024, std::max(4, m_nSize / 8));
    const long long newMax = std::min<long long>(INT_MAX, std::max<long long>(m_nMaxSize + step, nNewSize));
    // realloc moves large blocks by remapping pages, so the archive's load array, which
    // grows 64 slots at a time, stays linear in the number of objects loaded.
    void** data = static_cast<void**>(std::realloc(m_pData, static_cast<std::size_t>(newMax) * sizeof(void*)));
    if (!data) throw std::bad_alloc();
    std::fill(data + m_nSize, data + newMax, nullptr);
    m_pData = data;
    m_nSize = nNewSize;
    m_nMaxSize = static_cast<int>(newMax);
}

void CPtrArray::FreeExtra() {
    if (m_nSize == m_nMaxSize) return;
    void** data = nullptr;
    if (m_nSize > 0) {
        data = static_cast<void**>(std::malloc(static_cast<std::size_t>(m_nSize) * sizeof(void*)));
        if (!data) throw std::bad_alloc();
        std::copy(m_pData, m_pData + m_nSize, data);
    }
    std::free(m_pData);
    m_pData = data;
    m_nMaxSize = m_nSize;
}

void CPtrArray::SetAtGrow(int nIndex, void* newElement) {
    if (nIndex < 0 || nIndex == INT_MAX) return;
    if (nIndex >= m_nSize) SetSize(nIndex + 1);
    m_pData[nIndex] = newElement;
}

int CPtrArray::Add(void* newElement) {
    const int index = m_nSize;
    SetAtGrow(index, newElement);
    return index;
}

int CPtrArray::Append(const CPtrArray& src) {
    const int oldSize = m_nSize;
    const int count = src.m_nSize;   // read first: src may be this array
    if (count > 0) {
        SetSize(oldSize + count);
        std::copy(src.m_pData, src.m_pData + count, m_pData + oldSize);
    }
    return oldSize;
}

void CPtrArray::Copy(const CPtrArray& src) {
    if (&src == this) return;
    SetSize(src.m_nSize);
    if (src.m_nSize > 0) std::copy(src.m_pData, src.m_pData + src.m_nSize, m_pData);
}

void CPtrArray::InsertAt(int nIndex, void* newElement, int nCount) {
    if (nIndex < 0 || nCount <= 0) return;
    if (nIndex >= m_nSize) {
        SetSize(nIndex + nCount);
    } else {
        const int oldSize = m_nSize;
        SetSize(oldSize + nCount);
        std::copy_backward(m_pData + nIndex, m_pData + oldSize, m_pData + oldSize + nCount);
    }
    std::fill(m_pData + nIndex, m_pData + nIndex + nCount, newElement);
}

void CPtrArray::InsertAt(int nStartIndex, const CPtrArray* pNewArray) {
    if (!pNewArray || pNewArray->m_nSize <= 0 || nStartIndex < 0) return;
    const std::vector<void*> items(pNewArray->m_pData, pNewArray->m_pData + pNewArray->m_nSize);
    InsertAt(nStartIndex, items[0], static_cast<int>(items.size()));
    std::copy(items.begin(), items.end(), m_pData + nStartIndex);
}

void CPtrArray::RemoveAt(int nIndex, int nCount) {
    if (nIndex < 0 || nCount <= 0 || nIndex >= m_nSize) return;
    if (nCount > m_nSize - nIndex) nCount = m_nSize - nIndex;
    std::copy(m_pData + nIndex + nCount, m_pData + m_nSize, m_pData + nIndex);
    m_nSize -= nCount;
}
