// Settings message construction and checks; see SettingsMessage.h.
#include "SettingsMessage.h"

#include "support/Config.h"

#include <algorithm>
#include <cctype>

namespace swinv {

const std::vector<SettingKey>& KnownSettings() {
    static const std::vector<SettingKey> keys = {
        {"Mode", "1", "bit set: 1 packages, 2 executables below Include, 4 files matching Scan"},
        {"Include", "/home/", "folders of the executable scan, separated by |"},
        {"Scan", "*.jpg|*.bmp", "file name patterns of the file scan, separated by |"},
        {"ExtInSelected", "1", "file scan: 1 = only the IncExt folders, 0 = everything but Exclude"},
        {"IncExt", "", "file scan: folders to scan, separated by |"},
        {"Exclude", "", "file scan: folders to leave out, separated by |"},
        {"LeastMost", "0", "file scan: 0 = SizeKB is a minimum, otherwise a maximum"},
        {"SizeKB", "0", "file scan: size limit in KiB (0 = none)"},
        {"Logging", "0", "1 = write data/Software.log"},
        {"RunAtStartup", "1", "0 = skip the inventory the agent starts at its own start-up"},
        {"BatchQuery", "1", "1 = ask the package manager once for all packages; 0 = once per package"},
        {"Sources", "", "with Mode 1, extra package sources separated by |: snap, flatpak"},
    };
    return keys;
}

void BuildSettingsMessage(CNDKMessage& message, const std::string& text, const std::vector<std::string>& searchPaths) {
    const std::string withNul = text + '\0';
    const auto length = static_cast<unsigned int>(withNul.size());
    message.Add(length);
    message.Add(withNul.data(), length);
    for (const auto& path : searchPaths) message.Add(path);
    message.Add(std::string());
}

std::vector<std::string> CheckSettingsRequest(const std::string& text, const std::vector<std::string>& searchPaths) {
    std::vector<std::string> problems;
    if (text.find('\0') != std::string::npos) problems.push_back("the settings text contains a NUL byte");
    const bool blank = std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; });
    if (!blank && configtext::parseItems(text).empty()) {
        problems.push_back("no Key=\"value\" item in the settings text; quote every value, for example 'Mode=\"5\"; "
                           "Include=\"/opt|/srv\"'");
    }
    if (blank && searchPaths.empty()) problems.push_back("nothing to send: give a settings text or --search PATH");
    for (const auto& path : searchPaths) {
        if (path.empty()) problems.push_back("--search needs a non-empty path (an empty one ends the list)");
    }
    return problems;
}

std::vector<std::string> UnknownKeys(const std::string& text) {
    std::vector<std::string> unknown;
    for (const auto& item : configtext::parseItems(text)) {
        const auto& known = KnownSettings();
        const bool found = std::any_of(known.begin(), known.end(),
                                       [&](const SettingKey& key) { return item.first == key.name; });
        if (!found) unknown.push_back(item.first);
    }
    return unknown;
}

}  // namespace swinv
