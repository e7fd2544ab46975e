// Host-side stand-ins for what the agent's client process supplies to the
// component: the settings object's home path and the command runner. Tests and
// the swinv host program link this; executables must export its symbols
// (ENABLE_EXPORTS) so that a dlopen'ed libsoftware.so.0 binds to them.
#pragma once

#include <functional>
#include <string>

namespace hostshim {

// Overrides $ZEV_HOME as the home path; later getHomePath() calls see it at once.
void SetHomePath(const std::string& home);
// Forgets the setter's value, so that $ZEV_HOME counts again.
void ResetHomePath();
// The setter's value if set, else $ZEV_HOME with a trailing '/', else "".
std::string HomePath();
// Called with the command line before each GetSimpleCommand; an empty function clears it.
void SetCommandObserver(std::function<void(const char*)> observer);
// How many zev::Settings_t objects have been constructed in this process.
int SettingsConstructions();

}  // namespace hostshim
