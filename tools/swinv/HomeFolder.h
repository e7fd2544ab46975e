// The home folder swinv hands the component. Without --home or ZEV_HOME it is a
// per-user state folder ($XDG_STATE_HOME/swinv or ~/.local/state/swinv), so the
// program works without root and without setup. The component keeps its files
// in data/ and looks for the agent's programs in bin/.
#pragma once

#include <string>

namespace swinv {

struct HomeChoice {
    std::string path;     // absolute, ends with '/'
    std::string source;   // "--home", "ZEV_HOME" or "default"
};

// Pure choice: `option` (from --home) wins, then `zevHome`, then the state folder.
// Null or empty arguments count as absent; `cwd` makes relative paths absolute.
HomeChoice ChooseHome(const std::string& option, const char* zevHome, const char* xdgStateHome,
                      const char* userHome, const std::string& cwd);

// ChooseHome with this process's environment and working folder.
HomeChoice ResolveHome(const std::string& option);

// Creates the folder with data/ and bin/ and, with `writes`, checks that data/ can be
// written; throws SwinvError naming the folder and the way out. Commands that only
// read (or report a failed write themselves) work on a read-only home.
void PrepareHome(const HomeChoice& home, bool writes);

}  // namespace swinv
