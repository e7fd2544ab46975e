// Host-side life cycle of the component; see ComponentSession.h.
#include "ComponentSession.h"

#include "HostShim.h"
#include "SwinvError.h"

namespace swinv {

ComponentLibrary OpenComponentLibrary(const std::string& path) {
    try {
        return ComponentLibrary(path, true);
    } catch (const std::runtime_error& e) {
        throw SwinvError(std::string(e.what()) + "; pass the path of libsoftware.so.0 with --library PATH");
    }
}

ComponentSession::ComponentSession(const ComponentLibrary& library, const std::string& home)
    : m_api(library.exports()) {
    hostshim::SetHomePath(home);
    if (!m_api.GetComponentApp()) {
        throw SwinvError("the component in " + library.path() +
                         " could not be created (GetComponentApp returned nothing); rebuild or reinstall it");
    }
    CInitInfo init(true);
    init.m_strHomePath = home;
    m_api.InitClient(&init);
}

ComponentSession::~ComponentSession() {
    CInitInfo shutdown(false);
    m_api.InitClient(&shutdown);
    m_api.Unload(0);
}

int ComponentSession::Execute(unsigned int command, CNDKMessage& reply) {
    CExecuteInfo info(command == 10, 0, nullptr);
    return m_api.Execute(command, reply, &info);
}

void ComponentSession::DataSent(CNDKMessage& reply) { m_api.DataSent(reply); }

int ComponentSession::SetConfig(CNDKMessage& settings) { return m_api.SetConfig(settings); }

}  // namespace swinv
