// Record and map conversion to JSON; see RecordJson.h.
#include "RecordJson.h"

#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"

namespace swinv {

Json RecordToJson(const std::string& key, CObject* value) {
    Json record;
    record["key"] = key;
    if (!value) {
        record["class"] = nullptr;
        return record;
    }
    record["class"] = value->GetRuntimeClass()->m_lpszClassName;
    if (value->IsKindOf(CLASS_RECORD(CSoftwarePackageObject))) {
        auto* package = static_cast<CSoftwarePackageObject*>(value);
        record["name"] = package->m_strName;
        record["version"] = package->m_strVersion;
        record["vendor"] = package->m_strVendor;
        record["extra1"] = package->m_strExtra1;
        record["extra2"] = package->m_strExtra2;
        record["flags"] = package->m_nFlags;
        record["description"] = package->m_strDescription;
    } else if (value->IsKindOf(CLASS_RECORD(CSoftwareObject))) {
        auto* software = static_cast<CSoftwareObject*>(value);
        record["version"] = software->m_strVersion;
        record["description"] = software->m_strDescription;
        record["company"] = software->m_strCompanyName;
        record["info1"] = software->m_strInfo1;
        record["info2"] = software->m_strInfo2;
        record["info3"] = software->m_strInfo3;
        record["info4"] = software->m_strInfo4;
        record["info5"] = software->m_nInfo5;
        record["info6"] = software->m_nInfo6;
        record["package"] = software->m_strPackage;
    }
    return record;
}

Json MapToJson(CInvMap& map) {
    Json records = Json::array();
    std::string key;
    CObject* value = nullptr;
    for (POSITION pos = map.GetStartPosition(); pos;) {
        map.GetNextAssoc(pos, key, value);
        records.push_back(RecordToJson(key, value));
    }
    return records;
}

std::string DumpJson(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace); }

}  // namespace swinv
