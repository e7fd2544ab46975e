// Library globals of the component life cycle (one set per loaded library).
#pragma once

class CSoftwareListApp;

// The single component object; null at load and after DeleteComponentApp.
extern CSoftwareListApp* g_pSoftwareListApp;
// Set by the first GetComponentApp and never reset: a deleted component cannot be revived.
extern bool g_bLoaded;

CSoftwareListApp* GetSoftwareListApp();
