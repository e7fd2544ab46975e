// Fork, run, collect through a pipe; see Isolated.h.
#include "Isolated.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>

namespace swinv {

namespace {

void WriteAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t put = write(fd, data, size);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return;
        data += put;
        size -= static_cast<size_t>(put);
    }
}

// Closes a descriptor on every way out.
class FdGuard {
public:
    explicit FdGuard(int fd) : m_fd(fd) {}
    ~FdGuard() {
        if (m_fd >= 0) close(m_fd);
    }
    FdGuard(const FdGuard&) = delete;
    FdGuard& operator=(const FdGuard&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

[[noreturn]] void RunChild(int out, const std::function<std::string()>& work) {
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) dup2(null, STDERR_FILENO);
    char status = 'O';
    std::string text;
    try {
        text = work();
    } catch (const std::exception& e) {
        status = 'E';
        text = e.what();
    } catch (...) {
        status = 'E';
        text = "unknown error";
    }
    WriteAll(out, &status, 1);
    WriteAll(out, text.data(), text.size());
    // No exit handlers: the parent owns every resource the child inherited.
    _exit(0);
}

}  // namespace

IsolatedResult RunIsolated(const std::function<std::string()>& work) {
    int fds[2];
    if (pipe(fds) != 0) return {IsolatedResult::kDied, std::string()};
    FdGuard readEnd(fds[0]);
    std::fflush(nullptr);   // nothing buffered may be written twice
    const pid_t pid = fork();
    if (pid < 0) {
        close(fds[1]);
        return {IsolatedResult::kDied, std::string()};
    }
    if (pid == 0) {
        close(fds[0]);
        RunChild(fds[1], work);
    }
    close(fds[1]);

    std::string received;
    char buffer[65536];
    for (;;) {
        const ssize_t got = read(readEnd.get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        received.append(buffer, static_cast<size_t>(got));
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || received.empty()) {
        return {IsolatedResult::kDied, std::string()};
    }
    const auto outcome = received[0] == 'O' ? IsolatedResult::kReturned : IsolatedResult::kThrew;
    return {outcome, received.substr(1)};
}

}  // namespace swinv
