// The host-visible component interface: the abstract CBaseComponentApp whose
// virtual slot order is part of the host contract, the records the host passes
// in (HostRecords.h), the scoped MutexLock, and the declarations of the 16
// exported C entry points (defined with the concrete component, at the top).
#pragma once

#include "CompMenuList.h"
#include "HostRecords.h"
#include "message/NDKMessage.h"

#include <pthread.h>

#include <atomic>
#include <string>

#define ZEV_EXPORT __attribute__((visibility("default")))

class CStringArray;

// Locks on construction, unlocks on every way out of the scope.
class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t* pMutex) : m_pMutex(pMutex) { pthread_mutex_lock(m_pMutex); }
    ~MutexLock() { pthread_mutex_unlock(m_pMutex); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    pthread_mutex_t* m_pMutex;
};

// The flags are std::atomic<bool> (same size and layout as bool) so that
// HaltExecution from another thread is race-free.
static_assert(sizeof(std::atomic<bool>) == sizeof(bool), "atomic flag must keep the bool layout");

class CBaseComponentApp {
public:
    CBaseComponentApp();
    virtual ~CBaseComponentApp();
    virtual int GetID() = 0;
    virtual const char* GetName(int) = 0;
    virtual int GetCommands(CCompMenuList* pList) = 0;
    virtual int Execute(unsigned int command, CNDKMessage& reply, CExecuteInfo* info) = 0;
    virtual int InitClient(CInitInfo* info);
    virtual int SetConfig(CNDKMessage& message) = 0;
    virtual int UnloadClient(int) = 0;
    virtual int GetClientFileList(CStringArray& files) = 0;
    virtual int Install(int) = 0;
    virtual void DataSent(CNDKMessage& message) = 0;
    virtual int NeedsX(unsigned int command) = 0;
    // Sets the cancel flag; with `wait`, polls until no execution is marked running.
    virtual void HaltExecution(bool wait);
    virtual int InitInstance() = 0;
    virtual int ExitInstance() = 0;
    virtual int SetXState(bool);

    bool CheckExecuteCancelled() const { return m_bCancelExecute.load(); }
    void ResetExecs();

protected:
    std::atomic<bool> m_bCancelExecute;
    std::atomic<bool> m_bExecuting;   // nothing here sets it; a derived component may
};

// The single component object, or null; never creates it.
CBaseComponentApp* GetSoftwareListApp();

extern "C" {
ZEV_EXPORT CBaseComponentApp* GetComponentApp();
ZEV_EXPORT void DeleteComponentApp();
ZEV_EXPORT bool IsLoaded();
ZEV_EXPORT int GetID();
ZEV_EXPORT const char* GetName(int n);
ZEV_EXPORT int GetCommands(CCompMenuList* pList);
ZEV_EXPORT int Execute(unsigned int command, CNDKMessage& reply, CExecuteInfo* info);
ZEV_EXPORT int InitClient(CInitInfo* info);
ZEV_EXPORT int SetConfig(CNDKMessage& message);
ZEV_EXPORT int Unload(int n);
ZEV_EXPORT int GetClientFileList(CStringArray& files);
ZEV_EXPORT int Install(int n);
ZEV_EXPORT void DataSent(CNDKMessage& message);
ZEV_EXPORT int NeedsX(unsigned int command);
ZEV_EXPORT int SetXState(bool state);
ZEV_EXPORT void HaltExecution(bool wait);
}
