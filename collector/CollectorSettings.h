// The host's settings, through which the collector finds the agent's home path.
// Each source that includes this gets its own file-local reference, bound while the
// library's static objects are built, so the settings exist before any scan runs.
#pragma once

#include "component/HostSettings.h"

namespace zev {
namespace {
[[maybe_unused]] Settings_t& Settings = singleton<Settings_t>::instance();
}  // namespace
}  // namespace zev
