// Inventory maps from arbitrary bytes: FromMemory either refuses the data or loads
// a map whose memory form loads again to the very same bytes. The archive's
// short-string assertion, which truncated list files are meant to reach, is turned
// into a rejection so the fuzzer can explore past it.
#include "inventory/InvMap.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

[[noreturn]] void Reject(const char*, int) { throw new CFileException; }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SetArchiveAssertHandler(&Reject);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1 << 20) return 0;
    CInvMap map;
    if (!map.FromMemory(data, static_cast<int>(size))) return 0;

    unsigned char* first = nullptr;
    const int n1 = map.ToMemory(&first);
    CInvMap again;
    if (!again.FromMemory(first, n1)) std::abort();
    unsigned char* second = nullptr;
    const int n2 = again.ToMemory(&second);
    if (n1 != n2 || std::memcmp(first, second, static_cast<std::size_t>(n1)) != 0) std::abort();
    std::free(first);
    std::free(second);
    return 0;
}
