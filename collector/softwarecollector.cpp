// The package scan: choosing dpkg or rpm, listing the installed packages, one
// query per package into a package record, each package's "bin" files, and then
// the fixed walks of the home and product folders with their product checks.
#include "softwarecollector.h"

#include "CollectorSettings.h"
#include "CollectorText.h"
#include "component/ComponentGlobals.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"
#include "softwarelist/softwarelist.h"
#include "support/ZEVLogger.h"

#include <sys/stat.h>

#include <cstdio>
#include <vector>

namespace {

const char kRpmList[] = "rpm -qa";
const char kRpmPackage[] = "rpm -q %s --queryformat '%%{NAME}^%%{VERSION}^%%{SUMMARY}^%%{VENDOR}'";
const char kRpmOwner[] = "rpm -qf %s";
const char kRpmFiles[] = "rpm -ql %s | grep bin";

const char kDpkgList[] = "dpkg-query --show --showformat '${Package}\n'";
const char kDpkgPackage[] = "dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' %s";
const char kDpkgOwner[] = "dpkg-query --show --showformat '${Filename}' %s";
const char kDpkgFiles[] = "dpkg-query --listfiles %s | grep bin";

// Closes a popen stream on every way out.
class Pipe {
public:
    explicit Pipe(const char* command) : m_fp(popen(command, "r")) {}
    ~Pipe() {
        if (m_fp) pclose(m_fp);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    FILE* get() const { return m_fp; }

private:
    FILE* m_fp;
};

}  // namespace

CSoftwareCollector::CSoftwareCollector() {
    ConfigureForPackageManager();
    m_pSoftwareMap = nullptr;
    m_pPackageMap = nullptr;
    m_pApp = GetSoftwareListApp();
    m_pLogger = nullptr;
}

bool CSoftwareCollector::ShouldUseDpkg() {
    struct stat st;
    if (stat("/etc/debian_version", &st) == 0) return true;
    return stat("/etc/debian-release", &st) == 0;
}

void CSoftwareCollector::ConfigureForPackageManager() {
    if (ShouldUseDpkg())
        ConfigureForDpkg();
    else
        ConfigureForRpm();
}

void CSoftwareCollector::ConfigureForRpm() {
    m_pszListCommand = kRpmList;
    m_pszPackageQuery = kRpmPackage;
    m_pszFileOwnerQuery = kRpmOwner;
    m_pszListFilesQuery = kRpmFiles;
}

void CSoftwareCollector::ConfigureForDpkg() {
    m_pszListCommand = kDpkgList;
    m_pszPackageQuery = kDpkgPackage;
    m_pszFileOwnerQuery = kDpkgOwner;
    m_pszListFilesQuery = kDpkgFiles;
}

std::string CSoftwareCollector::Combine(const std::string& a, const std::string& b, const std::string& c) {
    return collectortext::Combine(a, b, c);
}

bool CSoftwareCollector::Cancelled() const { return m_pApp && m_pApp->CheckExecuteCancelled(); }

bool CSoftwareCollector::ScanPackages(CInvMap* pSoftwareMap) {
    std::vector<std::string> packages;
    {
        Pipe list(m_pszListCommand);
        if (!list.get()) return false;
        char line[800];
        while (fgets(line, sizeof line, list.get()) && !Cancelled()) {
            std::string entry(line);
            collectortext::ChopFinalNewline(entry);
            packages.push_back(entry);
        }
    }

    for (const std::string& package : packages) {
        if (Cancelled()) break;
        if (!processPackage(package, pSoftwareMap)) return false;
    }

    // The home and product folders are walked even after a cancellation.
    std::string checkFiles, excludeDirs;
    std::string startIn = zev::Settings.getHomePath() + "bin";
    GetFiles(checkFiles, startIn, excludeDirs, pSoftwareMap, false, 0, 0);
    if (m_pPackageMap) CheckZEVPackage();

    struct ProductWalk {
        const char* folder;
        void (CSoftwareCollector::*check)();
    };
    // The Pavo folder is walked twice on purpose: once per edition found there.
    static const ProductWalk walks[] = {
        {"/usr/qor/", &CSoftwareCollector::CheckQORPackage},
        {"/opt/Halvorn/HalvornOrbis/", &CSoftwareCollector::CheckQORControlPackage},
        {"/opt/Halvorn/HalvornPavo/", &CSoftwareCollector::CheckHVPavoPackage},
        {"/opt/Halvorn/HalvornPavo/", &CSoftwareCollector::CheckHVStudentPackage},
        {"/usr/cir/", &CSoftwareCollector::CheckHVCirroPackage},
        {"/usr/pgs/", &CSoftwareCollector::CheckPGScrivelPackage},
        {"/usr/mgl/", &CSoftwareCollector::CheckMGGlimmerPackage},
        {"/usr/dra/", &CSoftwareCollector::CheckDRAlertPackage},
    };
    for (const ProductWalk& walk : walks) {
        checkFiles.clear();
        excludeDirs.clear();
        startIn = walk.folder;
        GetFiles(checkFiles, startIn, excludeDirs, pSoftwareMap, false, 0, 0);
        if (m_pPackageMap) (this->*walk.check)();
    }
    return true;
}

bool CSoftwareCollector::processPackage(const std::string& strName, CInvMap* pSoftwareMap) {
    std::string key = strName;
    collectortext::PackageFields fields;

    char command[800];
    snprintf(command, sizeof command, m_pszPackageQuery, strName.c_str());
    std::string output;
    if (GetSimpleCommand(command, output) && collectortext::ParsePackageQuery(output, fields)) {
        // The key keeps an empty company; the record gets a blank instead.
        key = collectortext::Combine(strName, fields.company, fields.version);
        if (fields.company.empty()) fields.company = " ";
        fields.summary = collectortext::FirstLine(fields.summary);

        if (m_pPackageMap) {
            if (m_pLogger) m_pLogger->log("Add to Log %s", strName.c_str());
            CSoftwarePackageObject* pRecord = new CSoftwarePackageObject;
            pRecord->m_nFlags = 128;
            if (m_pLogger) m_pLogger->log("Post Package %s", strName.c_str());
            pRecord->m_strName = collectortext::CutNameSuffix(fields.name);
            pRecord->m_strVersion = fields.version;
            pRecord->m_strVendor = fields.company;
            pRecord->m_strDescription = fields.summary;
            if (m_pLogger) m_pLogger->log("Call SetAt");
            m_pPackageMap->SetAt(key, pRecord);
            if (m_pLogger) {
                m_pLogger->log("Package %s", strName.c_str());
                m_pLogger->log("Version %s", fields.version.c_str());
                m_pLogger->log("Company %s", fields.company.c_str());
                m_pLogger->log("Summary %s", fields.summary.c_str());
            }
        }
    } else {
        // No record: whatever the query printed describes nothing.
        fields = collectortext::PackageFields();
    }

    snprintf(command, sizeof command, m_pszListFilesQuery, strName.c_str());
    Pipe files(command);
    if (!files.get()) return false;
    char line[800];
    while (fgets(line, sizeof line, files.get()) && !Cancelled()) {
        std::string path(line);
        collectortext::ChopFinalNewline(path);
        struct stat st;
        if (stat(path.c_str(), &st) != 0) continue;
        CSoftwareObject* pRecord = AddInfoToSoftwareObject(path.c_str(), st, pSoftwareMap, false, false, 0, 0);
        if (!pRecord) continue;
        pRecord->SetVersion(fields.version);
        pRecord->SetDescription(fields.summary);
        pRecord->SetCompanyName(fields.company);
        pRecord->m_strPackage = key;
        if (m_pLogger) {
            m_pLogger->log("Package %s", strName.c_str());
            m_pLogger->log("Version %s", fields.version.c_str());
            m_pLogger->log("Company %s", fields.company.c_str());
            m_pLogger->log("Summary %s", fields.summary.c_str());
        }
    }
    return true;
}
