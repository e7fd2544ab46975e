// One host session with the component, in the agent's calling order:
// GetComponentApp and InitClient(true) on construction; InitClient(false) and
// Unload on destruction. In between, the commands swinv needs. The library itself
// comes from the shared host loader, opened here with swinv's error lines.
#pragma once

#include "ComponentLibrary.h"

#include <string>

namespace swinv {

using hostshim::ComponentExports;
using hostshim::ComponentLibrary;

// Loads `path`, kept mapped after close; throws SwinvError that points at --library PATH.
ComponentLibrary OpenComponentLibrary(const std::string& path);

class ComponentSession {
public:
    // `home` ends with '/'; it also becomes the host settings' home path.
    ComponentSession(const ComponentLibrary& library, const std::string& home);
    ~ComponentSession();
    ComponentSession(const ComponentSession&) = delete;
    ComponentSession& operator=(const ComponentSession&) = delete;

    // Command 0 (inventory) or 10 (full inventory); returns Execute's result (3: reply holds one).
    int Execute(unsigned int command, CNDKMessage& reply);
    // The reply reached its reader: the run becomes the stored baseline.
    void DataSent(CNDKMessage& reply);
    int SetConfig(CNDKMessage& settings);

private:
    const ComponentExports& m_api;
};

}  // namespace swinv
