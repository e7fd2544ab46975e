// The package scan: choosing dpkg or rpm, listing the installed packages, one
// query per package into a package record, each package's "bin" files, and then
// the fixed walks of the home and product folders with their product checks.
// With batch queries on, one call answers for all packages and each package's
// answer is cut out of it, so that the records come out as from its own query.
// The extra sources the server asks for (snaps, flatpak apps) add package records too.
#include "softwarecollector.h"

#include "CollectorSettings.h"
#include "component/ComponentGlobals.h"
#include "component/basecomponent.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"
#include "support/ZEVLogger.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

extern char** environ;

namespace {

const char kRpmList[] = "rpm -qa";
const char kRpmPackage[] = "rpm -q %s --queryformat '%%{NAME}^%%{VERSION}^%%{SUMMARY}^%%{VENDOR}'";
const char kRpmOwner[] = "rpm -qf %s";
const char kRpmFiles[] = "rpm -ql %s | grep bin";
// The tag reproduces the labels of "rpm -qa"; the names follow as arguments.
const char kRpmBatch[] = "rpm -q --queryformat '%{NVR}%{ARCHSUFFIX}\x1F%{NAME}^%{VERSION}^%{SUMMARY}^%{VENDOR}\x1E'";

const char kDpkgList[] = "dpkg-query --show --showformat '${Package}\n'";
const char kDpkgPackage[] = "dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' %s";
const char kDpkgOwner[] = "dpkg-query --show --showformat '${Filename}' %s";
const char kDpkgFiles[] = "dpkg-query --listfiles %s | grep bin";
const char kDpkgBatch[] = "dpkg-query --show --showformat '${Package}\x1F${Package}^${Version}^${Description}^${Origin}\x1E'";

// Closes a popen stream on every way out; close() hands back the wait status once.
class Pipe {
public:
    explicit Pipe(const char* command) : m_fp(popen(command, "r")) {}
    ~Pipe() { close(); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    FILE* get() const { return m_fp; }
    int close() {
        const int status = m_fp ? pclose(m_fp) : -1;
        m_fp = nullptr;
        return status;
    }

private:
    FILE* m_fp;
};

// Whether the shell would find `tool` on the search path (its default one when PATH is unset).
bool OnSearchPath(const std::string& tool) {
    const char* path = std::getenv("PATH");
    std::string folders = path ? path : "/usr/local/bin:/usr/bin:/bin";
    folders += ':';
    for (size_t start = 0, colon; (colon = folders.find(':', start)) != std::string::npos; start = colon + 1) {
        const std::string folder = colon == start ? "." : folders.substr(start, colon - start);
        const std::string file = folder + "/" + tool;
        struct stat st;
        if (stat(file.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(file.c_str(), X_OK) == 0) return true;
    }
    return false;
}

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
    m_pszBatchQuery = kRpmBatch;
}

void CSoftwareCollector::ConfigureForDpkg() {
    m_pszListCommand = kDpkgList;
    m_pszPackageQuery = kDpkgPackage;
    m_pszFileOwnerQuery = kDpkgOwner;
    m_pszListFilesQuery = kDpkgFiles;
    m_pszBatchQuery = kDpkgBatch;
}

std::string CSoftwareCollector::Combine(const std::string& a, const std::string& b, const std::string& c) {
    return collectortext::Combine(a, b, c);
}

bool CSoftwareCollector::Cancelled() const { return m_pApp && m_pApp->CheckExecuteCancelled(); }

bool CSoftwareCollector::ScanPackages(CInvMap* pSoftwareMap) {
    std::vector<std::string> packages;
    if (!ListPackages(packages)) return false;
    // Deliberate: the sources are listed before the per-package queries, so a failing one fails the run early.
    std::vector<ListedSource> sources;
    if (!ListSources(sources)) return false;

    if (!m_bBatchQuery || !ScanPackagesInBatch(packages)) {
        for (const std::string& package : packages) {
            if (Cancelled()) break;
            if (!processPackage(package, pSoftwareMap)) return false;
        }
    }
    RecordSources(sources);   // after the packages: a source's record wins a key they share

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

bool CSoftwareCollector::ListPackages(std::vector<std::string>& packages) {
    // A machine with neither package manager has no packages to list; the products still count.
    if (m_pszListCommand == kRpmList && !OnSearchPath("rpm")) {
        if (m_pLogger) m_pLogger->log("No package manager found: no Debian marker file and no rpm on the search path");
        return true;
    }
    Pipe list(m_pszListCommand);
    if (!list.get()) {
        if (m_pLogger)
            m_pLogger->log("Package list failed: not started (%s): %s", std::strerror(errno),
                           collectortext::OneLine(m_pszListCommand).c_str());
        return false;
    }
    char line[800];
    while (fgets(line, sizeof line, list.get()) && !Cancelled()) {
        std::string entry(line);
        collectortext::ChopFinalNewline(entry);
        packages.push_back(entry);
    }
    // Stopping early may kill the command with SIGPIPE: after a halt its end says nothing.
    const bool bHalted = Cancelled();
    errno = 0;
    const int status = list.close();
    // A host that ignores SIGCHLD reaps the command itself, so its end cannot be known: the list stands.
    if (bHalted || collectortext::EndedWell(status) || (status == -1 && errno == ECHILD)) return true;
    // Deliberate: a list cut short by a failing command would read as every other package deleted.
    if (m_pLogger)
        m_pLogger->log("Package list failed: %s: %s", collectortext::DescribeEndStatus(status).c_str(),
                       collectortext::OneLine(m_pszListCommand).c_str());
    return false;
}

bool CSoftwareCollector::processPackage(const std::string& strName, CInvMap* pSoftwareMap) {
    char command[800];
    snprintf(command, sizeof command, m_pszPackageQuery, strName.c_str());
    std::string output;
    const bool bAnswered = GetSimpleCommand(command, output);
    std::string key;
    collectortext::PackageFields fields;
    RecordPackage(strName, bAnswered, output, key, fields);

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

void CSoftwareCollector::RecordPackage(const std::string& strName, bool bAnswered, const std::string& output,
                                       std::string& key, collectortext::PackageFields& fields) {
    key = strName;
    if (!bAnswered || !collectortext::ParsePackageQuery(output, fields)) {
        // No record: whatever the query printed describes nothing.
        fields = collectortext::PackageFields();
        return;
    }
    // The key keeps an empty company; the record gets a blank instead.
    key = collectortext::Combine(strName, fields.company, fields.version);
    if (fields.company.empty()) fields.company = " ";
    fields.summary = collectortext::FirstLine(fields.summary);
    if (!m_pPackageMap) return;

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

bool CSoftwareCollector::ScanPackagesInBatch(const std::vector<std::string>& packages) {
    std::map<std::string, std::string> texts;
    std::string problem;
    if (!QueryBatch(packages, texts, problem)) {
        if (m_pLogger) m_pLogger->log("Batch query not used: %s; querying each package", problem.c_str());
        return false;
    }
    // The per-package file lists are skipped: the record step of the file scan never
    // returns a record, so they add no byte to any map.
    std::string key;
    collectortext::PackageFields fields;
    for (const std::string& package : packages) {
        if (Cancelled()) break;
        const auto text = texts.find(package);
        RecordPackage(package, text != texts.end(), text != texts.end() ? text->second : std::string(), key, fields);
    }
    return true;
}

bool CSoftwareCollector::QueryBatch(const std::vector<std::string>& packages, std::map<std::string, std::string>& texts,
                                    std::string& problem) {
    const bool rpm = m_pszListCommand == kRpmList;
    std::vector<std::string> names;
    std::set<std::string> seen;
    for (const std::string& package : packages) {
        // Each name must reach the package manager exactly as its own query passes it.
        const int length = snprintf(nullptr, 0, m_pszPackageQuery, package.c_str());
        if (!collectortext::IsPlainPackageName(package, rpm) || length < 0 || length >= 800) {
            problem = "the list line '" + package.substr(0, 60) + "' is not a plain package name";
            return false;
        }
        // Asked once: a name listed twice gets the same answer twice.
        if (seen.insert(package).second) names.push_back(package);
    }

    for (const std::vector<std::string>& group : collectortext::BatchGroups(m_pszBatchQuery, names, BatchLimit())) {
        if (Cancelled()) return true;   // a halt stays raised: the caller records nothing
        std::string command = m_pszBatchQuery;
        for (const std::string& name : group) command += ' ' + name;
        std::string output;
        if (!GetSimpleCommand(command.c_str(), output)) {
            problem = "the batch command failed";
            return false;
        }
        if (output.empty()) {
            problem = "the batch command printed nothing";
            return false;
        }
        if (!collectortext::SplitBatchOutput(output, std::set<std::string>(group.begin(), group.end()), texts, problem))
            return false;
    }
    return true;
}

collectortext::ArgumentLimit CSoftwareCollector::BatchLimit() const {
    if (m_batchLimit.commandBytes) return m_batchLimit;
    // The shell gets the command line as one argument, which Linux caps at 32 pages; the
    // tool's arguments share what exec allows with the environment. A margin is kept for
    // a host that wraps the command.
    const size_t margin = 4096;
    const long page = sysconf(_SC_PAGESIZE);
    const long argMax = sysconf(_SC_ARG_MAX);
    size_t environment = 0;
    for (char** entry = environ; entry && *entry; ++entry) environment += std::strlen(*entry) + 1 + sizeof(char*);
    collectortext::ArgumentLimit limit;
    limit.commandBytes = 32 * static_cast<size_t>(page > 0 ? page : 4096) - margin;
    const size_t exec = argMax > 0 ? static_cast<size_t>(argMax) : 131072;
    limit.execBytes = exec > environment + 2 * margin ? exec - environment - margin : margin;
    return limit;
}

void CSoftwareCollector::SetSources(const std::string& setting) {
    std::vector<std::string> unknown;
    m_sources = extrasources::SelectSources(setting, unknown);
    if (m_pLogger)
        for (const std::string& name : unknown) m_pLogger->log("Unknown package source ignored: %s", name.c_str());
}

bool CSoftwareCollector::ListSources(std::vector<ListedSource>& listed) {
    if (!m_pPackageMap) return true;   // their records are all they give: with no map, nothing is run
    for (const extrasources::Source* source : m_sources) {
        if (Cancelled()) break;
        // The host's runner tells no exit status, so a missing tool is told apart from a failing one here.
        if (!OnSearchPath(source->tool)) {
            if (m_pLogger) m_pLogger->log("Package source %s: no %s on the search path", source->name, source->tool);
            continue;
        }
        std::string output;
        if (!GetSimpleCommand(source->command, output)) {
            // Deliberate, as for the package list: a failed list would read as everything it holds deleted.
            if (m_pLogger) m_pLogger->log("Package source %s failed: %s", source->name, source->command);
            return false;
        }
        extrasources::SourceList list = source->parse(output);
        if (m_pLogger)
            for (const std::string& line : list.skipped)
                m_pLogger->log("Package source %s: line with too few fields skipped: %s", source->name, line.c_str());
        listed.push_back({source, std::move(list.records)});
    }
    return true;
}

void CSoftwareCollector::RecordSources(const std::vector<ListedSource>& listed) {
    if (!m_pPackageMap) return;
    for (const ListedSource& entry : listed) {
        for (const extrasources::SourceRecord& found : entry.records) {
            // As for packages: the key keeps an empty company, the record gets a blank.
            const std::string key = collectortext::Combine(found.name, found.company, found.version);
            const std::string company = found.company.empty() ? " " : found.company;
            CObject* pOld = nullptr;
            if (m_pPackageMap->Lookup(key, pOld) && m_pLogger)
                m_pLogger->log("Package source %s replaces the record under %s", entry.source->name, key.c_str());
            CSoftwarePackageObject* pRecord = new CSoftwarePackageObject;
            pRecord->m_nFlags = 128;
            pRecord->m_strName = found.name;   // whole: no version-like tail is cut
            pRecord->m_strVersion = found.version;
            pRecord->m_strVendor = company;
            pRecord->m_strDescription = found.summary;
            m_pPackageMap->SetAt(key, pRecord);
            if (m_pLogger) {
                m_pLogger->log("Package %s", found.name.c_str());
                m_pLogger->log("Version %s", found.version.c_str());
                m_pLogger->log("Company %s", company.c_str());
                m_pLogger->log("Summary %s", found.summary.c_str());
            }
        }
    }
}
