// CSoftwareCollector gathers the installed software for one inventory run: the
// package manager's packages, the Halvorn products found by their folders, and
// the files of a walk of the file system. Text parsing lives in free functions
// (collector/CollectorText.h) so that tables of cases test it without running anything.
#pragma once

#include "CollectorText.h"
#include "ExtraSources.h"

#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

class CBaseComponentApp;
class CInvMap;
class CSoftwareObject;
class CZEVLogger;

class CSoftwareCollector {
public:
    CSoftwareCollector();
    ~CSoftwareCollector() = default;
    CSoftwareCollector(const CSoftwareCollector&) = delete;
    CSoftwareCollector& operator=(const CSoftwareCollector&) = delete;

    void SetLogger(CZEVLogger* pLogger) { m_pLogger = pLogger; }
    void SetPackageMap(CInvMap* pMap) { m_pPackageMap = pMap; }
    // True: the package manager is asked once for all listed packages instead of once per package.
    void SetBatchQuery(bool bBatch) { m_bBatchQuery = bBatch; }
    // Replaces the system's argument limits for batch calls (tests use small ones).
    void SetBatchLimit(const collectortext::ArgumentLimit& limit) { m_batchLimit = limit; }
    // The extra package sources of a "Sources" value ("snap|flatpak"); unknown names are logged and left out.
    void SetSources(const std::string& setting);

    static bool ShouldUseDpkg();
    void ConfigureForPackageManager();
    void ConfigureForRpm();
    void ConfigureForDpkg();

    // False when the package list or an extra source's list cannot be had (see ListPackages,
    // ListSources) or a file list cannot be started.
    bool ScanPackages(CInvMap* pSoftwareMap);
    bool processPackage(const std::string& strName, CInvMap* pSoftwareMap);
    static std::string Combine(const std::string& a, const std::string& b, const std::string& c);

    void CheckZEVPackage();
    void CheckQORPackage();
    void CheckQORControlPackage();
    void CheckHVPavoPackage();
    void CheckHVStudentPackage();
    void CheckHVCirroPackage();
    void CheckPGScrivelPackage();
    void CheckMGGlimmerPackage();
    void CheckDRAlertPackage();

    bool GetFiles(std::string& strCheckFiles, std::string& strStartIn, std::string& strExcludeDirs,
                  CInvMap* pSoftwareMap, bool bWildcards, int nSizeMode, int nSizeKB);
    bool CheckFiles(std::string& strDir);
    bool FindMatch(const char* pszPath, std::string& strList, bool bWildcards);
    static bool MatchPattern(const char* pszName, const char* pszPattern);
    static bool TestForExcludedExes(const char* pszPath);
    // Whether the record step builds a record for a qualifying file. It builds none: a file
    // is only qualified (FileQualifies), and AddInfoToSoftwareObject returns null.
    static constexpr bool kFilesMakeRecords = false;
    // True when a walk can change anything a user or the server sees: records, or log lines.
    bool WalksHaveEffect() const;
    CSoftwareObject* AddInfoToSoftwareObject(const char* pszPath, struct stat& st, CInvMap* pMap,
                                             bool bForce, bool bSecond, int nSizeMode, int nSizeKB);
    // True when the file counts as a program: forced, or executable and starting with an
    // ELF or "#!" header (shared libraries and plug-ins excluded); then within the size range.
    static bool FileQualifies(const char* pszPath, const struct stat& st, bool bForce, int nSizeMode,
                              int nSizeKB);

    std::string ExtractFromVERSION(const char* pszFolder);
    void ExtractVersionInfo(CSoftwareObject* pRecord);

    const char* ListCommand() const { return m_pszListCommand; }
    const char* PackageQuery() const { return m_pszPackageQuery; }
    const char* FileOwnerQuery() const { return m_pszFileOwnerQuery; }
    const char* ListFilesQuery() const { return m_pszListFilesQuery; }
    const char* BatchQuery() const { return m_pszBatchQuery; }

private:
    struct ProductCheck;

    bool Cancelled() const;
    // The list command's lines. False, with a log line, when it cannot be started or ends
    // with a non-zero exit or a signal; true with no lines when there is no package manager.
    bool ListPackages(std::vector<std::string>& packages);
    void CheckProduct(const ProductCheck& product);
    // Files the record of one package from its query's answer (`bAnswered` false: the query
    // failed); `key` and `fields` come back for the package's file list.
    void RecordPackage(const std::string& strName, bool bAnswered, const std::string& output, std::string& key,
                       collectortext::PackageFields& fields);
    // The listed packages through batch calls; false when the caller must query each package.
    bool ScanPackagesInBatch(const std::vector<std::string>& packages);
    // Each listed name's answer text from batch calls; false, with the reason, when in doubt.
    bool QueryBatch(const std::vector<std::string>& packages, std::map<std::string, std::string>& texts,
                    std::string& problem);
    collectortext::ArgumentLimit BatchLimit() const;
    struct ListedSource {
        const extrasources::Source* source;
        std::vector<extrasources::SourceRecord> records;
    };
    // Each extra source's records. A source whose tool is not on the search path adds nothing;
    // false, with a log line, when a list command fails.
    bool ListSources(std::vector<ListedSource>& listed);
    // Files the sources' records into the package map, replacing records under the same keys.
    void RecordSources(const std::vector<ListedSource>& listed);

    CBaseComponentApp* m_pApp;
    const char* m_pszListCommand;
    const char* m_pszPackageQuery;
    const char* m_pszFileOwnerQuery;
    const char* m_pszListFilesQuery;
    const char* m_pszBatchQuery;
    bool m_bBatchQuery = false;
    collectortext::ArgumentLimit m_batchLimit{0, 0};   // 0: the system's
    std::vector<const extrasources::Source*> m_sources;
    std::string m_strCheckFiles;
    std::string m_strExcludeDirs;
    bool m_bWildcards = false;
    int m_nSizeMode = 0;
    int m_nSizeKB = 0;
    CInvMap* m_pSoftwareMap;
    CInvMap* m_pPackageMap;
    CZEVLogger* m_pLogger;
};
