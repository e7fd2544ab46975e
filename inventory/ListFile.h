// Writing one list file. The new bytes go to a temporary file beside the target,
// which is synced and renamed over it, so a crash leaves the old file or the new
// one, never a torn one. Everything else looks as writing the file in place would:
// links are followed (to a target not there yet too), an existing file keeps its
// owner, group and mode, one the caller may not write is refused, and FIFOs,
// devices and files in folders that forbid the temporary are written in place.
#pragma once

#include <functional>
#include <string>

namespace listfile {

// `fill` writes the whole contents to the descriptor it is given, or returns false.
// True when the file holds them; false, with errno saying why, when the old file stays.
// A successful write also removes the temporaries that interrupted writes of the same
// file left beside it.
bool Write(const std::string& path, const std::function<bool(int fd)>& fill);

// Name pattern of the temporaries of `path`, six X standing for what mkostemp picks.
std::string TemporaryPattern(const std::string& path);

}  // namespace listfile
