// Pure text rules of the collector: how package-manager output becomes record
// fields and keys, and how paths are held against name patterns and exclusion
// lists. Nothing here runs a command or touches the file system, so tests can
// feed these functions tables of cases.
#pragma once

#include <string>

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
