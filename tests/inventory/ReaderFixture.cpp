// inventory_reader_fixture LISTFILE READER...: writes a list file of 1000 mixed records and a message of every element
// type. READER... with "map LISTFILE" added must decode the keys, classes, schemas and values written (strings as
// latin-1); with "encode-message", turn the decoded message back into its ToBuffer bytes.
#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"
#include "message/NDKMessage.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

using nlohmann::json;

// Each byte becomes the code point of the same value.
static json J(const std::string& s) {
    std::string out;
    for (unsigned char c : s)
        out += c < 0x80 ? std::string(1, c) : std::string{char(0xC0 | c >> 6), char(0x80 | (c & 0x3F))};
    return out;
}
static json J(long long n) { return n; }

// Lengths 0 to 300, across the 255 step of the length prefix; bytes from blank to 0xFE.
static std::string Text(int i) { return std::string(i * 13 % 301, static_cast<char>(' ' + i % 0xDF)); }

// The standard output of READER... (argv from 2 on) with `args` added; "" when it failed.
static std::string Reader(char** argv, const std::string& args) {
    std::string command, out;
    for (char** arg = argv + 2; *arg; ++arg) command += std::string("'") + *arg + "' ";
    FILE* pipe = ::popen((command + args).c_str(), "r");
    for (int c; pipe && (c = std::fgetc(pipe)) != EOF;) out += static_cast<char>(c);
    return pipe && ::pclose(pipe) == 0 ? out : "";
}

// Sets a field of the record r and notes it in the expected fields f.
#define SET(field, value) (r->field = (value), f[#field] = J(r->field))

int main(int, char** argv) {
    CInvMap map;
    json want, f;
    for (int i = 0; i < 1000; ++i, f = json()) {
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
    auto* message = new CNDKMessage(-1234567);
    json elements;
    const auto element = [&](int type, const json& value) { elements.push_back({{"type", type}, {"value", value}}); };
    const auto add = [&](int type, auto value) { message->Add(value), element(type, value); };
    add(0, static_cast<unsigned char>(0xC3)), add(1, static_cast<char>(-7)), add(2, static_cast<unsigned short>(0xFEDC));
    add(3, static_cast<short>(-32768)), add(4, 0xFFFFFFFEu), add(5, -2147483647 - 1), add(8, -0.15625f);
    add(9, 6.02214076e23), add(12, 0xFEDCBA9876543210ULL);
    const std::string text = "Caf\xE9 \x01\x7F|" + std::string(292, 'x');   // Latin-1, and the 0xFF length escape
    message->Add(text), element(10, J(text));
    message->AddUnc("\x00\xFF\x10\x80\x7F", 5), element(11, {{"length", 5}, {"hex", "00ff10807f"}});
    message->Add("\x00\xFF", 2), element(4, 0), element(11, {{"length", 2}, {"hex", "00ff"}});   // a block: hidden 0, raw
    map.SetAt("message", message);
    want["message"] = {{"key", "message"}, {"class", "CNDKMessage"}, {"schema", 1},
                       {"message", {{"id", -1234567}, {"count", 13}, {"hidden", 1}, {"elements", elements}}}};
    const std::string path = argv[1];
    if (map.GetCount() != 1001 || !map.ToFile(path)) return 1;
    const auto decoded = json::parse(Reader(argv, "map '" + path + "'"));   // ends the program on anything but JSON
    json got;
    bool reencoded = false;
    for (json e : decoded["entries"]) {
        const char* body = e.contains("message") ? "message" : "fields";
        got[e["key"].get<std::string>()] = {{"key", e["key"]}, {"class", e["class"]}, {"schema", e["schema"]}, {body, e[body]}};
        if (*body == 'f') continue;
        for (json& value : got["message"]["message"]["elements"]) value.erase("raw");   // stored bytes: compared below
        std::ofstream(path + ".json") << e[body];
        Reader(argv, "encode-message '" + path + ".json' -o '" + path + ".again'");
        std::ifstream again(path + ".again", std::ios::binary);
        void* wire = nullptr;
        const int n = message->ToBuffer(&wire);
        reencoded = std::string(std::istreambuf_iterator<char>(again), {}) == std::string(static_cast<char*>(wire), n);
        std::free(wire);
    }
    const auto diff = json::diff(want, got);   // entries missing, extra or decoded otherwise
    std::cout << diff.size() << " differences " << (diff.empty() ? "" : diff[0].dump().substr(0, 300))
              << (reencoded ? "" : "; encode-message differs from ToBuffer") << "\n";
    return diff.empty() && reencoded && decoded["entries"].size() == 1001 && decoded["count"] == 1001 ? 0 : 1;
}
