// A message's wire bytes and loading them back, shared by the message and heap-peak tests.
#pragma once

#include "message/NDKMessage.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

inline std::vector<std::uint8_t> ToBytes(CNDKMessage& message) {
    void* block = nullptr;
    const int n = message.ToBuffer(&block);
    std::vector<std::uint8_t> bytes(static_cast<std::uint8_t*>(block), static_cast<std::uint8_t*>(block) + n);
    std::free(block);
    return bytes;
}

// True when FromBuffer loaded, false when it threw CFileException*.
inline bool Load(CNDKMessage& message, const std::vector<std::uint8_t>& bytes) {
    try {
        message.FromBuffer(bytes.data(), static_cast<int>(bytes.size()));
        return true;
    } catch (CFileException* e) {
        delete e;
        return false;
    }
}
