// Heap peak of loading hostile streams: any list file, memory block or message of n
// bytes loads, or is refused, within 64·n + 1 MiB of heap. The allocation functions
// of this program count live bytes; under a sanitizer, which owns them, it skips.
#include "inventory/InvMap.h"
#include "inventory/SoftwarePackageObject.h"
#include "message/NDKMessage.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZEV_HEAP_COUNTED 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define ZEV_HEAP_COUNTED 0
#endif
#endif
#ifndef ZEV_HEAP_COUNTED
#define ZEV_HEAP_COUNTED 1
#endif

namespace {

std::size_t g_live = 0;
std::size_t g_peak = 0;

}  // namespace

#if ZEV_HEAP_COUNTED
// Every heap allocation of the process (operator new included) comes through here to
// glibc's own functions; sizes are what the allocator really handed out.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

static void* Counted(void* p) {
    if (p && (g_live += malloc_usable_size(p)) > g_peak) g_peak = g_live;
    return p;
}
void* malloc(std::size_t n) { return Counted(__libc_malloc(n)); }
void* calloc(std::size_t n, std::size_t size) { return Counted(__libc_calloc(n, size)); }
void* memalign(std::size_t alignment, std::size_t n) { return Counted(__libc_memalign(alignment, n)); }
void* aligned_alloc(std::size_t alignment, std::size_t n) { return Counted(__libc_memalign(alignment, n)); }
int posix_memalign(void** pp, std::size_t alignment, std::size_t n) {
    *pp = Counted(__libc_memalign(alignment, n));
    return *pp ? 0 : ENOMEM;
}
void free(void* p) {
    if (p) g_live -= malloc_usable_size(p);
    __libc_free(p);
}
void* realloc(void* p, std::size_t n) {
    const std::size_t before = p ? malloc_usable_size(p) : 0;
    void* q = __libc_realloc(p, n);
    if (!q && n) return q;   // failed: the old block stays
    // A moved block was briefly there twice.
    if (q && q != p && (g_live + malloc_usable_size(q)) > g_peak) g_peak = g_live + malloc_usable_size(q);
    g_live = g_live - before + (q ? malloc_usable_size(q) : 0);
    if (g_live > g_peak) g_peak = g_live;
    return q;
}
}
#endif

namespace {

using Bytes = std::vector<std::uint8_t>;

// Heap bytes taken at the worst moment of `load`, above what was live before it.
std::size_t PeakOf(const std::function<void()>& load) {
    const std::size_t base = g_live;
    g_peak = g_live;
    load();
    return g_peak - base;
}

// A list file of one entry whose value is a list of `count` objects made by `make`.
Bytes ListFileOf(int count, const std::function<CObject*()>& make) {
    std::vector<std::unique_ptr<CObject>> items;   // the list does not own them
    auto* list = new CObList;
    for (int i = 0; i < count; ++i) list->AddTail(items.emplace_back(make()).get());
    CInvMap top;
    top.SetAt("k", list);
    unsigned char* p = nullptr;
    const int n = top.ToMemory(&p);
    Bytes bytes(p, p + n);
    std::free(p);
    return bytes;
}

template <class Map>
CObject* MapWith(int pairs) {
    auto* m = new Map;
    if (pairs) m->CMapStringToOb::SetAt("k", nullptr);
    return m;
}

// A list file of one entry whose value, of class `cls`, claims 0x7FFFFFFF elements
// (`count32`: as a message's plain 32-bit count) and holds the one `element`.
Bytes LyingCount(const std::string& cls, unsigned schema, bool count32, const std::string& element) {
    std::string b("\x01\x00\x01k\xFF\xFF", 6);
    b += static_cast<char>(schema), b += '\0', b += static_cast<char>(cls.size()), b += '\0', b += cls;
    b += count32 ? std::string("\0\0\0\0\xFF\xFF\xFF\x7F\0\0\0\0", 12)   // id, count, hidden
                 : std::string("\xFF\xFF\xFF\xFF\xFF\x7F", 6);
    b += element;
    return Bytes(b.begin(), b.end());
}

struct Shape {
    const char* name;
    Bytes bytes;
    bool isMessage = false;   // loaded as a message rather than as a list file
};

std::vector<Shape> Shapes() {
    constexpr int kCount = 100000;
    CNDKMessage strings;
    for (int i = 0; i < kCount; ++i) strings.Add(std::string());
    void* p = nullptr;
    const int n = strings.ToBuffer(&p);
    Bytes message(static_cast<std::uint8_t*>(p), static_cast<std::uint8_t*>(p) + n);
    std::free(p);
    CInvMap records;   // an ordinary list file, for comparison
    for (int i = 0; i < kCount / 10; ++i) {
        auto* pkg = new CSoftwarePackageObject;
        pkg->m_strName = "package" + std::to_string(i), pkg->m_strVersion = "1.0-" + std::to_string(i);
        pkg->m_strVendor = "Maintainers <team@example.org>", pkg->m_strDescription = "A package of the toolkit";
        records.SetAt(pkg->m_strName + "\\" + pkg->m_strVendor + "\\" + pkg->m_strVersion, pkg);
    }
    unsigned char* block = nullptr;
    const int nRecords = records.ToMemory(&block);
    Bytes recordBytes(block, block + nRecords);
    std::free(block);
    return {
        {"package records", recordBytes},
        {"empty maps", ListFileOf(kCount, [] { return MapWith<CMapStringToOb>(0); })},
        {"one-pair maps", ListFileOf(kCount, [] { return MapWith<CMapStringToOb>(1); })},
        {"empty inventory maps", ListFileOf(kCount, [] { return MapWith<CInvMap>(0); })},
        {"one-pair inventory maps", ListFileOf(kCount, [] { return MapWith<CInvMap>(1); })},
        {"empty lists", ListFileOf(kCount, [] { return new CObList; })},
        {"bare records", ListFileOf(kCount, [] { return new CListObject; })},
        {"empty strings", ListFileOf(1, [] {
             auto* a = new CStringArray;
             for (int i = 0; i < kCount; ++i) a->Add("");
             return a;
         })},
        {"list claiming 2^31 elements", LyingCount("CObList", 0, false, std::string(2, '\0'))},
        {"strings claiming 2^31", LyingCount("CStringArray", 0, false, std::string(1, '\0'))},
        {"message value claiming 2^31 elements", LyingCount("CNDKMessage", 1, true, std::string("\x0A\0", 2))},
        {"map claiming 2^31 pairs", LyingCount("CMapStringToOb", 0, false, std::string("\x01k\0\0", 4))},
        {"message of empty strings", message, true},
    };
}

// What the limit allows for n bytes, and what a load of them took (peak / n in the message).
void ExpectWithinLimit(const std::string& what, std::size_t n, std::size_t peak) {
    const std::size_t limit = 64 * n + (1u << 20);
    std::printf("%-44s %8zu bytes, heap peak %10zu (%.1f per byte)\n", what.c_str(), n, peak,
                static_cast<double>(peak) / static_cast<double>(n));
    EXPECT_LE(peak, limit) << what << ": " << n << " bytes";
}

}  // namespace

TEST(HeapPeak, HostileStreamsLoadOrAreRefusedWithinTheLimit) {
    if (!ZEV_HEAP_COUNTED) GTEST_SKIP() << "the sanitizer owns the allocation functions";
    testutil::TempDir dir;
    // A cut inside a string is refused too, rather than ending the process.
    const ArchiveAssertHandler previous = SetArchiveAssertHandler([](const char*, int) { throw new CFileException; });
    for (const Shape& shape : Shapes()) {
        // Whole, and cut by one byte, which has the load refused.
        for (const std::size_t cut : {std::size_t{0}, std::size_t{1}}) {
            const Bytes in(shape.bytes.begin(), shape.bytes.end() - static_cast<long>(cut));
            const std::string what = std::string(shape.name) + (cut ? " (cut)" : "");
            const int n = static_cast<int>(in.size());
            if (shape.isMessage) {
                bool loaded = false;
                ExpectWithinLimit(what + ", FromBuffer", in.size(), PeakOf([&] {
                    CNDKMessage m;
                    try {
                        m.FromBuffer(in.data(), n);
                        loaded = true;
                    } catch (CFileException* e) {
                        delete e;
                    }
                }));
                EXPECT_EQ(loaded, cut == 0) << what;
                continue;
            }
            bool fromMemory = false, fromFile = false, carried = false;
            ExpectWithinLimit(what + ", FromMemory", in.size(),
                              PeakOf([&] { fromMemory = CInvMap().FromMemory(in.data(), n); }));
            testutil::WriteFileBytes(dir.file("SWList.bin"), in);
            ExpectWithinLimit(what + ", FromFile", in.size(),
                              PeakOf([&] { fromFile = CInvMap().FromFile(dir.file("SWList.bin")); }));
            // The stream as a message's buffer element, and that element's block loaded in place.
            CNDKMessage outer;
            outer.AddUnc(in.data(), static_cast<unsigned int>(in.size()));
            void* p = nullptr;
            const int nMessage = outer.ToBuffer(&p);
            const std::unique_ptr<void, void (*)(void*)> block(p, std::free);
            ExpectWithinLimit(what + ", message carrying it", static_cast<std::size_t>(nMessage), PeakOf([&] {
                CNDKMessage m;
                m.FromBuffer(block.get(), nMessage);
                const CNDKDataBuffer& buffer = m.GetElements().GetAt(0).GetDataBuffer();
                carried = CInvMap().FromMemory(static_cast<const unsigned char*>(buffer.GetBuffer()),
                                               static_cast<int>(buffer.GetLength()));
            }));
            const bool whole = cut == 0 && std::string(shape.name).find("claiming") == std::string::npos;
            EXPECT_TRUE(fromMemory == whole && fromFile == fromMemory && carried == fromMemory) << what;
        }
    }
    SetArchiveAssertHandler(previous);
}
