// Whether an acknowledgement really stored the run as the new baseline. The component
// reports nothing to its host when a list file cannot be written (it keeps the old
// file), so swinv compares each list file's identity before and after DataSent.
#pragma once

#include <string>
#include <vector>

namespace swinv {

// A file's identity and time stamps (nanoseconds), or that it is missing.
struct FileState {
    bool exists = false;
    unsigned long long device = 0, inode = 0;
    long long modified = 0, changed = 0;
};

FileState StateOf(const std::string& path);

// True when the file was written between the two states: a write renames a new file over
// the old one or rewrites it in place, so either its identity or its time stamps differ.
bool WasReplaced(const FileState& before, const FileState& after);

// Why `file` could not be written: the component's own log line for it when `messages`
// holds one, else what the system says of its folder (read-only, full, no access), else "".
std::string WhyNotStored(const std::string& file, const std::vector<std::string>& messages);

}  // namespace swinv
