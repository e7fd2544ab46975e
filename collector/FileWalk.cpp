// The file-system walk: folders are descended without following links, excluded
// folders are skipped with their subtrees, and every regular file that matches the
// patterns (or looks like a program) is held against the size range.
#include "softwarecollector.h"

#include "CollectorText.h"
#include "inventory/SoftwareObject.h"
#include "support/ZEVLogger.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace {

class Folder {
public:
    explicit Folder(const std::string& path) : m_dir(opendir(path.c_str())) {}
    ~Folder() {
        if (m_dir) closedir(m_dir);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    DIR* get() const { return m_dir; }

private:
    DIR* m_dir;
};

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0) close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

// Executable bits, no library or plug-in, and an ELF or "#!" start.
bool LooksLikeProgram(const char* path, const struct stat& st) {
    if ((st.st_mode & 0111) == 0) return false;
    if (!collectortext::TestForExcludedExes(path)) return false;
    // Non-blocking so that a listed pipe or device cannot hang the scan.
    Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0) return false;
    unsigned char head[4];
    if (read(file.get(), head, sizeof head) != static_cast<ssize_t>(sizeof head)) return false;
    if (head[0] == 0x7F && head[1] == 'E' && head[2] == 'L' && head[3] == 'F') return true;
    return head[0] == '#' && head[1] == '!';
}

}  // namespace

bool CSoftwareCollector::WalksHaveEffect() const {
    // A walk yields records only through the record step; with none, its log lines are all it leaves.
    return kFilesMakeRecords || (m_pLogger && m_pLogger->isLogging());
}

bool CSoftwareCollector::GetFiles(std::string& strCheckFiles, std::string& strStartIn, std::string& strExcludeDirs,
                                  CInvMap* pSoftwareMap, bool bWildcards, int nSizeMode, int nSizeKB) {
    // Deliberate: a walk that can change no map and no log is not made (the whole disk, on some settings).
    if (!WalksHaveEffect()) return true;
    collectortext::ForwardSlashes(strStartIn);
    collectortext::ForwardSlashes(strExcludeDirs);
    if (m_pLogger) {
        m_pLogger->log("Start In: %s", strStartIn.c_str());
        m_pLogger->log("Exclude Dirs: %s", strExcludeDirs.c_str());
    }
    m_strCheckFiles = strCheckFiles;
    m_strExcludeDirs = strExcludeDirs;
    m_bWildcards = bWildcards;
    m_nSizeMode = nSizeMode;
    m_nSizeKB = nSizeKB;
    m_pSoftwareMap = pSoftwareMap;

    std::string folder = collectortext::WalkStartFolder(strStartIn);
    return CheckFiles(folder);
}

bool CSoftwareCollector::CheckFiles(std::string& strDir) {
    if (m_pLogger) m_pLogger->log("Check Files: %s", strDir.c_str());
    // An unreadable or missing folder counts as scanned.
    Folder folder(strDir);
    if (!folder.get()) return true;

    // A cancelled walk returns at once from every level. Deliberate: each level's stream
    // is closed on that way out too, so a halted run keeps no descriptor.
    while (const dirent* entry = readdir(folder.get())) {
        if (Cancelled()) return false;
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;

        std::string path = strDir + entry->d_name;
        struct stat st;
        if (lstat(path.c_str(), &st) != 0) continue;

        if (S_ISDIR(st.st_mode)) {
            if (FindMatch(path.c_str(), m_strExcludeDirs, false)) continue;
            path += '/';
            if (!CheckFiles(path)) return false;
        } else if (S_ISREG(st.st_mode)) {
            if (m_bWildcards && !FindMatch(path.c_str(), m_strCheckFiles, true)) continue;
            CSoftwareObject* pRecord = AddInfoToSoftwareObject(path.c_str(), st, m_pSoftwareMap, m_bWildcards, true,
                                                               m_nSizeMode, m_nSizeKB);
            if (pRecord && m_pLogger && m_pLogger->isLogging()) {
                m_pLogger->log("Package name %s", pRecord->m_strPackage.c_str());
                m_pLogger->log("Version name %s", pRecord->m_strVersion.c_str());
                m_pLogger->log("Description name %s", pRecord->m_strDescription.c_str());
                m_pLogger->log("Company Name %s", pRecord->m_strCompanyName.c_str());
            }
        }
        // Links, devices, pipes and sockets are not looked at.
    }
    return true;
}

bool CSoftwareCollector::FindMatch(const char* pszPath, std::string& strList, bool bWildcards) {
    return collectortext::FindMatch(pszPath, strList, bWildcards);
}

bool CSoftwareCollector::MatchPattern(const char* pszName, const char* pszPattern) {
    return collectortext::MatchPattern(pszName, pszPattern);
}

bool CSoftwareCollector::TestForExcludedExes(const char* pszPath) {
    return collectortext::TestForExcludedExes(pszPath);
}

bool CSoftwareCollector::FileQualifies(const char* pszPath, const struct stat& st, bool bForce, int nSizeMode,
                                       int nSizeKB) {
    if (!pszPath) return false;
    // A file that matched a pattern needs no content test.
    if (!bForce && !LooksLikeProgram(pszPath, st)) return false;
    if (nSizeKB > 0) {
        const double sizeKB = static_cast<double>(st.st_size) / 1024.0;
        if (nSizeMode == 0) return sizeKB >= nSizeKB;   // a minimum
        return sizeKB <= nSizeKB;                       // a maximum
    }
    return true;
}

CSoftwareObject* CSoftwareCollector::AddInfoToSoftwareObject(const char* pszPath, struct stat& st, CInvMap*,
                                                             bool bForce, bool, int nSizeMode, int nSizeKB) {
    // The file is qualified, but no record is built for it: callers handle a record
    // should one ever be returned, and get none here.
    static_assert(!kFilesMakeRecords, "a record step that builds records returns them here; the walks then run always");
    FileQualifies(pszPath, st, bForce, nSizeMode, nSizeKB);
    return nullptr;
}
