// The host's settings object and the process-wide singleton through which the
// collector reads the agent's home path. The constructor and getHomePath() of
// zev::Settings_t, and GetSimpleCommand, are defined by the host process and stay
// undefined in the library; they must keep default visibility to bind at load time.
#pragma once

#include <string>

namespace zev {

class __attribute__((visibility("default"))) Settings_t {
public:
    Settings_t();   // defined by the host
    std::string getHomePath() const;   // defined by the host

    // The host's private state: the host defines it and fills it in its constructor.
    // The component never sees its layout, so it never runs its destructor.
    struct Impl;

private:
    // Holds the host's Impl: one pointer, as the host's own layout of this class has.
    class ImplHolder {
    public:
        explicit ImplHolder(Impl* pImpl = nullptr) : m_pImpl(pImpl) {}
        // Left to the process's end: freeing it without its destructor leaks its members and suits only a plain new.
        ~ImplHolder() = default;
        ImplHolder(const ImplHolder&) = delete;
        ImplHolder& operator=(const ImplHolder&) = delete;
        Impl* get() const { return m_pImpl; }
        Impl* operator->() const { return m_pImpl; }

    private:
        Impl* m_pImpl;
    };

    ImplHolder m_pImpl;
};

template <typename T>
class singleton {
public:
    static T& instance() {
        static T obj;   // thread-safe one-time construction, destroyed at exit
        create_object.do_nothing();
        return obj;
    }

private:
    struct object_creator {
        object_creator() { singleton<T>::instance(); }
        void do_nothing() const {}
    };
    static object_creator create_object;
};

template <typename T>
typename singleton<T>::object_creator singleton<T>::create_object;

// The agent's home path as the host's settings object reports it (no trailing part
// added); the collector appends "bin" or "bin/" itself.
std::string HostHomePath();

}  // namespace zev

// Runs a command line through the shell; true with its whole standard output.
__attribute__((visibility("default"))) bool GetSimpleCommand(const char* command, std::string& output);
