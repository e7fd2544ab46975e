#include "TestUtil.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace testutil {

TempDir::TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/zevtest.XXXXXX";
    if (!mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed for " + tmpl);
    m_path = tmpl;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
}

std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
    const std::string text = ReadFileText(path);
    return {text.begin(), text.end()};
}

std::string ReadFileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFileBytes(const std::string& path, const std::vector<std::uint8_t>& b) { WriteFileText(path, {b.begin(), b.end()}); }

void WriteFileText(const std::string& path, const std::string& text, unsigned mode) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    ::chmod(path.c_str(), mode);
}

bool FileExists(const std::string& path) { return std::filesystem::exists(std::filesystem::symlink_status(path)); }

void MakeDirs(const std::string& path) { std::filesystem::create_directories(path); }

std::string Hex(const std::vector<std::uint8_t>& bytes) {
    std::string out;
    char b[4];
    for (std::uint8_t byte : bytes) out += (std::snprintf(b, sizeof b, " %02X", byte), b);
    return out.empty() ? out : out.substr(1);
}

std::vector<std::string> LogMessages(const std::string& path) {
    std::vector<std::string> messages;
    std::istringstream in(ReadFileText(path));
    for (std::string line; std::getline(in, line);) messages.push_back(line.size() >= 19 ? line.substr(19) : line);
    return messages;
}

int RunInChild(const std::function<int()>& body) {
    std::fflush(nullptr);   // else buffered output is written by both processes
    const pid_t pid = fork();
    if (pid == 0) {
        const int status = body();
        std::fflush(nullptr);
        _exit(status & 0xFF);   // the parent's atexit handlers are not ours to run
    }
    int status = 0;
    while (pid > 0 && waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return -1;
    return pid < 0 ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunInPrivateMounts(const std::function<int()>& body) {
    return RunInChild([&]() -> int {
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            std::fprintf(stderr, "private mount namespace: %s\n", std::strerror(errno));
            return 125;
        }
        return body();
    });
}

bool OverlayFolder(const std::string& target, const std::string& scratch) {
    const std::string upper = scratch + "/upper", work = scratch + "/work";
    const std::string options = "lowerdir=" + target + ",upperdir=" + upper + ",workdir=" + work;
    return mount("tmpfs", scratch.c_str(), "tmpfs", 0, "mode=0755") == 0 && mkdir(upper.c_str(), 0755) == 0 &&
           mkdir(work.c_str(), 0755) == 0 && mount("overlay", target.c_str(), "overlay", 0, options.c_str()) == 0;
}

FakePackageManager::FakePackageManager() : m_oldPath(std::getenv("PATH") ? std::getenv("PATH") : "") {
    MakeDirs(m_dir.file("bin"));
    const std::string script =
        "#!/bin/sh\nd='" + m_dir.path() + "'\ntool=$(basename \"$0\")\n"
        "{ printf %s \"$tool\"; for a in \"$@\"; do printf ' [%s]' \"$a\"; done; echo; } >> \"$d/calls\"\n"
        "answer() {\n"
        "  if [ \"$1\" = list ]; then : > \"$d/started\"; [ -f \"$d/delay\" ] && sleep \"$(cat \"$d/delay\")\"; fi\n"
        "  f=\"$d/$1.$(printf %s \"$2\" | tr / _)\"; [ -f \"$f\" ] || exit 1; cat \"$f\"; exit 0; }\n"
        "case \"$tool $1\" in\n"
        "*--listfiles|*-ql) answer files \"$2\" ;; *-qa) answer list '' ;; *-qf) answer owner \"$2\" ;;\n"
        "*-q) answer query \"$2\" ;; esac\n[ $# -eq 3 ] && answer list ''\nanswer query \"$4\"\n";
    WriteFileText(m_dir.file("bin/dpkg-query"), script, 0755);
    WriteFileText(m_dir.file("bin/rpm"), script, 0755);
    ClearCalls();
    setenv("PATH", (m_dir.file("bin") + ":" + m_oldPath).c_str(), 1);
}

FakePackageManager::~FakePackageManager() { setenv("PATH", m_oldPath.c_str(), 1); }

void FakePackageManager::Set(const std::string& kind, const std::string& key, const std::string& text) {
    std::string name = key;
    for (char& c : name) c = c == '/' ? '_' : c;
    WriteFileText(m_dir.file(kind + "." + name), text);
}

}  // namespace testutil
