// Typed message elements: the owned byte buffer of a binary element
// (CNDKDataBuffer), one element (CNDKMessageData) and the growable array of
// elements a message keeps (CElements). Elements are values, copied in and out.
#pragma once

#include <string>
#include <vector>

class CArchive;

enum NDKDataType : int {
    NDKUChar = 0,
    NDKChar = 1,
    NDKUShort = 2,
    NDKShort = 3,
    NDKUInt = 4,
    NDKInt = 5,
    NDKReserved6 = 6,   // never created here; stored again unchanged when received
    NDKReserved7 = 7,
    NDKFloat = 8,
    NDKDouble = 9,
    NDKString = 10,
    NDKBuffer = 11,
    NDKUInt64 = 12,
};

class CNDKDataBuffer {
public:
    CNDKDataBuffer() = default;
    CNDKDataBuffer(const void* pBuffer, unsigned int nLength);
    CNDKDataBuffer(const CNDKDataBuffer& src);
    CNDKDataBuffer& operator=(const CNDKDataBuffer& src);
    CNDKDataBuffer(CNDKDataBuffer&& src) noexcept;
    CNDKDataBuffer& operator=(CNDKDataBuffer&& src) noexcept;
    virtual ~CNDKDataBuffer();

    // Frees the present block and copies nLength bytes (none when pBuffer is null).
    void SetBuffer(const void* pBuffer, unsigned int nLength);
    void* GetBuffer() const { return m_pBuffer; }
    unsigned int GetLength() const { return m_nLength; }
    // 32-bit length, then the bytes. A loaded length of 0 leaves a null pointer;
    // data that ends early throws CFileException* (memory grows only with the bytes read).
    void Serialize(CArchive& ar);

private:
    void* m_pBuffer = nullptr;
    unsigned int m_nLength = 0;
};

// Counts the elements that this binary's code built and has not yet destroyed.
// Every binary that carries the message code (the component, a host) keeps its
// own count, as an element's virtual destructor is that of the code that built it;
// the component asks at its deletion whether the host still holds any of its own.
class CNDKElementTally {
public:
    static long Live();

protected:
    CNDKElementTally() noexcept;
    CNDKElementTally(const CNDKElementTally&) noexcept;
    CNDKElementTally& operator=(const CNDKElementTally&) noexcept { return *this; }
    ~CNDKElementTally();
};

// The counting base is empty and takes no room: the element's layout stays the host's.
class CNDKMessageData : private CNDKElementTally {
public:
    CNDKMessageData();   // an empty string element
    explicit CNDKMessageData(unsigned char value);
    explicit CNDKMessageData(char value);
    explicit CNDKMessageData(unsigned short value);
    explicit CNDKMessageData(short value);
    explicit CNDKMessageData(unsigned int value);
    explicit CNDKMessageData(int value);
    explicit CNDKMessageData(float value);
    explicit CNDKMessageData(double value);
    explicit CNDKMessageData(const std::string& value);
    CNDKMessageData(const void* pData, unsigned int nLength);
    explicit CNDKMessageData(unsigned long long value);
    CNDKMessageData(const CNDKMessageData& src);
    CNDKMessageData& operator=(const CNDKMessageData& src);
    CNDKMessageData(CNDKMessageData&& src) noexcept = default;
    CNDKMessageData& operator=(CNDKMessageData&& src) noexcept = default;
    virtual ~CNDKMessageData();

    int GetDataType() const { return m_nDataType; }

    // Each copies the value store as its type and returns whether the type code matched.
    bool Get(unsigned char& value) const;
    bool Get(char& value) const;
    bool Get(unsigned short& value) const;
    bool Get(short& value) const;
    bool Get(unsigned int& value) const;
    bool Get(int& value) const;
    bool Get(float& value) const;
    bool Get(double& value) const;
    bool Get(unsigned long long& value) const;
    bool Get(std::string& value) const;
    // Copies min(nMaxLength, length) bytes when the element is a buffer and pBuffer is set.
    bool Get(void* pBuffer, unsigned int nMaxLength) const;

    // Type byte, then 8 raw bytes, a string or a buffer. Loading starts from an
    // empty element and throws CFileException* when the data ends early.
    void Serialize(CArchive& ar);
    // Codes above 11 (the 64-bit one included) never compare equal, on purpose.
    bool operator==(const CNDKMessageData& other) const;
    bool operator!=(const CNDKMessageData& other) const { return !(*this == other); }

    const CNDKDataBuffer& GetDataBuffer() const { return m_dataBuffer; }

private:
    union Value {
        unsigned char uc;
        char c;
        unsigned short us;
        short s;
        unsigned int ui;
        int i;
        float f;
        double d;
        unsigned long long ull;
        unsigned char bytes[8];
    };

    Value m_value;   // zeroed before every scalar is stored, so equal messages give equal bytes
    int m_nDataType;
    std::string m_strData;
    CNDKDataBuffer m_dataBuffer;
};

class CElements {
public:
    int Add(const CNDKMessageData& element);
    int Add(CNDKMessageData&& element);
    const CNDKMessageData& GetAt(int nIndex) const { return m_elements[static_cast<size_t>(nIndex)]; }
    CNDKMessageData& GetAt(int nIndex) { return m_elements[static_cast<size_t>(nIndex)]; }
    int GetSize() const { return static_cast<int>(m_elements.size()); }
    void SetAt(int nIndex, const CNDKMessageData& element);       // ignored past the end
    void SetAtGrow(int nIndex, const CNDKMessageData& element);   // pads with int 0 elements
    void SetSize(int nNewSize);                                   // pads with int 0 elements
    void Append(const CElements& other);
    void RemoveAll() { m_elements.clear(); }
    void Reserve(int nCount) { m_elements.reserve(static_cast<size_t>(nCount)); }

private:
    std::vector<CNDKMessageData> m_elements;
};
