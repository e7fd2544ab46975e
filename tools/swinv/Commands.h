// The four swinv commands, run from already parsed options. Each returns the
// exit code or throws SwinvError; results go to `out`, notes and progress to stderr.
#pragma once

#include <ctime>
#include <ostream>
#include <string>
#include <vector>

namespace swinv {

struct GlobalOptions {
    std::string home;            // --home; empty: ZEV_HOME or the per-user default
    std::string library;         // --library; empty: search
    std::string buildLibrary;    // the build tree's libsoftware.so.0, if this is a build-tree swinv
    std::string buildExeDir;     // where the build tree's swinv lies
    bool json = false;
};

struct RunOptions {
    bool full = false;        // command 10 instead of 0
    bool ack = false;         // DataSent afterwards: the run becomes the baseline
    std::string saveReply;    // also write the reply's bytes here
};

struct ConfigOptions {
    std::string text;
    std::vector<std::string> searchPaths;
};

struct ShowOptions {
    std::string file;
    int skip = 0;
};

int RunCommand(const GlobalOptions& global, const RunOptions& options, std::ostream& out);
int ConfigCommand(const GlobalOptions& global, const ConfigOptions& options, std::ostream& out);
int ShowCommand(const GlobalOptions& global, const ShowOptions& options, std::ostream& out);
// `now` is the clock the files' ages are measured against.
int StatusCommand(const GlobalOptions& global, std::ostream& out, std::time_t now);

// --library if given (it must exist), else the first library found in the search order.
std::string ChooseLibrary(const GlobalOptions& global);

}  // namespace swinv
