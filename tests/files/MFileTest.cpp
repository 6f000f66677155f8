#include <kiv/files/MFile.h>
#include <kiv/foundation/MByteBuffer.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "foundation/Text.h"
#include "support/KivTestEnvironment.h"

using kiv::system::MByteBuffer;
using kiv::system::MFile;

namespace {

std::wstring WidePath(const std::string& name) {
    return kiv::text::FromUtf8(kiv::test::TempPath(name));
}

}  // namespace

TEST(MFile, AFileThatDidNotOpenDoesNothingAndCloseSucceedsOnlyOnce) {
    MFile missing(WidePath("absent.bin").c_str(), L"rb");
    EXPECT_EQ(missing.IsOpen(), 0);
    char dst[4];
    EXPECT_EQ(missing.Read(dst, 1, 4), 0u);
    EXPECT_EQ(missing.ReadChar(), -1);
    EXPECT_EQ(missing.Seek(0, MFile::SEEK_FILE_BEGIN), 0);
    EXPECT_EQ(missing.Tell(), 0u);
    EXPECT_EQ(missing.IsEOF(), 1);
    EXPECT_EQ(missing.Close(), 0);
    EXPECT_EQ(MFile(nullptr, L"r").IsOpen(), 0);
    EXPECT_EQ(MFile(WidePath("x").c_str(), nullptr).IsOpen(), 0);

    MFile f(WidePath("once.bin").c_str(), L"wb");
    ASSERT_EQ(f.IsOpen(), 1);
    EXPECT_EQ(f.Close(), 1);
    EXPECT_EQ(f.Close(), 0);
    EXPECT_EQ(f.IsOpen(), 0);
}

TEST(MFile, WrittenElementsReadBackWithSeekTellAndEof) {
    const std::wstring path = WidePath("data.bin");
    {
        MFile out(path.c_str(), L"wb");
        const int values[3] = {1, 2, 3};
        EXPECT_EQ(out.Write(values, sizeof(int), 3), 3u);
        EXPECT_EQ(out.Write("\xFF\x80", 1, 2), 2u);
    }  // closed by the destructor
    MFile in(path.c_str(), L"rb");
    ASSERT_EQ(in.IsOpen(), 1);
    EXPECT_EQ(in.Seek(0, MFile::SEEK_FILE_END), 1);
    EXPECT_EQ(in.Tell(), 14u);
    EXPECT_EQ(in.Seek(-2, MFile::SEEK_FILE_CURRENT), 1);
    EXPECT_EQ(in.ReadChar(), 0xFF) << "bytes of 0x80 and above are not end of file";
    EXPECT_EQ(in.ReadChar(), 0x80);
    EXPECT_EQ(in.Seek(-10, MFile::SEEK_FILE_CURRENT), 1);
    int two[3] = {};
    EXPECT_EQ(in.Read(two, sizeof(int), 2), 2u);
    EXPECT_EQ(two[0], 2);
    EXPECT_EQ(two[1], 3);
    EXPECT_EQ(in.Seek(2, MFile::SEEK_FILE_CURRENT), 1);
    EXPECT_EQ(in.IsEOF(), 0);
    EXPECT_EQ(in.ReadChar(), -1);
    EXPECT_EQ(in.IsEOF(), 1);
    EXPECT_EQ(in.Seek(4, MFile::SEEK_FILE_BEGIN), 1);
    EXPECT_EQ(in.ReadChar(), 2);
    EXPECT_EQ(in.Read(two, sizeof(int), 3), 2u) << "only whole elements count";
    EXPECT_EQ(in.Seek(0, 7), 0) << "an origin outside the table fails";
}

TEST(MFile, ByteBufferTransfersStartAtThePositionStopAtTheStorageAndLeaveBookkeepingAlone) {
    const std::string path = kiv::test::TempPath("three.bin");
    ASSERT_TRUE(kiv::test::WriteFileBytes(path, "abc"));
    MFile in(kiv::text::FromUtf8(path).c_str(), L"rb");
    MByteBuffer b;
    ASSERT_EQ(b.Allocate(8), 1);
    std::memset(b.GetBuffer(), '.', 8);
    b.SetPosition(2);
    b.SetSize(5);
    EXPECT_EQ(in.Read(&b, 4), 3u);
    EXPECT_EQ(std::string(b.GetBuffer(), 8), "..abc...");
    EXPECT_EQ(b.GetPosition(), 2);
    EXPECT_EQ(b.GetSize(), 5);
    EXPECT_EQ(b.Capacity(), 8);
    EXPECT_EQ(in.Read(static_cast<MByteBuffer*>(nullptr), 4), 0u);

    char storage[6] = {'0', '1', '2', '3', '4', '5'};
    b.Wrap(storage, 6);
    b.SetPosition(4);
    {
        MFile out(WidePath("bounded.bin").c_str(), L"wb");
        EXPECT_EQ(out.Write(&b, 100), 2u);
    }
    EXPECT_EQ(kiv::test::ReadFileBytes(kiv::test::TempPath("bounded.bin")), "45");
    MFile again(kiv::text::FromUtf8(path).c_str(), L"rb");
    b.SetPosition(5);
    EXPECT_EQ(again.Read(&b, 100), 1u);
    EXPECT_EQ(storage[5], 'a');
}

TEST(MFile, CopyMovesTheStreamAndLeavesTheSourceEmpty) {
    const std::wstring path = WidePath("moved.txt");
    MFile original(path.c_str(), L"w+");
    ASSERT_EQ(original.IsOpen(), 1);
    MFile moved(original);
    EXPECT_EQ(original.IsOpen(), 0);
    EXPECT_EQ(original.IsEOF(), 1);
    EXPECT_EQ(original.Write("x", 1, 1), 0u);
    EXPECT_EQ(moved.Write("xy", 1, 2), 2u);

    MFile other(WidePath("other.txt").c_str(), L"w");
    other = moved;  // closes other's own stream first
    EXPECT_EQ(moved.IsOpen(), 0);
    EXPECT_EQ(other.Seek(0, MFile::SEEK_FILE_BEGIN), 1);
    EXPECT_EQ(other.ReadChar(), 'x');
    MFile& alias = other;
    other = alias;  // assigning to itself keeps the stream
    EXPECT_EQ(other.IsOpen(), 1);
}

TEST(MFile, WidePathsAreUtf8OnDisk) {
    const std::wstring name = L"gr\u00FC\u00DFe-\u4E2D.txt";
    const std::wstring path = kiv::text::FromUtf8(kiv::test::TestRoot()) + L"/" + name;
    {
        MFile out(path.c_str(), L"w");
        ASSERT_EQ(out.IsOpen(), 1);
        out.Write("ok", 1, 2);
    }
    EXPECT_EQ(kiv::test::ReadFileBytes(kiv::test::TestRoot() + "/gr\xC3\xBC\xC3\x9F"
                                                               "e-\xE4\xB8\xAD.txt"),
              "ok");
}
