// CArchive: buffering over a CFile and the object graph on top of the byte rules
// of WireCodec.h. Loading is defensive: data that ends early throws CFileException*,
// tags are checked against the load array, and nothing is sized by an untrusted
// count; a short string still ends the process through the one designed assertion.
#include "archive/arcobj.h"

#include "archive/WireCodec.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned int kMinBufferSize = 128;
constexpr unsigned int kSchemaNotSerializable = 0xFFFF;
constexpr unsigned int kSchemaVersionable = 0x80000000u;
// First piece of a string's bytes; later pieces double, so memory follows the data.
constexpr unsigned long long kStringChunk = 64 * 1024;
// Real streams nest a few levels (map, record); a deeper one is hostile and would
// otherwise run the host thread out of stack.
constexpr unsigned int kMaxLoadDepth = 256;

void DefaultAssertHandler(const char* lpszFile, int nLine) {
    std::fprintf(stderr, "%s(%d): assertion failed\n", lpszFile, nLine);
    std::fflush(stderr);
    std::abort();
}

ArchiveAssertHandler g_assertHandler = DefaultAssertHandler;

[[noreturn]] void ShortStringAssert() {
    // The file and line are part of the message operators look for in crash reports.
    g_assertHandler("arcobj.cpp", 925);
    std::abort();
}

[[noreturn]] void ThrowFileException() { throw new CFileException; }

void* IndexToPtr(std::uint32_t n) { return reinterpret_cast<void*>(static_cast<std::uintptr_t>(n)); }
std::uint32_t PtrToIndex(void* p) { return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(p)); }

}  // namespace

ArchiveAssertHandler SetArchiveAssertHandler(ArchiveAssertHandler handler) {
    ArchiveAssertHandler previous = g_assertHandler;
    g_assertHandler = handler ? handler : DefaultAssertHandler;
    return previous;
}

CArchive::CArchive(CFile* pFile, unsigned int nMode, int nBufSize, void* lpBuf)
    : m_fileName(pFile ? pFile->GetFilePath() : std::string()),
      m_mode(nMode),
      m_file(pFile),
      m_pStoreMap(nullptr),
      m_growSize(IsStoring() ? 16 : 64) {
    if (nBufSize < static_cast<int>(kMinBufferSize)) {
        nBufSize = kMinBufferSize;
        lpBuf = nullptr;
    }
    m_bufferSize = static_cast<unsigned int>(nBufSize);
    if (lpBuf) {
        m_userBuffer = true;
        m_bufferStart = static_cast<unsigned char*>(lpBuf);
    } else {
        m_bufferStart = new unsigned char[m_bufferSize];
    }
    m_bufferEnd = m_bufferStart + m_bufferSize;
    // Storing starts with the whole buffer free; loading with nothing read yet.
    m_bufferPos = IsStoring() ? m_bufferStart : m_bufferEnd;
}

CArchive::~CArchive() {
    if (m_file && !(m_mode & bNoFlushOnDelete)) {
        try {
            Close();
        } catch (CFileException* e) {
            delete e;
        }
    }
    Abort();
}

unsigned int CArchive::GetObjectSchema() {
    const unsigned int schema = m_objectSchema;
    m_objectSchema = 0xFFFFFFFF;
    return schema;
}

// ---------------------------------------------------------------------------
// Buffering

void CArchive::Flush() {
    if (IsLoading()) {
        // Hand unread bytes back so the file position matches what was consumed.
        if (m_bufferEnd != m_bufferPos && m_file) m_file->Seek(-(m_bufferEnd - m_bufferPos), CFile::current);
        m_bufferPos = m_bufferEnd;
    } else {
        if (m_bufferPos != m_bufferStart && m_file)
            m_file->Write(m_bufferStart, static_cast<unsigned int>(m_bufferPos - m_bufferStart));
        m_bufferPos = m_bufferStart;
    }
}

void CArchive::FillBuffer(unsigned int nBytesNeeded) {
    if (!IsLoading()) return;
    const std::size_t unread = static_cast<std::size_t>(m_bufferEnd - m_bufferPos);
    if (unread && m_bufferPos != m_bufferStart) std::memmove(m_bufferStart, m_bufferPos, unread);
    m_bufferPos = m_bufferStart;
    m_bufferEnd = m_bufferStart + unread;
    unsigned long long arrived = 0;
    const unsigned char* bufferMax = m_bufferStart + m_bufferSize;
    while (m_file && m_bufferEnd < bufferMax && arrived < nBytesNeeded) {
        const long n = m_file->Read(m_bufferEnd, static_cast<unsigned int>(bufferMax - m_bufferEnd));
        if (n <= 0) break;
        m_nFileRead += static_cast<std::uint64_t>(n);
        m_bufferEnd += n;
        arrived += static_cast<unsigned long long>(n);
    }
}

void CArchive::CheckLoadable() {
    if (!IsLoading() || m_bBroken) ThrowFileException();
}

void CArchive::ReadExact(void* lpBuf, unsigned int nCount) {
    CheckLoadable();
    const unsigned int have = static_cast<unsigned int>(m_bufferEnd - m_bufferPos);
    if (have < nCount) {
        FillBuffer(nCount - have);
        if (static_cast<unsigned int>(m_bufferEnd - m_bufferPos) < nCount) ThrowFileException();
    }
    std::memcpy(lpBuf, m_bufferPos, nCount);
    m_bufferPos += nCount;
}

bool CArchive::TryReadByte(unsigned char& by) {
    CheckLoadable();
    if (m_bufferPos == m_bufferEnd) {
        FillBuffer(1);
        if (m_bufferPos == m_bufferEnd) return false;
    }
    by = *m_bufferPos++;
    return true;
}

unsigned int CArchive::Read(void* lpBuf, unsigned int nMax) {
    CheckLoadable();
    if (nMax == 0) return 0;
    const unsigned int delivered = ReadBuffered(lpBuf, nMax);
    if (delivered < nMax) m_bShortRead = true;
    return delivered;
}

unsigned int CArchive::ReadBuffered(void* lpBuf, unsigned int nMax) {
    unsigned char* dst = static_cast<unsigned char*>(lpBuf);
    unsigned int fromBuffer = std::min(nMax, static_cast<unsigned int>(m_bufferEnd - m_bufferPos));
    std::memcpy(dst, m_bufferPos, fromBuffer);
    m_bufferPos += fromBuffer;
    dst += fromBuffer;
    unsigned int remaining = nMax - fromBuffer;
    if (remaining == 0 || !m_file) return fromBuffer;

    // Whole buffers go straight from the file to the caller.
    const unsigned int direct = remaining - remaining % m_bufferSize;
    unsigned int got = 0;
    while (got < direct) {
        const long n = m_file->Read(dst + got, direct - got);
        if (n <= 0) break;
        m_nFileRead += static_cast<std::uint64_t>(n);
        got += static_cast<unsigned int>(n);
    }
    dst += got;
    remaining -= got;
    if (got < direct) return nMax - remaining;

    // The tail comes through the buffer, which is refilled as far as the file allows.
    if (remaining > 0) {
        m_bufferPos = m_bufferEnd = m_bufferStart;
        unsigned int filled = 0;
        while (filled < remaining) {
            const long n = m_file->Read(m_bufferStart + filled, m_bufferSize - filled);
            if (n <= 0) break;
            m_nFileRead += static_cast<std::uint64_t>(n);
            filled += static_cast<unsigned int>(n);
            if (filled == m_bufferSize) break;
        }
        m_bufferEnd = m_bufferStart + filled;
        const unsigned int take = std::min(remaining, filled);
        std::memcpy(dst, m_bufferStart, take);
        m_bufferPos += take;
        remaining -= take;
    }
    return nMax - remaining;
}

std::uint64_t CArchive::GetBytesKnownLeft() {
    if (!IsLoading()) return 0;
    const std::uint64_t buffered = static_cast<std::uint64_t>(m_bufferEnd - m_bufferPos);
    if (!m_file) return buffered;
    if (!m_bFileEndTried) {
        // Asked once per archive: for a disk file each question costs system calls.
        m_bFileEndTried = true;
        const unsigned long long pos = m_file->GetPosition();
        const unsigned long long len = m_file->GetLength();
        if (pos != ~0ull && len != ~0ull && len >= pos) {
            m_nFileEnd = m_nFileRead + (len - pos);
            m_bFileEndKnown = true;
        }
    }
    // A pipe has no length: only what is buffered is known to be there.
    if (!m_bFileEndKnown) return buffered;
    return buffered + (m_nFileEnd > m_nFileRead ? m_nFileEnd - m_nFileRead : 0);
}

void CArchive::PutBytes(const unsigned char* p, unsigned int n) {
    if (static_cast<unsigned int>(m_bufferEnd - m_bufferPos) < n) Flush();
    std::memcpy(m_bufferPos, p, n);
    m_bufferPos += n;
}

void CArchive::Write(const void* lpBuf, unsigned int nMax) {
    if (IsLoading()) ThrowFileException();
    if (nMax == 0) return;
    const unsigned char* src = static_cast<const unsigned char*>(lpBuf);
    const unsigned int room = static_cast<unsigned int>(m_bufferEnd - m_bufferPos);
    const unsigned int first = std::min(nMax, room);
    std::memcpy(m_bufferPos, src, first);
    m_bufferPos += first;
    src += first;
    unsigned int rest = nMax - first;
    if (rest == 0) return;
    Flush();
    const unsigned int direct = rest - rest % m_bufferSize;
    if (direct && m_file) m_file->Write(src, direct);
    src += direct;
    rest -= direct;
    std::memcpy(m_bufferPos, src, rest);
    m_bufferPos += rest;
}

void CArchive::Close() {
    Flush();
    m_file = nullptr;
}

void CArchive::Abort() {
    m_file = nullptr;
    if (!m_userBuffer) delete[] m_bufferStart;
    m_bufferStart = m_bufferPos = m_bufferEnd = nullptr;
    m_userBuffer = false;
    delete m_schemaMap;
    m_schemaMap = nullptr;
    // The store map and the load array share one member; the mode says which it is.
    if (IsStoring())
        delete m_pStoreMap;
    else
        delete m_pLoadArray;
    m_pStoreMap = nullptr;
    m_storeIndex.Clear();
    m_loadKinds.clear();
}

// ---------------------------------------------------------------------------
// Integers, counts and strings

CArchive& CArchive::operator<<(unsigned char by) {
    if (IsLoading()) ThrowFileException();
    PutBytes(&by, 1);
    return *this;
}

CArchive& CArchive::operator<<(unsigned short w) {
    if (IsLoading()) ThrowFileException();
    unsigned char bytes[2];
    wire::PutU16(bytes, w);
    PutBytes(bytes, 2);
    return *this;
}

CArchive& CArchive::operator<<(unsigned int dw) {
    if (IsLoading()) ThrowFileException();
    unsigned char bytes[4];
    wire::PutU32(bytes, dw);
    PutBytes(bytes, 4);
    return *this;
}

CArchive& CArchive::operator>>(unsigned char& by) {
    ReadExact(&by, 1);
    return *this;
}

CArchive& CArchive::operator>>(unsigned short& w) {
    unsigned char bytes[2];
    ReadExact(bytes, 2);
    w = wire::GetU16(bytes);
    return *this;
}

CArchive& CArchive::operator>>(unsigned int& dw) {
    unsigned char bytes[4];
    ReadExact(bytes, 4);
    dw = wire::GetU32(bytes);
    return *this;
}

void CArchive::WriteCount(std::uint32_t dwCount) {
    if (IsLoading()) ThrowFileException();
    unsigned char bytes[wire::kMaxCountBytes];
    PutBytes(bytes, static_cast<unsigned int>(wire::EncodeCount(dwCount, bytes)));
}

std::uint32_t CArchive::ReadCount() { return wire::ReadCount(*this); }

CArchive& CArchive::operator<<(std::string_view str) {
    if (IsLoading()) ThrowFileException();
    if (str.size() > 0xFFFFFFFFull) ThrowFileException();   // no prefix can say so much
    unsigned char prefix[wire::kMaxStrLenBytes];
    const auto length = static_cast<std::uint32_t>(str.size());
    PutBytes(prefix, static_cast<unsigned int>(wire::EncodeStringLength(length, prefix)));
    Write(str.data(), length);
    return *this;
}

void CArchive::ReadStringBytes(std::string& str, unsigned long long nBytes) {
    // Grow as the bytes arrive, so a huge prefix on a short stream costs little.
    std::string bytes;
    unsigned long long got = 0;
    while (got < nBytes) {
        const unsigned long long want =
            std::min({nBytes - got, std::max(kStringChunk, got), 0x7FFFFFFFull});
        bytes.resize(static_cast<std::size_t>(got + want));
        const unsigned int n = Read(&bytes[static_cast<std::size_t>(got)], static_cast<unsigned int>(want));
        got += n;
        if (n < want) ShortStringAssert();
    }
    // Taken as NUL-terminated text: whatever follows a zero byte is dropped.
    str.assign(bytes.c_str());
}

CArchive& CArchive::operator>>(std::string& str) {
    bool wide = false;
    const std::uint32_t length = wire::ReadStringLength(*this, wide);
    const unsigned long long nBytes = wide ? 2ull * length : length;
    // An empty stored string leaves the target untouched; the map loader relies on it.
    if (nBytes > 0) ReadStringBytes(str, nBytes);
    return *this;
}

// ---------------------------------------------------------------------------
// Objects and classes

void CArchive::MapObject(const CObject* pOb) {
    if (IsStoring()) {
        if (m_storeIndex.Empty()) {
            m_storeIndex.Set(nullptr, 0);
            m_mapCount = 1;
        }
        if (pOb) {
            m_storeIndex.Set(pOb, m_mapCount++);
            CheckCount();
        }
    } else {
        if (!m_pLoadArray) {
            m_pLoadArray = new CPtrArray;
            m_pLoadArray->SetSize(1, static_cast<int>(m_growSize));
            m_loadKinds.assign(1, kindNull);
            m_mapCount = 1;
        }
        if (pOb) AppendLoaded(const_cast<CObject*>(pOb), kindObject);
    }
}

CObject* CArchive::GetLoadedObject(std::uint32_t index) const {
    if (!IsLoading() || !m_pLoadArray || index >= m_loadKinds.size() || m_loadKinds[index] != kindObject)
        return nullptr;
    return static_cast<CObject*>(m_pLoadArray->GetAt(static_cast<int>(index)));
}

void CArchive::AppendLoaded(void* p, LoadKind kind) {
    // Indices past what an int can address would only come from an absurd stream.
    if (m_mapCount >= 0x7FFFFFFFu) ThrowFileException();
    m_pLoadArray->SetAtGrow(static_cast<int>(m_mapCount), p);
    if (m_loadKinds.size() <= m_mapCount) m_loadKinds.resize(m_mapCount + 1, kindNull);
    m_loadKinds[m_mapCount] = static_cast<unsigned char>(kind);
    ++m_mapCount;
    CheckCount();
}

void CArchive::WriteObject(const CObject* pOb) {
    MapObject(nullptr);
    if (!pOb) {
        *this << static_cast<unsigned short>(wNullTag);
        return;
    }
    if (const std::uint32_t* known = m_storeIndex.Find(pOb)) {
        const std::uint32_t index = *known;
        if (index < wBigObjectTag) {
            *this << static_cast<unsigned short>(index);
        } else {
            *this << static_cast<unsigned short>(wBigObjectTag);
            *this << static_cast<unsigned int>(index);
        }
        return;
    }
    WriteClass(pOb->GetRuntimeClass());
    m_storeIndex.Set(pOb, m_mapCount++);
    CheckCount();
    const_cast<CObject*>(pOb)->Serialize(*this);
}

void CArchive::WriteClass(const CRuntimeClass* pClassRef) {
    MapObject(nullptr);
    if (const std::uint32_t* known = m_storeIndex.Find(pClassRef)) {
        const std::uint32_t index = *known;
        if (index < wBigObjectTag) {
            *this << static_cast<unsigned short>(wClassTag | index);
        } else {
            *this << static_cast<unsigned short>(wBigObjectTag);
            *this << static_cast<unsigned int>(dwBigClassTag | index);
        }
        return;
    }
    *this << static_cast<unsigned short>(wNewClassTag);
    pClassRef->Store(*this);
    m_storeIndex.Set(pClassRef, m_mapCount++);
    CheckCount();
}

CRuntimeClass* CArchive::ReadClass(const CRuntimeClass* pClassRefRequested, unsigned int* pSchema,
                                   std::uint32_t* pObTag) {
    if (pClassRefRequested && pClassRefRequested->m_wSchema == kSchemaNotSerializable) return nullptr;
    CheckLoadable();
    MapObject(nullptr);

    unsigned short wTag = 0;
    *this >> wTag;
    std::uint32_t obTag;
    if (wTag == wBigObjectTag) {
        unsigned int dw = 0;
        *this >> dw;
        obTag = dw;
    } else {
        obTag = (static_cast<std::uint32_t>(wTag & wClassTag) << 16) | (wTag & ~wClassTag);
    }
    if (!(obTag & dwBigClassTag)) {
        if (pObTag) *pObTag = obTag;
        return nullptr;
    }

    CRuntimeClass* pClass = nullptr;
    unsigned int schema = 0;
    if (wTag == wNewClassTag) {
        m_bShortRead = false;
        pClass = CRuntimeClass::Load(*this, &schema);
        if (!pClass) {
            m_bBroken = true;
            // A name cut off by the end of the data is an end-of-data error like any other.
            if (m_bShortRead) ThrowFileException();
            return nullptr;
        }
        const unsigned int current = pClass->m_wSchema & ~kSchemaVersionable;
        // Only versionable classes remember an older schema; others accept any silently.
        if (current != schema && (pClass->m_wSchema & kSchemaVersionable)) {
            if (!m_schemaMap) m_schemaMap = new CMapPtrToPtr(10);
            m_schemaMap->SetAt(pClass, IndexToPtr(schema));
        }
        AppendLoaded(pClass, kindClass);
    } else {
        const std::uint32_t index = obTag & ~dwBigClassTag;
        if (index >= m_loadKinds.size() || m_loadKinds[index] != kindClass) {
            m_bBroken = true;
            return nullptr;
        }
        pClass = static_cast<CRuntimeClass*>(m_pLoadArray->GetAt(static_cast<int>(index)));
        void* remembered = nullptr;
        if (m_schemaMap && m_schemaMap->Lookup(pClass, remembered))
            schema = PtrToIndex(remembered);
        else
            schema = pClass->m_wSchema & ~kSchemaVersionable;
    }
    if (pSchema)
        *pSchema = schema;
    else
        m_objectSchema = schema;
    return pClass;
}

CArchive::NestingScope::NestingScope(CArchive& ar) : m_ar(ar) {
    if (m_ar.m_nLoadDepth >= kMaxLoadDepth) ThrowFileException();
    ++m_ar.m_nLoadDepth;
}

CObject* CArchive::ReadObject(const CRuntimeClass* pClassRefRequested) {
    unsigned int schema = 0;
    std::uint32_t obTag = 0;
    CRuntimeClass* pClass = ReadClass(pClassRefRequested, &schema, &obTag);
    if (!pClass) {
        if (m_bBroken || !m_pLoadArray) return nullptr;
        // Out-of-range indices and slots holding classes give null, never a stray pointer.
        if (obTag >= m_loadKinds.size() || m_loadKinds[obTag] != kindObject) return nullptr;
        return static_cast<CObject*>(m_pLoadArray->GetAt(static_cast<int>(obTag)));
    }
    NestingScope nesting(*this);
    CObject* pOb = pClass->CreateObject();
    if (!pOb) {
        m_bBroken = true;
        return nullptr;
    }
    const std::uint32_t index = m_mapCount;
    try {
        AppendLoaded(pOb, kindObject);
        struct SchemaScope {
            unsigned int& schemaSlot;
            unsigned int savedSchema;
            ~SchemaScope() { schemaSlot = savedSchema; }
        } scope{m_objectSchema, m_objectSchema};
        m_objectSchema = schema;
        pOb->Serialize(*this);
    } catch (...) {
        // Never handed out, so it is ours to reclaim; what it loaded stays with it.
        if (index < m_loadKinds.size() && m_loadKinds[index] == kindObject) {
            m_pLoadArray->SetAt(static_cast<int>(index), nullptr);
            m_loadKinds[index] = kindNull;
        }
        delete pOb;
        throw;
    }
    return pOb;
}

void CArchive::SerializeClass(const CRuntimeClass* pClassRef) {
    if (IsStoring())
        WriteClass(pClassRef);
    else
        ReadClass(pClassRef, nullptr, nullptr);
}

// ---------------------------------------------------------------------------
// Line reading

char* CArchive::ReadString(char* lpsz, int nMax) {
    const long long stop = nMax < 0 ? -static_cast<long long>(nMax) : nMax;
    long long nRead = 0;
    unsigned char ch = 0;
    bool any = false;
    while (nRead < stop) {
        if (!TryReadByte(ch)) break;
        any = true;
        if (ch == '\n' || ch == '\r') {
            // After CR one more byte is taken as the LF without looking at it.
            if (ch == '\r' && !TryReadByte(ch)) break;
            if (nMax < 0) lpsz[nRead++] = static_cast<char>(ch);
            break;
        }
        lpsz[nRead++] = static_cast<char>(ch);
    }
    if (!any && stop > 0) return nullptr;   // nothing left to read
    lpsz[nRead] = '\0';
    return lpsz;
}

bool CArchive::ReadString(std::string& rString) {
    constexpr int kPiece = 128;
    rString.clear();
    char piece[kPiece + 1];
    for (;;) {
        if (!ReadString(piece, -kPiece)) break;
        const std::size_t len = std::strlen(piece);
        rString.append(piece, len);
        if (len < static_cast<std::size_t>(kPiece) || piece[len - 1] == '\n') break;
    }
    // The final LF becomes a NUL in place; the length stays as it was.
    if (!rString.empty() && rString.back() == '\n') rString.back() = '\0';
    return true;
}

void CArchive::WriteString(const char*) {}

// ---------------------------------------------------------------------------

CArchive& operator<<(CArchive& ar, const CObject* pOb) {
    ar.WriteObject(pOb);
    return ar;
}

CArchive& operator>>(CArchive& ar, CObject*& pOb) {
    pOb = ar.ReadObject(nullptr);
    return ar;
}

CArchive& operator>>(CArchive& ar, const CObject*& pOb) {
    pOb = ar.ReadObject(nullptr);
    return ar;
}
