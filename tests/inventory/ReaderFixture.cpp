// inventory_reader_fixture LISTFILE READER...: writes a list file holding a message of every element type.
// READER... with "map LISTFILE" added must decode it as written (strings as latin-1); with "encode-message", turn
// the decoded message back into its ToBuffer bytes. The records' decoding is checked by the formats document's test.
#include "../message/MessageBytes.h"
#include "inventory/InvMap.h"

#include <nlohmann/json.hpp>

#include <cstdio>
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

// The standard output of READER... (argv from 2 on) with `args` added; "" when it failed.
static std::string Reader(char** argv, const std::string& args) {
    std::string command, out;
    for (char** arg = argv + 2; *arg; ++arg) command += std::string("'") + *arg + "' ";
    FILE* pipe = ::popen((command + args).c_str(), "r");
    for (int c; pipe && (c = std::fgetc(pipe)) != EOF;) out += static_cast<char>(c);
    return pipe && ::pclose(pipe) == 0 ? out : "";
}

int main(int, char** argv) {
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
    CInvMap map;
    map.SetAt("message", message);
    const json want = {{"key", "message"}, {"class", "CNDKMessage"}, {"schema", 1},
                       {"message", {{"id", -1234567}, {"count", 13}, {"hidden", 1}, {"elements", elements}}}};
    const std::string path = argv[1];
    if (!map.ToFile(path)) return 1;
    const auto decoded = json::parse(Reader(argv, "map '" + path + "'"));   // ends the program on anything but JSON
    const json& entry = decoded["entries"].at(0);
    json got = {{"key", entry["key"]}, {"class", entry["class"]}, {"schema", entry["schema"]}, {"message", entry["message"]}};
    for (json& value : got["message"]["elements"]) value.erase("raw");   // stored bytes: compared below
    std::ofstream(path + ".json") << entry["message"];
    Reader(argv, "encode-message '" + path + ".json' -o '" + path + ".again'");
    std::ifstream again(path + ".again", std::ios::binary);
    const bool reencoded = std::vector<std::uint8_t>(std::istreambuf_iterator<char>(again), {}) == ToBytes(*message);
    const auto diff = json::diff(want, got);
    std::cout << diff.size() << " differences " << (diff.empty() ? "" : diff[0].dump().substr(0, 300))
              << (reencoded ? "" : "; encode-message differs from ToBuffer") << "\n";
    return diff.empty() && reencoded && decoded["entries"].size() == 1 && decoded["count"] == 1 ? 0 : 1;
}
