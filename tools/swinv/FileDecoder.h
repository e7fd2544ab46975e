// Decoding of the files people hand to 'swinv show': the stored inventories
// ("SWList.bin", "SWPackage.bin"), the extra search paths ("swsearch.bin") and
// saved replies. The kind is found from the content: every decoder is tried and
// only one that reads the bytes to their exact end is accepted.
#pragma once

#include "RecordJson.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace swinv {

class NotAListFile : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// {"kind": "inventory map" | "search paths" | "reply" | "message", ...}. `nameHint` (the
// file's base name) only breaks ties, such as two zero bytes, which are both an empty map
// and an empty path list. `skip`: host elements in front of a reply. Throws NotAListFile;
// some malformed input ends the process instead, so callers go through DecodeFile.
Json DecodeFileBytes(const std::vector<unsigned char>& bytes, const std::string& nameHint, int skip);

// Reads `path` and decodes it in a child process; throws SwinvError with a one-line reason.
Json DecodeFile(const std::string& path, int skip);

}  // namespace swinv
