// Pinning the library's own image; see ImagePin.h. The count cannot be watched
// after the unload (code here may not dlclose itself, nor run once unmapped), so
// the choice is made at the component's deletion and holds for the process: a
// host that frees what the component made before Unload gets a real unload.
#include "ImagePin.h"

#include "message/NDKMessageData.h"

#include <dlfcn.h>

void PinImageWhileElementsLive() {
    if (CNDKElementTally::Live() == 0) return;
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&PinImageWhileElementsLive), &self) == 0 || self.dli_fname == nullptr) return;
    // The name the loader recorded for this image: RTLD_NOLOAD finds it without opening any file,
    // and the extra reference it takes is given back at once; the NODELETE mark stays.
    if (void* handle = dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE)) dlclose(handle);
}
