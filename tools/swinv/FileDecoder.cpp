// Content-based decoding of list files, path files and replies; see FileDecoder.h.
#include "FileDecoder.h"

#include "InventoryReply.h"
#include "Isolated.h"
#include "SwinvError.h"

#include "message/NDKMessage.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace swinv {

namespace {

std::string BaseName(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Loads `object` from the whole of `bytes`; false unless it read every byte and nothing threw.
bool LoadExactly(CObject& object, const std::vector<unsigned char>& bytes) {
    if (bytes.empty()) return false;
    std::vector<unsigned char> copy(bytes);   // CMemFile wants a writable block
    CMemFile file(copy.data(), static_cast<unsigned int>(copy.size()), 0);
    try {
        CArchive archive(&file, CArchive::load, 4096);
        object.Serialize(archive);
        archive.Close();   // seeks the file back to the archive's logical position
    } catch (CFileException* e) {
        delete e;
        return false;
    } catch (const std::exception&) {
        return false;
    }
    return file.GetPosition() == bytes.size();
}

bool AllRecords(CInvMap& map) {
    std::string key;
    CObject* value = nullptr;
    for (POSITION pos = map.GetStartPosition(); pos;) {
        map.GetNextAssoc(pos, key, value);
        if (!value || !value->IsKindOf(CLASS_RECORD(CListObject))) return false;
    }
    return true;
}

bool TryMap(const std::vector<unsigned char>& bytes, const std::string& name, Json& out) {
    CInvMap map;
    if (!LoadExactly(map, bytes) || !AllRecords(map)) return false;
    out = Json::object();
    out["kind"] = "inventory map";
    out["file"] = name;
    out["count"] = map.GetCount();
    out["records"] = MapToJson(map);
    return true;
}

bool TryPaths(const std::vector<unsigned char>& bytes, const std::string& name, Json& out) {
    CStringArray paths;
    if (!LoadExactly(paths, bytes)) return false;
    out = Json::object();
    out["kind"] = "search paths";
    out["file"] = name;
    out["paths"] = Json::array();
    for (int i = 0; i < paths.GetSize(); ++i) out["paths"].push_back(paths.GetAt(i));
    return true;
}

Json ElementToJson(const CNDKMessageData& element) {
    Json item;
    const int code = element.GetDataType();
    item["type"] = ElementTypeName(code);
    switch (code) {
        case NDKUChar: { unsigned char v = 0; element.Get(v); item["value"] = v; break; }
        case NDKChar: { char v = 0; element.Get(v); item["value"] = static_cast<int>(v); break; }
        case NDKUShort: { unsigned short v = 0; element.Get(v); item["value"] = v; break; }
        case NDKShort: { short v = 0; element.Get(v); item["value"] = v; break; }
        case NDKUInt: { unsigned int v = 0; element.Get(v); item["value"] = v; break; }
        case NDKInt: { int v = 0; element.Get(v); item["value"] = v; break; }
        case NDKFloat: { float v = 0; element.Get(v); item["value"] = v; break; }
        case NDKDouble: { double v = 0; element.Get(v); item["value"] = v; break; }
        case NDKUInt64: { unsigned long long v = 0; element.Get(v); item["value"] = v; break; }
        case NDKString: { std::string v; element.Get(v); item["value"] = v; break; }
        case NDKBuffer: item["length"] = element.GetDataBuffer().GetLength(); break;
        default: break;
    }
    return item;
}

bool TryMessage(const std::vector<unsigned char>& bytes, const std::string& name, int skip, Json& out) {
    // Identifier, element count and hidden count come first.
    if (bytes.size() < 12) return false;
    CNDKMessage message;
    if (!LoadExactly(message, bytes)) return false;
    try {
        out = DecodeReply(message, skip);
        out["file"] = name;
        return true;
    } catch (const ReplyFormatError& notReply) {
        out = Json::object();
        out["kind"] = "message";
        out["file"] = name;
        out["not_an_inventory"] = notReply.what();
        out["id"] = message.GetId();
        out["hidden_elements"] = message.GetHiddenElements();
        out["elements"] = Json::array();
        const CElements& elements = message.GetElements();
        for (int i = 0; i < elements.GetSize(); ++i) out["elements"].push_back(ElementToJson(elements.GetAt(i)));
        return true;
    }
}

}  // namespace

Json DecodeFileBytes(const std::vector<unsigned char>& bytes, const std::string& nameHint, int skip) {
    Json out;
    if (bytes.empty()) throw NotAListFile("it is empty");
    const bool pathsFirst = nameHint == "swsearch.bin";
    if (TryMessage(bytes, nameHint, skip, out)) return out;
    if (pathsFirst && TryPaths(bytes, nameHint, out)) return out;
    if (TryMap(bytes, nameHint, out)) return out;
    if (!pathsFirst && TryPaths(bytes, nameHint, out)) return out;
    throw NotAListFile("its bytes are none of the known formats");
}

Json DecodeFile(const std::string& path, int skip) {
    struct stat st {};
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        throw SwinvError(path + " is a folder; give one of the files in it, such as " + path + "/SWPackage.bin");
    std::ifstream in(path, std::ios::binary);
    if (!in) throw SwinvError("cannot read " + path + ": " + std::strerror(errno) + "; check the file name");
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string name = BaseName(path);
    const IsolatedResult result = RunIsolated([&] { return DecodeFileBytes(bytes, name, skip).dump(-1, ' ', false, Json::error_handler_t::replace); });
    const std::string usage = "; give SWList.bin, SWPackage.bin or swsearch.bin from the data folder, "
                              "or a reply saved with 'swinv run --save-reply FILE'";
    if (result.outcome == IsolatedResult::kThrew)
        throw SwinvError(path + " is not a list file or reply: " + result.text + usage);
    if (result.outcome == IsolatedResult::kDied)
        throw SwinvError(path + " is not a list file or reply: its bytes are none of the known formats" + usage);
    return Json::parse(result.text);
}

}  // namespace swinv
