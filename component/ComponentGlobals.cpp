// The library's one component object and its loaded flag. They live here, apart
// from the exported entry points, so that the collector (which polls the object's
// cancel flag) links without the entry points.
#include "ComponentGlobals.h"

CBaseComponentApp* g_pSoftwareListApp = nullptr;
bool g_bLoaded = false;

CBaseComponentApp* GetSoftwareListApp() { return g_pSoftwareListApp; }
