// Writes a message holding one element of every type the message creates plus
// two blocks (99 bytes raw, 4000 bytes compressed) as its ToBuffer bytes, and a
// JSON list of what went in, for the independent reader to check against.
// Usage: message_wire_sample OUT.bin OUT.json
#include "message/NDKMessage.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::string HexOf(const void* data, size_t n) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < n; ++i) {
        const unsigned char b = static_cast<const unsigned char*>(data)[i];
        hex += digits[b >> 4];
        hex += digits[b & 15];
    }
    return hex;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s OUT.bin OUT.json\n", argv[0]);
        return 2;
    }
    CNDKMessage message(-1234567);
    nlohmann::json written = nlohmann::json::array();
    auto scalar = [&](int code, auto value, nlohmann::json expected) {
        message.Add(value);
        written.push_back({{"type", code}, {"value", expected}});
    };
    scalar(NDKUChar, static_cast<unsigned char>(0xC3), 0xC3);
    scalar(NDKChar, static_cast<char>(-7), -7);
    scalar(NDKUShort, static_cast<unsigned short>(0xFEDC), 0xFEDC);
    scalar(NDKShort, static_cast<short>(-32768), -32768);
    scalar(NDKUInt, 0xFFFFFFFEu, 0xFFFFFFFEu);
    scalar(NDKInt, -2147483647 - 1, -2147483647 - 1);
    scalar(NDKFloat, -0.15625f, -0.15625);
    scalar(NDKDouble, 6.02214076e23, 6.02214076e23);
    scalar(NDKUInt64, 0xFEDCBA9876543210ULL, 0xFEDCBA9876543210ULL);

    // Latin-1 bytes and a 300-byte length (the 0xFF escape of the string prefix).
    std::string text = "Caf\xE9 \x01\x7F|";
    text += std::string(300 - text.size(), 'x');
    message.Add(text);
    written.push_back({{"type", NDKString}, {"hex", HexOf(text.data(), text.size())}});

    const unsigned char raw[5] = {0x00, 0xFF, 0x10, 0x80, 0x7F};
    message.AddUnc(raw, sizeof raw);
    written.push_back({{"type", NDKBuffer}, {"hex", HexOf(raw, sizeof raw)}});

    for (unsigned int size : {99u, 4000u}) {
        std::vector<unsigned char> block(size);
        unsigned int state = size;
        for (unsigned char& b : block) {   // half text-like, half noise: compresses, but not to nothing
            state = state * 1103515245u + 12345u;
            b = (&b - block.data()) % 2 ? static_cast<unsigned char>('a' + (state >> 16) % 4)
                                        : static_cast<unsigned char>(state >> 24);
        }
        message.Add(block.data(), size);
        written.push_back({{"block", size}, {"hex", HexOf(block.data(), size)}});
    }

    void* buffer = nullptr;
    const int length = message.ToBuffer(&buffer);
    std::ofstream(argv[1], std::ios::binary).write(static_cast<const char*>(buffer), length);
    std::free(buffer);
    const nlohmann::json summary = {{"id", message.GetId()},
                                    {"hidden", message.GetHiddenElements()},
                                    {"count", message.GetElements().GetSize()},
                                    {"written", written}};
    std::ofstream(argv[2]) << summary.dump(1) << "\n";
    return 0;
}
