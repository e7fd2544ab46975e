// The component's key=value settings file. Reading takes lines literally (no
// trimming, no comments, first occurrence wins); writing rewrites the pairs in key
// order over the old content without truncating it. The text parsing lives in the
// configtext functions so that it can be checked on its own.
#include "support/Config.h"

#include "support/WriteAll.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Each fgets() piece holds at most 799 characters; longer lines arrive in pieces.
constexpr int kLineBuffer = 800;

class FileGuard {
public:
    explicit FileGuard(FILE* file) : m_file(file) {}
    ~FileGuard() {
        if (m_file) std::fclose(m_file);
    }
    FileGuard(const FileGuard&) = delete;
    FileGuard& operator=(const FileGuard&) = delete;
    FILE* get() const { return m_file; }

private:
    FILE* m_file;
};


bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

}  // namespace

namespace configtext {

bool parseLine(const std::string& piece, std::string& key, std::string& value) {
    // A blank is a separator as well: "Mode = 2" gives the key Mode and the value "= 2".
    const size_t sep = piece.find_first_of(" =");
    if (sep == std::string::npos || sep == 0) return false;
    key.assign(piece, 0, sep);
    value.assign(piece, sep + 1, std::string::npos);
    return true;
}

std::vector<std::pair<std::string, std::string>> parseItems(const std::string& text) {
    std::vector<std::pair<std::string, std::string>> items;
    // The text is read as a C string: it ends at the first NUL.
    const size_t end = std::min(text.find('\0'), text.size());
    size_t i = 0;
    while (i < end && IsSpace(text[i])) ++i;

    std::string key;
    while (i < end) {
        if (text[i] != '=') {
            key += text[i++];
            continue;
        }
        ++i;
        while (i < end && IsSpace(text[i])) ++i;
        // The opening quote is skipped unseen; "Mode=2\"" therefore gives an empty value.
        // A text that ends here has no value at all and the item is dropped.
        if (i >= end) break;
        ++i;
        const size_t valueStart = i;
        while (i < end && text[i] != '"') ++i;
        if (i >= end) break;   // no closing quote: the item is dropped
        std::string value(text, valueStart, i - valueStart);
        ++i;

        const size_t first = key.find_first_not_of(' ');
        if (first != std::string::npos) {
            const size_t last = key.find_last_not_of(' ');
            items.emplace_back(key.substr(first, last - first + 1), std::move(value));
        }
        key.clear();
        while (i < end && (IsSpace(text[i]) || text[i] == ';')) ++i;
    }
    return items;
}

}  // namespace configtext

Config::Config(const char* path) : m_fileName(path ? path : "") {}

void Config::readConfigFile() {
    if (m_fileName.empty()) return;
    FileGuard file(std::fopen(m_fileName.c_str(), "r"));
    if (file.get()) {
        char buffer[kLineBuffer];
        std::string key, value;
        while (std::fgets(buffer, sizeof buffer, file.get())) {
            // Taken as a C string, like every other text of this file.
            size_t length = std::strlen(buffer);
            if (length > 0 && buffer[length - 1] == '\n') --length;
            if (configtext::parseLine(std::string(buffer, length), key, value))
                m_items.emplace(key, value);   // an existing key keeps its value
        }
    }
    m_loaded = true;
}

std::string Config::getValue(const std::string& key) {
    if (!m_loaded) readConfigFile();
    const auto it = m_items.find(key);
    return it == m_items.end() ? std::string() : it->second;
}

int Config::getIntValue(const std::string& key, int defaultValue) {
    const std::string value = getValue(key);
    if (value.empty()) return defaultValue;
    // atoi() as the C library computes it, without its undefined overflow.
    return static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
}

void Config::setValue(const std::string& key, const std::string& value) {
    if (!m_loaded) readConfigFile();
    m_items[key] = value;
}

void Config::setIntValue(const std::string& key, int value) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    setValue(key, text);
}

void Config::setItems(const std::string& text, bool keepExisting) {
    if (!m_loaded) readConfigFile();
    for (auto& item : configtext::parseItems(text)) {
        if (keepExisting && m_items.count(item.first)) continue;
        setValue(item.first, item.second);
    }
}

int Config::updateConfigFile() {
    if (m_fileName.empty()) return 0;
    const mode_t mode = m_worldReadable ? 0644 : 0600;
    // No O_TRUNC: a shorter content leaves the old tail in the file.
    const int fd = ::open(m_fileName.c_str(), O_WRONLY | O_CREAT, mode);
    // Only descriptor 0 is taken as failure. It is left open so that it keeps the slot
    // of standard input filled. A -1 writes nothing and reports what close(-1) would.
    if (fd == 0 || fd < 0) return -1;
    for (const auto& item : m_items) {
        support::WriteAll(fd, item.first.data(), item.first.size());
        support::WriteAll(fd, "=", 1);
        support::WriteAll(fd, item.second.data(), item.second.size());
        support::WriteAll(fd, "\n", 1);
    }
    return ::close(fd);
}

int Config::updateValue(const std::string& key, const std::string& value) {
    setValue(key, value);
    return updateConfigFile();
}

int Config::updateIntValue(const std::string& key, int value) {
    setIntValue(key, value);
    return updateConfigFile();
}

void Config::removeKeysStartingWith(const char* prefix) {
    if (!prefix) return;
    const std::string start(prefix);
    // The keys with a given prefix form one run in the ordered map.
    auto it = m_items.lower_bound(start);
    while (it != m_items.end() && it->first.compare(0, start.size(), start) == 0) it = m_items.erase(it);
}
