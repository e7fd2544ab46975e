// The host program's file decoder as 'swinv show' uses it: the bytes of a file are
// decoded by content, the result travels as JSON text (as it does from swinv's
// decoding child) and is printed both as tables and as --json. swinv decodes in a
// child process because the archive's short-string assertion ends the process; here
// that assertion is turned into a rejection instead, so one process serves every
// input. Each input is decoded twice: as a list file with no host elements in front
// of a reply, and as "swsearch.bin" (paths preferred) behind four host elements.
#include "FileDecoder.h"
#include "Render.h"

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <vector>

namespace {

[[noreturn]] void Reject(const char*, int) { throw new CFileException; }

void Show(const std::vector<unsigned char>& bytes, const std::string& name, int skip) {
    swinv::Json decoded;
    try {
        decoded = swinv::DecodeFileBytes(bytes, name, skip);
    } catch (const swinv::NotAListFile&) {
        return;
    }
    const std::string text = decoded.dump(-1, ' ', false, swinv::Json::error_handler_t::replace);
    const swinv::Json received = swinv::Json::parse(text);   // throws, and so fails, on text that is no JSON
    std::ostringstream out;
    swinv::RenderFile(received, out);
    out << swinv::DumpJson(received);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SetArchiveAssertHandler(&Reject);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<unsigned char> bytes(data, data + size);
    Show(bytes, "SWPackage.bin", 0);
    Show(bytes, "swsearch.bin", 4);
    return 0;
}
