// CArchive: the buffered binary stream through which every persistent class is
// stored and loaded (list files, "swsearch.bin", message bodies). The byte rules
// themselves live in WireCodec.h; this class adds buffering and the object graph
// (class and object tags sharing one index space per archive).
// This is the chief header of the archive layer: it brings in files and collections.
#pragma once

#include "File.h"
#include "MapPtrToPtr.h"
#include "MapStringToOb.h"
#include "MemFile.h"
#include "Object.h"
#include "ObList.h"
#include "PtrArray.h"
#include "PtrIndex.h"
#include "StringArray.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Called when an archived string is shorter than its length prefix. The default
// prints "arcobj.cpp(925): assertion failed" to stderr and aborts; fuzzers and
// tests may install one that throws instead. If the handler returns, abort() follows.
using ArchiveAssertHandler = void (*)(const char* lpszFile, int nLine);
// Installs `handler` (null restores the default) and returns the previous one.
ArchiveAssertHandler SetArchiveAssertHandler(ArchiveAssertHandler handler);

class CArchive {
public:
    enum Mode : unsigned int { store = 0, load = 1, bNoFlushOnDelete = 2 };

    // A buffer size below 128 becomes 128 (and a supplied buffer is then ignored).
    CArchive(CFile* pFile, unsigned int nMode, int nBufSize = 4096, void* lpBuf = nullptr);
    ~CArchive();
    CArchive(const CArchive&) = delete;
    CArchive& operator=(const CArchive&) = delete;

    bool IsLoading() const { return (m_mode & load) != 0; }
    bool IsStoring() const { return (m_mode & load) == 0; }
    // Schema of the object being loaded; reading it resets it to 0xFFFFFFFF.
    unsigned int GetObjectSchema();
    CFile* GetFile() const { return m_file; }

    // Bytes actually delivered (short at the end of the data).
    unsigned int Read(void* lpBuf, unsigned int nMax);
    void Write(const void* lpBuf, unsigned int nMax);
    void Flush();
    void FillBuffer(unsigned int nBytesNeeded);
    void Close();   // flush, then detach from the file
    void Abort();   // detach without flushing

    // Counts: up to 0xFFFE in 16 bits, else 0xFFFF and 32 bits.
    void WriteCount(std::uint32_t dwCount);
    // Throws CFileException* when the data ends inside the count.
    std::uint32_t ReadCount();

    // Integers are little-endian; reading past the end throws CFileException*.
    CArchive& operator<<(unsigned char by);
    CArchive& operator<<(unsigned short w);
    CArchive& operator<<(unsigned int dw);
    CArchive& operator>>(unsigned char& by);
    CArchive& operator>>(unsigned short& w);
    CArchive& operator>>(unsigned int& dw);
    CArchive& operator<<(std::string_view str);
    // An empty stored string leaves `str` unchanged; bytes after a NUL are dropped.
    // Bytes missing from the data end the process through the "arcobj.cpp" assertion.
    CArchive& operator>>(std::string& str);

    void WriteObject(const CObject* pOb);
    // The new object or the one referenced; null when the class cannot be resolved or
    // the index is out of range (the archive is then not usable any more).
    CObject* ReadObject(const CRuntimeClass* pClassRefRequested);
    void WriteClass(const CRuntimeClass* pClassRef);
    CRuntimeClass* ReadClass(const CRuntimeClass* pClassRefRequested = nullptr,
                             unsigned int* pSchema = nullptr, std::uint32_t* pObTag = nullptr);
    void SerializeClass(const CRuntimeClass* pClassRef);
    void MapObject(const CObject* pOb);

    // Loading: the number of indices taken so far, and the object created or mapped
    // under one (null for the null index, a class or an abandoned object). A loader
    // that owns everything created while it loads walks the indices it saw pass.
    std::uint32_t GetLoadedCount() const { return IsLoading() ? m_mapCount : 0; }
    CObject* GetLoadedObject(std::uint32_t index) const;
    // Loading: the object in charge of what is created meanwhile, as set by the
    // outermost loader that takes such charge (null when none has).
    CObject* GetLoadOwner() const { return m_pLoadOwner; }
    void SetLoadOwner(CObject* pOwner) { m_pLoadOwner = pOwner; }
    // Loading: bytes known to remain (buffered, plus the rest of a file of known
    // length). Loaders reserve room for a stored count no larger than this allows,
    // so a count that claims more than the data holds costs no memory.
    std::uint64_t GetBytesKnownLeft();

    // Marks one object being loaded inside another for as long as it lives. Past the
    // nesting limit it throws CFileException*, so a hostile stream cannot exhaust the
    // stack; loaders that create objects themselves use it as ReadObject does.
    class NestingScope {
    public:
        explicit NestingScope(CArchive& ar);
        ~NestingScope() { --m_ar.m_nLoadDepth; }
        NestingScope(const NestingScope&) = delete;
        NestingScope& operator=(const NestingScope&) = delete;

    private:
        CArchive& m_ar;
    };

    // Line reading (see the implementation for the CR/LF rules).
    char* ReadString(char* lpsz, int nMax);
    bool ReadString(std::string& rString);
    // Deliberately writes nothing; kept for interface compatibility.
    void WriteString(const char* lpsz);

    static constexpr std::uint16_t wNullTag = 0x0000;
    static constexpr std::uint16_t wNewClassTag = 0xFFFF;
    static constexpr std::uint16_t wClassTag = 0x8000;
    static constexpr std::uint32_t dwBigClassTag = 0x80000000;
    static constexpr std::uint16_t wBigObjectTag = 0x7FFF;
    static constexpr std::uint32_t nMaxMapCount = 0x3FFFFFFE;

private:
    // What each load-array slot holds, so a corrupt tag never turns an object into a class.
    enum LoadKind : unsigned char { kindNull, kindClass, kindObject };

    void CheckCount() {}   // the map limit is declared but never enforced
    void ReadExact(void* lpBuf, unsigned int nCount);   // throws CFileException* when short
    unsigned int ReadBuffered(void* lpBuf, unsigned int nMax);
    bool TryReadByte(unsigned char& by);                 // false at the end of the data
    void CheckLoadable();                                // throws once the stream is unusable
    void PutBytes(const unsigned char* p, unsigned int n);
    void AppendLoaded(void* p, LoadKind kind);
    void ReadStringBytes(std::string& str, unsigned long long nBytes);

    [[maybe_unused]] bool m_directBuffer = false;   // kept for layout; the direct mode is never used
    unsigned int m_objectSchema = 0xFFFFFFFF;
    std::string m_fileName;
    unsigned int m_mode;
    bool m_userBuffer = false;
    unsigned int m_bufferSize;
    CFile* m_file;
    unsigned char* m_bufferPos = nullptr;
    unsigned char* m_bufferEnd = nullptr;
    unsigned char* m_bufferStart = nullptr;
    unsigned int m_mapCount = 0;
    union {
        CMapPtrToPtr* m_pStoreMap;   // unused: storing numbers through m_storeIndex
        CPtrArray* m_pLoadArray;
    };
    CMapPtrToPtr* m_schemaMap = nullptr;
    unsigned int m_growSize;
    [[maybe_unused]] unsigned int m_hashSize = 137;   // kept; the store index sizes itself
    std::vector<unsigned char> m_loadKinds;   // parallel to m_pLoadArray
    bool m_bBroken = false;                     // set when a class could not be resolved
    bool m_bShortRead = false;                  // a Read delivered less than asked
    unsigned int m_nLoadDepth = 0;              // objects being loaded inside each other
    CObject* m_pLoadOwner = nullptr;
    std::uint64_t m_nFileRead = 0;              // bytes taken from the file while loading
    std::uint64_t m_nFileEnd = 0;               // m_nFileRead at the file's end, once known
    bool m_bFileEndKnown = false;
    bool m_bFileEndTried = false;
    // Storing: object or class -> index. Only lookups happen there, never an ordered
    // walk, and an ordered map cost a large map's pass a third of its time.
    PtrIndex m_storeIndex;
};

CArchive& operator<<(CArchive& ar, const CObject* pOb);
CArchive& operator>>(CArchive& ar, CObject*& pOb);
CArchive& operator>>(CArchive& ar, const CObject*& pOb);
