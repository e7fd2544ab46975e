// The component's key=value settings file (".Software_Inventory_Config").
// Deliberately literal: no comments, no quoting and no trimming when reading;
// the first occurrence of a key wins; rewriting never truncates the file.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

class Config {
public:
    Config() = default;
    explicit Config(const char* path);   // lazy: the file is read on first use
    ~Config() = default;

    std::string getValue(const std::string& key);
    int getIntValue(const std::string& key, int defaultValue);
    void setValue(const std::string& key, const std::string& value);
    void setIntValue(const std::string& key, int value);
    // Merges a settings text (key="value" items separated by blanks and ';').
    void setItems(const std::string& text, bool keepExisting);
    // Writes every pair in key order; returns close()'s result. No-op for an empty path.
    int updateConfigFile();
    int updateValue(const std::string& key, const std::string& value);
    int updateIntValue(const std::string& key, int value);
    void removeKeysStartingWith(const char* prefix);
    void readConfigFile();

    const std::map<std::string, std::string>& items() const { return m_items; }

private:
    std::string m_fileName;
    bool m_loaded = false;
    std::map<std::string, std::string> m_items;
    bool m_worldReadable = false;
};

namespace configtext {
// One piece of at most 799 characters as the loader sees it (final line feed already
// removed); false for a line that defines nothing.
bool parseLine(const std::string& piece, std::string& key, std::string& value);
// The complete items of a settings text, in order; unterminated items are dropped.
std::vector<std::pair<std::string, std::string>> parseItems(const std::string& text);
}  // namespace configtext
