// Decoding of the component's inventory reply: the scan time, then for software
// the added, deleted, changed and a reserved (always empty) map with the
// no-baseline flag, then the same for packages without the reserved map. Each
// map travels as its uncompressed length and a compressed block.
#pragma once

#include "RecordJson.h"

#include "message/NDKMessage.h"

#include <stdexcept>

namespace swinv {

// The message does not hold an inventory in the expected layout.
class ReplyFormatError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads the layout from raw element `skip` on (the host's own leading elements are
// skipped) to the very end, and checks that every block encodes back to the same bytes.
// Result: {"kind": "reply", "scan_time", "software": {...}, "packages": {...}}.
Json DecodeReply(CNDKMessage& message, int skip);

// Name of an element type code ("uint", "string", "buffer", ...).
const char* ElementTypeName(int code);

}  // namespace swinv
