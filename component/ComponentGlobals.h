// Library globals of the component life cycle (one set per loaded library).
#pragma once

class CBaseComponentApp;

// The single component object, held through its base so that the layers below the
// component need not know its class; null at load and after DeleteComponentApp.
extern CBaseComponentApp* g_pSoftwareListApp;
// Set by the first GetComponentApp and never reset: a deleted component cannot be revived.
extern bool g_bLoaded;

CBaseComponentApp* GetSoftwareListApp();
