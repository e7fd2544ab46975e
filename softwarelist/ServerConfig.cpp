// SetConfig: the server's settings for the software inventory. A settings text
// is merged into ".Software_Inventory_Config" (read afresh by every run) and the
// extra search paths that follow it are stored as a string array in "swsearch.bin".
#include "softwarelist.h"

#include "archive/arcobj.h"
#include "component/FolderInfo.h"
#include "support/Config.h"
#include "support/ZEVLogger.h"

#include <cstring>
#include <vector>

namespace {

// No server sends settings anywhere near this; a larger length element is a
// corrupt message and must not turn into a huge allocation.
const unsigned int kMaxSettingsText = 16u * 1024u * 1024u;
// Worst case of the deflate format: one compressed byte expands to at most 1032.
const unsigned long long kMaxInflateRatio = 1032;

// Reads the block that follows the length element, as GetNext(void*, L) does, but
// sized by what the message really carries and always NUL-bounded within L.
std::string ReadSettingsText(CNDKMessage& message, unsigned int nLength) {
    const int nIndex = message.GetCurrentIndex();
    const CElements& elements = message.GetElements();
    const bool bWellFormed = nIndex >= 0 && nIndex + 1 < elements.GetSize() &&
                             elements.GetAt(nIndex).GetDataType() == NDKUInt &&
                             elements.GetAt(nIndex + 1).GetDataType() == NDKBuffer;
    unsigned int nHeader = 0;
    unsigned int nCarried = 0;
    if (bWellFormed) {
        elements.GetAt(nIndex).Get(nHeader);
        nCarried = elements.GetAt(nIndex + 1).GetDataBuffer().GetLength();
    }
    if (!bWellFormed || nHeader > nCarried) {
        // Not a block written by Add(void*, unsigned): step over its two elements
        // without letting a bogus hidden length size any allocation.
        unsigned int nSkip = 0;
        message.GetNext(nSkip);
        message.GetNextUnc(nullptr, 0);
        return std::string();
    }

    unsigned long long nCapacity = nLength;
    const unsigned long long nBound = nHeader ? nHeader * kMaxInflateRatio : nCarried;
    if (nCapacity > nBound) nCapacity = nBound;
    if (nCapacity > kMaxSettingsText) nCapacity = kMaxSettingsText;

    std::vector<char> buffer(static_cast<size_t>(nCapacity) + 1, '\0');
    message.GetNext(buffer.data(), static_cast<unsigned int>(nCapacity));
    return std::string(buffer.data(), strnlen(buffer.data(), static_cast<size_t>(nCapacity)));
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
