// Descriptor-based file with a small file-object interface, and the one
// exception type of the system. The archive reads and writes through the virtual
// operations, so a CMemFile can stand in for a disk file.
#pragma once

#include "Object.h"

#include <exception>
#include <string>

// Thrown as a heap pointer (`throw new CFileException`); the catcher deletes it.
class CFileException : public std::exception {
public:
    const char* what() const noexcept override { return "file exception"; }
};

class CFile : public CObject {
    DECLARE_RUNTIME_CLASS(CFile)
public:
    enum OpenFlags : unsigned int {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        modeCreate = 0x1000,
        modeNoTruncate = 0x2000,
    };
    enum SeekPosition : unsigned int { begin = 0, current = 1, end = 2 };

    CFile();
    explicit CFile(int hFile);                      // wraps a descriptor; never closes it
    CFile(const char* lpszFileName, unsigned int nOpenFlags);  // throws CFileException* on failure
    ~CFile() override;

    virtual unsigned long long GetPosition() const;
    virtual std::string GetFileName() const;
    virtual std::string GetFileTitle() const;
    virtual std::string GetFilePath() const;
    virtual void SetFilePath(const char* lpszNewName);
    // Opens with bits 0600 for a new file; false on failure (the exception object is not filled).
    virtual bool Open(const char* lpszFileName, unsigned int nOpenFlags, CFileException* pError = nullptr);
    virtual bool Open(const std::string& strFileName, unsigned int nOpenFlags);
    virtual CFile* Duplicate() const;
    // from: 0 start, 1 current, 2 end (anything else: start). Returns the new position.
    virtual long long Seek(long long lOff, unsigned int nFrom);
    virtual void SetLength(unsigned long long dwNewLen);
    virtual unsigned long long GetLength() const;
    // One read(2) call; its result as it stands (short reads and -1 included).
    virtual long Read(void* lpBuf, unsigned int nCount);
    // One write(2) call; a short write is reported on stdout, never thrown.
    virtual void Write(const void* lpBuf, unsigned int nCount);
    virtual void LockRange(unsigned long long dwPos, unsigned long long dwCount);
    virtual void UnlockRange(unsigned long long dwPos, unsigned long long dwCount);
    virtual void Abort();
    virtual void Flush();
    virtual void Close();
    virtual unsigned int GetBufferPtr(unsigned int nCommand, unsigned int nCount = 0,
                                      void** ppBufStart = nullptr, void** ppBufMax = nullptr);

    void SeekToBegin() { Seek(0, begin); }
    unsigned long long SeekToEnd() { return static_cast<unsigned long long>(Seek(0, end)); }

    static int Rename(const char* lpszOldName, const char* lpszNewName);
    // unlink(2); the result is ignored, so a missing file is no error.
    static void Remove(const char* lpszFileName);

    int m_hFile;

protected:
    bool m_bCloseOnDelete;
    std::string m_strFileName;   // kept for layout; never filled
};
