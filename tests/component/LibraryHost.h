// Loads the built libsoftware.so.0 the way the agent does (dlopen, then dlsym of
// the 16 entry points) so that tests drive the real shared object, bound to the
// host symbols of the test program itself.
#pragma once

#include "component/basecomponent.h"

class CStringArray;

namespace libhost {

struct Exports {
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

// Opened once per process and never closed; throws std::runtime_error when the
// library or one of the entry points cannot be found.
const Exports& Library();

}  // namespace libhost
