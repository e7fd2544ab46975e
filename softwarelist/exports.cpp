// The 16 C entry points through which the host drives the component. Each one
// fetches the single component object and forwards to one virtual operation;
// with no object it returns its null value. The object is created once per
// loaded library: g_bLoaded is never reset, so a deleted component stays gone.
#include "ImagePin.h"
#include "component/ComponentGlobals.h"
#include "component/basecomponent.h"
#include "softwarelist.h"

extern "C" {

CBaseComponentApp* GetComponentApp() {
    if (!g_bLoaded) {
        g_bLoaded = true;
        g_pSoftwareListApp = new CSoftwareListApp;
        g_pSoftwareListApp->InitInstance();   // result ignored
    }
    return g_pSoftwareListApp;
}

void DeleteComponentApp() {
    if (!g_bLoaded) return;
    delete g_pSoftwareListApp;
    g_pSoftwareListApp = nullptr;
    // The component is gone for good; only elements it left with the host may still need its code.
    PinImageWhileElementsLive();
}

bool IsLoaded() { return g_bLoaded; }

int GetID() {
    CBaseComponentApp* app = GetComponentApp();
    return app ? app->GetID() : 0;
}

const char* GetName(int n) {
    CBaseComponentApp* app = GetComponentApp();
    return app ? app->GetName(n) : nullptr;
}

int GetCommands(CCompMenuList* pList) {
    CBaseComponentApp* app = GetComponentApp();
    return app ? app->GetCommands(pList) : 0;
}

int Execute(unsigned int command, CNDKMessage& reply, CExecuteInfo* info) {
    CBaseComponentApp* app = GetComponentApp();
    return app ? app->Execute(command, reply, info) : 0;
}

int InitClient(CInitInfo* info) {
    CBaseComponentApp* app = GetComponentApp();
    if (!app || !info) return 0;
    if (info->m_bInit) app->ResetExecs();
    return app->InitClient(info);
}

int SetConfig(CNDKMessage& message) {
    CBaseComponentApp* app = GetComponentApp();
    return app ? app->SetConfig(message) : 0;
}

int Unload(int n) {
    if (!IsLoaded()) return 1;
    CBaseComponentApp* app = GetComponentApp();
    if (!app) return 1;
    if (app->UnloadClient(n) == 0) return 0;
    DeleteComponentApp();
    return 1;
}

int GetClientFileList(CStringArray& files) {
    CBaseComponentApp* app = GetComponentApp();
    return app ? app->GetClientFileList(files) : 0;
}

int Install(int n) {
    CBaseComponentApp* app = GetComponentApp();
    return app ? app->Install(n) : 0;
}

void DataSent(CNDKMessage& message) {
    CBaseComponentApp* app = GetComponentApp();
    if (app) app->DataSent(message);
}

int NeedsX(unsigned int command) {
    CBaseComponentApp* app = GetComponentApp();
    return app ? app->NeedsX(command) : 0;
}

int SetXState(bool state) {
    CBaseComponentApp* app = GetComponentApp();
    return app ? app->SetXState(state) : 0;
}

void HaltExecution(bool wait) {
    CBaseComponentApp* app = GetComponentApp();
    if (app) app->HaltExecution(wait);
}

}  // extern "C"
