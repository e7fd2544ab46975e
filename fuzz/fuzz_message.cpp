// Message buffers from arbitrary bytes: FromBuffer either throws CFileException*
// or loads a message whose ToBuffer bytes load again to the very same bytes.
// Every element is then read back through the cursor, compressed blocks included.
// The archive's short-string assertion is deliberately left in place: FromBuffer
// checks the layout before reading, so reaching that assertion here is a bug.
#include "message/NDKMessage.h"
#include "LoadMessage.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

std::vector<unsigned char> ToBytes(CNDKMessage& message) {
    void* block = nullptr;
    const int n = message.ToBuffer(&block);
    std::vector<unsigned char> bytes(static_cast<unsigned char*>(block), static_cast<unsigned char*>(block) + n);
    std::free(block);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1 << 20) return 0;
    CNDKMessage message;
    if (!LoadMessage(message, data, size)) return 0;

    const std::vector<unsigned char> first = ToBytes(message);
    CNDKMessage again;
    again.FromBuffer(first.data(), static_cast<int>(first.size()));   // must not throw
    const std::vector<unsigned char> second = ToBytes(again);
    if (first != second) std::abort();

    std::vector<unsigned char> out(4096);
    while (!message.IsLastCurrentIndex()) message.GetNext(out.data(), static_cast<unsigned int>(out.size()));
    return 0;
}
