// CSoftwareListApp: the object itself, InitClient and the command dispatch of
// Execute. The inventory run, the server's settings and the acknowledgement of
// a delivered reply live in InventoryRun.cpp, ServerConfig.cpp and DeliveryAck.cpp.
#include "softwarelist.h"

#include "component/FolderInfo.h"
#include "inventory/InvMap.h"
#include "support/Config.h"
#include "support/ZEVLogger.h"

namespace {

const unsigned int kCommandInventory = 0;
const unsigned int kCommandFullInventory = 10;
const unsigned int kFlagStartup = 0x100;   // the host's own run at agent start-up

}  // namespace

CSoftwareListApp::CSoftwareListApp() {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_Mutex, &attr);
    pthread_mutexattr_destroy(&attr);
}

CSoftwareListApp::~CSoftwareListApp() { pthread_mutex_destroy(&m_Mutex); }

std::string CSoftwareListApp::ConfigPath() const {
    return FolderInfo::getFolder(m_strHomePath, FolderInfo::Data) + ".Software_Inventory_Config";
}

int CSoftwareListApp::InitClient(CInitInfo* info) {
    CBaseComponentApp::InitClient(info);
    if (!info) return 1;

    if (info->m_bInit) {
        m_strHomePath = info->m_strHomePath;
        const std::string lists = FolderInfo::getFolder(m_strHomePath, FolderInfo::Lists);
        m_strListFile = lists + "SWList.bin";
        m_strChangeFile = lists + "SWChange.bin";
        m_strPackageFile = lists + "SWPackage.bin";

        Config config(ConfigPath().c_str());
        if (config.getIntValue("Logging", 0) == 1) {
            // A repeated initialisation replaces the writer rather than leaking it.
            delete m_pLogger;
            m_pLogger = new CZEVLogger(FolderInfo::getFolder(m_strHomePath, FolderInfo::Data) + "Software.log");
        }
    } else {
        // The pending package map stays: DataSent may still store it.
        delete m_pNewList;
        m_pNewList = nullptr;
        delete m_pLogger;
        m_pLogger = nullptr;
    }
    return 1;
}

int CSoftwareListApp::Execute(unsigned int command, CNDKMessage& reply, CExecuteInfo* info) {
    switch (command & 0xFFFF) {
    case kCommandInventory:
        if (info && (info->m_dwFlags & kFlagStartup)) {
            Config config(ConfigPath().c_str());
            if (config.getIntValue("RunAtStartup", 1) == 0) return 0;
        }
        return EnumSoftware(reply, info) ? 3 : 0;

    case kCommandFullInventory: {
        // A host that passes no record still gets the full inventory it asked for.
        CExecuteInfo local(true, 0, nullptr);
        CExecuteInfo* record = info ? info : &local;
        record->m_bFullRefresh = true;
        return EnumSoftware(reply, record) ? 3 : 0;
    }

    default:
        return 0;
    }
}
