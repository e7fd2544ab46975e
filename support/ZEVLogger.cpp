// The log writer: one time-stamped line per call, appended to the log file that
// is opened and closed around every line. Failures lose the line silently and
// leave the logger usable.
#include "support/ZEVLogger.h"

#include "support/WriteAll.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <utility>

namespace {

constexpr size_t kLineBuffer = 512;
constexpr size_t kStampLimit = 200;

class FdGuard {
public:
    explicit FdGuard(int fd) : m_fd(fd) {}
    ~FdGuard() {
        if (m_fd >= 0) ::close(m_fd);
    }
    FdGuard(const FdGuard&) = delete;
    FdGuard& operator=(const FdGuard&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};


}  // namespace

CZEVLogger::CZEVLogger() = default;

CZEVLogger::CZEVLogger(const std::string& fileName) : m_fileName(fileName) {}

void CZEVLogger::setFile(std::string fileName) { m_fileName = std::move(fileName); }

void CZEVLogger::log(const char* format, ...) {
    if (!m_logging) return;
    va_list arguments;
    va_start(arguments, format);
    logVA(format, arguments);
    va_end(arguments);
}

void CZEVLogger::logVA(const char* format, va_list arguments) {
    if (!m_logging) return;
    FdGuard fd(::open(m_fileName.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600));
    if (fd.get() == -1) return;
    ::lseek(fd.get(), 0, SEEK_END);

    char line[kLineBuffer];
    const time_t now = std::time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    const size_t stamp = std::strftime(line, kStampLimit, "%d/%m/%y %H:%M:%S  ", &local);
    support::WriteAll(fd.get(), line, stamp);

    // vsnprintf cuts the message at 511 characters without a mark.
    int length = format ? std::vsnprintf(line, sizeof line, format, arguments) : 0;
    if (length < 0) length = 0;
    if (static_cast<size_t>(length) >= sizeof line) length = sizeof line - 1;
    support::WriteAll(fd.get(), line, static_cast<size_t>(length));

    support::WriteAll(fd.get(), "\n", 1);
}
