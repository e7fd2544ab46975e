// Detection of the Halvorn product family by install folder: a product counts as
// installed when its folder opens and its marker file exists; it then gets one
// package record with fixed texts and the version from its "VERSION" file.
#include "softwarecollector.h"

#include "CollectorSettings.h"
#include "CollectorText.h"
#include "inventory/InvMap.h"
#include "inventory/SoftwarePackageObject.h"

#include <dirent.h>
#include <sys/stat.h>

struct CSoftwareCollector::ProductCheck {
    const char* folder;          // opened, and searched for the marker
    const char* marker;
    const char* name;
    const char* company;
    const char* summary;
    const char* versionFolder;   // holds the "VERSION" file
};

namespace {

// Probes that the folder can be read. Deliberate: the stream is closed again, or every
// run would keep one descriptor per product folder until the host ran out of them.
bool FolderOpens(const std::string& folder) {
    DIR* dir = opendir(folder.c_str());
    if (!dir) return false;
    closedir(dir);
    return true;
}

// The edition of the agent is told by its home folder.
struct Edition {
    const char* folder;
    const char* name;
    const char* company;
    const char* summary;
};

const Edition kEditions[] = {
    {"/usr/zev/bin/", "halvorn-zev-client", "Halvorn Ltd", "Halvorn ZEV"},
    {"/usr/brask/bin/", "morvash-brask-client", "Morvash", "Morvash BRASK"},
    {"/usr/rtk/bin/", "quendry-rtk-client", "Quendry", "Quendry R.T.K."},
    {"/usr/lumet/bin/", "pelligrane-lumet-client", "Pelligrane", "Pelligrane Lumet"},
};

}  // namespace

void CSoftwareCollector::CheckZEVPackage() {
    if (!m_pPackageMap) return;
    const std::string folder = zev::Settings.getHomePath() + "bin/";
    if (!FolderOpens(folder)) return;
    struct stat st;
    if (lstat((folder + "zevclient").c_str(), &st) != 0) return;

    CSoftwarePackageObject* pRecord = new CSoftwarePackageObject;
    pRecord->m_nFlags = 128;
    for (const Edition& edition : kEditions) {
        if (folder == edition.folder) {
            pRecord->m_strName = edition.name;
            pRecord->m_strVendor = edition.company;
            pRecord->m_strDescription = edition.summary;
            break;
        }
    }
    pRecord->m_strVersion = ExtractFromVERSION(folder.c_str());

    // The doubled company and version tail belongs to this product's key alone;
    // stored lists compare records by key, so it must stay.
    const std::string key = Combine(pRecord->m_strName, pRecord->m_strVendor, pRecord->m_strVersion) + "\\" +
                            pRecord->m_strVendor + "\\" + pRecord->m_strVersion;
    m_pPackageMap->SetAt(key, pRecord);
}

void CSoftwareCollector::CheckProduct(const ProductCheck& product) {
    if (!m_pPackageMap) return;
    const std::string folder = product.folder;
    if (!FolderOpens(folder)) return;
    struct stat st;
    if (lstat((folder + product.marker).c_str(), &st) != 0) return;

    CSoftwarePackageObject* pRecord = new CSoftwarePackageObject;
    pRecord->m_nFlags = 128;
    pRecord->m_strName = product.name;
    pRecord->m_strVendor = product.company;
    pRecord->m_strDescription = product.summary;
    pRecord->m_strVersion = ExtractFromVERSION(product.versionFolder);
    m_pPackageMap->SetAt(Combine(pRecord->m_strName, pRecord->m_strVendor, pRecord->m_strVersion), pRecord);
}

// The Orbis client keeps its "VERSION" in its daemon folder, every other product in
// its root folder. The writing-aid and alert editions share the notification
// product's daemon file name.
void CSoftwareCollector::CheckQORPackage() {
    CheckProduct({"/usr/qor/daemon/", "clientdaemon", "halvorn-orbis-client", "Halvorn Ltd", "Halvorn Orbis",
                  "/usr/qor/daemon/"});
}

void CSoftwareCollector::CheckQORControlPackage() {
    CheckProduct({"/opt/Halvorn/HalvornOrbis/bin/", "Client", "halvorn-orbis", "Halvorn Ltd", "Halvorn Orbis",
                  "/opt/Halvorn/HalvornOrbis/"});
}

void CSoftwareCollector::CheckHVPavoPackage() {
    CheckProduct({"/opt/Halvorn/HalvornPavo/bin/", "Pavo", "halvorn-pavo-tutor", "Halvorn Ltd",
                  "Halvorn Pavo Tutor", "/opt/Halvorn/HalvornPavo/"});
}

void CSoftwareCollector::CheckHVStudentPackage() {
    CheckProduct({"/opt/Halvorn/HalvornPavo/bin/", "Client", "halvorn-pavo-student", "Halvorn Ltd",
                  "Halvorn Pavo Student", "/opt/Halvorn/HalvornPavo/"});
}

void CSoftwareCollector::CheckHVCirroPackage() {
    CheckProduct({"/usr/cir/daemon/", "cirrodaemon", "halvorn-cirro", "Halvorn Ltd", "Halvorn Cirro", "/usr/cir/"});
}

void CSoftwareCollector::CheckPGScrivelPackage() {
    CheckProduct({"/usr/pgs/daemon/", "cirrodaemon", "pelligranes-scrivel", "Pelligrane",
                  "Pelligranes Scri[V]el Client For Linux", "/usr/pgs/"});
}

void CSoftwareCollector::CheckMGGlimmerPackage() {
    CheckProduct({"/usr/mgl/daemon/", "cirrodaemon", "morvash-glimmer", "Morvash", "Morvash Glimmer Client For Linux",
                  "/usr/mgl/"});
}

void CSoftwareCollector::CheckDRAlertPackage() {
    CheckProduct({"/usr/dra/daemon/", "cirrodaemon", "drossel-alert", "Drossel", "Drossel Alert Client For Linux",
                  "/usr/dra/"});
}
