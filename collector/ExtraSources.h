// Package sources beside dpkg and rpm that the server can ask for with the
// "Sources" setting: installed snaps and flatpak apps. Each source has one list
// command; the pure parsers here turn its output into package records, so tables
// of text test them without running anything.
#pragma once

#include <string>
#include <vector>

namespace extrasources {

// One installed item as a package record carries it; an empty company stays empty here.
struct SourceRecord {
    std::string name;
    std::string version;
    std::string company;
    std::string summary;
};

// What one list command's output holds: its records in output order, and the lines
// that were skipped for too few fields.
struct SourceList {
    std::vector<SourceRecord> records;
    std::vector<std::string> skipped;
};

struct Source {
    const char* name;      // as the setting names it
    const char* tool;      // the program the command starts, looked for on the search path
    const char* command;   // the list command line
    SourceList (*parse)(const std::string& output);
};

// The sources named in a "Sources" value ("snap|flatpak"), in the order given and each once;
// blanks around a name and empty names are ignored, unknown names are added to `unknown`.
std::vector<const Source*> SelectSources(const std::string& setting, std::vector<std::string>& unknown);

// A header line, then per snap "Name Version Rev Tracking Publisher Notes" split at runs of
// blanks. The publisher loses its trailing "*" marks, and "-" (none) becomes empty.
SourceList ParseSnapList(const std::string& output);

// Per app, without a header, "application version branch origin name" split at tabs, each
// field without its surrounding blanks; an empty version is replaced by the branch.
SourceList ParseFlatpakList(const std::string& output);

}  // namespace extrasources
