#include "TestUtil.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace testutil {

TempDir::TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/zevtest.XXXXXX";
    std::vector<char> buf(tmpl.begin(), tmpl.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed for " + tmpl);
    m_path = buf.data();
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
}

std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string ReadFileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFileBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void WriteFileText(const std::string& path, const std::string& text, unsigned mode) {
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << text;
    }
    ::chmod(path.c_str(), mode);
}

bool FileExists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

void MakeDirs(const std::string& path) { std::filesystem::create_directories(path); }

std::string Hex(const std::vector<std::uint8_t>& bytes) {
    std::string out;
    char b[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(b, sizeof b, "%02X", bytes[i]);
        if (i) out += ' ';
        out += b;
    }
    return out;
}

}  // namespace testutil
