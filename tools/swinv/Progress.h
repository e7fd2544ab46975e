// Progress of an inventory run on a terminal: packages queried so far out of the
// total, and the time taken. The component queries each package through the
// host's command runner, so counting those calls tells how far the scan got.
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
// True for the collector's one query per package (not the list, owner or file queries).
bool IsPackageQuery(const char* command);

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
