// Helpers for the inventory tests: record factories, a field-by-field record
// comparison (IsTheSameAs deliberately ignores some fields), a byte builder that
// spells out archive bytes by hand, and a forked runner for inputs that may end
// the process through the archive's short-string assertion.
#pragma once

#include "inventory/InvMap.h"
#include "inventory/SoftwareObject.h"
#include "inventory/SoftwarePackageObject.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace invtest {

CSoftwarePackageObject* MakePkg(const std::string& name, const std::string& version,
                                const std::string& vendor, const std::string& description);
CSoftwareObject* MakeSw(const std::string& version, const std::string& description,
                        const std::string& company, const std::string& package);

// True when every persisted field matches (and the class).
bool SameFields(CObject* a, CObject* b);
// True when both maps hold the same keys with SameFields records.
bool SameMaps(CInvMap& a, CInvMap& b);

std::vector<std::uint8_t> ToBytes(CInvMap& map);

// Archive bytes written by hand, little-endian.
class Bytes {
public:
    Bytes& u8(std::uint8_t v);
    Bytes& u16(std::uint16_t v);
    Bytes& u32(std::uint32_t v);
    Bytes& raw(const std::string& s);
    // Length prefix (1, 3 or 7 bytes) followed by the bytes.
    Bytes& str(const std::string& s);
    // New-class tag 0xFFFF and the class record.
    Bytes& newClass(std::uint16_t schema, const std::string& name);
    const std::vector<std::uint8_t>& get() const { return m_b; }

private:
    std::vector<std::uint8_t> m_b;
};

// Outcome of running a function in a forked child.
struct ChildResult {
    bool exited = false;
    int exitCode = -1;
    int signal = 0;
    std::string err;   // the child's standard error
};
// The child calls fn and exits with its result (0..255).
ChildResult RunInChild(const std::function<int()>& fn);

}  // namespace invtest
