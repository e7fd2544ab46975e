// Writes a list file of 1000 mixed records with CInvMap::ToFile and a JSON file of
// the keys and fields a reader of the format must find in it (strings as latin-1).
// Usage: inventory_reader_fixture LISTFILE JSONFILE
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

// Each byte becomes the code point of the same value.
std::string Latin1(const std::string& s) {
    std::string out;
    for (unsigned char c : s) {
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return out;
}

// Varied text: plain, high-bit bytes, empty, and lengths around the 255 prefix step.
std::string Text(const std::string& stem, int i) {
    switch (i % 7) {
        case 0: return stem + std::to_string(i);
        case 1: return stem + "\xE9t\xE9-\xFF" + std::to_string(i);
        case 2: return "";
        case 3: return std::string(254, 'a') + std::to_string(i % 10);
        case 4: return std::string(255 + i % 3, 'b');
        case 5: return stem + " with spaces\\and\\backslashes " + std::to_string(i);
        default: return std::string(300 + i, static_cast<char>('A' + i % 26));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s LISTFILE JSONFILE\n", argv[0]);
        return 2;
    }
    CInvMap map;
    for (int i = 0; i < 1000; ++i) {
        if (i % 5 < 3) {
            auto* p = new CSoftwarePackageObject;
            p->m_strName = "pkg" + std::to_string(i);
            p->m_strVersion = Text("1.", i);
            p->m_strVendor = Text("Vendor ", i + 1);
            p->m_strExtra1 = i % 11 == 0 ? "x1" : "";
            p->m_strExtra2 = i % 13 == 0 ? Text("x2 ", i) : "";
            p->m_nFlags = i % 4 == 0 ? 128u : static_cast<unsigned>(i) * 2654435761u;
            p->m_strDescription = Text("Description ", i + 2);
            map.SetAt(p->m_strName + "\\" + p->m_strVendor + "\\" + p->m_strVersion, p);
        } else {
            auto* s = new CSoftwareObject;
            s->m_strVersion = Text("2.", i);
            s->m_strDescription = Text("Tool ", i + 3);
            s->m_strCompanyName = Text("Company ", i + 4);
            s->m_strInfo1 = "/srv/app" + std::to_string(i) + "/bin/run";
            s->m_strInfo2 = Text("i2 ", i + 5);
            s->m_strInfo3 = Text("i3 ", i + 6);
            s->m_strInfo4 = std::to_string(i);
            s->m_nInfo5 = i % 2 ? -i : i * 1000;
            s->m_nInfo6 = static_cast<unsigned>(i) * 40503u + 0x80000000u;
            s->m_nTransient = 1;   // never written
            s->m_strPackage = i % 3 ? "pkg" + std::to_string(i - 1) : "";
            map.SetAt("file\xB7" + s->m_strInfo1, s);
        }
    }
    if (map.GetCount() != 1000 || !map.ToFile(argv[1])) {
        std::fprintf(stderr, "could not write %s\n", argv[1]);
        return 1;
    }

    nlohmann::json entries = nlohmann::json::array();
    POSITION pos = map.GetStartPosition();
    while (pos) {
        std::string key;
        CObject* v = nullptr;
        map.GetNextAssoc(pos, key, v);
        nlohmann::json f;
        nlohmann::json e = {{"key", Latin1(key)}};
        if (v->IsKindOf(CLASS_RECORD(CSoftwarePackageObject))) {
            auto* p = static_cast<CSoftwarePackageObject*>(v);
            e["class"] = "CSoftwarePackageObject";
            e["schema"] = 2;
            f = {{"m_strName", Latin1(p->m_strName)},       {"m_strVersion", Latin1(p->m_strVersion)},
                 {"m_strVendor", Latin1(p->m_strVendor)},   {"m_strExtra1", Latin1(p->m_strExtra1)},
                 {"m_nFlags", p->m_nFlags},                 {"m_strExtra2", Latin1(p->m_strExtra2)},
                 {"m_strDescription", Latin1(p->m_strDescription)}};
        } else {
            auto* s = static_cast<CSoftwareObject*>(v);
            e["class"] = "CSoftwareObject";
            e["schema"] = 3;
            f = {{"m_strVersion", Latin1(s->m_strVersion)},
                 {"m_strDescription", Latin1(s->m_strDescription)},
                 {"m_strCompanyName", Latin1(s->m_strCompanyName)},
                 {"m_strInfo1", Latin1(s->m_strInfo1)},
                 {"m_strInfo2", Latin1(s->m_strInfo2)},
                 {"m_strInfo3", Latin1(s->m_strInfo3)},
                 {"m_strInfo4", Latin1(s->m_strInfo4)},
                 {"m_nInfo5", s->m_nInfo5},
                 {"m_nInfo6", s->m_nInfo6},
                 {"m_strPackage", Latin1(s->m_strPackage)}};
        }
        e["fields"] = f;
        entries.push_back(e);
    }
    std::ofstream out(argv[2]);
    out << nlohmann::json{{"count", map.GetCount()}, {"entries", entries}}.dump(1) << "\n";
    return out ? 0 : 1;
}
