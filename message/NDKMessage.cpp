// The message: identifier, cursor, elements and the count of hidden length
// elements, with its archive form and the flat buffer forms the host hands over.
// Binary blocks of 100 bytes or more are zlib-compressed (level 9) behind a hidden
// element holding the compressed length; shorter blocks go raw behind a 0.
#include "NDKMessage.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

IMPLEMENT_PERSISTENT(CNDKMessage, CObject, 1)

namespace {

// Blocks below this size travel raw.
constexpr unsigned int kCompressThreshold = 100;

// Walks the wire layout of a message over [p, p + n) without allocating, so that
// FromBuffer can reject data that ends inside an element before the archive reads
// it (a short string read would otherwise end the process).
class WireLayoutCheck {
public:
    WireLayoutCheck(const unsigned char* p, size_t n) : m_p(p), m_n(n) {}

    bool Complete() {
        std::uint32_t id = 0, count = 0, hidden = 0;
        if (!U32(id) || !U32(count) || !U32(hidden)) return false;
        const int nCount = static_cast<int>(count);
        for (int i = 0; i < nCount; ++i) {   // each element takes at least 2 bytes
            if (!Element()) return false;
        }
        return true;
    }

private:
    bool Element() {
        std::uint8_t code = 0;
        if (!U8(code)) return false;
        if (code == NDKString) return String();
        if (code == NDKBuffer) {
            std::uint32_t len = 0;
            return U32(len) && Skip(len);
        }
        return Skip(8);
    }

    // Length prefix as the archive reads it: 8 bits, 0xFF then 16 bits, 0xFFFF then
    // 32 bits; the 16-bit 0xFFFE marks a wide string with its own prefix and two bytes a unit.
    bool String() {
        std::uint8_t b = 0;
        if (!U8(b)) return false;
        if (b < 0xFF) return Skip(b);
        std::uint16_t w = 0;
        if (!U16(w)) return false;
        if (w == 0xFFFE) {
            std::uint64_t len = 0;
            return Prefix(len) && Skip(len * 2);
        }
        if (w < 0xFFFF) return Skip(w);
        std::uint32_t dw = 0;
        return U32(dw) && Skip(dw);
    }

    bool Prefix(std::uint64_t& len) {
        std::uint8_t b = 0;
        if (!U8(b)) return false;
        if (b < 0xFF) {
            len = b;
            return true;
        }
        std::uint16_t w = 0;
        if (!U16(w)) return false;
        if (w < 0xFFFF) {
            len = w;
            return true;
        }
        std::uint32_t dw = 0;
        if (!U32(dw)) return false;
        len = dw;
        return true;
    }

    bool Skip(std::uint64_t k) {
        if (m_n - m_pos < k) return false;
        m_pos += static_cast<size_t>(k);
        return true;
    }
    bool U8(std::uint8_t& v) {
        if (m_n - m_pos < 1) return false;
        v = m_p[m_pos++];
        return true;
    }
    bool U16(std::uint16_t& v) {
        if (m_n - m_pos < 2) return false;
        v = static_cast<std::uint16_t>(m_p[m_pos] | (m_p[m_pos + 1] << 8));
        m_pos += 2;
        return true;
    }
    bool U32(std::uint32_t& v) {
        if (m_n - m_pos < 4) return false;
        v = static_cast<std::uint32_t>(m_p[m_pos]) | static_cast<std::uint32_t>(m_p[m_pos + 1]) << 8 |
            static_cast<std::uint32_t>(m_p[m_pos + 2]) << 16 | static_cast<std::uint32_t>(m_p[m_pos + 3]) << 24;
        m_pos += 4;
        return true;
    }

    const unsigned char* m_p;
    size_t m_n;
    size_t m_pos = 0;
};

}  // namespace

CNDKMessage::CNDKMessage() : m_lId(0), m_nCurrentIndex(0), m_nHiddenElements(0) {}

CNDKMessage::CNDKMessage(long lId) : m_lId(static_cast<int>(lId)), m_nCurrentIndex(0), m_nHiddenElements(0) {}

CNDKMessage::CNDKMessage(const CNDKMessage& src)
    : CObject(src),
      m_lId(src.m_lId),
      m_nCurrentIndex(src.m_nCurrentIndex),
      m_elements(src.m_elements),
      m_nHiddenElements(src.m_nHiddenElements) {}

CNDKMessage& CNDKMessage::operator=(const CNDKMessage& src) {
    if (this != &src) {
        m_lId = src.m_lId;
        m_nCurrentIndex = src.m_nCurrentIndex;
        m_elements.RemoveAll();
        m_elements.Append(src.m_elements);
        m_nHiddenElements = src.m_nHiddenElements;
    }
    return *this;
}

int CNDKMessage::GetNbElements() const {
    // Unsigned arithmetic: a hidden count driven below zero wraps instead of overflowing.
    return static_cast<int>(static_cast<unsigned int>(m_elements.GetSize()) - m_nHiddenElements);
}

void CNDKMessage::RemoveAll() {
    // Identifier, cursor and hidden count stay on purpose; callers reset what they need.
    m_elements.RemoveAll();
}

// ---------------------------------------------------------------- adding

int CNDKMessage::Add(unsigned char value) { return m_elements.Add(CNDKMessageData(value)); }
int CNDKMessage::Add(char value) { return m_elements.Add(CNDKMessageData(value)); }
int CNDKMessage::Add(unsigned short value) { return m_elements.Add(CNDKMessageData(value)); }
int CNDKMessage::Add(short value) { return m_elements.Add(CNDKMessageData(value)); }
int CNDKMessage::Add(unsigned int value) { return m_elements.Add(CNDKMessageData(value)); }
int CNDKMessage::Add(int value) { return m_elements.Add(CNDKMessageData(value)); }
int CNDKMessage::Add(float value) { return m_elements.Add(CNDKMessageData(value)); }
int CNDKMessage::Add(double value) { return m_elements.Add(CNDKMessageData(value)); }
int CNDKMessage::Add(unsigned long long value) { return m_elements.Add(CNDKMessageData(value)); }
int CNDKMessage::Add(const std::string& value) { return m_elements.Add(CNDKMessageData(value)); }

int CNDKMessage::Add(const void* pData, unsigned int nLength) {
    if (pData == nullptr) nLength = 0;
    if (nLength >= kCompressThreshold) {
        // The block's capacity is length + length/900 + 12; zlib's own bound is used
        // when larger, which changes no output byte but cannot fail for lack of room.
        uLongf nCompressed = std::max<uLong>(uLong{nLength} + nLength / 900 + 12, compressBound(nLength));
        std::unique_ptr<Bytef[]> block(new Bytef[nCompressed]);
        if (compress2(block.get(), &nCompressed, static_cast<const Bytef*>(pData), nLength, 9) == Z_OK &&
            nCompressed <= UINT_MAX) {
            const unsigned int n = static_cast<unsigned int>(nCompressed);
            m_elements.Add(CNDKMessageData(n));
            ++m_nHiddenElements;
            return m_elements.Add(CNDKMessageData(block.get(), n));
        }
        // Out of memory inside zlib: the block goes raw, which every reader accepts.
    }
    m_elements.Add(CNDKMessageData(0u));
    ++m_nHiddenElements;
    return m_elements.Add(CNDKMessageData(pData, nLength));
}

int CNDKMessage::AddUnc(const void* pData, unsigned int nLength) {
    return m_elements.Add(CNDKMessageData(pData, nLength));
}

// ---------------------------------------------------------------- by position

void CNDKMessage::SetElement(long nIndex, const CNDKMessageData& element) {
    // Element indices are 32-bit; anything beyond cannot be addressed and is ignored.
    if (!IsValidSetIndex(nIndex) || nIndex > INT_MAX) return;
    m_elements.SetAtGrow(static_cast<int>(nIndex), element);
}

void CNDKMessage::SetAt(long nIndex, unsigned char value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, char value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, unsigned short value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, short value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, unsigned int value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, int value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, float value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, double value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, unsigned long long value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, const std::string& value) { SetElement(nIndex, CNDKMessageData(value)); }
void CNDKMessage::SetAt(long nIndex, const void* pData, unsigned int nLength) {
    SetElement(nIndex, CNDKMessageData(pData, nLength));
}

// The Get result is dropped on purpose: a mismatched type still delivers the
// reinterpreted bytes; an invalid index leaves `value` untouched.
#define NDK_GET_AT(type)                                                        \
    void CNDKMessage::GetAt(long nIndex, type& value) const {                   \
        if (IsValidGetIndex(nIndex)) m_elements.GetAt(static_cast<int>(nIndex)).Get(value); \
    }

NDK_GET_AT(unsigned char)
NDK_GET_AT(char)
NDK_GET_AT(unsigned short)
NDK_GET_AT(short)
NDK_GET_AT(unsigned int)
NDK_GET_AT(int)
NDK_GET_AT(float)
NDK_GET_AT(double)
NDK_GET_AT(unsigned long long)
NDK_GET_AT(std::string)

#undef NDK_GET_AT

void CNDKMessage::GetAt(long nIndex, void* pBuffer, unsigned int nMaxLength) const {
    if (IsValidGetIndex(nIndex)) m_elements.GetAt(static_cast<int>(nIndex)).Get(pBuffer, nMaxLength);
}

bool CNDKMessage::GetAtUnc(long nIndex, void* pBuffer, unsigned int nMaxLength) const {
    if (!IsValidGetIndex(nIndex)) return false;
    return m_elements.GetAt(static_cast<int>(nIndex)).Get(pBuffer, nMaxLength);
}

int CNDKMessage::GetDataTypeAt(long nIndex) const {
    // An invalid index answers with the string code, deliberately.
    if (!IsValidGetIndex(nIndex)) return NDKString;
    return m_elements.GetAt(static_cast<int>(nIndex)).GetDataType();
}

// ---------------------------------------------------------------- sequential

int CNDKMessage::TakeCursor() {
    const int nIndex = m_nCurrentIndex;
    if (m_nCurrentIndex < INT_MAX) ++m_nCurrentIndex;
    return nIndex;
}

void CNDKMessage::GetNext(unsigned char& value) { GetAt(TakeCursor(), value); }
void CNDKMessage::GetNext(char& value) { GetAt(TakeCursor(), value); }
void CNDKMessage::GetNext(unsigned short& value) { GetAt(TakeCursor(), value); }
void CNDKMessage::GetNext(short& value) { GetAt(TakeCursor(), value); }
void CNDKMessage::GetNext(unsigned int& value) { GetAt(TakeCursor(), value); }
void CNDKMessage::GetNext(int& value) { GetAt(TakeCursor(), value); }
void CNDKMessage::GetNext(float& value) { GetAt(TakeCursor(), value); }
void CNDKMessage::GetNext(double& value) { GetAt(TakeCursor(), value); }
void CNDKMessage::GetNext(unsigned long long& value) { GetAt(TakeCursor(), value); }
void CNDKMessage::GetNext(std::string& value) { GetAt(TakeCursor(), value); }

void CNDKMessage::GetNext(void* pBuffer, unsigned int nMaxLength) {
    unsigned int nHeader = 0;   // a missing header element reads as a raw block
    GetNext(nHeader);
    --m_nHiddenElements;
    if (nHeader == 0) {
        GetNextUnc(pBuffer, nMaxLength);
        return;
    }
    const int nIndex = TakeCursor();
    if (!IsValidGetIndex(nIndex) || pBuffer == nullptr) return;
    const CNDKMessageData& element = m_elements.GetAt(nIndex);
    if (element.GetDataType() != NDKBuffer) return;
    // The header caps the compressed bytes used; zlib writes at most nMaxLength bytes.
    // Its result is not needed: the caller knows the inflated length from its own element.
    const CNDKDataBuffer& block = element.GetDataBuffer();
    uLongf nDest = nMaxLength;
    uncompress(static_cast<Bytef*>(pBuffer), &nDest, static_cast<const Bytef*>(block.GetBuffer()),
               std::min(nHeader, block.GetLength()));
}

void CNDKMessage::GetNextUnc(void* pBuffer, unsigned int nMaxLength) {
    GetAt(TakeCursor(), pBuffer, nMaxLength);
}

bool CNDKMessage::IsLastCurrentIndex() const {
    return m_nCurrentIndex >= m_elements.GetSize();
}

bool CNDKMessage::AdvanceCurrIndex() {
    if (m_nCurrentIndex >= m_elements.GetSize()) return false;
    ++m_nCurrentIndex;
    return true;
}

bool CNDKMessage::IsValidGetIndex(long nIndex) const {
    return nIndex >= 0 && nIndex < m_elements.GetSize();
}

// ---------------------------------------------------------------- whole message

long CNDKMessage::GetSize() const {
    long nSize = 0;
    for (int i = 0; i < m_elements.GetSize(); ++i) {
        const CNDKMessageData& element = m_elements.GetAt(i);
        switch (element.GetDataType()) {
        case NDKUChar:
        case NDKChar:
            nSize += 1;
            break;
        case NDKUShort:
        case NDKShort:
            nSize += 2;
            break;
        case NDKUInt:
        case NDKInt:
        case NDKReserved6:
        case NDKReserved7:
        case NDKFloat:
            nSize += 4;
            break;
        case NDKDouble:
            nSize += 8;
            break;
        case NDKString: {
            std::string text;
            element.Get(text);
            nSize += static_cast<long>(text.size());
            break;
        }
        case NDKBuffer:
            nSize += element.GetDataBuffer().GetLength();
            break;
        default:
            // Deliberate: the 64-bit code (and anything higher) counts nothing in the payload size.
            break;
        }
    }
    return nSize;
}

void CNDKMessage::LimitSize(long nMax) {
    // The hidden count is left alone even when hidden elements are cut off.
    if (m_elements.GetSize() > nMax) m_elements.SetSize(static_cast<int>(std::max(nMax, 0L)));
}

void CNDKMessage::Append(const CNDKMessage& other, int nFrom) {
    // This message's hidden count and cursor stay as they are, deliberately.
    if (nFrom == 0) {
        m_elements.Append(other.m_elements);
        return;
    }
    if (nFrom < 0) return;
    const int nEnd = other.m_elements.GetSize();   // fixed first: `other` may be this message
    for (int i = nFrom; i < nEnd; ++i) m_elements.Add(other.m_elements.GetAt(i));
}

bool CNDKMessage::operator==(const CNDKMessage& other) const {
    if (GetNbElements() != other.GetNbElements() || m_lId != other.m_lId) return false;
    // Raw positions of this message are compared; a 64-bit element makes the
    // messages unequal, even a message and its own copy.
    for (int i = 0; i < m_elements.GetSize(); ++i) {
        if (i >= other.m_elements.GetSize() || m_elements.GetAt(i) != other.m_elements.GetAt(i)) return false;
    }
    return true;
}

// ---------------------------------------------------------------- archive and buffers

void CNDKMessage::Serialize(CArchive& ar) {
    CObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar << static_cast<unsigned int>(m_lId);
        ar << static_cast<unsigned int>(m_elements.GetSize());
        ar << m_nHiddenElements;
        for (int i = 0; i < m_elements.GetSize(); ++i) m_elements.GetAt(i).Serialize(ar);
        m_nCurrentIndex = 0;
        return;
    }

    unsigned int nValue = 0;
    ar >> nValue;
    m_lId = static_cast<int>(nValue);
    ar >> nValue;
    const int nCount = static_cast<int>(nValue);
    ar >> m_nHiddenElements;
    if (nCount < 1) {
        // Elements already present stay; FromBuffer empties the message first.
        m_nCurrentIndex = 0;
        return;
    }
    // Room for the count is made at once, but never for more elements than the data
    // can hold (each takes two bytes at least), so a corrupt count costs no memory.
    const int nPresent = m_elements.GetSize();
    if (nCount > nPresent)
        m_elements.Reserve(nPresent + static_cast<int>(std::min<std::uint64_t>(
                                          static_cast<unsigned int>(nCount - nPresent), ar.GetBytesKnownLeft() / 2)));
    for (int i = 0; i < nCount; ++i) {
        CNDKMessageData element;
        element.Serialize(ar);
        if (i < nPresent)
            m_elements.GetAt(i) = std::move(element);
        else
            m_elements.Add(std::move(element));
    }
    m_elements.SetSize(nCount);
    m_nCurrentIndex = 0;
}

int CNDKMessage::ToBuffer(void** ppBuffer) {
    CMemFile file(1024);
    CArchive ar(&file, CArchive::store, 4096);
    Serialize(ar);
    ar.Close();
    const unsigned long long nLength = file.GetLength();
    unsigned char* pBlock = file.Detach();
    if (ppBuffer != nullptr)
        *ppBuffer = pBlock;
    else
        std::free(pBlock);
    return static_cast<int>(nLength);
}

void CNDKMessage::FromBuffer(const void* pBuffer, int nLength) {
    const auto* pBytes = static_cast<const unsigned char*>(pBuffer);
    const unsigned int nSize = (pBytes != nullptr && nLength > 0) ? static_cast<unsigned int>(nLength) : 0;
    RemoveAll();
    // Checked before anything is read, so that cut data throws instead of reaching the
    // archive's short-string assertion.
    if (!WireLayoutCheck(pBytes, nSize).Complete()) throw new CFileException;
    CMemFile file(1024);
    // Grow-by 0: the caller's block is read as it stands and never written or freed.
    file.Attach(const_cast<unsigned char*>(pBytes), nSize, 0);
    CArchive ar(&file, CArchive::load, 4096);
    Serialize(ar);
    ar.Close();
}

CArchive& operator>>(CArchive& ar, CNDKMessage*& pOb) {
    CObject* pObject = ar.ReadObject(CLASS_RECORD(CNDKMessage));
    // The archive does not check the class it read; a stranger is not handed out.
    pOb = (pObject != nullptr && pObject->IsKindOf(CLASS_RECORD(CNDKMessage))) ? static_cast<CNDKMessage*>(pObject)
                                                                             : nullptr;
    return ar;
}
