// The one error type of swinv. Its text is a single line that names what went
// wrong and what to do about it; main() prints it and exits with its code.
#pragma once

#include <stdexcept>
#include <string>

namespace swinv {

enum ExitCode : int { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

class SwinvError : public std::runtime_error {
public:
    explicit SwinvError(const std::string& message, int exitCode = kExitFailure)
        : std::runtime_error(message), m_exitCode(exitCode) {}
    int exitCode() const { return m_exitCode; }

private:
    int m_exitCode;
};

}  // namespace swinv
