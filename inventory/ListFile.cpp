// listfile::Write: crash-safe replacement (temporary, fsync, rename, folder fsync)
// wherever it can be done without a user seeing a difference from an in-place
// write, and the in-place write itself where it cannot.
#include "ListFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <memory>
#include <utility>

namespace {

// As many links as one path lookup of the kernel follows before it gives ELOOP.
constexpr int kMaxLinks = 40;
// Marks the temporaries, so that the clean-up can never take a user's file for one.
constexpr char kTemporaryMark[] = ".tmp.";
constexpr std::size_t kRandomChars = 6;

// Closes a descriptor when the scope ends.
class FdGuard {
public:
    explicit FdGuard(int fd = -1) : m_fd(fd) {}
    ~FdGuard() {
        const int saved = errno;   // a failure's reason must reach the caller
        if (m_fd >= 0) ::close(m_fd);
        errno = saved;
    }
    FdGuard(const FdGuard&) = delete;
    FdGuard& operator=(const FdGuard&) = delete;
    int get() const { return m_fd; }
    void reset(int fd) {
        if (m_fd >= 0) ::close(m_fd);
        m_fd = fd;
    }
    // Closes now and reports whether close(2) succeeded.
    bool close() {
        const int fd = m_fd;
        m_fd = -1;
        return ::close(fd) == 0;
    }

private:
    int m_fd;
};

// Removes the temporary file unless the rename made it the real one.
class TempFileGuard {
public:
    explicit TempFileGuard(std::string path) : m_path(std::move(path)) {}
    ~TempFileGuard() { remove(); }
    TempFileGuard(const TempFileGuard&) = delete;
    TempFileGuard& operator=(const TempFileGuard&) = delete;
    void commit() { m_committed = true; }
    void remove() {
        const int saved = errno;
        if (!m_committed) ::unlink(m_path.c_str());
        m_committed = true;
        errno = saved;
    }

private:
    std::string m_path;
    bool m_committed = false;
};

struct DirCloser {
    void operator()(DIR* d) const { ::closedir(d); }
};

// Parent folder of a path, for the temporary, the fsync that makes a rename durable
// and relative link targets.
std::string FolderOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string NameOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The file a write-open of `path` reaches: symbolic links followed one by one, a
// relative target taken from the folder of its link, and the last target possibly
// not there yet. False for a loop of links, as the open would fail with ELOOP.
bool FollowLinks(std::string& path) {
    for (int hops = 0; hops <= kMaxLinks; ++hops) {
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return true;
        std::string target(PATH_MAX, '\0');
        const ssize_t n = ::readlink(path.c_str(), &target[0], target.size());
        if (n <= 0 || static_cast<std::size_t>(n) >= target.size()) return true;   // the open will judge it
        target.resize(static_cast<std::size_t>(n));
        path = target[0] == '/' ? target : FolderOf(path) + "/" + target;
    }
    return false;
}

// Writes through a descriptor opened on the target itself. A FIFO or a device has
// nothing to truncate or sync.
bool WriteInPlace(FdGuard& fd, bool bRegular, const std::function<bool(int)>& fill) {
    if (bRegular && ::ftruncate(fd.get(), 0) != 0) return false;
    if (!fill(fd.get())) return false;
    if (bRegular && ::fsync(fd.get()) != 0) return false;
    return fd.close();
}

// Removes the temporaries of `path` that earlier writes left behind when they were
// interrupted: regular files named by the pattern, nothing else.
void RemoveLeftovers(const std::string& path) {
    const std::unique_ptr<DIR, DirCloser> dir(::opendir(FolderOf(path).c_str()));
    if (!dir) return;
    const std::string prefix = NameOf(path) + kTemporaryMark;
    while (const dirent* entry = ::readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name.size() != prefix.size() + kRandomChars || name.compare(0, prefix.size(), prefix) != 0) continue;
        bool bRandom = true;
        for (std::size_t i = prefix.size(); i < name.size(); ++i) {
            const char c = name[i];
            bRandom &= (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        }
        struct stat st;
        if (bRandom && ::fstatat(::dirfd(dir.get()), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(st.st_mode))
            ::unlinkat(::dirfd(dir.get()), name.c_str(), 0);
    }
}

// Writes the file `target` (links already followed).
bool WriteTarget(const std::string& target, const std::function<bool(int)>& fill) {
    struct stat st;
    const bool bExists = ::lstat(target.c_str(), &st) == 0;
    if (bExists && !S_ISREG(st.st_mode)) {
        // A FIFO or a device is written in place, opened as any write-open does (so a
        // FIFO waits for its reader); a folder is refused by the open itself.
        FdGuard fd(::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        return fd.get() >= 0 && WriteInPlace(fd, false, fill);
    }
    FdGuard existing;
    if (bExists) {
        // Opening the file for writing is the one exact test of the caller's right to
        // write it; the descriptor also serves when it has to be rewritten in place.
        existing.reset(::open(target.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        if (existing.get() < 0 || ::fstat(existing.get(), &st) != 0) return false;
    }

    std::string tmpName = listfile::TemporaryPattern(target);
    // mkostemp creates the file with bits 0600, the mode of a new list file.
    FdGuard fd(::mkostemp(&tmpName[0], O_CLOEXEC));
    if (fd.get() < 0) {
        // A folder that forbids new files still lets its files be rewritten.
        if (bExists && (errno == EACCES || errno == EPERM)) return WriteInPlace(existing, true, fill);
        return false;
    }
    TempFileGuard tmpGuard(tmpName);
    if (bExists) {
        // The new file takes the old one's owner and group, then its mode (a change of
        // owner clears set-id bits). A caller who may not give them rewrites in place.
        struct stat tmpSt;
        if (::fstat(fd.get(), &tmpSt) != 0) return false;
        if ((tmpSt.st_uid != st.st_uid || tmpSt.st_gid != st.st_gid) &&
            ::fchown(fd.get(), st.st_uid, st.st_gid) != 0) {
            fd.close();
            tmpGuard.remove();
            return WriteInPlace(existing, true, fill);
        }
        if (::fchmod(fd.get(), st.st_mode & 07777) != 0) return false;
    }
    if (!fill(fd.get())) return false;
    if (::fsync(fd.get()) != 0) return false;
    if (!fd.close()) return false;
    if (::rename(tmpName.c_str(), target.c_str()) != 0) return false;
    tmpGuard.commit();
    // Make the rename itself durable; the new file is in place either way.
    FdGuard dirFd(::open(FolderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dirFd.get() >= 0) ::fsync(dirFd.get());
    return true;
}

}  // namespace

namespace listfile {

std::string TemporaryPattern(const std::string& path) {
    return path + kTemporaryMark + std::string(kRandomChars, 'X');
}

bool Write(const std::string& path, const std::function<bool(int)>& fill) {
    if (path.empty()) return false;
    std::string target = path;
    errno = 0;
    if (!FollowLinks(target)) {
        errno = ELOOP;
        return false;
    }
    if (!WriteTarget(target, fill)) {
        if (errno == 0) errno = EIO;
        return false;
    }
    RemoveLeftovers(target);
    return true;
}

}  // namespace listfile
