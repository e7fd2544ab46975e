// How the fuzz targets turn their input into a message: FromBuffer refuses bytes
// that are no message by throwing CFileException*; such inputs are simply skipped.
#pragma once

#include "archive/arcobj.h"
#include "message/NDKMessage.h"

#include <cstddef>
#include <cstdint>

// True when `data` loaded into `message`; false when FromBuffer refused it.
inline bool LoadMessage(CNDKMessage& message, const std::uint8_t* data, std::size_t size) {
    try {
        message.FromBuffer(data, static_cast<int>(size));
        return true;
    } catch (CFileException* e) {
        delete e;
        return false;
    }
}
