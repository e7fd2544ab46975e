// Loads arbitrary bytes as a string map, an object list, a string array or a bare
// object through a memory file. Rejections (CFileException*, and the short-string
// assertion turned into an exception here) are normal; crashes, sanitizer reports
// and leaks are findings. A successful load must store and reload to the same bytes.
#include "../tests/archive/TrackedObjects.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

struct ShortString {};

void ThrowShortString(const char*, int) { throw ShortString{}; }

CRuntimeClass g_tracked[] = {TrackedRecord<CObList>("CObList"), TrackedRecord<CStringArray>("CStringArray"),
                             TrackedRecord<CMapStringToOb>("CMapStringToOb")};

using Bytes = std::vector<unsigned char>;

// Loads `data` into `target` (or, with no target, one top-level object); true on success.
bool Load(const unsigned char* data, size_t size, int bufSize, CObject* target, CObject*& top) {
    top = nullptr;
    try {
        CMemFile file(const_cast<unsigned char*>(data), static_cast<unsigned int>(size), 0);
        CArchive ar(&file, CArchive::load, bufSize);
        if (target)
            target->Serialize(ar);
        else
            top = ar.ReadObject(nullptr);
        return true;
    } catch (CFileException* e) {
        delete e;
    } catch (ShortString&) {
    }
    return false;
}

Bytes Store(CObject* ob, bool asReference, int bufSize) {
    CMemFile file(1024);
    {
        CArchive ar(&file, CArchive::store, bufSize);
        if (asReference)
            ar.WriteObject(ob);
        else
            ob->Serialize(ar);
        ar.Close();
    }
    const auto len = static_cast<unsigned int>(file.GetLength());
    unsigned char* block = file.Detach();
    Bytes out(block, block + len);
    std::free(block);
    return out;
}

CObject* MakeTarget(int kind) {
    switch (kind) {
    case 0: return new CMapStringToOb;
    case 1: return new CObList;
    case 2: return new CStringArray;
    default: return nullptr;
    }
}

// Loads, stores, loads the stored bytes and stores again: the two stores must agree.
void RoundTrip(const unsigned char* data, size_t size, int kind, int bufSize) {
    CObject* target = MakeTarget(kind);
    CObject* top = nullptr;
    if (Load(data, size, bufSize, target, top) && (target || top)) {
        CObject* first = target ? target : top;
        const Bytes once = Store(first, !target, bufSize);
        CObject* again = MakeTarget(kind);
        CObject* top2 = nullptr;
        if (!Load(once.data(), once.size(), bufSize, again, top2)) __builtin_trap();
        const Bytes twice = Store(again ? again : top2, !again, bufSize);
        if (once != twice) __builtin_trap();
        delete again;
    }
    delete target;
    DeleteLiveObjects();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    for (CRuntimeClass& c : g_tracked) AfxClassInit(&c);
    SetArchiveAssertHandler(ThrowShortString);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const int kind = data[0] & 3;
    const int bufSize = (data[0] & 4) ? 128 : 4096;
    RoundTrip(data + 1, size - 1, kind, bufSize);
    return 0;
}
