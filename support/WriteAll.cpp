#include "support/WriteAll.h"

#include <unistd.h>

#include <cerrno>

namespace support {

void WriteAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t done = ::write(fd, data, size);
        if (done < 0) {
            if (errno == EINTR) continue;
            return;
        }
        data += done;
        size -= static_cast<std::size_t>(done);
    }
}

}  // namespace support
