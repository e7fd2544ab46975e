// Checking that DataSent replaced the list files; see BaselineCheck.h.
#include "BaselineCheck.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace swinv {

FileState StateOf(const std::string& path) {
    struct stat st {};
    FileState state;
    if (stat(path.c_str(), &st) != 0) return state;
    state.exists = true;
    state.device = st.st_dev;
    state.inode = st.st_ino;
    state.modified = st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec;
    state.changed = st.st_ctim.tv_sec * 1000000000LL + st.st_ctim.tv_nsec;
    return state;
}

bool WasReplaced(const FileState& before, const FileState& after) {
    if (!after.exists) return false;
    return !before.exists || after.device != before.device || after.inode != before.inode ||
           after.modified != before.modified || after.changed != before.changed;
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
