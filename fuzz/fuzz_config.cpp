// Feeds arbitrary bytes to the settings-text scanner and the line parser, and
// checks the few properties every result must have.
#include "support/Config.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    for (const auto& item : configtext::parseItems(text)) {
        // Stored keys are never empty and never start or end with a blank.
        if (item.first.empty() || item.first.front() == ' ' || item.first.back() == ' ') std::abort();
        if (item.second.find('"') != std::string::npos) std::abort();
    }

    // Each line of the text, as the loader would hand it over.
    size_t start = 0;
    std::string key, value;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        const std::string piece = text.substr(start, end - start);
        if (configtext::parseLine(piece, key, value)) {
            if (key.empty() || key.size() + 1 + value.size() != piece.size()) std::abort();
            if (key.find_first_of(" =") != std::string::npos) std::abort();
        }
        start = end + 1;
    }
    return 0;
}
