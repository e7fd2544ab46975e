// Where swinv looks for libsoftware.so.0 when --library is not given: the build
// tree's copy for a swinv that runs from the build tree, then the copy installed
// beside the executable (<exe dir>/../zev/slib), then the agent's /usr/zev/slib.
#pragma once

#include <string>
#include <vector>

namespace swinv {

extern const char* const kAgentLibraryDir;   // "/usr/zev/slib"
extern const char* const kLibraryFileName;   // "libsoftware.so.0"

// Candidates in search order. `buildLibrary` is used only when `exePath` lies in `buildExeDir`.
std::vector<std::string> LibraryCandidates(const std::string& exePath, const std::string& buildLibrary,
                                           const std::string& buildExeDir);

// The first candidate that exists; throws SwinvError listing every place tried.
std::string LocateLibrary(const std::vector<std::string>& candidates);

// Absolute path of the running executable (/proc/self/exe), or "" when unknown.
std::string CurrentExecutable();

}  // namespace swinv
