// Small helpers shared by the tests: a private temporary folder that removes
// itself, and whole-file reads and writes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testutil {

// mkdtemp below $TMPDIR (or /tmp); removed with its contents on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    // path() + "/" + name
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

std::vector<std::uint8_t> ReadFileBytes(const std::string& path);
std::string ReadFileText(const std::string& path);
void WriteFileBytes(const std::string& path, const std::vector<std::uint8_t>& bytes);
void WriteFileText(const std::string& path, const std::string& text, unsigned mode = 0644);
bool FileExists(const std::string& path);
void MakeDirs(const std::string& path);
// Formats bytes as "0A 0B ..." so failed golden-byte comparisons read well.
std::string Hex(const std::vector<std::uint8_t>& bytes);

}  // namespace testutil
