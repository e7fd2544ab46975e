// Helpers for the archive tests: store/load through memory files, two small
// persistent test classes, and a scope that makes every object the archive
// creates traceable so failed loads can be cleaned up without leaks.
#pragma once

#include "archive/arcobj.h"

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// A record with one integer and one string; schema 1.
class CTestItem : public CObject {
    DECLARE_PERSISTENT(CTestItem)
public:
    CTestItem() = default;
    CTestItem(unsigned int value, std::string text) : m_value(value), m_text(std::move(text)) {}
    void Serialize(CArchive& ar) override;

    unsigned int m_value = 0;
    std::string m_text;
    unsigned int m_loadedSchema = 0xFFFFFFFF;   // what GetObjectSchema said during the load
};

// A versionable record whose current schema is 2.
class CTestVersioned : public CObject {
    DECLARE_PERSISTENT(CTestVersioned)
public:
    void Serialize(CArchive& ar) override;
    unsigned short m_word = 0;
    unsigned int m_loadedSchema = 0xFFFFFFFF;
};

// Runs `store` on a storing archive over a memory file and returns the bytes.
Bytes StoreBytes(const std::function<void(CArchive&)>& store, int bufSize = 4096);
// Runs `load` on a loading archive over a fixed memory block holding `bytes`.
void LoadBytes(const Bytes& bytes, const std::function<void(CArchive&)>& load, int bufSize = 4096);

Bytes Cat(std::initializer_list<Bytes> parts);
Bytes Le16(unsigned v);
Bytes Le32(unsigned v);
Bytes Str(const std::string& s);                    // raw bytes, no prefix
Bytes ClassRecord(unsigned schema, const std::string& name);

// While alive, the archive creates instrumented objects for the collection and test
// classes; everything still alive is deleted by DeleteLive() or the destructor.
class TrackedCreation {
public:
    TrackedCreation();
    ~TrackedCreation();
    TrackedCreation(const TrackedCreation&) = delete;
    TrackedCreation& operator=(const TrackedCreation&) = delete;
    static std::size_t LiveCount();
    static void DeleteLive();
};

// Throws ShortStringAbort instead of ending the process, for the scope's lifetime.
struct ShortStringAbort {};
class ThrowingAssertScope {
public:
    ThrowingAssertScope();
    ~ThrowingAssertScope();
private:
    ArchiveAssertHandler m_previous;
};

// True when `fn` throws CFileException*; the exception object is deleted.
bool ThrowsFileException(const std::function<void()>& fn);
