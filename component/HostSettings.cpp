// The host settings singleton. The explicit instantiation makes its static
// create_object part of the library, so the host's Settings_t is constructed while
// the library's static objects are initialised, before any export is called.
#include "component/HostSettings.h"

namespace zev {

template class singleton<Settings_t>;

namespace {
// Bound during static initialisation, which constructs the host's settings object.
[[maybe_unused]] Settings_t& Settings = singleton<Settings_t>::instance();
}  // namespace

// Through instance() rather than Settings: safe even from another file's static
// initialisation, before Settings is bound.
std::string HostHomePath() { return singleton<Settings_t>::instance().getHomePath(); }

}  // namespace zev
