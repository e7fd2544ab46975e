// Readable text for people, made from the same JSON that --json prints: the
// summary of a reply, the contents of a decoded file, and the status report.
#pragma once

#include "RecordJson.h"

#include <ostream>

namespace swinv {

// Scan time, counts per kind, then every item added, deleted and changed.
void RenderReply(const Json& reply, std::ostream& out);
// Any result of DecodeFile, as a table.
void RenderFile(const Json& decoded, std::ostream& out);
void RenderStatus(const Json& status, std::ostream& out);
// "3 min ago"-style age.
std::string DescribeAge(long long seconds);

}  // namespace swinv
