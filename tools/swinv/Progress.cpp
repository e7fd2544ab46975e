// Terminal progress of an inventory run; see Progress.h.
#include "Progress.h"

#include <sys/stat.h>

#include <cstring>
#include <memory>

namespace swinv {

namespace {

struct PipeCloser {
    void operator()(std::FILE* pipe) const { pclose(pipe); }
};

bool Exists(const char* path) {
    struct stat st {};
    return stat(path, &st) == 0;
}

bool StartsWith(const char* text, const char* prefix) { return std::strncmp(text, prefix, std::strlen(prefix)) == 0; }

}  // namespace

std::string PackageListCommand() {
    if (Exists("/etc/debian_version") || Exists("/etc/debian-release"))
        return "dpkg-query --show --showformat '${Package}\\n'";
    return "rpm -qa";
}

std::size_t CountOutputLines(const std::string& command) {
    std::unique_ptr<std::FILE, PipeCloser> pipe(popen((command + " 2>/dev/null").c_str(), "r"));
    if (!pipe) return 0;
    std::size_t lines = 0;
    char buffer[4096];
    std::size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe.get())) > 0) {
        for (std::size_t i = 0; i < got; ++i) lines += buffer[i] == '\n';
    }
    return lines;
}

std::size_t PackagesQueried(const char* command) {
    if (!command) return 0;
    if (StartsWith(command, "dpkg-query --show --showformat '${Package}^")) return 1;
    if (StartsWith(command, "dpkg-query --show --showformat '${Package}\x1F") || StartsWith(command, "rpm -q --queryformat '")) {
        // The names follow the quoted format, one word each.
        const char* names = std::strrchr(command, '\'');
        std::size_t count = 0;
        for (const char* c = names + 1; *c; ++c) count += *c != ' ' && c[-1] == ' ';
        return count;
    }
    const bool single = StartsWith(command, "rpm -q ") && !StartsWith(command, "rpm -qa") && !StartsWith(command, "rpm -qf") &&
                        !StartsWith(command, "rpm -ql");
    return single ? 1 : 0;
}

Progress::Progress(std::FILE* out, std::size_t total)
    : m_out(out), m_total(total), m_start(std::chrono::steady_clock::now()), m_lastDraw(m_start) {}

double Progress::ElapsedSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

void Progress::OnCommand(const char* command) {
    const std::size_t packages = PackagesQueried(command);
    if (packages == 0) return;
    m_queried += packages;
    if (!m_out) return;
    const auto now = std::chrono::steady_clock::now();
    // A redraw per package would cost more than the query on a fast machine.
    if (m_drawn && now - m_lastDraw < std::chrono::milliseconds(100) && m_queried != m_total) return;
    m_lastDraw = now;
    Draw();
}

void Progress::Draw() {
    if (m_total > 0)
        std::fprintf(m_out, "\rpackages queried: %zu/%zu  %.1f s\033[K", m_queried, m_total, ElapsedSeconds());
    else
        std::fprintf(m_out, "\rpackages queried: %zu  %.1f s\033[K", m_queried, ElapsedSeconds());
    std::fflush(m_out);
    m_drawn = true;
}

void Progress::Finish(const char* what) {
    if (!m_out) return;
    std::fprintf(m_out, "%s%s: %zu packages queried in %.1f s\n", m_drawn ? "\r\033[K" : "", what, m_queried,
                 ElapsedSeconds());
    std::fflush(m_out);
}

}  // namespace swinv
