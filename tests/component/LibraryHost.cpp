// dlopen of the built library and resolution of its entry points.
#include "LibraryHost.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace libhost {

namespace {

template <typename Fn>
void Resolve(void* handle, const char* name, Fn& slot) {
    void* symbol = dlsym(handle, name);
    if (!symbol) throw std::runtime_error(std::string("missing entry point ") + name);
    slot = reinterpret_cast<Fn>(symbol);
}

Exports Load() {
    void* handle = dlopen(ZEV_LIBSOFTWARE_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* error = dlerror();
        throw std::runtime_error(std::string("dlopen failed: ") + (error ? error : "?"));
    }
    Exports e{};
    Resolve(handle, "GetComponentApp", e.GetComponentApp);
    Resolve(handle, "DeleteComponentApp", e.DeleteComponentApp);
    Resolve(handle, "IsLoaded", e.IsLoaded);
    Resolve(handle, "GetID", e.GetID);
    Resolve(handle, "GetName", e.GetName);
    Resolve(handle, "GetCommands", e.GetCommands);
    Resolve(handle, "Execute", e.Execute);
    Resolve(handle, "InitClient", e.InitClient);
    Resolve(handle, "SetConfig", e.SetConfig);
    Resolve(handle, "Unload", e.Unload);
    Resolve(handle, "GetClientFileList", e.GetClientFileList);
    Resolve(handle, "Install", e.Install);
    Resolve(handle, "DataSent", e.DataSent);
    Resolve(handle, "NeedsX", e.NeedsX);
    Resolve(handle, "SetXState", e.SetXState);
    Resolve(handle, "HaltExecution", e.HaltExecution);
    return e;
}

}  // namespace

const Exports& Library() {
    static const Exports exports = Load();
    return exports;
}

}  // namespace libhost
