// Writing a whole byte range to a descriptor, shared by the settings file and the
// log writer: each call is one write as far as its caller is concerned.
#pragma once

#include <cstddef>

namespace support {
// Resumes after short writes and interrupted calls; gives up silently on an error.
void WriteAll(int fd, const char* data, std::size_t size);
}  // namespace support
