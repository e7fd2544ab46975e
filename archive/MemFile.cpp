// CMemFile: file contents in one heap block that grows in grow-by steps.
// Sizes and positions are 32-bit; anything that would need a larger block, or
// growth of a fixed (grow-by 0) block, throws CFileException* instead of wrapping.
#include "archive/MemFile.h"

#include <cstdlib>
#include <cstring>

IMPLEMENT_RUNTIME_CLASS(CMemFile, CFile, 0xFFFF)

namespace {
constexpr unsigned long long kMaxMemFileSize = 0xFFFFFFFFull;
}

CMemFile::CMemFile(unsigned int nGrowBytes)
    : m_nGrowBytes(nGrowBytes), m_nPosition(0), m_nBufferSize(0), m_nFileSize(0), m_lpBuffer(nullptr),
      m_bAutoDelete(true) {}

CMemFile::CMemFile(unsigned char* lpBuffer, unsigned int nBufferSize, unsigned int nGrowBytes)
    : m_nGrowBytes(0), m_nPosition(0), m_nBufferSize(0), m_nFileSize(0), m_lpBuffer(nullptr),
      m_bAutoDelete(false) {
    Attach(lpBuffer, nBufferSize, nGrowBytes);
}

CMemFile::~CMemFile() {
    if (m_lpBuffer) CMemFile::Close();
}

void CMemFile::Attach(unsigned char* lpBuffer, unsigned int nBufferSize, unsigned int nGrowBytes) {
    if (m_lpBuffer && m_bAutoDelete) Free(m_lpBuffer);
    m_lpBuffer = lpBuffer;
    m_nPosition = 0;
    m_nBufferSize = nBufferSize;
    m_nFileSize = nGrowBytes == 0 ? nBufferSize : 0;   // a fixed block is data, a growable one is room
    m_nGrowBytes = nGrowBytes;
    m_bAutoDelete = false;
}

unsigned char* CMemFile::Detach() {
    unsigned char* block = m_lpBuffer;
    m_lpBuffer = nullptr;
    m_nPosition = m_nBufferSize = m_nFileSize = 0;
    m_bAutoDelete = true;   // any block allocated from now on is our own
    return block;
}

unsigned long long CMemFile::GetPosition() const { return m_nPosition; }

long long CMemFile::Seek(long long lOff, unsigned int nFrom) {
    long long base;
    switch (nFrom) {
    case begin: base = 0; break;
    case current: base = m_nPosition; break;
    case end: base = m_nFileSize; break;
    default: return -1;
    }
    // No range check: a position before the start wraps to a huge one and reads nothing.
    m_nPosition = static_cast<unsigned int>(static_cast<unsigned long long>(base) +
                                            static_cast<unsigned long long>(lOff));
    return m_nPosition;
}

void CMemFile::SetLength(unsigned long long dwNewLen) {
    if (dwNewLen > kMaxMemFileSize) throw new CFileException;
    if (dwNewLen > m_nBufferSize) GrowFile(dwNewLen);
    if (dwNewLen > m_nFileSize) std::memset(m_lpBuffer + m_nFileSize, 0, dwNewLen - m_nFileSize);
    if (m_nPosition > dwNewLen) m_nPosition = static_cast<unsigned int>(dwNewLen);
    m_nFileSize = static_cast<unsigned int>(dwNewLen);
}

unsigned long long CMemFile::GetLength() const { return m_nFileSize; }

long CMemFile::Read(void* lpBuf, unsigned int nCount) {
    if (nCount == 0 || m_nPosition >= m_nFileSize) return 0;
    const unsigned int n = nCount < m_nFileSize - m_nPosition ? nCount : m_nFileSize - m_nPosition;
    Memcpy(static_cast<unsigned char*>(lpBuf), m_lpBuffer + m_nPosition, n);
    m_nPosition += n;
    return static_cast<long>(n);
}

void CMemFile::Write(const void* lpBuf, unsigned int nCount) {
    if (nCount == 0) return;
    const unsigned long long newPos = static_cast<unsigned long long>(m_nPosition) + nCount;
    if (newPos > kMaxMemFileSize) throw new CFileException;
    if (newPos > m_nBufferSize) GrowFile(newPos);
    // A write after a seek past the end leaves a gap: zero it rather than expose old heap bytes.
    if (m_nPosition > m_nFileSize) std::memset(m_lpBuffer + m_nFileSize, 0, m_nPosition - m_nFileSize);
    Memcpy(m_lpBuffer + m_nPosition, static_cast<const unsigned char*>(lpBuf), nCount);
    m_nPosition = static_cast<unsigned int>(newPos);
    if (m_nPosition > m_nFileSize) m_nFileSize = m_nPosition;
}

void CMemFile::LockRange(unsigned long long, unsigned long long) {}
void CMemFile::UnlockRange(unsigned long long, unsigned long long) {}
void CMemFile::Abort() { Close(); }
void CMemFile::Flush() {}

void CMemFile::Close() {
    m_nGrowBytes = m_nPosition = m_nBufferSize = m_nFileSize = 0;
    if (m_lpBuffer && m_bAutoDelete) Free(m_lpBuffer);
    m_lpBuffer = nullptr;
}

unsigned int CMemFile::GetBufferPtr(unsigned int nCommand, unsigned int nCount, void** ppBufStart,
                                    void** ppBufMax) {
    enum { bufferRead = 0, bufferWrite = 1, bufferCheck = 3 };
    if (nCommand == bufferCheck) return 1;
    if (nCommand != bufferRead && nCommand != bufferWrite) return 0;
    const bool toEnd = nCount == 0xFFFFFFFFu;
    if (nCommand == bufferWrite && !toEnd) GrowFile(static_cast<unsigned long long>(m_nPosition) + nCount);
    const unsigned int limit = nCommand == bufferWrite ? m_nBufferSize : m_nFileSize;
    const unsigned int start = m_nPosition < limit ? m_nPosition : limit;
    unsigned long long stop = toEnd ? limit : static_cast<unsigned long long>(m_nPosition) + nCount;
    if (stop > limit) stop = limit;
    if (stop < start) stop = start;
    if (ppBufStart) *ppBufStart = m_lpBuffer ? m_lpBuffer + start : nullptr;
    if (ppBufMax) *ppBufMax = m_lpBuffer ? m_lpBuffer + stop : nullptr;
    m_nPosition = static_cast<unsigned int>(stop);
    return static_cast<unsigned int>(stop - start);
}

unsigned char* CMemFile::Alloc(unsigned long long nBytes) {
    return static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(nBytes)));
}

unsigned char* CMemFile::Realloc(unsigned char* lpMem, unsigned long long nBytes) {
    return static_cast<unsigned char*>(std::realloc(lpMem, static_cast<std::size_t>(nBytes)));
}

unsigned char* CMemFile::Memcpy(unsigned char* lpMemTarget, const unsigned char* lpMemSource,
                                unsigned long long nBytes) {
    return static_cast<unsigned char*>(std::memcpy(lpMemTarget, lpMemSource, static_cast<std::size_t>(nBytes)));
}

void CMemFile::Free(unsigned char* lpMem) { std::free(lpMem); }

void CMemFile::GrowFile(unsigned long long dwNewLen) {
    if (dwNewLen <= m_nBufferSize) return;
    if (m_nGrowBytes == 0 || dwNewLen > kMaxMemFileSize) throw new CFileException;
    // Whole grow-by steps above the old size, computed at once instead of stepped.
    const unsigned long long steps = (dwNewLen - m_nBufferSize + m_nGrowBytes - 1) / m_nGrowBytes;
    unsigned long long newSize = m_nBufferSize + steps * m_nGrowBytes;
    if (newSize > kMaxMemFileSize) newSize = kMaxMemFileSize;
    unsigned char* block = m_lpBuffer ? Realloc(m_lpBuffer, newSize) : Alloc(newSize);
    if (!block) throw new CFileException;
    m_lpBuffer = block;
    m_nBufferSize = static_cast<unsigned int>(newSize);
}
