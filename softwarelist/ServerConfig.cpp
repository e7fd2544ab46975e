// SetConfig: the server's settings for the software inventory. A settings text
// is merged into ".Software_Inventory_Config" (read afresh by every run) and the
// extra search paths that follow it are stored as a string array in "swsearch.bin".
#include "softwarelist.h"

#include "archive/arcobj.h"
#include "component/FolderInfo.h"
#include "support/Config.h"
#include "support/ZEVLogger.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

// No server sends settings anywhere near this; a larger length element is a
// corrupt message and must not turn into a huge allocation.
const unsigned int kMaxSettingsText = 16u * 1024u * 1024u;
// Worst case of the deflate format: one compressed byte expands to at most 1032.
const unsigned long long kMaxInflateRatio = 1032;

// Reads the block that follows the length element with GetNext(void*, L), whatever
// the element types, but sizes the buffer by what the block can really hold (its
// bytes, raw or inflated) and keeps the text NUL-bounded within L.
std::string ReadSettingsText(CNDKMessage& message, unsigned int nLength) {
    const int nIndex = message.GetCurrentIndex();
    unsigned int nHeader = 0;
    message.GetAt(nIndex, nHeader);   // a typed read, as GetNext(void*, L) makes it
    unsigned int nCarried = 0;
    if (message.IsValidGetIndex(nIndex + 1))
        nCarried = message.GetElements().GetAt(nIndex + 1).GetDataBuffer().GetLength();
    const unsigned long long nBound =
        nHeader ? static_cast<unsigned long long>(std::min(nHeader, nCarried)) * kMaxInflateRatio : nCarried;
    const size_t nCapacity = static_cast<size_t>(std::min<unsigned long long>(
        {static_cast<unsigned long long>(nLength), nBound, kMaxSettingsText}));

    std::vector<char> buffer(nCapacity + 1, '\0');
    message.GetNext(buffer.data(), static_cast<unsigned int>(nCapacity));
    return std::string(buffer.data(), strnlen(buffer.data(), nCapacity));
}

}  // namespace

int CSoftwareListApp::SetConfig(CNDKMessage& message) {
    unsigned int nLength = 0;
    message.GetNext(nLength);
    const std::string strSettings = ReadSettingsText(message, nLength);

    if (m_pLogger) {
        m_pLogger->log("Set Config called");
        m_pLogger->log("SetConfig [%s]", strSettings.c_str());
    }
    Config config(ConfigPath().c_str());
    config.setItems(strSettings, false);
    config.updateConfigFile();   // a failed write goes unreported: the result stays 1

    if (m_pLogger) m_pLogger->log("Check for extra files to scan");
    CStringArray paths;
    for (;;) {
        std::string strPath;   // fresh each time: a read past the end leaves it empty
        message.GetNext(strPath);
        if (strPath.empty()) break;
        if (m_pLogger) m_pLogger->log("Add %s to array", strPath.c_str());
        paths.Add(strPath);
    }
    if (paths.GetSize() == 0) return 1;

    const std::string strFile = FolderInfo::getFolder(m_strHomePath, FolderInfo::Lists) + "swsearch.bin";
    if (m_pLogger) m_pLogger->log("Write arrary to %s", strFile.c_str());   // the misspelling is the log text
    try {
        CFile file;
        if (!file.Open(strFile.c_str(), CFile::modeCreate | CFile::modeWrite)) return 1;
        CArchive archive(&file, CArchive::store, 4096, nullptr);
        paths.Serialize(archive);
        archive.Close();
        file.Close();
    } catch (CFileException* e) {
        delete e;
    } catch (...) {
    }
    return 1;
}
