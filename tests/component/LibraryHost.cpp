// The test programs' one handle on the built library; see LibraryHost.h.
#include "LibraryHost.h"

namespace libhost {

const Exports& Library() {
    static const auto* library = new hostshim::ComponentLibrary(ZEV_LIBSOFTWARE_PATH);
    return library->exports();
}

}  // namespace libhost
