// CSoftwareListApp: the "Software Inventory" component. It owns the list file
// paths, the maps of the last inventory run until the host acknowledges their
// delivery, the log writer, and the recursive mutex that keeps an inventory
// run's comparison phase and an acknowledgement apart.
#pragma once

#include "component/basecomponent.h"

#include <pthread.h>

#include <string>

class CInvMap;
class CZEVLogger;

class CSoftwareListApp : public CBaseComponentApp {
public:
    CSoftwareListApp();
    // Releases neither the logger nor the pending maps: InitClient(false) and DataSent do.
    ~CSoftwareListApp() override;

    int GetID() override { return 4; }
    const char* GetName(int) override { return "Software Inventory"; }
    int GetCommands(CCompMenuList*) override { return 0; }
    int Execute(unsigned int command, CNDKMessage& reply, CExecuteInfo* info) override;
    int InitClient(CInitInfo* info) override;
    int SetConfig(CNDKMessage& message) override;
    int UnloadClient(int) override { return 1; }
    int GetClientFileList(CStringArray&) override { return 0; }
    int Install(int) override { return 1; }
    void DataSent(CNDKMessage& message) override;
    int NeedsX(unsigned int) override { return 0; }
    int InitInstance() override { return 1; }
    int ExitInstance() override { return 1; }

    // The inventory run behind commands 0 and 10; nonzero when the reply holds an inventory.
    int EnumSoftware(CNDKMessage& reply, CExecuteInfo* info);

    // Read-only views for tests and diagnostics.
    CInvMap* PendingSoftware() const { return m_pNewList; }
    CInvMap* PendingPackages() const { return m_pNewPackageList; }

private:
    std::string ConfigPath() const;

    std::string m_strHomePath;
    CZEVLogger* m_pLogger = nullptr;
    std::string m_strListFile;
    std::string m_strPackageFile;
    std::string m_strChangeFile;
    CInvMap* m_pNewList = nullptr;
    CInvMap* m_pNewPackageList = nullptr;
    std::string m_strScanTime;
    pthread_mutex_t m_Mutex;
};
