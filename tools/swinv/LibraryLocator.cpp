// Search order for the component library; see LibraryLocator.h.
#include "LibraryLocator.h"

#include "SwinvError.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace swinv {

const char* const kAgentLibraryDir = "/usr/zev/slib";
const char* const kLibraryFileName = "libsoftware.so.0";

namespace {

std::string DirName(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

// Symbolic links resolved, so a build folder reached through a link still compares equal.
std::string RealPath(const std::string& path) {
    char buffer[PATH_MAX];
    return realpath(path.c_str(), buffer) ? std::string(buffer) : path;
}

bool IsFile(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

std::vector<std::string> LibraryCandidates(const std::string& exePath, const std::string& buildLibrary,
                                           const std::string& buildExeDir) {
    std::vector<std::string> candidates;
    const std::string exeDir = DirName(exePath);
    // An installed copy of swinv must not wander back into the tree it was built in.
    if (!buildLibrary.empty() && !exePath.empty() && RealPath(exeDir) == RealPath(buildExeDir)) candidates.push_back(buildLibrary);
    if (!exePath.empty()) candidates.push_back(exeDir + "/../zev/slib/" + kLibraryFileName);
    candidates.push_back(std::string(kAgentLibraryDir) + "/" + kLibraryFileName);
    return candidates;
}

std::string LocateLibrary(const std::vector<std::string>& candidates) {
    std::string tried;
    for (const auto& candidate : candidates) {
        if (IsFile(candidate)) return candidate;
        tried += (tried.empty() ? "" : ", ") + candidate;
    }
    throw SwinvError(std::string("component library ") + kLibraryFileName + " not found (looked in " + tried +
                     "); build it with 'cmake --build build --target software', install it, or pass --library PATH");
}

std::string CurrentExecutable() {
    char buffer[PATH_MAX];
    const ssize_t got = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (got <= 0) return std::string();
    return std::string(buffer, static_cast<size_t>(got));
}

}  // namespace swinv
