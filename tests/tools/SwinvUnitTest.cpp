// Unit tests of what swinv's end-to-end runs cannot reach: telling file kinds
// apart on ambiguous or malformed bytes, and reply layouts the component never sends.
#include "FileDecoder.h"
#include "InventoryReply.h"
#include "SwinvError.h"
#include "TestUtil.h"
#include "inventory/SoftwarePackageObject.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

// An archived map holding one package record with a 300-byte description.
std::vector<unsigned char> MapBytes() {
    CInvMap map;
    auto* record = new CSoftwarePackageObject;
    record->m_strDescription = std::string(300, 'x');
    map.SetAt("a", record);
    unsigned char* block = nullptr;
    const int length = map.ToMemory(&block);
    std::vector<unsigned char> bytes(block, block + length);
    std::free(block);
    return bytes;
}

// The component's layout, one host element in front; `lengthError` is added to the last map's length.
CNDKMessage Reply(unsigned int lengthError) {
    CNDKMessage reply;
    reply.Add(std::string("host element"));
    reply.Add(std::string("01 Jan 2026 10:00:00"));
    const auto map = MapBytes();
    for (int i = 0; i < 7; ++i) {
        reply.Add(static_cast<unsigned int>(map.size()) + (i == 6 ? lengthError : 0));
        reply.Add(map.data(), static_cast<unsigned int>(map.size()));
        if (i == 3 || i == 6) reply.Add(static_cast<short>(i == 3));
    }
    return reply;
}

}  // namespace

TEST(SwinvFiles, AmbiguousAndMalformedBytes) {
    EXPECT_EQ(swinv::DecodeFileBytes({0, 0}, "SWList.bin", 0)["kind"], "inventory map");
    EXPECT_EQ(swinv::DecodeFileBytes({0, 0}, "swsearch.bin", 0)["kind"], "search paths");
    testutil::TempDir dir;
    auto bytes = MapBytes();
    testutil::WriteFileBytes(dir.file("cut.bin"), std::vector<unsigned char>(bytes.begin(), bytes.end() - 40));
    bytes.push_back(0x41);
    testutil::WriteFileBytes(dir.file("trailing.bin"), bytes);
    testutil::WriteFileText(dir.file("empty.bin"), "");
    for (const char* name : {"cut.bin", "trailing.bin", "empty.bin"})
        EXPECT_THROW(swinv::DecodeFile(dir.file(name), 0), swinv::SwinvError) << name;
}

TEST(SwinvReply, LayoutsTheComponentNeverSends) {
    CNDKMessage reply = Reply(0), wrongLength = Reply(1), tooShort;
    EXPECT_EQ(swinv::DecodeReply(reply, 1)["packages"]["deleted"][0]["description"], std::string(300, 'x'));
    EXPECT_THROW(swinv::DecodeReply(reply, 0), swinv::ReplyFormatError);   // the host element is no scan time
    EXPECT_THROW(swinv::DecodeReply(wrongLength, 1), swinv::ReplyFormatError);
    tooShort.Add(std::string("01 Jan 2026 10:00:00"));
    EXPECT_THROW(swinv::DecodeReply(tooShort, 0), swinv::ReplyFormatError);
    reply.Add(7);
    EXPECT_THROW(swinv::DecodeReply(reply, 1), swinv::ReplyFormatError);
}
