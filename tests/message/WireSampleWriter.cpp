// Writes the ToBuffer bytes of a message holding one element of every type the
// message creates and two blocks (99 bytes raw, 4000 compressed), for
// check_wire_sample.py, which knows the same values.  Usage: message_wire_sample OUT
#include "message/NDKMessage.h"

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    CNDKMessage message(-1234567);
    message.Add(static_cast<unsigned char>(0xC3));
    message.Add(static_cast<char>(-7));
    message.Add(static_cast<unsigned short>(0xFEDC));
    message.Add(static_cast<short>(-32768));
    message.Add(0xFFFFFFFEu);
    message.Add(-2147483647 - 1);
    message.Add(-0.15625f);
    message.Add(6.02214076e23);
    message.Add(0xFEDCBA9876543210ULL);
    message.Add("Caf\xE9 \x01\x7F|" + std::string(292, 'x'));   // Latin-1, and the 0xFF length escape
    message.AddUnc("\x00\xFF\x10\x80\x7F", 5);
    for (unsigned size : {99u, 4000u}) {
        std::vector<unsigned char> block(size);   // half text-like, half noise
        for (unsigned i = 0; i < size; ++i)
            block[i] = static_cast<unsigned char>(i % 2 ? 'a' + i * i % 7 : i * i * 31 % 251);
        message.Add(block.data(), size);
    }
    void* buffer = nullptr;
    const int length = message.ToBuffer(&buffer);
    std::ofstream(argv[1], std::ios::binary).write(static_cast<const char*>(buffer), length);
    std::free(buffer);
}
