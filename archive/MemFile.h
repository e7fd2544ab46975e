// A file whose contents live in a growable heap block. Message bodies and the
// memory form of inventory maps go through it.
#pragma once

#include "File.h"

class CMemFile : public CFile {
    DECLARE_RUNTIME_CLASS(CMemFile)
public:
    explicit CMemFile(unsigned int nGrowBytes = 1024);
    // Uses the caller's block: a growable one (grow-by != 0) is taken as empty, a fixed one as full.
    CMemFile(unsigned char* lpBuffer, unsigned int nBufferSize, unsigned int nGrowBytes = 0);
    ~CMemFile() override;

    void Attach(unsigned char* lpBuffer, unsigned int nBufferSize, unsigned int nGrowBytes = 0);
    // Hands the block to the caller and forgets it.
    unsigned char* Detach();

    unsigned long long GetPosition() const override;
    long long Seek(long long lOff, unsigned int nFrom) override;  // -1 for an unknown `from`
    void SetLength(unsigned long long dwNewLen) override;
    unsigned long long GetLength() const override;
    long Read(void* lpBuf, unsigned int nCount) override;
    void Write(const void* lpBuf, unsigned int nCount) override;
    void LockRange(unsigned long long dwPos, unsigned long long dwCount) override;
    void UnlockRange(unsigned long long dwPos, unsigned long long dwCount) override;
    void Abort() override;
    void Flush() override;
    void Close() override;
    unsigned int GetBufferPtr(unsigned int nCommand, unsigned int nCount = 0,
                              void** ppBufStart = nullptr, void** ppBufMax = nullptr) override;

    unsigned int GetBufferSize() const { return m_nBufferSize; }

protected:
    virtual unsigned char* Alloc(unsigned long long nBytes);
    virtual unsigned char* Realloc(unsigned char* lpMem, unsigned long long nBytes);
    virtual unsigned char* Memcpy(unsigned char* lpMemTarget, const unsigned char* lpMemSource,
                                  unsigned long long nBytes);
    virtual void Free(unsigned char* lpMem);
    // Grows the block in grow-by steps until it holds dwNewLen bytes.
    virtual void GrowFile(unsigned long long dwNewLen);

    unsigned int m_nGrowBytes;
    unsigned int m_nPosition;
    unsigned int m_nBufferSize;
    unsigned int m_nFileSize;
    unsigned char* m_lpBuffer;
    bool m_bAutoDelete;
};
