// Progress of an inventory run on a terminal: packages queried so far out of the
// total, and the time taken. The component queries the packages through the
// host's command runner, so counting the names in those calls tells how far the scan got.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>

namespace swinv {

// The package manager's list command, chosen as the collector chooses it.
std::string PackageListCommand();
// Lines a shell command prints; 0 when it cannot be run.
std::size_t CountOutputLines(const std::string& command);
// Packages a command asks about: 1 for the collector's query of one package, the names of a
// batch query, 0 for the list, owner and file queries and anything else.
std::size_t PackagesQueried(const char* command);

class Progress {
public:
    // A null `out` makes every call a no-op. `total` 0: the total is unknown.
    Progress(std::FILE* out, std::size_t total);

    void OnCommand(const char* command);
    // The closing line with the duration.
    void Finish(const char* what);
    double ElapsedSeconds() const;
    std::size_t queried() const { return m_queried; }

private:
    void Draw();

    std::FILE* m_out;
    std::size_t m_total;
    std::size_t m_queried = 0;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_lastDraw;
    bool m_drawn = false;
};

}  // namespace swinv
