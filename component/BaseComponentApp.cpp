// Default operations of the abstract component.
#include "basecomponent.h"

#include <unistd.h>

CBaseComponentApp::CBaseComponentApp() : m_bCancelExecute(false), m_bExecuting(false) {}

CBaseComponentApp::~CBaseComponentApp() = default;

int CBaseComponentApp::InitClient(CInitInfo*) {
    m_bCancelExecute = false;
    m_bExecuting = false;
    return 1;
}

void CBaseComponentApp::HaltExecution(bool wait) {
    m_bCancelExecute = true;
    if (wait) {
        while (m_bExecuting) usleep(10);
    }
}

int CBaseComponentApp::SetXState(bool) { return 1; }

void CBaseComponentApp::ResetExecs() {
    m_bExecuting = false;
    m_bCancelExecute = false;
}
