// Choosing and preparing the home folder; see HomeFolder.h.
#include "HomeFolder.h"

#include "SwinvError.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace swinv {

namespace {

bool Given(const char* value) { return value && *value; }

std::string Absolute(std::string path, const std::string& cwd) {
    if (path.empty() || path[0] != '/') path = cwd + "/" + path;
    if (path.back() != '/') path += '/';
    return path;
}

// mkdir -p; errno is left at the failing step's value.
bool MakeDirs(const std::string& path) {
    std::string partial;
    for (size_t pos = 0; pos != std::string::npos;) {
        const size_t next = path.find('/', pos + 1);
        partial = path.substr(0, next);
        if (!partial.empty() && mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) return false;
        pos = next;
    }
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return false;
    if (!S_ISDIR(st.st_mode)) {
        errno = ENOTDIR;
        return false;
    }
    return true;
}

std::string HowToChoose(const HomeChoice& home) {
    if (home.source == "--home") return "choose another folder with --home DIR";
    if (home.source == "ZEV_HOME") return "fix ZEV_HOME or choose another folder with --home DIR";
    return "set XDG_STATE_HOME, or choose a folder with --home DIR or ZEV_HOME";
}

}  // namespace

HomeChoice ChooseHome(const std::string& option, const char* zevHome, const char* xdgStateHome,
                      const char* userHome, const std::string& cwd) {
    if (!option.empty()) return {Absolute(option, cwd), "--home"};
    if (Given(zevHome)) return {Absolute(zevHome, cwd), "ZEV_HOME"};
    if (Given(xdgStateHome) && xdgStateHome[0] == '/') return {Absolute(std::string(xdgStateHome) + "/swinv", cwd), "default"};
    const std::string user = Given(userHome) ? userHome : cwd;
    return {Absolute(user + "/.local/state/swinv", cwd), "default"};
}

HomeChoice ResolveHome(const std::string& option) {
    char cwd[PATH_MAX];
    const std::string here = getcwd(cwd, sizeof cwd) ? cwd : "/";
    const char* userHome = std::getenv("HOME");
    if (!Given(userHome)) {
        // No $HOME (services, cron): ask the password database.
        if (const passwd* pw = getpwuid(getuid())) userHome = pw->pw_dir;
    }
    return ChooseHome(option, std::getenv("ZEV_HOME"), std::getenv("XDG_STATE_HOME"), userHome, here);
}

void PrepareHome(const HomeChoice& home, bool writes) {
    for (const char* sub : {"", "data/", "bin/"}) {
        const std::string folder = home.path + sub;
        if (!MakeDirs(folder)) {
            throw SwinvError("cannot create the home folder " + folder + ": " + std::strerror(errno) + "; " +
                             HowToChoose(home));
        }
    }
    if (!writes) return;
    // Root passes access(2) everywhere; a real file proves the folder takes writes.
    const std::string probe = home.path + "data/.swinv-write-test";
    const int fd = open(probe.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) {
        throw SwinvError("cannot write to the home folder " + home.path + "data/: " + std::strerror(errno) + "; " +
                         HowToChoose(home));
    }
    close(fd);
    unlink(probe.c_str());
}

}  // namespace swinv
