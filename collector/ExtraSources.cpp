// The snap and flatpak sources: their list commands and how their output
// becomes package records.
#include "ExtraSources.h"

#include <algorithm>

namespace extrasources {

namespace {

const char kBlanks[] = " \t";

const Source kSources[] = {
    {"snap", "snap", "snap list --unicode=never --color=never", &ParseSnapList},
    {"flatpak", "flatpak", "flatpak list --app --columns=application,version,branch,origin,name", &ParseFlatpakList},
};

std::string Trimmed(const std::string& text, const char* blanks) {
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The lines of `output`; a final newline ends the last line rather than starting an empty one.
std::vector<std::string> Lines(const std::string& output) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < output.size();) {
        const size_t end = std::min(output.find('\n', start), output.size());
        lines.push_back(output.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

}  // namespace

std::vector<const Source*> SelectSources(const std::string& setting, std::vector<std::string>& unknown) {
    std::vector<const Source*> selected;
    for (size_t start = 0; start <= setting.size();) {
        const size_t bar = std::min(setting.find('|', start), setting.size());
        const std::string name = Trimmed(setting.substr(start, bar - start), kBlanks);
        start = bar + 1;
        if (name.empty()) continue;
        const Source* source = std::find_if(std::begin(kSources), std::end(kSources),
                                            [&](const Source& known) { return name == known.name; });
        if (source == std::end(kSources))
            unknown.push_back(name);
        else if (std::find(selected.begin(), selected.end(), source) == selected.end())
            selected.push_back(source);
    }
    return selected;
}

SourceList ParseSnapList(const std::string& output) {
    SourceList list;
    std::vector<std::string> lines = Lines(output);
    if (!lines.empty()) lines.erase(lines.begin());   // the header, whatever language it is in
    for (const std::string& line : lines) {
        std::vector<std::string> fields;
        for (size_t start = line.find_first_not_of(kBlanks); start != std::string::npos;) {
            const size_t end = std::min(line.find_first_of(kBlanks, start), line.size());
            fields.push_back(line.substr(start, end - start));
            start = line.find_first_not_of(kBlanks, end);
        }
        if (fields.empty()) continue;
        // Every column is printed, "-" when empty: a line without all six is not a snap's.
        if (fields.size() < 6) {
            list.skipped.push_back(line);
            continue;
        }
        std::string publisher = fields[4];
        publisher.erase(publisher.find_last_not_of('*') + 1);   // "**" verified, "*" starred
        if (publisher == "-") publisher.clear();
        list.records.push_back({fields[0], fields[1], publisher, "Snap package"});
    }
    return list;
}

SourceList ParseFlatpakList(const std::string& output) {
    SourceList list;
    for (const std::string& line : Lines(output)) {
        std::vector<std::string> fields;
        for (size_t start = 0; start <= line.size();) {
            const size_t tab = std::min(line.find('\t', start), line.size());
            fields.push_back(Trimmed(line.substr(start, tab - start), " \r"));
            start = tab + 1;
        }
        if (fields.size() == 1 && fields[0].empty()) continue;
        if (fields.size() < 5 || fields[0].empty()) {
            list.skipped.push_back(line);
            continue;
        }
        list.records.push_back({fields[0], fields[1].empty() ? fields[2] : fields[1], fields[3], fields[4]});
    }
    return list;
}

}  // namespace extrasources
