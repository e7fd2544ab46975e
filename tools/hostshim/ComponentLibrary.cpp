// dlopen/dlsym of the component library; see ComponentLibrary.h.
#include "ComponentLibrary.h"

#include <dlfcn.h>

#include <stdexcept>

namespace hostshim {

namespace {

// dlsym hands back void*; the exports are C functions of known types.
template <typename F>
void Bind(F& target, void* symbol) {
    static_assert(sizeof(F) == sizeof(void*), "function pointers must fit a data pointer");
    target = reinterpret_cast<F>(symbol);
}

}  // namespace

ComponentLibrary::ComponentLibrary(const std::string& path, bool keepMapped)
    : m_path(path), m_handle(nullptr), m_exports{} {
    // RTLD_NOW: the host symbols (settings, command runner) must resolve now, not mid-run.
    m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | (keepMapped ? RTLD_NODELETE : 0));
    if (!m_handle) {
        const char* why = dlerror();
        throw std::runtime_error("cannot load the component library " + path + ": " + (why ? why : "unknown error"));
    }
    try {
        Bind(m_exports.GetComponentApp, Resolve("GetComponentApp"));
        Bind(m_exports.DeleteComponentApp, Resolve("DeleteComponentApp"));
        Bind(m_exports.IsLoaded, Resolve("IsLoaded"));
        Bind(m_exports.GetID, Resolve("GetID"));
        Bind(m_exports.GetName, Resolve("GetName"));
        Bind(m_exports.GetCommands, Resolve("GetCommands"));
        Bind(m_exports.Execute, Resolve("Execute"));
        Bind(m_exports.InitClient, Resolve("InitClient"));
        Bind(m_exports.SetConfig, Resolve("SetConfig"));
        Bind(m_exports.Unload, Resolve("Unload"));
        Bind(m_exports.GetClientFileList, Resolve("GetClientFileList"));
        Bind(m_exports.Install, Resolve("Install"));
        Bind(m_exports.DataSent, Resolve("DataSent"));
        Bind(m_exports.NeedsX, Resolve("NeedsX"));
        Bind(m_exports.SetXState, Resolve("SetXState"));
        Bind(m_exports.HaltExecution, Resolve("HaltExecution"));
    } catch (...) {
        dlclose(m_handle);
        throw;
    }
}

ComponentLibrary::~ComponentLibrary() {
    if (m_handle) dlclose(m_handle);
}

void* ComponentLibrary::Resolve(const char* name) {
    dlerror();
    void* symbol = dlsym(m_handle, name);
    if (!symbol) throw std::runtime_error(m_path + " is not a component library: it does not export " + name);
    return symbol;
}

}  // namespace hostshim
