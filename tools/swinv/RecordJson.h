// Inventory records and maps as JSON: every persisted field of a record under a
// stable name, next to its key and class. This JSON is the model that both the
// --json output and the readable tables are made from.
#pragma once

#include "inventory/InvMap.h"

#include <nlohmann/json.hpp>

#include <string>

namespace swinv {

using Json = nlohmann::ordered_json;

// {"key", "class", then the record's fields}; a null or unknown value keeps only key and class.
Json RecordToJson(const std::string& key, CObject* value);
// The map's records in key order.
Json MapToJson(CInvMap& map);
// Pretty text; bytes that are not UTF-8 are replaced rather than failing the dump.
std::string DumpJson(const Json& json);

}  // namespace swinv
