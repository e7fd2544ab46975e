// Definitions of the host-supplied symbols: zev::Settings_t's constructor and
// getHomePath(), and GetSimpleCommand. The settings singleton is built while the
// library loads, before anyone can call SetHomePath, so the home path is looked up
// at every call instead of being fixed by the constructor.
#include "HostShim.h"

#include "component/HostSettings.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace {

// Function-local statics: the singleton may call in here during static
// initialisation, before file-scope objects of this file would exist.
struct ShimState {
    std::mutex lock;
    bool homeSet = false;
    std::string home;
    std::function<void(const char*)> observer;
    int constructions = 0;
};

ShimState& State() {
    static ShimState state;
    return state;
}

// Closes the pipe on every path; close() hands back the wait status once.
class PipeGuard {
public:
    explicit PipeGuard(FILE* pipe) : m_pipe(pipe) {}
    ~PipeGuard() { close(); }
    PipeGuard(const PipeGuard&) = delete;
    PipeGuard& operator=(const PipeGuard&) = delete;

    FILE* get() const { return m_pipe; }
    int close() {
        int status = -1;
        if (m_pipe) {
            status = pclose(m_pipe);
            m_pipe = nullptr;
        }
        return status;
    }

private:
    FILE* m_pipe;
};

}  // namespace

namespace hostshim {

void SetHomePath(const std::string& home) {
    ShimState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    state.home = home;
    state.homeSet = true;
}

void ResetHomePath() {
    ShimState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    state.home.clear();
    state.homeSet = false;
}

std::string HomePath() {
    {
        ShimState& state = State();
        std::lock_guard<std::mutex> guard(state.lock);
        if (state.homeSet) return state.home;
    }
    const char* env = std::getenv("ZEV_HOME");
    if (!env || !*env) return std::string();
    std::string home(env);
    if (home.back() != '/') home += '/';
    return home;
}

void SetCommandObserver(std::function<void(const char*)> observer) {
    ShimState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    state.observer = std::move(observer);
}

int SettingsConstructions() {
    ShimState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    return state.constructions;
}

}  // namespace hostshim

namespace zev {

// The shim's own state behind the settings object; the component never looks inside.
struct Settings_t::Impl {
    std::string homePath;
};

Settings_t::Settings_t() : m_pImpl(new Impl{hostshim::HomePath()}) {
    ShimState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    ++state.constructions;
}

std::string Settings_t::getHomePath() const { return hostshim::HomePath(); }

}  // namespace zev

bool GetSimpleCommand(const char* command, std::string& output) {
    output.clear();
    if (!command) return false;

    std::function<void(const char*)> observer;
    {
        ShimState& state = State();
        std::lock_guard<std::mutex> guard(state.lock);
        observer = state.observer;
    }
    // Called outside the lock so an observer may use the shim itself.
    if (observer) observer(command);

    std::fflush(nullptr);   // keep our buffered output ahead of the child's
    PipeGuard pipe(popen(command, "r"));
    if (!pipe.get()) return false;

    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe.get())) > 0) output.append(buffer, got);

    const int status = pipe.close();
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
