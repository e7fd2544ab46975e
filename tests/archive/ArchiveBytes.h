// Archive bytes written by hand, for golden and hostile streams: little-endian integers, strings shorter than
// 255 bytes, class records, and the fields of the inventory records.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct ArchiveBytes {
    std::vector<std::uint8_t> b;
    ArchiveBytes& raw(const std::string& s) { return b.insert(b.end(), s.begin(), s.end()), *this; }
    ArchiveBytes& raw(const std::vector<std::uint8_t>& v) { return b.insert(b.end(), v.begin(), v.end()), *this; }
    ArchiveBytes& u8(std::uint8_t v) { return b.push_back(v), *this; }
    ArchiveBytes& u16(std::uint16_t v) { return u8(v & 0xFF).u8(v >> 8); }
    ArchiveBytes& u32(std::uint32_t v) { return u16(v & 0xFFFF).u16(v >> 16); }
    ArchiveBytes& str(const std::string& s) { return u8(static_cast<std::uint8_t>(s.size())).raw(s); }
    ArchiveBytes& cls(std::uint16_t schema, const std::string& name) {
        return u16(0xFFFF).u16(schema).u16(static_cast<std::uint16_t>(name.size())).raw(name);
    }
    // A package record (flags 128); schema 1 has no description (desc null).
    ArchiveBytes& pkg(const std::string& name, const std::string& ver, const std::string& vendor, const char* desc) {
        str(name).str(ver).str(vendor).str("").u32(128).str("");
        return desc ? str(desc) : *this;
    }
    // The schema-1 fields of an executable record: version 2.5, "Runner" by "Acme", at /srv/run, info5 -2.
    ArchiveBytes& sw1() { return str("2.5").str("Runner").str("Acme").str("/srv/run").str("").str("").str("").u32(-2); }
};
