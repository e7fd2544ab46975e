// Runs a piece of work in a forked child process and hands back its text result.
// The archive ends the process on some malformed data (a string cut short), so
// decoding bytes of unknown origin happens where that ends only the attempt.
#pragma once

#include <functional>
#include <string>

namespace swinv {

struct IsolatedResult {
    enum Outcome { kReturned, kThrew, kDied } outcome;
    std::string text;   // the result, or the exception's message; empty when the child died
};

// The child's stderr goes to /dev/null; the parent waits for it.
IsolatedResult RunIsolated(const std::function<std::string()>& work);

}  // namespace swinv
