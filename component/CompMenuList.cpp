// Command menu records. The host allocates the list and reads it back; every
// record, m_strAux included, is copied whole.
#include "component/CompMenuList.h"

CCompMenuInfo::CCompMenuInfo(unsigned int command, const std::string& text, unsigned short flags,
                             unsigned int data)
    : m_nCommand(command), m_strText(text), m_wFlags(flags), m_dwData(data) {}

CCompMenuInfo::CCompMenuInfo(const CCompMenuInfo& src)
    : CObject(src),
      m_nCommand(src.m_nCommand),
      m_strText(src.m_strText),
      m_strAux(src.m_strAux),
      m_wFlags(src.m_wFlags),
      m_dwData(src.m_dwData) {}

CCompMenuInfo& CCompMenuInfo::operator=(const CCompMenuInfo& src) {
    m_nCommand = src.m_nCommand;
    m_strText = src.m_strText;
    m_strAux = src.m_strAux;
    m_wFlags = src.m_wFlags;
    m_dwData = src.m_dwData;
    return *this;
}
