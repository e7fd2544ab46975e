// DataSent: the host reports that the last reply reached the server, so the
// pending maps of that run become the stored baseline ("SWList.bin",
// "SWPackage.bin"). With no pending software map, a change file left by earlier
// software is promoted instead.
#include "softwarelist.h"

#include "inventory/InvMap.h"
#include "support/ZEVLogger.h"

#include <cerrno>
#include <cstring>

namespace {

// Writes one pending map to its list file. A failed write keeps the old file whole and is
// logged with the system's reason; the map is released all the same.
void Store(CInvMap& map, const std::string& path, CZEVLogger* pLogger) {
    if (pLogger) pLogger->log("Writing to file [%s]", path.c_str());
    if (!map.ToFile(path) && pLogger) pLogger->log("Writing to file [%s] failed: %s", path.c_str(), std::strerror(errno));
}

}  // namespace

void CSoftwareListApp::DataSent(CNDKMessage&) {
    MutexLock lock(&m_Mutex);
    if (m_pLogger) m_pLogger->log("Datasent called. Saving new list");

    if (!m_pNewList) {
        CInvMap* pChange = new CInvMap;
        if (!pChange->FromFile(m_strChangeFile)) {
            // A failed fallback ends the acknowledgement; the package map is not looked at.
            delete pChange;
            return;
        }
        m_pNewList = pChange;
    }

    if (m_pNewList) {
        // A failed write is not retried: the next run compares with the old file and re-sends the same differences.
        Store(*m_pNewList, m_strListFile, m_pLogger);
        delete m_pNewList;
        m_pNewList = nullptr;
    } else if (m_pLogger) {
        m_pLogger->log("m_pNewList is NULL in DataSent");
    }

    if (m_pNewPackageList) {
        Store(*m_pNewPackageList, m_strPackageFile, m_pLogger);
        delete m_pNewPackageList;
        m_pNewPackageList = nullptr;
    } else if (m_pLogger) {
        m_pLogger->log("m_pNewPackageList is NULL in DataSent");
    }
}
