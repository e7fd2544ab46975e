// What 'swinv status' reports: the home folder, the library, the configuration
// in effect (every key the component reads, with its default where the file
// does not set it) and the component's files with their age and record counts.
#pragma once

#include "HomeFolder.h"
#include "RecordJson.h"

#include <ctime>
#include <string>

namespace swinv {

extern const char* const kConfigFileName;   // ".Software_Inventory_Config"

// The configuration in effect, read the way the component reads it.
// {"file", "settings": [{"key", "value", "from": "file"|"default"}], "other_keys": {...}}
Json ConfigInEffect(const std::string& home);

// The files in data/: {"name", "path", "exists", "bytes", "age_seconds", "records"|"error"}.
Json ComponentFiles(const std::string& home, std::time_t now);

Json CollectStatus(const HomeChoice& home, const std::string& library, std::time_t now);

}  // namespace swinv
