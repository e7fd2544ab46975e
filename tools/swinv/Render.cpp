// Text rendering; see Render.h.
#include "Render.h"

#include <algorithm>
#include <string>
#include <vector>

namespace swinv {

namespace {

std::string Text(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_null()) return std::string();
    return value.dump();
}

// Cuts at `width` bytes without splitting a UTF-8 sequence; marks the cut with "...".
std::string Clip(const std::string& text, size_t width) {
    if (text.size() <= width) return text;
    size_t cut = width > 3 ? width - 3 : 0;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    return text.substr(0, cut) + "...";
}

bool IsPackage(const Json& record) { return record.value("class", Json()).is_string() && record["class"] == "CSoftwarePackageObject"; }

// One line per record: name and version for packages, the key and version otherwise.
std::string ItemLine(const Json& record) {
    if (IsPackage(record)) {
        std::string line = Text(record["name"]) + " " + Text(record["version"]);
        const std::string vendor = Text(record["vendor"]);
        if (!vendor.empty() && vendor != " ") line += "  [" + vendor + "]";
        return line;
    }
    std::string line = Text(record["key"]);
    if (record.contains("version") && !Text(record["version"]).empty()) line += " " + Text(record["version"]);
    return line;
}

void Table(const std::vector<std::string>& headers, const std::vector<std::vector<std::string>>& rows, std::ostream& out) {
    std::vector<size_t> widths;
    for (const auto& h : headers) widths.push_back(h.size());
    for (const auto& row : rows)
        for (size_t i = 0; i < row.size() && i < widths.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    auto line = [&](const std::vector<std::string>& cells) {
        std::string text;
        for (size_t i = 0; i < cells.size(); ++i) {
            text += cells[i];
            if (i + 1 < cells.size()) text += std::string(widths[i] - cells[i].size() + 2, ' ');
        }
        text.erase(text.find_last_not_of(' ') + 1);
        out << "  " << text << "\n";
    };
    line(headers);
    for (const auto& row : rows) line(row);
}

void RecordTable(const Json& records, std::ostream& out) {
    std::vector<std::vector<std::string>> rows;
    bool packages = true;
    for (const auto& record : records) packages = packages && IsPackage(record);
    for (const auto& record : records) {
        if (packages) {
            rows.push_back({Clip(Text(record["name"]), 40), Clip(Text(record["version"]), 30),
                            Clip(Text(record["vendor"]), 20), Clip(Text(record["description"]), 60)});
        } else {
            rows.push_back({Clip(Text(record["key"]), 60), Clip(Text(record.value("class", Json())), 24),
                            Clip(Text(record.value("version", Json())), 30),
                            Clip(Text(record.value("package", Json())), 40)});
        }
    }
    if (packages)
        Table({"NAME", "VERSION", "VENDOR", "DESCRIPTION"}, rows, out);
    else
        Table({"KEY", "CLASS", "VERSION", "PACKAGE"}, rows, out);
}

void Counts(const char* label, const Json& section, std::ostream& out) {
    out << label << section["added"].size() << " added, " << section["deleted"].size() << " deleted, "
        << section["changed"].size() << " changed";
    if (section["baseline_missing"].get<bool>()) out << "  (no stored list: everything counts as added)";
    out << "\n";
}

void Items(const char* title, const Json& records, const char* mark, std::ostream& out) {
    if (records.empty()) return;
    out << "\n" << title << " (" << records.size() << "):\n";
    for (const auto& record : records) out << "  " << mark << " " << ItemLine(record) << "\n";
}

}  // namespace

std::string DescribeAge(long long seconds) {
    if (seconds < 0) seconds = 0;
    if (seconds < 90) return std::to_string(seconds) + " s ago";
    if (seconds < 90 * 60) return std::to_string(seconds / 60) + " min ago";
    if (seconds < 48 * 3600) return std::to_string(seconds / 3600) + " h ago";
    return std::to_string(seconds / 86400) + " days ago";
}

void RenderReply(const Json& reply, std::ostream& out) {
    out << "Scan time: " << Text(reply["scan_time"]) << "\n";
    Counts("Software:  ", reply["software"], out);
    Counts("Packages:  ", reply["packages"], out);
    Items("Software added", reply["software"]["added"], "+", out);
    Items("Software deleted", reply["software"]["deleted"], "-", out);
    Items("Software changed", reply["software"]["changed"], "~", out);
    Items("Packages added", reply["packages"]["added"], "+", out);
    Items("Packages deleted", reply["packages"]["deleted"], "-", out);
    Items("Packages changed", reply["packages"]["changed"], "~", out);
}

void RenderFile(const Json& decoded, std::ostream& out) {
    const std::string kind = Text(decoded["kind"]);
    const std::string file = Text(decoded.value("file", Json()));
    if (kind == "inventory map") {
        out << file << ": inventory list, " << decoded["records"].size() << " record(s)\n";
        if (!decoded["records"].empty()) RecordTable(decoded["records"], out);
    } else if (kind == "search paths") {
        out << file << ": extra search paths, " << decoded["paths"].size() << "\n";
        for (const auto& path : decoded["paths"]) out << "  " << Text(path) << "\n";
    } else if (kind == "reply") {
        out << file << ": inventory reply\n";
        RenderReply(decoded, out);
    } else {
        out << file << ": message " << decoded["id"] << ", " << decoded["elements"].size() << " element(s), not an inventory ("
            << Text(decoded["not_an_inventory"]) << ")\n";
        int index = 0;
        for (const auto& element : decoded["elements"]) {
            out << "  " << index++ << "  " << Text(element["type"]);
            if (element.contains("value")) out << "  " << Text(element["value"]);
            if (element.contains("length")) out << "  " << element["length"] << " bytes";
            out << "\n";
        }
    }
}

void RenderStatus(const Json& status, std::ostream& out) {
    out << "Home:     " << Text(status["home"]) << "  (from " << Text(status["home_from"]) << ")\n";
    out << "Library:  " << Text(status["library"]) << "\n";
    out << "\nConfiguration (" << Text(status["config"]["file"]) << "):\n";
    std::vector<std::vector<std::string>> rows;
    for (const auto& item : status["config"]["settings"]) {
        rows.push_back({Text(item["key"]), "\"" + Text(item["value"]) + "\"", Text(item["from"]), Text(item["meaning"])});
    }
    Table({"KEY", "VALUE", "FROM", "MEANING"}, rows, out);
    for (const auto& [key, value] : status["config"]["other_keys"].items())
        out << "  " << key << "=\"" << Text(value) << "\"  (not read by the component)\n";
    out << "\nFiles (" << Text(status["home"]) << "data/):\n";
    rows.clear();
    for (const auto& file : status["files"]) {
        if (!file["exists"].get<bool>()) {
            rows.push_back({Text(file["name"]), "-", "-", "missing"});
            continue;
        }
        std::string content = std::to_string(file["bytes"].get<unsigned long long>()) + " bytes";
        if (file.contains("records")) content = std::to_string(file["records"].get<size_t>()) + " record(s)";
        if (file.contains("error")) content = "unreadable";
        rows.push_back({Text(file["name"]), DescribeAge(file["age_seconds"].get<long long>()), content, ""});
    }
    Table({"FILE", "CHANGED", "CONTENT", ""}, rows, out);
}

}  // namespace swinv
