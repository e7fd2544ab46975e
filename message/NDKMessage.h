// CNDKMessage: the unit the host and the component exchange, an identifier plus
// an ordered list of typed elements. Binary blocks of 100 bytes or more travel
// zlib-compressed behind a hidden length element. The message is a persistent
// object of the archive and turns into and out of a flat byte buffer.
#pragma once

#include "NDKMessageData.h"
#include "archive/arcobj.h"

#include <string>

class CNDKMessage : public CObject {
    DECLARE_PERSISTENT(CNDKMessage)
public:
    CNDKMessage();
    explicit CNDKMessage(long lId);
    CNDKMessage(const CNDKMessage& src);
    CNDKMessage& operator=(const CNDKMessage& src);
    ~CNDKMessage() override = default;

    void SetId(long lId) { m_lId = static_cast<int>(lId); }
    long GetId() const { return m_lId; }
    int GetNbElements() const;   // raw count minus the hidden length elements
    // Removes the elements only; identifier, cursor and hidden count stay.
    void RemoveAll();

    int Add(unsigned char value);
    int Add(char value);
    int Add(unsigned short value);
    int Add(short value);
    int Add(unsigned int value);
    int Add(int value);
    int Add(float value);
    int Add(double value);
    int Add(unsigned long long value);
    int Add(const std::string& value);
    // Compressed block: a hidden length element (0 for raw), then the buffer element.
    // Returns the index of the buffer element.
    int Add(const void* pData, unsigned int nLength);
    int AddUnc(const void* pData, unsigned int nLength);

    void SetAt(long nIndex, unsigned char value);
    void SetAt(long nIndex, char value);
    void SetAt(long nIndex, unsigned short value);
    void SetAt(long nIndex, short value);
    void SetAt(long nIndex, unsigned int value);
    void SetAt(long nIndex, int value);
    void SetAt(long nIndex, float value);
    void SetAt(long nIndex, double value);
    void SetAt(long nIndex, unsigned long long value);
    void SetAt(long nIndex, const std::string& value);
    void SetAt(long nIndex, const void* pData, unsigned int nLength);

    void GetAt(long nIndex, unsigned char& value) const;
    void GetAt(long nIndex, char& value) const;
    void GetAt(long nIndex, unsigned short& value) const;
    void GetAt(long nIndex, short& value) const;
    void GetAt(long nIndex, unsigned int& value) const;
    void GetAt(long nIndex, int& value) const;
    void GetAt(long nIndex, float& value) const;
    void GetAt(long nIndex, double& value) const;
    void GetAt(long nIndex, unsigned long long& value) const;
    void GetAt(long nIndex, std::string& value) const;
    void GetAt(long nIndex, void* pBuffer, unsigned int nMaxLength) const;
    bool GetAtUnc(long nIndex, void* pBuffer, unsigned int nMaxLength) const;
    // The element's type code; 10 for an invalid index (kept on purpose).
    int GetDataTypeAt(long nIndex) const;

    void GetNext(unsigned char& value);
    void GetNext(char& value);
    void GetNext(unsigned short& value);
    void GetNext(short& value);
    void GetNext(unsigned int& value);
    void GetNext(int& value);
    void GetNext(float& value);
    void GetNext(double& value);
    void GetNext(unsigned long long& value);
    void GetNext(std::string& value);
    // Reads a block added with Add(void*, unsigned): nMaxLength must be the uncompressed size.
    void GetNext(void* pBuffer, unsigned int nMaxLength);
    void GetNextUnc(void* pBuffer, unsigned int nMaxLength);

    void ResetCurrentIndex() { m_nCurrentIndex = 0; }
    int GetCurrentIndex() const { return m_nCurrentIndex; }
    bool IsLastCurrentIndex() const;
    bool AdvanceCurrIndex();
    bool IsValidSetIndex(long nIndex) const { return nIndex >= 0; }
    bool IsValidGetIndex(long nIndex) const;

    long GetSize() const;   // payload bytes, not the wire size
    // Cuts the raw list to nMax elements; the hidden count is not adjusted.
    void LimitSize(long nMax);
    // Copies other's raw elements from nFrom on; this message's hidden count and cursor stay.
    void Append(const CNDKMessage& other, int nFrom = 0);
    // Same id, same visible count, equal raw elements; never true with a 64-bit element.
    bool operator==(const CNDKMessage& other) const;
    bool operator!=(const CNDKMessage& other) const { return !(*this == other); }

    void Serialize(CArchive& ar) override;
    // Whole message as archive bytes; the caller frees the block with free().
    int ToBuffer(void** ppBuffer);
    // Replaces this message from a buffer; throws CFileException* on truncated or corrupt data.
    void FromBuffer(const void* pBuffer, int nLength);

    unsigned int GetHiddenElements() const { return m_nHiddenElements; }
    const CElements& GetElements() const { return m_elements; }

private:
    // Stores through SetAtGrow for a valid index; ignores the rest.
    void SetElement(long nIndex, const CNDKMessageData& element);
    // The cursor before it moves one on (it stops at INT_MAX rather than overflow).
    int TakeCursor();

    int m_lId;
    int m_nCurrentIndex;
    CElements m_elements;
    unsigned int m_nHiddenElements;
};

CArchive& operator>>(CArchive& ar, CNDKMessage*& pOb);
