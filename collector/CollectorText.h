// Pure text rules of the collector: how package-manager output becomes record
// fields and keys, and how paths are held against name patterns and exclusion
// lists. Nothing here runs a command or touches the file system, so tests can
// feed these functions tables of cases.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace collectortext {

// The four fields of one package query line "name^version^summary^company".
struct PackageFields {
    std::string name;
    std::string version;
    std::string summary;
    std::string company;
};

// Splits a package query's output. False (fields past the name left empty) when the
// output lacks a second "^". Without a third "^" the company is the whole output.
bool ParsePackageQuery(const std::string& output, PackageFields& fields);

// a, b and c joined by single backslashes.
std::string Combine(const std::string& a, const std::string& b, const std::string& c);

// Cuts a version-like tail ("kernel-2.6.18" -> "kernel"): only when the name ends in
// one of "0123456789.-" and a "-" follows its last character outside that set.
std::string CutNameSuffix(const std::string& name);

// Removes one final "\n", if present.
void ChopFinalNewline(std::string& text);

// The text before the first "\n" (all of it when there is none).
std::string FirstLine(const std::string& text);

// The owner query's package output split at the first two "^" into the three slots
// of an executable's record; false when the output holds no "^".
bool SplitOwnerPackage(const std::string& output, std::string& first, std::string& second,
                       std::string& rest);

// A batch package query answers for many names at once. Each of its records is a tag
// (the list line it answers for), kBatchTagEnd, the text the per-package query prints
// for that package, and kBatchRecordEnd. Neither byte may occur in a field.
constexpr char kBatchTagEnd = '\x1F';
constexpr char kBatchRecordEnd = '\x1E';

// True when a list line can go into a batch call as it stands: one shell word that the
// package manager takes as one exact package name (dpkg: [a-z0-9][a-z0-9+.-]*; rpm labels
// also allow capitals, "_", "~" and "^", and no leading "-" or "~").
bool IsPlainPackageName(const std::string& line, bool rpm);

// Adds the records of one batch answer to `texts`, each name's record texts concatenated in
// the order printed, which is what its own query prints. False, with `problem` saying why,
// when the answer cannot be split without doubt: a separator byte inside a field, output
// outside the record layout, a record for a name not in `asked`, or one name's records apart.
bool SplitBatchOutput(const std::string& output, const std::set<std::string>& asked,
                      std::map<std::string, std::string>& texts, std::string& problem);

// What one exec may carry: the command line is handed to the shell as a single argument
// (`commandBytes` includes its NUL); the tool then gets the names as arguments, each
// costing its bytes, a NUL and a pointer, within `execBytes`.
struct ArgumentLimit {
    std::size_t commandBytes;
    std::size_t execBytes;
};

// The names in order, grouped so that `prefix` followed by " name" for each name of a group
// keeps within `limit`; a name that alone passes the limit still gets a group of its own.
std::vector<std::vector<std::string>> BatchGroups(const std::string& prefix, const std::vector<std::string>& names,
                                                  const ArgumentLimit& limit);

// How a child process ended, from its wait status: "exit status 2", "exit status 127
// (command not found)", "exit status 137 (killed by signal 9, Killed)" as a shell reports
// its command's death, "killed by signal 9 (Killed)"; -1 (no status to be had) is
// "end status unknown".
std::string DescribeEndStatus(int status);

// True when a wait status says the command ran to its end: exit status 0.
bool EndedWell(int status);

// A command line for one log line: each newline byte shown as "\n".
std::string OneLine(const std::string& command);

// Wildcard match of one name against one pattern ("*" and "?"), without backtracking:
// a star stops at the first name character equal to the pattern character after it.
bool MatchPattern(const char* name, const char* pattern);

// Tests a path against a "|"-separated list. With wildcards the file name part is
// matched against each pattern; without, an item matches when its first occurrence in
// the path runs to the path's end. Lists of 512 characters or more match nothing.
bool FindMatch(const char* path, const std::string& list, bool wildcards);

// False for shared libraries (first ".so" followed by the end or ".") and for
// anything below a "/plugins/" folder.
bool TestForExcludedExes(const char* path);

// Backslashes become "/", in place.
void ForwardSlashes(std::string& text);

// The folder a walk starts in: "/" for an empty start or "*", else the start with a
// "/" appended unless it already ends in one.
std::string WalkStartFolder(const std::string& start);

}  // namespace collectortext
