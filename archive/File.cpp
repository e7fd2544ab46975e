// CFile: a thin wrapper around one POSIX descriptor. Errors surface as return
// values; only the opening constructor throws. A short write is deliberately only
// printed: callers that care check the file afterwards.
#include "archive/File.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

IMPLEMENT_RUNTIME_CLASS(CFile, CObject, 0xFFFF)

CFile::CFile() : m_hFile(-1), m_bCloseOnDelete(false) {}

CFile::CFile(int hFile) : m_hFile(hFile), m_bCloseOnDelete(false) {}

CFile::CFile(const char* lpszFileName, unsigned int nOpenFlags) : m_hFile(-1), m_bCloseOnDelete(false) {
    if (!Open(lpszFileName, nOpenFlags)) throw new CFileException;
}

CFile::~CFile() {
    if (m_hFile != -1 && m_bCloseOnDelete) CFile::Close();
}

unsigned long long CFile::GetPosition() const {
    return static_cast<unsigned long long>(const_cast<CFile*>(this)->Seek(0, current));
}

std::string CFile::GetFileName() const { return std::string(); }
std::string CFile::GetFileTitle() const { return std::string(); }
std::string CFile::GetFilePath() const { return std::string(); }
void CFile::SetFilePath(const char*) {}

bool CFile::Open(const char* lpszFileName, unsigned int nOpenFlags, CFileException*) {
    if (!lpszFileName) return false;
    int flags = O_CLOEXEC;   // list files must not leak into the package manager's children
    switch (nOpenFlags & 3) {
    case modeRead: flags |= O_RDONLY; break;
    case modeWrite: flags |= O_WRONLY; break;
    default: flags |= O_RDWR; break;
    }
    if (nOpenFlags & modeCreate) {
        flags |= O_CREAT;
        if (!(nOpenFlags & modeNoTruncate)) flags |= O_TRUNC;
    }
    const int fd = ::open(lpszFileName, flags, 0600);
    if (fd == -1) return false;
    if (m_hFile != -1 && m_bCloseOnDelete) ::close(m_hFile);
    m_hFile = fd;
    m_bCloseOnDelete = true;
    return true;
}

bool CFile::Open(const std::string& strFileName, unsigned int nOpenFlags) {
    return Open(strFileName.c_str(), nOpenFlags, nullptr);
}

CFile* CFile::Duplicate() const { return nullptr; }

long long CFile::Seek(long long lOff, unsigned int nFrom) {
    const int whence = nFrom == current ? SEEK_CUR : nFrom == end ? SEEK_END : SEEK_SET;
    return static_cast<long long>(::lseek(m_hFile, static_cast<off_t>(lOff), whence));
}

void CFile::SetLength(unsigned long long) {}

unsigned long long CFile::GetLength() const {
    CFile* self = const_cast<CFile*>(this);
    const long long pos = self->Seek(0, current);
    const long long len = self->Seek(0, end);
    self->Seek(pos, begin);
    return static_cast<unsigned long long>(len);
}

long CFile::Read(void* lpBuf, unsigned int nCount) {
    if (nCount == 0) return 0;
    return static_cast<long>(::read(m_hFile, lpBuf, nCount));
}

void CFile::Write(const void* lpBuf, unsigned int nCount) {
    const ssize_t written = ::write(m_hFile, lpBuf, nCount);
    // Reported, not thrown and not retried: callers have never checked writes.
    if (written < 0 || static_cast<unsigned int>(written) < nCount) std::printf("Write does not work\n");
}

void CFile::LockRange(unsigned long long, unsigned long long) {}
void CFile::UnlockRange(unsigned long long, unsigned long long) {}
void CFile::Abort() {}
void CFile::Flush() {}

void CFile::Close() {
    if (m_hFile != -1) ::close(m_hFile);
    m_hFile = -1;
    m_bCloseOnDelete = false;
}

unsigned int CFile::GetBufferPtr(unsigned int, unsigned int, void**, void**) { return 0; }

int CFile::Rename(const char* lpszOldName, const char* lpszNewName) {
    return ::rename(lpszOldName, lpszNewName);
}

void CFile::Remove(const char* lpszFileName) { ::unlink(lpszFileName); }
