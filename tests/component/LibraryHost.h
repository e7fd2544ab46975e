// The built libsoftware.so.0 for the tests, loaded once per process through the
// shared host loader, so that tests drive the real shared object bound to the
// host symbols of the test program itself.
#pragma once

#include "ComponentLibrary.h"

namespace libhost {

using Exports = hostshim::ComponentExports;

// Opened on first use and never closed; throws std::runtime_error when it cannot be loaded.
const Exports& Library();

}  // namespace libhost
