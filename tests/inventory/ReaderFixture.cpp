// inventory_reader_fixture LISTFILE READER...: writes a list file of 1000 mixed records with CInvMap::ToFile; the
// command READER... with "map LISTFILE" added must decode it to the keys, classes, schemas and fields written
// (strings as latin-1).
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <iostream>
#include <string>

// Each byte becomes the code point of the same value.
static nlohmann::json J(const std::string& s) {
    std::string out;
    for (unsigned char c : s)
        out += c < 0x80 ? std::string(1, c) : std::string{char(0xC0 | c >> 6), char(0x80 | (c & 0x3F))};
    return out;
}
static nlohmann::json J(long long n) { return n; }

// Lengths 0 to 300, across the 255 step of the length prefix; bytes from blank to 0xFE.
static std::string Text(int i) { return std::string(i * 13 % 301, static_cast<char>(' ' + i % 0xDF)); }

// Sets a field of the record r and notes it in the expected fields f.
#define SET(field, value) (r->field = (value), f[#field] = J(r->field))

int main(int, char** argv) {
    CInvMap map;
    nlohmann::json want, f;
    for (int i = 0; i < 1000; ++i, f = nlohmann::json()) {
        const bool pkg = i % 5 < 3;
        std::string key;
        if (pkg) {
            auto* r = new CSoftwarePackageObject;
            SET(m_strName, "pkg" + std::to_string(i));
            SET(m_strVersion, Text(i));
            SET(m_strVendor, Text(i + 1));
            SET(m_strExtra1, i % 11 == 0 ? "x1" : "");
            SET(m_strExtra2, i % 13 == 0 ? Text(i + 2) : "");
            SET(m_nFlags, i % 4 == 0 ? 128u : static_cast<unsigned>(i) * 2654435761u);
            SET(m_strDescription, Text(i + 3));
            map.SetAt(key = r->m_strName + "\\" + r->m_strVendor + "\\" + r->m_strVersion, r);
        } else {
            auto* r = new CSoftwareObject;
            SET(m_strVersion, Text(i));
            SET(m_strDescription, Text(i + 1));
            SET(m_strCompanyName, Text(i + 2));
            SET(m_strInfo1, "/srv/app" + std::to_string(i) + "/bin/run");
            SET(m_strInfo2, Text(i + 3));
            SET(m_strInfo3, Text(i + 4));
            SET(m_strInfo4, std::to_string(i));
            SET(m_nInfo5, i % 2 ? -i : i * 1000);
            SET(m_nInfo6, static_cast<unsigned>(i) * 40503u + 0x80000000u);
            SET(m_strPackage, i % 3 ? "pkg" + std::to_string(i - 1) : "");
            r->m_nTransient = 1;   // never written
            map.SetAt(key = "file\xB7" + r->m_strInfo1, r);
        }
        want[J(key).get<std::string>()] = {{"key", J(key)}, {"fields", f}, {"schema", pkg ? 2 : 3},
                                           {"class", pkg ? "CSoftwarePackageObject" : "CSoftwareObject"}};
    }
    if (map.GetCount() != 1000 || !map.ToFile(argv[1])) return 1;
    std::string command;
    for (char** arg = argv + 2; *arg; ++arg) command += std::string("'") + *arg + "' ";
    FILE* pipe = ::popen((command + "map '" + argv[1] + "'").c_str(), "r");
    std::string out;
    for (int c; pipe && (c = std::fgetc(pipe)) != EOF;) out += static_cast<char>(c);
    const auto decoded = nlohmann::json::parse(out);   // ends the program on anything but JSON
    nlohmann::json got;
    for (const auto& e : decoded["entries"])
        got[e["key"].get<std::string>()] = {{"key", e["key"]}, {"class", e["class"]}, {"schema", e["schema"]},
                                            {"fields", e["fields"]}};
    const auto diff = nlohmann::json::diff(want, got);   // entries missing, extra or decoded otherwise
    std::cout << diff.size() << " differences " << (diff.empty() ? "" : diff[0].dump().substr(0, 300)) << "\n";
    return ::pclose(pipe) == 0 && diff.empty() && decoded["entries"].size() == 1000 && decoded["count"] == 1000 ? 0 : 1;
}
