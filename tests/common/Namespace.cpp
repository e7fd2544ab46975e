// Forked children for tests that change process-wide state, and the private mount
// namespace with overlay layers in which product folders and marker files are faked.
#include "Namespace.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace testutil {

bool CanUsePrivateMounts() { return geteuid() == 0; }

int RunInChild(const std::function<int()>& body) {
    // Buffered output would otherwise be written twice, once by each process.
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        int status = body();
        std::fflush(nullptr);
        // _exit: the parent's atexit handlers and static destructors are not ours to run.
        _exit(status & 0xFF);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

int RunInPrivateMounts(const std::function<int()>& body) {
    return RunInChild([&]() -> int {
        if (unshare(CLONE_NEWNS) != 0) {
            std::fprintf(stderr, "unshare(CLONE_NEWNS): %s\n", std::strerror(errno));
            return 125;
        }
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            std::fprintf(stderr, "making / private: %s\n", std::strerror(errno));
            return 125;
        }
        return body();
    });
}

bool OverlayFolder(const std::string& target, const std::string& scratch) {
    if (mount("tmpfs", scratch.c_str(), "tmpfs", 0, "mode=0755") != 0) return false;
    const std::string upper = scratch + "/upper";
    const std::string work = scratch + "/work";
    if (mkdir(upper.c_str(), 0755) != 0 || mkdir(work.c_str(), 0755) != 0) return false;
    const std::string options = "lowerdir=" + target + ",upperdir=" + upper + ",workdir=" + work;
    return mount("overlay", target.c_str(), "overlay", 0, options.c_str()) == 0;
}

}  // namespace testutil
