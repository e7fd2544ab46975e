// The built libsoftware.so.0, loaded once per process through the shared host loader and never closed.
#pragma once

#include "ComponentLibrary.h"

namespace libhost {

using Exports = hostshim::ComponentExports;

// Throws std::runtime_error when the library cannot be loaded.
inline const Exports& Library() {
    static const auto* library = new hostshim::ComponentLibrary(ZEV_LIBSOFTWARE_PATH);
    return library->exports();
}

}  // namespace libhost
