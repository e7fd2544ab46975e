// Reading what the component logged during one command; see ComponentLog.h.
#include "ComponentLog.h"

#include <sys/stat.h>

#include <fstream>
#include <sstream>

namespace swinv {

namespace {

// "24/11/26 16:29:52  " in front of every message.
constexpr size_t kStampLength = 19;

}  // namespace

std::vector<std::string> LogMessages(const std::string& text) {
    std::vector<std::string> messages;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (line.size() >= kStampLength) messages.push_back(line.substr(kStampLength));
    return messages;
}

ComponentLog::ComponentLog(std::string path) : m_path(std::move(path)), m_start(0) {
    struct stat st {};
    if (stat(m_path.c_str(), &st) == 0) m_start = st.st_size;
}

std::vector<std::string> ComponentLog::NewMessages() const {
    std::ifstream file(m_path, std::ios::binary);
    // A log that shrank was replaced: all of it is new.
    file.seekg(0, std::ios::end);
    const long long size = file ? static_cast<long long>(file.tellg()) : 0;
    file.seekg(size >= m_start ? m_start : 0);
    std::ostringstream text;
    if (file) text << file.rdbuf();
    return LogMessages(text.str());
}

}  // namespace swinv
