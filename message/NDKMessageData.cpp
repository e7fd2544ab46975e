// Message elements: the owned byte block of a binary element, the typed element
// with its 8-byte value store, and the element array. The element's archive form
// (type byte, then 8 raw bytes, a string, or a 32-bit length and bytes) is the
// wire format of every message the host and the component exchange.
#include "NDKMessageData.h"

#include "archive/arcobj.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// A loaded buffer grows in steps of at most this size, so a corrupt 32-bit length
// costs no more memory than the bytes that are really there.
constexpr size_t kLoadChunk = 64 * 1024;

// Constant-initialised, so elements built during static initialisation count too.
std::atomic<long> g_nLiveElements{0};

// The element without its counting base, as hosts were built with it.
struct ElementLayout {
    virtual ~ElementLayout() = default;
    alignas(8) unsigned char value[8];
    int type;
    std::string text;
    CNDKDataBuffer buffer;
};
static_assert(sizeof(CNDKMessageData) == sizeof(ElementLayout), "the counting base must not change the layout");

}  // namespace

// ---------------------------------------------------------------- CNDKElementTally

long CNDKElementTally::Live() { return g_nLiveElements.load(std::memory_order_relaxed); }

CNDKElementTally::CNDKElementTally() noexcept { g_nLiveElements.fetch_add(1, std::memory_order_relaxed); }

CNDKElementTally::CNDKElementTally(const CNDKElementTally&) noexcept {
    g_nLiveElements.fetch_add(1, std::memory_order_relaxed);
}

CNDKElementTally::~CNDKElementTally() { g_nLiveElements.fetch_sub(1, std::memory_order_relaxed); }

// ---------------------------------------------------------------- CNDKDataBuffer

CNDKDataBuffer::CNDKDataBuffer(const void* pBuffer, unsigned int nLength) {
    SetBuffer(pBuffer, nLength);
}

CNDKDataBuffer::CNDKDataBuffer(const CNDKDataBuffer& src) {
    SetBuffer(src.m_pBuffer, src.m_nLength);
}

CNDKDataBuffer& CNDKDataBuffer::operator=(const CNDKDataBuffer& src) {
    if (this != &src) SetBuffer(src.m_pBuffer, src.m_nLength);
    return *this;
}

CNDKDataBuffer::CNDKDataBuffer(CNDKDataBuffer&& src) noexcept
    : m_pBuffer(src.m_pBuffer), m_nLength(src.m_nLength) {
    src.m_pBuffer = nullptr;
    src.m_nLength = 0;
}

CNDKDataBuffer& CNDKDataBuffer::operator=(CNDKDataBuffer&& src) noexcept {
    if (this != &src) {
        std::free(m_pBuffer);
        m_pBuffer = src.m_pBuffer;
        m_nLength = src.m_nLength;
        src.m_pBuffer = nullptr;
        src.m_nLength = 0;
    }
    return *this;
}

CNDKDataBuffer::~CNDKDataBuffer() {
    std::free(m_pBuffer);
}

void CNDKDataBuffer::SetBuffer(const void* pBuffer, unsigned int nLength) {
    std::free(m_pBuffer);
    m_pBuffer = nullptr;
    m_nLength = 0;
    // A null source carries no bytes, whatever length comes with it.
    if (nLength == 0 || pBuffer == nullptr) return;
    m_pBuffer = std::malloc(nLength);
    if (m_pBuffer == nullptr) return;
    std::memcpy(m_pBuffer, pBuffer, nLength);
    m_nLength = nLength;
}

void CNDKDataBuffer::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << m_nLength;
        if (m_nLength != 0) ar.Write(m_pBuffer, m_nLength);
        return;
    }

    // Empty (null, 0) first: a length of 0 or a failed read leaves the only valid empty state.
    std::free(m_pBuffer);
    m_pBuffer = nullptr;
    m_nLength = 0;

    unsigned int nLength = 0;
    ar >> nLength;
    if (nLength == 0) return;

    unsigned char* pBlock = nullptr;
    size_t nCapacity = 0;
    size_t nHave = 0;
    while (nHave < nLength) {
        if (nHave == nCapacity) {
            nCapacity = std::min<size_t>(nLength, std::max(kLoadChunk, nCapacity * 2));
            auto* pGrown = static_cast<unsigned char*>(std::realloc(pBlock, nCapacity));
            if (pGrown == nullptr) {
                std::free(pBlock);
                throw new CFileException;
            }
            pBlock = pGrown;
        }
        const unsigned int nGot = ar.Read(pBlock + nHave, static_cast<unsigned int>(nCapacity - nHave));
        if (nGot == 0) {
            std::free(pBlock);
            throw new CFileException;
        }
        nHave += nGot;
    }
    m_pBuffer = pBlock;
    m_nLength = nLength;
}

// ---------------------------------------------------------------- CNDKMessageData

CNDKMessageData::CNDKMessageData() : m_nDataType(NDKString) {
    std::memset(&m_value, 0, sizeof m_value);
}

// Every scalar constructor clears the whole store first, so the unused bytes go
// out as zeros and equal elements always serialise to equal bytes.
#define NDK_SCALAR_CONSTRUCTOR(type, member, code)                        \
    CNDKMessageData::CNDKMessageData(type value) : m_nDataType(code) {    \
        std::memset(&m_value, 0, sizeof m_value);                         \
        m_value.member = value;                                           \
    }

NDK_SCALAR_CONSTRUCTOR(unsigned char, uc, NDKUChar)
NDK_SCALAR_CONSTRUCTOR(char, c, NDKChar)
NDK_SCALAR_CONSTRUCTOR(unsigned short, us, NDKUShort)
NDK_SCALAR_CONSTRUCTOR(short, s, NDKShort)
NDK_SCALAR_CONSTRUCTOR(unsigned int, ui, NDKUInt)
NDK_SCALAR_CONSTRUCTOR(int, i, NDKInt)
NDK_SCALAR_CONSTRUCTOR(float, f, NDKFloat)
NDK_SCALAR_CONSTRUCTOR(double, d, NDKDouble)
NDK_SCALAR_CONSTRUCTOR(unsigned long long, ull, NDKUInt64)

#undef NDK_SCALAR_CONSTRUCTOR

CNDKMessageData::CNDKMessageData(const std::string& value) : m_nDataType(NDKString), m_strData(value) {
    std::memset(&m_value, 0, sizeof m_value);
}

CNDKMessageData::CNDKMessageData(const void* pData, unsigned int nLength)
    : m_nDataType(NDKBuffer), m_dataBuffer(pData, nLength) {
    std::memset(&m_value, 0, sizeof m_value);
}

// Out of line: the key function, so this binary's element vtable is emitted here.
CNDKMessageData::~CNDKMessageData() = default;

CNDKMessageData::CNDKMessageData(const CNDKMessageData& src)
    : CNDKElementTally(src),
      m_value(src.m_value),
      m_nDataType(src.m_nDataType),
      m_strData(src.m_strData),
      m_dataBuffer(src.m_dataBuffer) {}

CNDKMessageData& CNDKMessageData::operator=(const CNDKMessageData& src) {
    if (this != &src) {
        m_value = src.m_value;
        m_nDataType = src.m_nDataType;
        m_strData = src.m_strData;
        m_dataBuffer = src.m_dataBuffer;
    }
    return *this;
}

// Scalar getters read the store as the asked type whatever the code is; only the
// result tells whether the code matched (callers rely on the reinterpretation).
#define NDK_SCALAR_GET(type, code)                                 \
    bool CNDKMessageData::Get(type& value) const {                 \
        std::memcpy(&value, m_value.bytes, sizeof(type));          \
        return m_nDataType == (code);                              \
    }

NDK_SCALAR_GET(unsigned char, NDKUChar)
NDK_SCALAR_GET(char, NDKChar)
NDK_SCALAR_GET(unsigned short, NDKUShort)
NDK_SCALAR_GET(short, NDKShort)
NDK_SCALAR_GET(unsigned int, NDKUInt)
NDK_SCALAR_GET(int, NDKInt)
NDK_SCALAR_GET(float, NDKFloat)
NDK_SCALAR_GET(double, NDKDouble)
NDK_SCALAR_GET(unsigned long long, NDKUInt64)

#undef NDK_SCALAR_GET

bool CNDKMessageData::Get(std::string& value) const {
    value = m_strData;
    return m_nDataType == NDKString;
}

bool CNDKMessageData::Get(void* pBuffer, unsigned int nMaxLength) const {
    if (m_nDataType != NDKBuffer) return false;
    const unsigned int nCopy = std::min(nMaxLength, m_dataBuffer.GetLength());
    if (pBuffer != nullptr && nCopy != 0) std::memcpy(pBuffer, m_dataBuffer.GetBuffer(), nCopy);
    return true;
}

void CNDKMessageData::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << static_cast<unsigned char>(m_nDataType);
        if (m_nDataType == NDKString) {
            ar << m_strData;
        } else if (m_nDataType == NDKBuffer) {
            m_dataBuffer.Serialize(ar);
        } else {
            ar.Write(m_value.bytes, sizeof m_value.bytes);
        }
        return;
    }

    // Start from the empty element, so a reused element keeps nothing of its old value.
    std::memset(&m_value, 0, sizeof m_value);
    m_strData.clear();
    m_dataBuffer.SetBuffer(nullptr, 0);

    unsigned char code = 0;
    ar >> code;
    m_nDataType = code;
    if (m_nDataType == NDKString) {
        ar >> m_strData;
    } else if (m_nDataType == NDKBuffer) {
        m_dataBuffer.Serialize(ar);
    } else {
        // Codes 6, 7 and 12-255 included: 8 raw bytes, stored again unchanged.
        if (ar.Read(m_value.bytes, sizeof m_value.bytes) != sizeof m_value.bytes) throw new CFileException;
    }
}

bool CNDKMessageData::operator==(const CNDKMessageData& other) const {
    if (m_nDataType != other.m_nDataType) return false;
    // Above the buffer code nothing is equal: two 64-bit elements never compare
    // equal, not even to a copy. Message equality depends on it; keep it.
    if (m_nDataType > NDKBuffer) return false;
    switch (m_nDataType) {
    case NDKUChar:
    case NDKChar:
        return m_value.bytes[0] == other.m_value.bytes[0];
    case NDKUShort:
    case NDKShort:
        return std::memcmp(m_value.bytes, other.m_value.bytes, 2) == 0;
    case NDKUInt:
    case NDKInt:
    case NDKReserved6:
    case NDKReserved7:
        return std::memcmp(m_value.bytes, other.m_value.bytes, 4) == 0;
    case NDKFloat: {
        float a = 0, b = 0;
        Get(a);
        other.Get(b);
        return a == b;
    }
    case NDKDouble: {
        double a = 0, b = 0;
        Get(a);
        other.Get(b);
        return a == b;
    }
    case NDKString:
        return m_strData == other.m_strData;
    case NDKBuffer: {
        const unsigned int n = m_dataBuffer.GetLength();
        if (n != other.m_dataBuffer.GetLength()) return false;
        return n == 0 || std::memcmp(m_dataBuffer.GetBuffer(), other.m_dataBuffer.GetBuffer(), n) == 0;
    }
    default:
        // Negative codes cannot be loaded (the wire carries one unsigned byte).
        return false;
    }
}

// ---------------------------------------------------------------- CElements

int CElements::Add(const CNDKMessageData& element) {
    m_elements.push_back(element);
    return GetSize() - 1;
}

int CElements::Add(CNDKMessageData&& element) {
    m_elements.push_back(std::move(element));
    return GetSize() - 1;
}

void CElements::SetAt(int nIndex, const CNDKMessageData& element) {
    if (nIndex >= 0 && nIndex < GetSize()) m_elements[static_cast<size_t>(nIndex)] = element;
}

void CElements::SetAtGrow(int nIndex, const CNDKMessageData& element) {
    if (nIndex < 0) return;
    if (nIndex < GetSize()) {
        m_elements[static_cast<size_t>(nIndex)] = element;
        return;
    }
    // The gap up to nIndex is filled with int zeros; the element lands at nIndex.
    const CNDKMessageData copy(element);   // `element` may live in this array
    m_elements.resize(static_cast<size_t>(nIndex), CNDKMessageData(0));
    m_elements.push_back(copy);
}

void CElements::SetSize(int nNewSize) {
    const size_t n = nNewSize < 0 ? 0 : static_cast<size_t>(nNewSize);
    if (n < m_elements.size())
        m_elements.erase(m_elements.begin() + static_cast<std::ptrdiff_t>(n), m_elements.end());
    else if (n > m_elements.size())
        m_elements.resize(n, CNDKMessageData(0));
}

void CElements::Append(const CElements& other) {
    const size_t n = other.m_elements.size();   // fixed first: `other` may be this array
    m_elements.reserve(m_elements.size() + n);
    for (size_t i = 0; i < n; ++i) m_elements.push_back(other.m_elements[i]);
}
