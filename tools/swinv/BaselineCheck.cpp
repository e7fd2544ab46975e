// Checking that DataSent replaced the list files; see BaselineCheck.h.
#include "BaselineCheck.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace swinv {

BaselineCheck::State BaselineCheck::Take(const std::string& path) {
    struct stat st {};
    State state{path, stat(path.c_str(), &st) == 0, 0, 0, 0, 0};
    if (state.exists) {
        state.device = st.st_dev;
        state.inode = st.st_ino;
        state.modified = st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec;
        state.changed = st.st_ctim.tv_sec * 1000000000LL + st.st_ctim.tv_nsec;
    }
    return state;
}

BaselineCheck::BaselineCheck(const std::vector<std::string>& files) {
    for (const std::string& file : files) m_before.push_back(Take(file));
}

std::vector<std::string> BaselineCheck::NotReplaced() const {
    std::vector<std::string> files;
    for (const State& before : m_before) {
        const State now = Take(before.path);
        // A write renames a new file over the old one, or rewrites it in place: either
        // way the file differs from the one seen before.
        const bool same = before.exists && now.device == before.device && now.inode == before.inode &&
                          now.modified == before.modified && now.changed == before.changed;
        if (!now.exists || same) files.push_back(before.path);
    }
    return files;
}

std::vector<std::string> BaselineCheck::Replaced() const {
    const std::vector<std::string> missed = NotReplaced();
    std::vector<std::string> files;
    for (const State& before : m_before) {
        bool found = false;
        for (const std::string& miss : missed) found = found || miss == before.path;
        if (!found) files.push_back(before.path);
    }
    return files;
}

std::string WhyNotStored(const std::string& file, const std::vector<std::string>& messages) {
    const std::string prefix = "Writing to file [" + file + "] failed: ";
    for (auto it = messages.rbegin(); it != messages.rend(); ++it)
        if (it->compare(0, prefix.size(), prefix) == 0) return it->substr(prefix.size());
    const std::string folder = file.substr(0, file.rfind('/') + 1);
    if (access(folder.c_str(), W_OK) != 0) return std::strerror(errno);
    struct statvfs fs {};
    if (statvfs(folder.c_str(), &fs) == 0 && fs.f_bavail == 0) return std::strerror(ENOSPC);
    return "";
}

}  // namespace swinv
