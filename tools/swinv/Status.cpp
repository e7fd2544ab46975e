// Status collection; see Status.h.
#include "Status.h"

#include "FileDecoder.h"
#include "SettingsMessage.h"
#include "SwinvError.h"

#include "support/Config.h"

#include <sys/stat.h>

#include <cstdlib>

namespace swinv {

const char* const kConfigFileName = ".Software_Inventory_Config";

namespace {

bool IsIntegerKey(const std::string& key) {
    return key == "Mode" || key == "ExtInSelected" || key == "LeastMost" || key == "SizeKB" || key == "Logging" ||
           key == "RunAtStartup" || key == "BatchQuery";
}

}  // namespace

Json ConfigInEffect(const std::string& home) {
    const std::string path = home + "data/" + kConfigFileName;
    Config config(path.c_str());
    Json settings = Json::array();
    for (const auto& key : KnownSettings()) {
        const std::string stored = config.getValue(key.name);
        Json item;
        item["key"] = key.name;
        // An empty value means the default, as in the component; integers go through atoi ("12abc" is 12).
        if (stored.empty())
            item["value"] = key.defaultValue;
        else
            item["value"] = IsIntegerKey(key.name) ? std::to_string(std::atoi(stored.c_str())) : stored;
        item["from"] = config.items().count(key.name) ? "file" : "default";
        item["meaning"] = key.meaning;
        settings.push_back(item);
    }
    Json others = Json::object();
    for (const auto& [key, value] : config.items()) {
        bool known = false;
        for (const auto& k : KnownSettings()) known = known || key == k.name;
        if (!known) others[key] = value;
    }
    Json out;
    out["file"] = path;
    out["settings"] = settings;
    out["other_keys"] = others;
    return out;
}

Json ComponentFiles(const std::string& home, std::time_t now) {
    Json files = Json::array();
    for (const char* name : {"SWList.bin", "SWPackage.bin", "SWChange.bin", "swsearch.bin", kConfigFileName,
                             "Software.log"}) {
        const std::string path = home + "data/" + name;
        Json file;
        file["name"] = name;
        file["path"] = path;
        struct stat st {};
        file["exists"] = stat(path.c_str(), &st) == 0;
        if (!file["exists"].get<bool>()) {
            files.push_back(file);
            continue;
        }
        file["bytes"] = static_cast<unsigned long long>(st.st_size);
        file["age_seconds"] = static_cast<long long>(now - st.st_mtime);
        if (std::string(name).size() > 4 && std::string(name).compare(std::string(name).size() - 4, 4, ".bin") == 0) {
            try {
                const Json decoded = DecodeFile(path, 0);
                if (decoded.contains("records")) file["records"] = decoded["records"].size();
                if (decoded.contains("paths")) file["records"] = decoded["paths"].size();
            } catch (const SwinvError& e) {
                file["error"] = e.what();
            }
        }
        files.push_back(file);
    }
    return files;
}

Json CollectStatus(const HomeChoice& home, const std::string& library, std::time_t now) {
    Json status;
    status["kind"] = "status";
    status["home"] = home.path;
    status["home_from"] = home.source;
    status["library"] = library;
    status["config"] = ConfigInEffect(home.path);
    status["files"] = ComponentFiles(home.path, now);
    return status;
}

}  // namespace swinv
