// The records a host passes to the component: CInitInfo to InitClient and
// CExecuteInfo to Execute. Host and component both build them, so they sit in
// the static library that host programs link as well as in the component.
#pragma once

#include "message/NDKMessage.h"

#include <string>

class CInitInfo {
public:
    explicit CInitInfo(bool init) : m_bInit(init) {}
    std::string m_strHomePath;   // ends with a path separator
    bool m_bInit;                // true: initialise; false: shut down
};

class CExecuteInfo {
public:
    // A null message leaves m_Message empty; otherwise m_Message is a deep copy.
    CExecuteInfo(bool fullRefresh, unsigned int flags, CNDKMessage* message);
    bool m_bFullRefresh;
    unsigned int m_dwFlags;   // 0x100: started by the host at agent start-up
    CNDKMessage m_Message;
};
