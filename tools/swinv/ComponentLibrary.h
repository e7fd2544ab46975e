// libsoftware.so.0 loaded the way the agent loads it: dlopen, then dlsym of each
// of the 16 exported entry points. The handle is closed when the object goes.
#pragma once

#include "component/basecomponent.h"

#include <string>

namespace swinv {

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
    // Throws SwinvError when the file cannot be loaded or lacks an export.
    explicit ComponentLibrary(const std::string& path);
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

}  // namespace swinv
