// libsoftware.so.0 loaded the way the agent loads it: dlopen, then dlsym of each
// of the 16 exported entry points. Shared by swinv and the tests, so that both
// drive the real shared object bound to the host symbols of their own executable.
#pragma once

#include "component/basecomponent.h"

#include <string>

class CStringArray;

namespace hostshim {

// Function types of the exports, as declared in basecomponent.h.
struct ComponentExports {
    CBaseComponentApp* (*GetComponentApp)();
    void (*DeleteComponentApp)();
    bool (*IsLoaded)();
    int (*GetID)();
    const char* (*GetName)(int);
    int (*GetCommands)(CCompMenuList*);
    int (*Execute)(unsigned int, CNDKMessage&, CExecuteInfo*);
    int (*InitClient)(CInitInfo*);
    int (*SetConfig)(CNDKMessage&);
    int (*Unload)(int);
    int (*GetClientFileList)(CStringArray&);
    int (*Install)(int);
    void (*DataSent)(CNDKMessage&);
    int (*NeedsX)(unsigned int);
    int (*SetXState)(bool);
    void (*HaltExecution)(bool);
};

class ComponentLibrary {
public:
    // Throws std::runtime_error naming the file when it cannot be loaded or lacks an export.
    // `keepMapped` (RTLD_NODELETE) leaves the code mapped after dlclose, so exit-time reports can name it.
    explicit ComponentLibrary(const std::string& path, bool keepMapped = false);
    ~ComponentLibrary();
    ComponentLibrary(const ComponentLibrary&) = delete;
    ComponentLibrary& operator=(const ComponentLibrary&) = delete;

    const ComponentExports& exports() const { return m_exports; }
    const std::string& path() const { return m_path; }

private:
    void* Resolve(const char* name);

    std::string m_path;
    void* m_handle;
    ComponentExports m_exports;
};

}  // namespace hostshim
