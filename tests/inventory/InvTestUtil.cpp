#include "InvTestUtil.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace invtest {

CSoftwarePackageObject* MakePkg(const std::string& name, const std::string& version,
                                const std::string& vendor, const std::string& description) {
    auto* p = new CSoftwarePackageObject;
    p->m_strName = name;
    p->m_strVersion = version;
    p->m_strVendor = vendor;
    p->m_strDescription = description;
    p->m_nFlags = 128;
    return p;
}

CSoftwareObject* MakeSw(const std::string& version, const std::string& description,
                        const std::string& company, const std::string& package) {
    auto* p = new CSoftwareObject;
    p->m_strVersion = version;
    p->m_strDescription = description;
    p->m_strCompanyName = company;
    p->m_strPackage = package;
    return p;
}

bool SameFields(CObject* a, CObject* b) {
    if (!a || !b) return a == b;
    if (a->GetRuntimeClass() != b->GetRuntimeClass()) return false;
    if (a->IsKindOf(CLASS_RECORD(CSoftwarePackageObject))) {
        auto* x = static_cast<CSoftwarePackageObject*>(a);
        auto* y = static_cast<CSoftwarePackageObject*>(b);
        return x->m_strName == y->m_strName && x->m_strVersion == y->m_strVersion &&
               x->m_strVendor == y->m_strVendor && x->m_strExtra1 == y->m_strExtra1 &&
               x->m_strExtra2 == y->m_strExtra2 && x->m_nFlags == y->m_nFlags &&
               x->m_strDescription == y->m_strDescription;
    }
    if (a->IsKindOf(CLASS_RECORD(CSoftwareObject))) {
        auto* x = static_cast<CSoftwareObject*>(a);
        auto* y = static_cast<CSoftwareObject*>(b);
        return x->m_strVersion == y->m_strVersion && x->m_strDescription == y->m_strDescription &&
               x->m_strCompanyName == y->m_strCompanyName && x->m_strInfo1 == y->m_strInfo1 &&
               x->m_strInfo2 == y->m_strInfo2 && x->m_strInfo3 == y->m_strInfo3 &&
               x->m_strInfo4 == y->m_strInfo4 && x->m_nInfo5 == y->m_nInfo5 &&
               x->m_nInfo6 == y->m_nInfo6 && x->m_strPackage == y->m_strPackage;
    }
    if (a->IsKindOf(CLASS_RECORD(CInvMap)))
        return SameMaps(*static_cast<CInvMap*>(a), *static_cast<CInvMap*>(b));
    return true;
}

bool SameMaps(CInvMap& ma, CInvMap& mb) {
    if (ma.GetCount() != mb.GetCount()) return false;
    POSITION pos = ma.GetStartPosition();
    while (pos) {
        std::string key;
        CObject* va = nullptr;
        ma.GetNextAssoc(pos, key, va);
        CObject* vb = nullptr;
        if (!mb.Lookup(key, vb) || !SameFields(va, vb)) return false;
    }
    return true;
}

std::vector<std::uint8_t> ToBytes(CInvMap& map) {
    unsigned char* p = nullptr;
    const int n = map.ToMemory(&p);
    std::vector<std::uint8_t> out(p, p + n);
    std::free(p);
    return out;
}

Bytes& Bytes::u8(std::uint8_t v) {
    m_b.push_back(v);
    return *this;
}
Bytes& Bytes::u16(std::uint16_t v) { return u8(v & 0xFF).u8(v >> 8); }
Bytes& Bytes::u32(std::uint32_t v) { return u16(v & 0xFFFF).u16(v >> 16); }
Bytes& Bytes::raw(const std::string& s) {
    m_b.insert(m_b.end(), s.begin(), s.end());
    return *this;
}
Bytes& Bytes::str(const std::string& s) {
    if (s.size() < 255) {
        u8(static_cast<std::uint8_t>(s.size()));
    } else if (s.size() < 0xFFFE) {
        u8(0xFF).u16(static_cast<std::uint16_t>(s.size()));
    } else {
        u8(0xFF).u16(0xFFFF).u32(static_cast<std::uint32_t>(s.size()));
    }
    return raw(s);
}
Bytes& Bytes::newClass(std::uint16_t schema, const std::string& name) {
    return u16(0xFFFF).u16(schema).u16(static_cast<std::uint16_t>(name.size())).raw(name);
}

ChildResult RunInChild(const std::function<int()>& fn) {
    int fds[2];
    ChildResult r;
    if (::pipe(fds) != 0) return r;
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        ::dup2(fds[1], 2);
        // exit() rather than _exit(): the leak checker of the sanitizer build runs at exit.
        std::exit(fn());
    }
    ::close(fds[1]);
    char buf[512];
    ssize_t n;
    while ((n = ::read(fds[0], buf, sizeof buf)) > 0) r.err.append(buf, static_cast<size_t>(n));
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (WIFEXITED(status)) {
        r.exited = true;
        r.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        r.signal = WTERMSIG(status);
    }
    return r;
}

}  // namespace invtest
