// DataSent: the host reports that the last reply reached the server, so the
// pending maps of that run become the stored baseline ("SWList.bin",
// "SWPackage.bin"). With no pending software map, a change file left by earlier
// software is promoted instead.
#include "softwarelist.h"

#include "inventory/InvMap.h"
#include "support/ZEVLogger.h"

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
        if (m_pLogger) m_pLogger->log("Writing to file [%s]", m_strListFile.c_str());
        // Not tested on purpose: a failed write re-sends the same differences next run.
        m_pNewList->ToFile(m_strListFile);
        delete m_pNewList;
        m_pNewList = nullptr;
    } else if (m_pLogger) {
        m_pLogger->log("m_pNewList is NULL in DataSent");
    }

    if (m_pNewPackageList) {
        if (m_pLogger) m_pLogger->log("Writing to file [%s]", m_strPackageFile.c_str());
        m_pNewPackageList->ToFile(m_strPackageFile);
        delete m_pNewPackageList;
        m_pNewPackageList = nullptr;
    } else if (m_pLogger) {
        m_pLogger->log("m_pNewPackageList is NULL in DataSent");
    }
}
