#include "TestUtil.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testutil {

TempDir::TempDir() : m_path(std::getenv("TMPDIR") && *std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp") {
    if (!mkdtemp((m_path += "/zevtest.XXXXXX").data())) throw std::runtime_error("mkdtemp failed for " + m_path);
}

TempDir::~TempDir() { std::error_code ec; std::filesystem::remove_all(m_path, ec); }

std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
    const std::string text = ReadFileText(path);
    return {text.begin(), text.end()};
}

std::string ReadFileText(const std::string& path) {
    std::ostringstream out;
    return (out << std::ifstream(path, std::ios::binary).rdbuf(), out.str());
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
    const char* digits = "0123456789ABCDEF";
    for (std::uint8_t b : bytes) out += std::string(out.empty() ? "" : " ") + digits[b >> 4] + digits[b & 15];
    return out;
}

std::vector<std::string> LogMessages(const std::string& path, const std::string& prefix) {
    std::vector<std::string> messages;
    std::istringstream in(ReadFileText(path));
    for (std::string line; std::getline(in, line);)
        if (line.size() >= 19 && line.compare(19, prefix.size(), prefix) == 0)
            messages.push_back(line.substr(19 + prefix.size()));
    return messages;
}

int RunInPrivateMounts(const std::function<int()>& body) {
    std::fflush(nullptr);   // else buffered output is written by both processes
    const pid_t pid = fork();
    if (pid == 0) {
        const bool isolated = unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        const int status = isolated ? body() : (std::perror("private mount namespace"), 125);
        std::fflush(nullptr);
        _exit(status & 0xFF);   // the parent's atexit handlers are not ours to run
    }
    int status = 0;
    while (pid > 0 && waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return -1;
    return pid < 0 ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
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
        "answer() {\n  if [ \"$1\" = list ]; then : > \"$d/started\"; [ -f \"$d/delay\" ] && sleep \"$(cat \"$d/delay\")\"; fi\n"
        "  f=\"$d/$1.$(printf %s \"$2\" | tr / _)\"; [ -f \"$f\" ] || exit 1; cat \"$f\"; exit 0; }\n"
        "batch() {\n  : > \"$d/started.batch\"; [ -f \"$d/delay.batch\" ] && sleep \"$(cat \"$d/delay.batch\")\"; shift 3; rc=0\n"
        "  for n in \"$@\"; do f=$(printf %s \"$n\" | tr / _)\n"
        "    if [ -f \"$d/batch.$f\" ]; then cat \"$d/batch.$f\"; elif [ -f \"$d/query.$f\" ]; then\n"
        "      printf '%s\\037' \"$n\"; cat \"$d/query.$f\"; printf '\\036'; else rc=1; fi; done; exit $rc; }\n"
        "case \"$1 $2 $3\" in *\"$(printf '\\037')\"*|\"-q --queryformat \"*) batch \"$@\" ;; esac\n"
        "case \"$tool $1\" in *--listfiles|*-ql) answer files \"$2\" ;; *-qa) answer list '' ;; *-qf) answer owner \"$2\" ;;\n"
        "*-q) answer query \"$2\" ;; esac\n[ $# -eq 3 ] && answer list ''\nanswer query \"$4\"\n";
    for (const char* tool : {"bin/dpkg-query", "bin/rpm"}) WriteFileText(m_dir.file(tool), script, 0755);
    ClearCalls();
    setenv("PATH", (m_dir.file("bin") + ":" + m_oldPath).c_str(), 1);
}

FakePackageManager::~FakePackageManager() { setenv("PATH", m_oldPath.c_str(), 1); }

void FakePackageManager::SetPackages(const std::vector<std::string>& queryOutputs) {
    std::string list;
    for (const std::string& out : queryOutputs) {
        Set("query", out.substr(0, out.find('^')), out);
        list += out.substr(0, out.find('^')) + "\n";
    }
    Set("list", "", list);
}

void FakePackageManager::SetTool(const std::string& tool, const std::string& output, int status) {
    std::string quoted;   // the output as one single-quoted shell word
    for (const char c : output) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    // Shell built-ins only, so that it runs with nothing else on the search path.
    WriteFileText(m_dir.file("bin/" + tool),
                  "#!/bin/sh\n{ printf %s " + tool + "; for a in \"$@\"; do printf ' [%s]' \"$a\"; done; echo; } >> '" +
                      m_dir.file("calls") + "'\nprintf %s '" + quoted + "'\nexit " + std::to_string(status) + "\n",
                  0755);
}

void FakePackageManager::Set(const std::string& kind, std::string key, const std::string& text) {
    std::replace(key.begin(), key.end(), '/', '_');
    WriteFileText(m_dir.file(kind + "." + key), text);
}

}  // namespace testutil
