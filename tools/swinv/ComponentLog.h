// The component's own log ("Software.log" in data/, written only while Logging is 1),
// read by swinv to say why a run sent nothing or a list file was not stored: the lines
// a command added to it, without their time stamps.
#pragma once

#include <string>
#include <vector>

namespace swinv {

// The messages of a log text: each line without its 19-character time stamp; a line
// too short to carry one is left out.
std::vector<std::string> LogMessages(const std::string& text);

class ComponentLog {
public:
    // Remembers how far the log at `path` reaches now (nothing yet when it is missing).
    explicit ComponentLog(std::string path);
    // The messages written since construction, oldest first.
    std::vector<std::string> NewMessages() const;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
    long long m_start;
};

}  // namespace swinv
