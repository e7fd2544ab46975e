// Runs a test body in a forked child, optionally inside a private mount namespace
// where /usr, /opt or /etc can be overlaid with throw-away layers. The real
// machine's folders are never changed; every mount vanishes with the child.
#pragma once

#include <functional>
#include <string>

namespace testutil {

// Mount namespaces and overlays need root.
bool CanUsePrivateMounts();

// Runs `body` in a forked child and returns its result as the child's exit status
// (0 to 255); a child killed by a signal gives 128 + the signal number.
int RunInChild(const std::function<int()>& body);

// Like RunInChild, but the child first enters a private mount namespace whose mounts
// do not propagate back. Setup failures are reported on stderr with status 125.
int RunInPrivateMounts(const std::function<int()>& body);

// Inside RunInPrivateMounts: lays a writable, initially empty layer over `target`.
// `scratch` must be an existing empty folder; a tmpfs is mounted on it to hold the
// layer. Returns false (with errno set) on failure.
bool OverlayFolder(const std::string& target, const std::string& scratch);

}  // namespace testutil
