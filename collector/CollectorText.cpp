// Text rules of the collector: package query output, keys, name suffixes, and
// the pattern and exclusion matching of the file walk.
#include "CollectorText.h"

#include <sys/wait.h>

#include <cstring>

namespace collectortext {

bool ParsePackageQuery(const std::string& output, PackageFields& fields) {
    fields = PackageFields();
    const size_t first = output.find('^');
    fields.name = output.substr(0, first);
    if (first == std::string::npos) return false;
    const size_t second = output.find('^', first + 1);
    if (second == std::string::npos) return false;
    fields.version = output.substr(first + 1, second - first - 1);
    const size_t third = output.find('^', second + 1);
    if (third == std::string::npos) {
        fields.summary = output.substr(second + 1);
        // Deliberate: with no third field the company is the whole output.
        fields.company = output;
    } else {
        fields.summary = output.substr(second + 1, third - second - 1);
        fields.company = output.substr(third + 1);
    }
    return true;
}

std::string Combine(const std::string& a, const std::string& b, const std::string& c) {
    std::string key;
    key.reserve(a.size() + b.size() + c.size() + 2);
    key += a;
    key += '\\';
    key += b;
    key += '\\';
    key += c;
    return key;
}

std::string CutNameSuffix(const std::string& name) {
    const size_t lastOther = name.find_last_not_of("0123456789.-");
    if (lastOther == std::string::npos || lastOther + 1 == name.size()) return name;
    const size_t dash = name.find('-', lastOther);
    if (dash == std::string::npos) return name;
    return name.substr(0, dash);
}

void ChopFinalNewline(std::string& text) {
    if (!text.empty() && text.back() == '\n') text.pop_back();
}

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

bool SplitOwnerPackage(const std::string& output, std::string& first, std::string& second,
                       std::string& rest) {
    const size_t p1 = output.find('^');
    if (p1 == std::string::npos) return false;
    first = output.substr(0, p1);
    const size_t p2 = output.find('^', p1 + 1);
    if (p2 == std::string::npos) {
        second = output.substr(p1 + 1);
        rest = output;
    } else {
        second = output.substr(p1 + 1, p2 - p1 - 1);
        rest = output.substr(p2 + 1);
    }
    return true;
}

bool IsPlainPackageName(const std::string& line, bool rpm) {
    if (line.empty()) return false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || (rpm && c >= 'A' && c <= 'Z')) continue;
        if (i == 0 || c == '\0' || !std::strchr(rpm ? "+.-_~^" : "+.-", c)) return false;
    }
    return true;
}

namespace {

// At most 60 bytes of a name for a log line.
std::string Shown(const std::string& text) { return text.size() > 60 ? text.substr(0, 60) + "..." : text; }

}  // namespace

bool SplitBatchOutput(const std::string& output, const std::set<std::string>& asked,
                      std::map<std::string, std::string>& texts, std::string& problem) {
    std::set<std::string> finished;   // names whose records have been followed by another name's
    const std::string* current = nullptr;
    size_t pos = 0;
    while (pos < output.size()) {
        const size_t tagEnd = output.find(kBatchTagEnd, pos);
        const size_t recordEnd = tagEnd == std::string::npos ? tagEnd : output.find(kBatchRecordEnd, tagEnd + 1);
        if (recordEnd == std::string::npos) {
            problem = "the output does not end with a whole record";
            return false;
        }
        const std::string tag = output.substr(pos, tagEnd - pos);
        if (tag.find(kBatchRecordEnd) != std::string::npos ||
            output.find(kBatchTagEnd, tagEnd + 1) < recordEnd) {
            problem = "a field holds a separator byte";
            return false;
        }
        const auto name = asked.find(tag);
        if (name == asked.end()) {
            problem = "a record for '" + Shown(tag) + "', which was not asked for";
            return false;
        }
        if (current != &*name) {
            if (current) finished.insert(*current);
            if (finished.count(tag)) {
                problem = "the records of '" + Shown(tag) + "' are not together";
                return false;
            }
            current = &*name;
        }
        texts[tag].append(output, tagEnd + 1, recordEnd - tagEnd - 1);
        pos = recordEnd + 1;
    }
    return true;
}

std::vector<std::vector<std::string>> BatchGroups(const std::string& prefix, const std::vector<std::string>& names,
                                                  const ArgumentLimit& limit) {
    // The tool's own arguments besides the names (at most a few words of the prefix),
    // counted generously with their pointers.
    const size_t fixedExec = prefix.size() + 1 + 8 * sizeof(char*);
    std::vector<std::vector<std::string>> groups;
    size_t command = 0, exec = 0;
    for (const std::string& name : names) {
        const size_t more = name.size() + 1;
        if (groups.empty() || command + more > limit.commandBytes || exec + more + sizeof(char*) > limit.execBytes) {
            groups.emplace_back();
            command = prefix.size() + 1;   // the NUL
            exec = fixedExec;
        }
        groups.back().push_back(name);
        command += more;
        exec += more + sizeof(char*);
    }
    return groups;
}

std::string DescribeEndStatus(int status) {
    if (status == -1) return "end status unknown";
    if (WIFEXITED(status)) {
        const int code = WEXITSTATUS(status);
        // The shell's own codes: a command it could not find or run, or one killed by signal code - 128.
        std::string why = code == 127 ? " (command not found)" : code == 126 ? " (command not executable)" : "";
        if (code > 128 && code < 128 + 65) {
            const char* name = strsignal(code - 128);
            why = " (killed by signal " + std::to_string(code - 128) + (name ? std::string(", ") + name : "") + ")";
        }
        return "exit status " + std::to_string(code) + why;
    }
    if (WIFSIGNALED(status)) {
        const char* name = strsignal(WTERMSIG(status));
        return "killed by signal " + std::to_string(WTERMSIG(status)) + (name ? std::string(" (") + name + ")" : "");
    }
    return "end status " + std::to_string(status);
}

bool EndedWell(int status) { return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0; }

std::string OneLine(const std::string& command) {
    std::string line;
    for (const char c : command) line += c == '\n' ? std::string("\\n") : std::string(1, c);
    return line;
}

bool MatchPattern(const char* name, const char* pattern) {
    if (!name || !pattern) return false;
    size_t j = 0;
    while (pattern[j] == '*' && pattern[j + 1] == '*') ++j;
    if (pattern[j] == '*' && pattern[j + 1] == '\0') return true;

    for (size_t i = 0; name[i] != '\0'; ++i) {
        if (pattern[j] == '*') {
            if (pattern[j + 1] == '\0') return true;
            // The star ends at the first equal character; the one after it is literal,
            // even a "?".
            if (name[i] == pattern[j + 1]) j += 2;
        } else {
            // The end of the pattern differs from every name character.
            if (pattern[j] != '?' && pattern[j] != name[i]) return false;
            ++j;
        }
    }
    while (pattern[j] == '*') ++j;
    return pattern[j] == '\0';
}

bool FindMatch(const char* path, const std::string& list, bool wildcards) {
    if (!path) return false;
    char buffer[512];
    if (list.size() >= sizeof buffer) return false;
    std::memcpy(buffer, list.c_str(), list.size() + 1);

    const char* subject = path;
    if (wildcards) {
        const char* slash = std::strrchr(path, '/');
        if (slash) subject = slash + 1;
    }
    const size_t pathLength = std::strlen(path);

    char* cursor = buffer;
    while (*cursor) {
        char* bar = std::strchr(cursor, '|');
        if (bar) *bar = '\0';
        const char* item = cursor;
        cursor = bar ? bar + 1 : cursor + std::strlen(cursor);
        if (*item == '\0') continue;

        if (wildcards) {
            if (MatchPattern(subject, item)) return true;
        } else {
            // Only the first occurrence counts, even when a later one ends the path.
            const char* hit = std::strstr(path, item);
            if (hit && hit + std::strlen(item) == path + pathLength) return true;
        }
    }
    return false;
}

bool TestForExcludedExes(const char* path) {
    if (!path) return false;
    const char* so = std::strstr(path, ".so");
    if (so && (so[3] == '\0' || so[3] == '.')) return false;
    return std::strstr(path, "/plugins/") == nullptr;
}

void ForwardSlashes(std::string& text) {
    for (char& c : text)
        if (c == '\\') c = '/';
}

std::string WalkStartFolder(const std::string& start) {
    if (start.empty() || start == "*") return "/";
    if (start.back() == '/') return start;
    return start + "/";
}

}  // namespace collectortext
