// Whether an acknowledgement really stored the run as the new baseline. The component
// reports nothing to its host when a list file cannot be written (it keeps the old
// file), so swinv compares each list file's identity before and after DataSent.
#pragma once

#include <string>
#include <vector>

namespace swinv {

class BaselineCheck {
public:
    // Takes the state of each file now.
    explicit BaselineCheck(const std::vector<std::string>& files);
    // The files that were not written since construction (missing, or the same file
    // with the same time stamps as before).
    std::vector<std::string> NotReplaced() const;
    std::vector<std::string> Replaced() const;

private:
    struct State {
        std::string path;
        bool exists;
        unsigned long long device, inode;
        long long modified, changed;   // nanoseconds
    };
    static State Take(const std::string& path);
    std::vector<State> m_before;
};

// Why `file` could not be written: the component's own log line for it when `messages`
// holds one, else what the system says of its folder (read-only, full, no access), else "".
std::string WhyNotStored(const std::string& file, const std::vector<std::string>& messages);

}  // namespace swinv
