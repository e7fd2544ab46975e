// The execute record's constructor: out of line so that a host gets it, with the
// message it copies, from the static library rather than from the component.
#include "HostRecords.h"

CExecuteInfo::CExecuteInfo(bool fullRefresh, unsigned int flags, CNDKMessage* message)
    : m_bFullRefresh(fullRefresh), m_dwFlags(flags) {
    if (message) m_Message = *message;
}
