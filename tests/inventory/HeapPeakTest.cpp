// Heap peak of loading hostile streams: any list file, memory block or message of n bytes loads, or is
// refused, within 64·n + 1 MiB of heap. The allocation functions of this program count live bytes; CMake
// leaves them out (and the test skips) when a sanitizer owns them.
#include "../archive/ArchiveBytes.h"
#include "../message/MessageBytes.h"
#include "inventory/InvMap.h"

#include "TestUtil.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

static std::size_t g_live = 0, g_peak = 0;

#ifdef ZEV_HEAP_COUNTED
// malloc, calloc and realloc (operator new included) come here; sizes are what glibc really handed out.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);

static void* Counted(void* p) {
    if (p && (g_live += malloc_usable_size(p)) > g_peak) g_peak = g_live;
    return p;
}
void* malloc(std::size_t n) { return Counted(__libc_malloc(n)); }
void* calloc(std::size_t n, std::size_t size) { return Counted(__libc_calloc(n, size)); }
void free(void* p) {
    if (p) g_live -= malloc_usable_size(p);
    __libc_free(p);
}
void* realloc(void* p, std::size_t n) {
    const std::size_t before = p ? malloc_usable_size(p) : 0;
    void* q = __libc_realloc(p, n);
    if (!q && n) return q;   // failed: the old block stays
    Counted(q);              // counted before the old block goes: a moved block was briefly there twice
    g_live -= before;
    return q;
}
}
#endif

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr int kCount = 100000;

// A list file of one entry whose value is a list of `count` objects made by `make`.
Bytes ListFileOf(int count, const std::function<CObject*()>& make) {
    std::vector<std::unique_ptr<CObject>> items;   // the list does not own them
    auto* list = new CObList;
    for (int i = 0; i < count; ++i) list->AddTail(items.emplace_back(make()).get());
    CInvMap top;
    top.SetAt("k", list);
    unsigned char* p = nullptr;
    const int n = top.ToMemory(&p);
    const Bytes bytes(p, p + n);
    std::free(p);
    return bytes;
}

// A list file of one entry "k" whose value, of class `cls`, goes on with what the caller adds.
ArchiveBytes Claiming(const std::string& cls, std::uint16_t schema) { return ArchiveBytes().u16(1).str("k").cls(schema, cls); }

}  // namespace

TEST(HeapPeak, HostileStreamsLoadOrAreRefusedWithinTheLimit) {
#ifndef ZEV_HEAP_COUNTED
    GTEST_SKIP() << "the sanitizer owns the allocation functions";
#endif
    // A message value claims by identifier, count (as many as there could be room for), hidden count, empty string.
    const struct { const char* name; Bytes bytes; bool isMessage; } shapes[] = {
        {"empty maps", ListFileOf(kCount, [] { return new CMapStringToOb; }), false},
        {"one-pair maps", ListFileOf(kCount, [] { auto* m = new CMapStringToOb; m->SetAt("k", nullptr); return m; }), false},
        {"list claiming 2^31 elements", Claiming("CObList", 0).u16(0xFFFF).u32(0x7FFFFFFF).u16(0).b, false},
        {"strings claiming 2^32-1", Claiming("CStringArray", 0).u16(0xFFFF).u32(0xFFFFFFFF).str("a").b, false},
        {"string claiming 2^31 bytes", Claiming("CStringArray", 0).u16(1).u8(0xFF).u16(0xFFFF).u32(0x7FFFFFF0).raw("tiny").b,
         false},
        {"message value claiming 2^24 elements", Claiming("CNDKMessage", 1).u32(0).u32(0xFFFFFF).u32(0).u8(0x0A).u8(0).b, false},
        {"message of empty strings", [] {
             CNDKMessage m;
             for (int i = 0; i < kCount; ++i) m.Add(std::string());
             return ToBytes(m);
         }(), true}};
    testutil::TempDir dir;
    const std::string file = dir.file("SWList.bin");
    // A cut inside a string is refused too, rather than ending the process.
    const ArchiveAssertHandler previous = SetArchiveAssertHandler([](const char*, int) { throw new CFileException; });
    for (const auto& shape : shapes) {
        for (const bool cut : {false, true}) {   // whole, and cut by one byte, which has the load refused
            const Bytes in(shape.bytes.begin(), shape.bytes.end() - cut);
            const auto measure = [&](const char* how, std::size_t n, const std::function<bool()>& load) {
                const std::size_t base = g_live;
                g_peak = g_live;
                const bool loaded = load();
                const std::size_t peak = g_peak - base;
                const std::string what = std::string(shape.name) + (cut ? " (cut), " : ", ") + how;
                EXPECT_LE(peak, 64 * n + (1u << 20)) << what;
                EXPECT_EQ(loaded, !cut && !std::strstr(shape.name, "claiming")) << what;
            };
            CNDKMessage m, outer;
            if (shape.isMessage) {
                measure("FromBuffer", in.size(), [&] { return Load(m, in); });
                continue;
            }
            measure("FromMemory", in.size(), [&] { return CInvMap().FromMemory(in.data(), static_cast<int>(in.size())); });
            testutil::WriteFileBytes(file, in);
            measure("FromFile", in.size(), [&] { return CInvMap().FromFile(file); });
            outer.AddUnc(in.data(), static_cast<unsigned int>(in.size()));   // in a message's buffer element, loaded in place
            const Bytes carrier = ToBytes(outer);
            measure("message carrying it", carrier.size(), [&] {
                const CNDKDataBuffer& b = (Load(m, carrier), m.GetElements().GetAt(0).GetDataBuffer());
                return CInvMap().FromMemory(static_cast<const unsigned char*>(b.GetBuffer()), static_cast<int>(b.GetLength()));
            });
        }
    }
    SetArchiveAssertHandler(previous);
}
