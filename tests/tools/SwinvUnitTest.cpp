// What swinv's end-to-end runs cannot reach: file kinds told apart on ambiguous or malformed bytes, reply
// layouts the component never sends, and the progress count of the component's command lines.
#include "FileDecoder.h"
#include "InventoryReply.h"
#include "Progress.h"
#include "SwinvError.h"
#include "TestUtil.h"
#include "inventory/SoftwarePackageObject.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using Bytes = std::vector<unsigned char>;

// An archived map holding one package record with a 300-byte description.
Bytes MapBytes() {
    CInvMap map;
    map.SetAt("a", new CSoftwarePackageObject);
    testutil::At<CSoftwarePackageObject>(map, "a")->m_strDescription = std::string(300, 'x');
    unsigned char* block = nullptr;
    const int length = map.ToMemory(&block);
    const Bytes bytes(block, block + length);
    std::free(block);
    return bytes;
}

// The component's layout, one host element in front; `lengthError` is added to the last map's length.
CNDKMessage Reply(unsigned int lengthError) {
    CNDKMessage reply;
    reply.Add(std::string("host element"));
    reply.Add(std::string("01 Jan 2026 10:00:00"));
    const Bytes map = MapBytes();
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
    Bytes bytes = MapBytes(), cut(bytes.begin(), bytes.end() - 40);
    bytes.push_back(0x41);
    for (const Bytes& bad : {cut, bytes, Bytes()}) {   // cut short, a byte too many, empty
        testutil::WriteFileBytes(dir.file("bad.bin"), bad);
        EXPECT_THROW(swinv::DecodeFile(dir.file("bad.bin"), 0), swinv::SwinvError) << bad.size();
    }
}

TEST(SwinvReply, LayoutsTheComponentNeverSends) {
    CNDKMessage reply = Reply(0), wrongLength = Reply(1), tooShort, inflated = Reply(200u << 20);
    EXPECT_EQ(swinv::DecodeReply(reply, 1)["packages"]["deleted"][0]["description"], std::string(300, 'x'));
    tooShort.Add(std::string("01 Jan 2026 10:00:00"));
    EXPECT_THROW(swinv::DecodeReply(reply, 0), swinv::ReplyFormatError);   // the host element is no scan time
    EXPECT_THROW(swinv::DecodeReply(wrongLength, 1), swinv::ReplyFormatError);
    EXPECT_THROW(swinv::DecodeReply(tooShort, 0), swinv::ReplyFormatError);
    try {   // 200 MiB: more than its small compressed block can inflate to
        swinv::DecodeReply(inflated, 1);
        ADD_FAILURE() << "a 200 MiB length behind a small block was taken";
    } catch (const swinv::ReplyFormatError& e) {
        EXPECT_NE(std::string(e.what()).find("lengths do not agree"), std::string::npos) << e.what();
    }
    reply.Add(7);   // an element after the last map
    EXPECT_THROW(swinv::DecodeReply(reply, 1), swinv::ReplyFormatError);
}

TEST(SwinvProgress, PackagesEachCommandAsksAbout) {
    const std::pair<const char*, std::size_t> commands[] = {
        {"dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' bash", 1},
        {"dpkg-query --show --showformat '${Package}\x1F${Package}^${Version}\x1E' bash zlib1g  gcc-12", 3},
        {"rpm -q --queryformat '%{NVR}\x1F%{NAME}\x1E' a-1-1.noarch b-2-1.x86_64", 2}, {"rpm -q bash --queryformat 'x'", 1},
        {"dpkg-query --show --showformat '${Package}\n'", 0}, {"dpkg-query --listfiles bash | grep bin", 0}, {"rpm -qa", 0},
        {"rpm -qf /bin/sh", 0}, {"rpm -ql bash | grep bin", 0}, {"", 0}, {nullptr, 0}};
    for (const auto& [command, packages] : commands) EXPECT_EQ(packages, swinv::PackagesQueried(command)) << (command ? command : "null");
}
