// CFile open modes and descriptor behaviour, and the CMemFile growth, read and
// seek rules, including caller-owned blocks.
#include "ArchiveTestSupport.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

using testutil::TempDir;

TEST(File, OpenModesCreateTruncateAndKeep) {
    TempDir dir;
    const std::string path = dir.file("f.bin");
    CFile file;
    EXPECT_FALSE(file.Open(path.c_str(), CFile::modeRead));
    EXPECT_FALSE(file.Open(path, CFile::modeWrite));
    EXPECT_EQ(-1, file.m_hFile);
    EXPECT_TRUE(ThrowsFileException([&] { CFile missing(path.c_str(), CFile::modeRead); }));

    const mode_t oldMask = ::umask(0);
    {
        CFile created(path.c_str(), CFile::modeCreate | CFile::modeWrite);
        created.Write("hello", 5);
    }
    ::umask(oldMask);
    struct stat st {};
    ASSERT_EQ(0, ::stat(path.c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 0777u);
    EXPECT_EQ("hello", testutil::ReadFileText(path));

    {   // create + no-truncate keeps the contents; read-write can read them back
        CFile kept(path.c_str(), CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite);
        EXPECT_EQ(5u, kept.GetLength());
        char buf[8] = {};
        EXPECT_EQ(0, kept.Read(buf, 0));
        EXPECT_EQ(5, kept.Read(buf, sizeof(buf)));
        EXPECT_STREQ("hello", buf);
        EXPECT_EQ(0, kept.Read(buf, sizeof(buf)));   // end of file
        EXPECT_EQ(2, kept.Seek(2, CFile::begin));
        EXPECT_EQ(3, kept.Seek(1, CFile::current));
        EXPECT_EQ(4, kept.Seek(-1, CFile::end));
        EXPECT_EQ(1, kept.Seek(1, 77));   // unknown origin: from the start
        EXPECT_EQ(5u, kept.GetLength());
        EXPECT_EQ(1u, kept.GetPosition());   // GetLength puts the position back
    }
    {   // create alone truncates
        CFile truncated(path.c_str(), CFile::modeCreate | CFile::modeWrite);
    }
    EXPECT_EQ("", testutil::ReadFileText(path));

    EXPECT_EQ(0, CFile::Rename(path.c_str(), dir.file("g.bin").c_str()));
    EXPECT_FALSE(testutil::FileExists(path));
    CFile::Remove(dir.file("g.bin").c_str());
    CFile::Remove(dir.file("g.bin").c_str());   // a missing file is no error
    EXPECT_FALSE(testutil::FileExists(dir.file("g.bin")));
}

TEST(File, WrappedDescriptorIsNotClosedAndShortWritesArePrinted) {
    TempDir dir;
    CFile owner(dir.file("w.bin").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    {
        CFile wrapper(owner.m_hFile);
        wrapper.Write("ab", 2);
    }
    owner.Write("cd", 2);   // still open after the wrapper died
    EXPECT_EQ(4u, owner.GetLength());

    CFile readOnly(dir.file("w.bin").c_str(), CFile::modeRead);
    testing::internal::CaptureStdout();
    readOnly.Write("x", 1);
    EXPECT_EQ("Write does not work\n", testing::internal::GetCapturedStdout());
    readOnly.Close();
    EXPECT_EQ(-1, readOnly.m_hFile);
    readOnly.Close();   // closing twice is harmless
    EXPECT_EQ(0u, readOnly.GetBufferPtr(3));
    EXPECT_EQ(nullptr, readOnly.Duplicate());
    EXPECT_EQ("", readOnly.GetFilePath());
}

TEST(MemFile, GrowsInGrowByStepsAndReadsUpToTheEnd) {
    CMemFile file(1024);
    EXPECT_EQ(0u, file.GetBufferSize());
    file.Write("x", 1);
    EXPECT_EQ(1024u, file.GetBufferSize());
    std::vector<char> big(1025, 'b');
    file.SeekToBegin();
    file.Write(big.data(), 1025);
    EXPECT_EQ(2048u, file.GetBufferSize());
    EXPECT_EQ(1025u, file.GetLength());
    file.Seek(0, CFile::end);
    char buf[4];
    EXPECT_EQ(0, file.Read(buf, sizeof(buf)));   // at the end
    file.Seek(-2, CFile::end);
    EXPECT_EQ(2, file.Read(buf, sizeof(buf)));
    EXPECT_EQ(-1, file.Seek(0, 9));
    EXPECT_EQ(1025u, file.GetPosition());

    // A write after a seek past the end zero-fills the gap.
    file.Seek(1030, CFile::begin);
    file.Write("z", 1);
    EXPECT_EQ(1031u, file.GetLength());
    file.Seek(1025, CFile::begin);
    char gap[6];
    EXPECT_EQ(6, file.Read(gap, 6));
    EXPECT_EQ(0, std::memcmp(gap, "\0\0\0\0\0z", 6));

    // A position before the start wraps and reads nothing.
    file.Seek(-5000, CFile::current);
    EXPECT_EQ(0, file.Read(buf, 1));

    file.SetLength(10);
    EXPECT_EQ(10u, file.GetLength());
    EXPECT_EQ(10u, file.GetPosition());
    file.Close();
    EXPECT_EQ(0u, file.GetLength());
    EXPECT_EQ(0u, file.GetBufferSize());
}

TEST(MemFile, CallerBlocksFixedAndGrowable) {
    unsigned char fixed[5] = {'a', 'b', 'c', 'd', 'e'};
    {
        CMemFile file(fixed, sizeof(fixed), 0);   // fixed: the whole block is data
        EXPECT_EQ(5u, file.GetLength());
        char buf[8];
        EXPECT_EQ(5, file.Read(buf, sizeof(buf)));
        file.SeekToBegin();
        file.Write("AB", 2);   // fits: overwrites in place
        EXPECT_EQ('A', fixed[0]);
        // Growing a fixed block is refused instead of looping for ever.
        EXPECT_TRUE(ThrowsFileException([&] { file.Write("0123456789", 10); }));
        EXPECT_TRUE(ThrowsFileException([&] { file.SetLength(6); }));
    }   // not freed: the block is the caller's

    auto* block = static_cast<unsigned char*>(std::malloc(16));
    CMemFile file(block, 16, 256);   // growable: the block is room, not data
    EXPECT_EQ(0u, file.GetLength());
    std::vector<char> data(40, 'q');
    file.Write(data.data(), 40);
    EXPECT_EQ(272u, file.GetBufferSize());   // 16 + one step of 256
    EXPECT_EQ(40u, file.GetLength());
    unsigned char* detached = file.Detach();
    EXPECT_EQ('q', detached[39]);
    EXPECT_EQ(0u, file.GetLength());
    std::free(detached);
    file.Write("new", 3);   // after Detach the file owns what it allocates
    EXPECT_EQ(3u, file.GetLength());

    CMemFile direct(64);
    EXPECT_EQ(1u, direct.GetBufferPtr(3));
    void* start = nullptr;
    void* end = nullptr;
    EXPECT_EQ(10u, direct.GetBufferPtr(1, 10, &start, &end));
    EXPECT_EQ(10, static_cast<char*>(end) - static_cast<char*>(start));
    EXPECT_EQ(10u, direct.GetPosition());
}
