// Version, description and company for software the package scan did not
// describe: a product's "VERSION" file, and for one executable the package that
// owns it plus the fixed texts of the Halvorn product folders.
#include "softwarecollector.h"

#include "CollectorSettings.h"
#include "CollectorText.h"
#include "inventory/SoftwareObject.h"
#include "support/ZEVLogger.h"

#include <sys/stat.h>

#include <cstdio>

std::string CSoftwareCollector::ExtractFromVERSION(const char* pszFolder) {
    std::string result;
    if (!pszFolder) return result;
    const std::string file = std::string(pszFolder) + "VERSION";
    struct stat st;
    if (stat(file.c_str(), &st) != 0) return result;

    char command[400];
    snprintf(command, sizeof command, "cat %s", file.c_str());
    GetSimpleCommand(command, result);
    collectortext::ChopFinalNewline(result);
    return result;
}

void CSoftwareCollector::ExtractVersionInfo(CSoftwareObject* pRecord) {
    if (!pRecord) return;
    const std::string& path = pRecord->m_strInfo1;

    char command[400];
    snprintf(command, sizeof command, m_pszFileOwnerQuery, path.c_str());
    if (m_pLogger) m_pLogger->log("command %s", command);
    std::string owner;
    // An answer that repeats the path is the package manager saying no package owns it.
    if (GetSimpleCommand(command, owner) && !owner.empty() && owner.find(path) == std::string::npos) {
        snprintf(command, sizeof command, m_pszPackageQuery, owner.c_str());
        std::string output, first, second, rest;
        if (GetSimpleCommand(command, output) && collectortext::SplitOwnerPackage(output, first, second, rest)) {
            // One slot off from the query's field order (name into version, version into
            // description); stored records depend on this placement.
            pRecord->m_strVersion = first;
            pRecord->m_strDescription = second;
            pRecord->m_strCompanyName = rest;
        }
    }

    struct ProductRule {
        std::string fragment;
        const char* package;
        std::string versionFolder;
    };
    const std::string home = zev::Settings.getHomePath();
    // The second Pavo row can never apply; the first one tests the same folder.
    const ProductRule rules[] = {
        {home + "bin", "halvorn-zev-client", home + "bin/"},
        {"/usr/qor/", "halvorn-orbis-client", "/usr/qor/"},
        {"/opt/Halvorn/HalvornOrbis/", "halvorn-orbis", "/opt/Halvorn/HalvornOrbis/"},
        {"/opt/Halvorn/HalvornPavo/", "halvorn-pavo-tutor", "/opt/Halvorn/HalvornPavo/"},
        {"/opt/Halvorn/HalvornPavo/", "halvorn-pavo-student", "/opt/Halvorn/HalvornPavo/"},
        {"/usr/cir/", "halvorn-cirro", "/usr/cir/"},
    };
    for (const ProductRule& rule : rules) {
        if (path.find(rule.fragment) == std::string::npos) continue;
        if (pRecord->m_strCompanyName.empty()) pRecord->m_strCompanyName = "Halvorn Ltd";
        pRecord->m_strVersion = ExtractFromVERSION(rule.versionFolder.c_str());
        // The key names the maker even when the record keeps the owner's company.
        pRecord->m_strPackage = Combine(rule.package, "Halvorn Ltd", pRecord->m_strVersion);
        break;
    }
}
