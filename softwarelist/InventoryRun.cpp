// The inventory run behind Execute commands 0 and 10: collect the software and
// package maps, compare them under the component's mutex with the lists stored
// by the last acknowledged run, and append the 17-element reply. The new maps
// stay pending until DataSent makes them the baseline.
#include "softwarelist.h"

#include "archive/File.h"
#include "collector/softwarecollector.h"
#include "component/FolderInfo.h"
#include "inventory/InvMap.h"
#include "support/Config.h"
#include "support/ZEVLogger.h"

#include <cstdlib>
#include <ctime>
#include <memory>
#include <vector>

namespace {

const int kModePackages = 1;
const int kModeExecutables = 2;
const int kModeFiles = 4;

// Pieces before each bar (empty ones too), then the rest after the last bar if it
// is not empty. "" gives nothing, a value without a bar gives itself.
std::vector<std::string> SplitFolders(const std::string& value) {
    std::vector<std::string> pieces;
    std::string::size_type start = 0;
    std::string::size_type bar;
    while ((bar = value.find('|', start)) != std::string::npos) {
        pieces.push_back(value.substr(start, bar - start));
        start = bar + 1;
    }
    if (start < value.size()) pieces.push_back(value.substr(start));
    return pieces;
}

// Element pair of the reply: the map's uncompressed byte length, then the block.
void AddMapBlock(CNDKMessage& reply, CInvMap& map) {
    unsigned char* pBuffer = nullptr;
    const int nLength = map.ToMemory(&pBuffer);
    std::unique_ptr<unsigned char, decltype(&std::free)> guard(pBuffer, &std::free);
    const unsigned int nBytes = nLength > 0 ? static_cast<unsigned int>(nLength) : 0;
    reply.Add(nBytes);
    reply.Add(static_cast<const void*>(pBuffer), nBytes);
}

// Loads a stored list; a missing or unreadable one counts as empty and raises the flag.
short LoadStored(CInvMap& map, const std::string& path) {
    if (map.FromFile(path)) return 0;
    map.CleanMap();   // a half-read file must not leave entries behind a raised flag
    return 1;
}

// Appends the add, delete and change maps of `current` against `stored`.
void AddDifferences(CNDKMessage& reply, CInvMap& current, const CInvMap& stored) {
    CInvMap add, del, change;
    current.CreateAddMap(&stored, &add);
    current.CreateDeleteMap(&stored, &del);
    current.CreateChangeMap(&stored, &change);
    AddMapBlock(reply, add);
    AddMapBlock(reply, del);
    AddMapBlock(reply, change);
}

}  // namespace

int CSoftwareListApp::EnumSoftware(CNDKMessage& reply, CExecuteInfo* info) {
    if (m_pLogger) m_pLogger->log("Enum Software");

    Config config(ConfigPath().c_str());
    const int nMode = config.getIntValue("Mode", 1);
    // Only 1 asks the package manager once for all packages; anything else queries each one.
    // Deliberate: on by default, since the records, lists and replies are the same to the byte.
    const bool bBatchQuery = config.getIntValue("BatchQuery", 1) == 1;

    std::unique_ptr<CInvMap> pNew(new CInvMap);
    std::unique_ptr<CInvMap> pPackages(new CInvMap);
    CSoftwareCollector collector;
    collector.SetPackageMap(pPackages.get());
    collector.SetBatchQuery(bBatchQuery);
    if (m_pLogger) collector.SetLogger(m_pLogger);
    collector.SetSources(config.getValue("Sources"));

    char szTime[200] = "";
    const time_t now = time(nullptr);
    struct tm local;
    if (localtime_r(&now, &local)) strftime(szTime, sizeof szTime, "%d %b %Y %X", &local);
    m_strScanTime = szTime;

    if (nMode & kModePackages) {
        if (m_pLogger) m_pLogger->log("Scan Packages");
        if (!collector.ScanPackages(pNew.get())) {
            if (m_pLogger) m_pLogger->log("Scan Packages failed");
            return 0;
        }
    }

    if (nMode & kModeExecutables) {
        if (m_pLogger) m_pLogger->log("Additional Scan Exes");
        std::string strInclude = config.getValue("Include");
        if (strInclude.empty()) strInclude = "/home/";
        std::string strCheck;
        std::string strExclude;
        for (std::string& strStart : SplitFolders(strInclude))
            collector.GetFiles(strCheck, strStart, strExclude, pNew.get(), false, 0, 0);
    }

    if (nMode & kModeFiles) {
        std::string strScan = config.getValue("Scan");
        if (strScan.empty()) strScan = "*.jpg|*.bmp";
        const int nInSelected = config.getIntValue("ExtInSelected", 1);
        const int nLeastMost = config.getIntValue("LeastMost", 0);
        const int nSizeKB = config.getIntValue("SizeKB", 0);
        if (nInSelected) {
            const std::string strIncExt = config.getValue("IncExt");
            std::string strExclude;
            if (strIncExt.find("/usr/windows") == std::string::npos) strExclude = "/usr/windows";
            for (std::string& strStart : SplitFolders(strIncExt))
                collector.GetFiles(strScan, strStart, strExclude, pNew.get(), true, nLeastMost, nSizeKB);
        } else {
            std::string strExclude = config.getValue("Exclude");
            std::string strStart;   // empty: the collector walks from "/"
            collector.GetFiles(strScan, strStart, strExclude, pNew.get(), true, nLeastMost, nSizeKB);
        }
    }

    // From here on the pending maps and the list files are touched: DataSent must wait.
    MutexLock lock(&m_Mutex);
    // Deliberate: a full inventory discards the stored lists only once the package list was
    // had, so a failing package manager leaves the baseline as it was.
    if (info && info->m_bFullRefresh) {
        CFile::Remove(m_strListFile.c_str());
        CFile::Remove(m_strChangeFile.c_str());
        CFile::Remove(m_strPackageFile.c_str());
    }
    if (CheckExecuteCancelled()) return 0;

    CInvMap stored;
    const short nSoftwareFlag = LoadStored(stored, m_strListFile);
    delete m_pNewList;
    m_pNewList = pNew.release();
    // A halt that arrives now still leaves the new map pending for DataSent.
    if (CheckExecuteCancelled()) return 0;

    reply.LimitSize(4);
    reply.Add(m_strScanTime);
    AddDifferences(reply, *m_pNewList, stored);
    stored.CleanMap();
    // Element 9 is always an empty map; the receiver's layout expects it.
    CInvMap empty;
    AddMapBlock(reply, empty);
    reply.Add(nSoftwareFlag);

    delete m_pNewPackageList;
    m_pNewPackageList = pPackages.release();
    CInvMap storedPackages;
    const short nPackageFlag = LoadStored(storedPackages, m_strPackageFile);
    AddDifferences(reply, *m_pNewPackageList, storedPackages);
    reply.Add(nPackageFlag);
    return 1;
}
