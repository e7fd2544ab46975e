#include "ArchiveTestSupport.h"

#include <cstdlib>
#include <cstring>

IMPLEMENT_PERSISTENT(CTestItem, CObject, 1)
IMPLEMENT_PERSISTENT(CTestVersioned, CObject, 0x80000002)

void CTestItem::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << m_value << m_text;
    } else {
        m_loadedSchema = ar.GetObjectSchema();
        ar >> m_value >> m_text;
    }
}

void CTestVersioned::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << m_word;
    } else {
        m_loadedSchema = ar.GetObjectSchema();
        ar >> m_word;
    }
}

Bytes StoreBytes(const std::function<void(CArchive&)>& store, int bufSize) {
    CMemFile file(1024);
    {
        CArchive ar(&file, CArchive::store, bufSize);
        store(ar);
        ar.Close();
    }
    const auto len = static_cast<unsigned int>(file.GetLength());
    unsigned char* block = file.Detach();
    Bytes out(block, block + len);
    std::free(block);
    return out;
}

void LoadBytes(const Bytes& bytes, const std::function<void(CArchive&)>& load, int bufSize) {
    // A heap copy sized exactly, so ASan sees every read past the end.
    auto* block = static_cast<unsigned char*>(std::malloc(bytes.size() + 1));
    if (!bytes.empty()) std::memcpy(block, bytes.data(), bytes.size());
    struct Free {
        unsigned char* p;
        ~Free() { std::free(p); }
    } guard{block};
    CMemFile file(block, static_cast<unsigned int>(bytes.size()), 0);
    CArchive ar(&file, CArchive::load, bufSize);
    load(ar);
}

Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

Bytes Le16(unsigned v) { return {std::uint8_t(v), std::uint8_t(v >> 8)}; }
Bytes Le32(unsigned v) { return {std::uint8_t(v), std::uint8_t(v >> 8), std::uint8_t(v >> 16), std::uint8_t(v >> 24)}; }
Bytes Str(const std::string& s) { return Bytes(s.begin(), s.end()); }
Bytes ClassRecord(unsigned schema, const std::string& name) {
    return Cat({Le16(schema), Le16(static_cast<unsigned>(name.size())), Str(name)});
}

namespace {

std::set<CObject*>& Live() {
    static std::set<CObject*> live;
    return live;
}

template <class T>
struct Tracked : T {
    Tracked() { Live().insert(this); }
    ~Tracked() override { Live().erase(this); }
    static CObject* Create() { return new Tracked<T>; }
};

// Same names as the real records, registered in front of them, so Load finds these.
CRuntimeClass g_trackedClasses[] = {
    {"CObList", int(sizeof(CObList)), 0, &Tracked<CObList>::Create, &CObject::classCObject},
    {"CStringArray", int(sizeof(CStringArray)), 0, &Tracked<CStringArray>::Create, &CObject::classCObject},
    {"CMapStringToOb", int(sizeof(CMapStringToOb)), 0, &Tracked<CMapStringToOb>::Create, &CObject::classCObject},
    {"CTestItem", int(sizeof(CTestItem)), 1, &Tracked<CTestItem>::Create, &CObject::classCObject},
};

}  // namespace

TrackedCreation::TrackedCreation() {
    for (CRuntimeClass& c : g_trackedClasses) AfxClassInit(&c);
}

TrackedCreation::~TrackedCreation() {
    DeleteLive();
    for (CRuntimeClass& c : g_trackedClasses) AfxClassClose(&c);
}

std::size_t TrackedCreation::LiveCount() { return Live().size(); }

void TrackedCreation::DeleteLive() {
    // Collections do not own their elements, so deleting in any order is safe.
    const std::set<CObject*> doomed = Live();
    for (CObject* ob : doomed) delete ob;
}

namespace {
void ThrowShortString(const char*, int) { throw ShortStringAbort{}; }
}  // namespace

ThrowingAssertScope::ThrowingAssertScope() : m_previous(SetArchiveAssertHandler(ThrowShortString)) {}
ThrowingAssertScope::~ThrowingAssertScope() { SetArchiveAssertHandler(m_previous); }

bool ThrowsFileException(const std::function<void()>& fn) {
    try {
        fn();
    } catch (CFileException* e) {
        delete e;
        return true;
    }
    return false;
}
