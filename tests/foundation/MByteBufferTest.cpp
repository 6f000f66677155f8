#include <endian.h>  // First on purpose: its BIG_ENDIAN macro must not break the header.

#include <kiv/foundation/MByteBuffer.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using kiv::system::MByteBuffer;

namespace {

class WrappedBuffer : public ::testing::Test {
protected:
    char bytes[4] = {0x12, 0x34, 0x56, 0x78};
    MByteBuffer buffer;
    void SetUp() override { buffer.Wrap(bytes, 4); }
};

}  // namespace

TEST_F(WrappedBuffer, TypedReadsFollowTheDeclaredByteOrder) {
    EXPECT_EQ(buffer.GetInt(0), 0x78563412);
    EXPECT_EQ(buffer.GetUnsignedShort(2), 0x7856);
    buffer.SetEndian(MByteBuffer::BIG_ENDIAN);
    EXPECT_EQ(buffer.GetInt(0), 0x12345678);
    EXPECT_EQ(buffer.GetUnsignedInt(0), 0x12345678u);
    EXPECT_EQ(buffer.GetShort(1), 0x3456);

    char eight[8] = {1, 2, 3, 4, 5, 6, 7, static_cast<char>(0x80)};
    MByteBuffer b;
    b.Wrap(eight, 8);
    EXPECT_EQ(b.GetINT64(0), static_cast<__int64>(0x8007060504030201ULL));
    b.SetEndian(MByteBuffer::BIG_ENDIAN);
    EXPECT_EQ(b.GetINT64(), 0x0102030405060780LL);
    EXPECT_EQ(b.GetPosition(), 8);
}

TEST_F(WrappedBuffer, ReadsThatReachPastTheSizeGiveZero) {
    EXPECT_EQ(buffer.GetUnsignedShort(3), 0);
    EXPECT_EQ(buffer.GetInt(1), 0);
    EXPECT_EQ(buffer.GetINT64(0), 0);
    EXPECT_EQ(buffer.GetByte(4), 0);
    EXPECT_EQ(buffer.GetChar(3), 0x78);
    buffer.SetSize(2);
    EXPECT_EQ(buffer.GetShort(0), 0x3412);
    EXPECT_EQ(buffer.GetShort(1), 0) << "the size, not the capacity, bounds reads";
    bytes[0] = static_cast<char>(0xF0);
    EXPECT_EQ(buffer.GetByte(0), 0xF0);
    EXPECT_EQ(buffer.GetChar(0), static_cast<char>(0xF0));
    EXPECT_EQ(buffer.GetByte(), 0xF0) << "a high byte read at the cursor";
    EXPECT_EQ(buffer.GetPosition(), 1);
}

TEST_F(WrappedBuffer, CursorReadsAdvanceByTheirWidthOrStayPutWhenTooLittleRemains) {
    buffer.SetEndian(MByteBuffer::BIG_ENDIAN);
    EXPECT_EQ(buffer.GetShort(), 0x1234);
    EXPECT_EQ(buffer.GetPosition(), 2);
    EXPECT_EQ(buffer.GetUnsignedShort(), 0x5678);
    EXPECT_EQ(buffer.Remaining(), 0);
    buffer.SetPosition(3);
    EXPECT_EQ(buffer.GetInt(), 0);
    EXPECT_EQ(buffer.GetPosition(), 3);
    EXPECT_EQ(buffer.GetByte(), 0x78);
    EXPECT_EQ(buffer.GetPosition(), 4);
}

TEST_F(WrappedBuffer, CursorPastTheSizeMovesByTheUnsignedRuleAndGetPullsItBack) {
    // Each case starts with the cursor at 6 of a 4-byte buffer.
    buffer.SetPosition(6);
    EXPECT_EQ(buffer.GetShort(), 0);
    EXPECT_EQ(buffer.GetPosition(), 8) << "size - position wraps to a large unsigned remainder";

    buffer.SetPosition(6);
    EXPECT_EQ(buffer.GetByte(), 0);
    EXPECT_EQ(buffer.GetPosition(), 6) << "the single-byte test is signed";

    buffer.SetPosition(6);
    char dst[10];
    EXPECT_EQ(buffer.Get(dst, 10), -2);
    EXPECT_EQ(buffer.GetPosition(), 4);
    EXPECT_EQ(buffer.Remaining(), 0);
}

TEST_F(WrappedBuffer, GetCopiesWhatRemainsAndPutWritesAtTheCursorWithoutAdvancing) {
    char dst[8] = {};
    EXPECT_EQ(buffer.Get(dst, 1, 8), 3);
    EXPECT_EQ(std::memcmp(dst, bytes + 1, 3), 0);
    EXPECT_EQ(buffer.GetPosition(), 0) << "the indexed form leaves the cursor";
    EXPECT_EQ(buffer.Get(dst, 4, 2), 0);
    EXPECT_EQ(buffer.Get(dst, 2), 2);
    EXPECT_EQ(buffer.GetPosition(), 2);
    EXPECT_EQ(buffer.Get(dst, 5), 2);
    EXPECT_EQ(buffer.GetPosition(), 4);

    const char two[2] = {'a', 'b'};
    buffer.SetPosition(3);
    EXPECT_EQ(buffer.Put(two, 2), 0);
    EXPECT_EQ(bytes[3], 0x78) << "a refused Put writes nothing";
    buffer.SetPosition(2);
    EXPECT_EQ(buffer.Put(two, 2), 2);
    EXPECT_EQ(buffer.GetPosition(), 2);
    EXPECT_EQ(std::string(bytes + 2, 2), "ab");
}

TEST(MByteBuffer, AllocateReplacesTheOwnedStorageAndWrappedStorageIsNeverFreed) {
    char storage[4] = {1, 2, 3, 4};
    {
        MByteBuffer b;
        ASSERT_EQ(b.Allocate(16), 1);
        EXPECT_NE(b.GetBuffer(), nullptr);
        EXPECT_EQ(b.GetSize(), 16);
        EXPECT_EQ(b.Capacity(), 16);
        b.SetPosition(5);
        ASSERT_EQ(b.Allocate(4), 1);  // the first block is freed (the leak checker sees it)
        EXPECT_EQ(b.GetPosition(), 0);
        EXPECT_EQ(b.Capacity(), 4);
        EXPECT_EQ(b.Allocate(-1), 0);
        EXPECT_EQ(b.GetBuffer(), nullptr);
        ASSERT_EQ(b.Allocate(8), 1);
        b.Wrap(storage, 4);  // frees the owned block, borrows the array
        EXPECT_EQ(b.GetBuffer(), storage);
    }  // freeing a stack array here would be reported by the sanitizer
    EXPECT_EQ(storage[3], 4);
}

TEST(MByteBuffer, AssignmentIsShallow) {
    char storage[4] = {9, 8, 7, 6};
    MByteBuffer a;
    a.Wrap(storage, 4);
    a.SetPosition(1);
    a.SetEndian(MByteBuffer::BIG_ENDIAN);
    MByteBuffer b;
    b = a;
    EXPECT_EQ(b.GetBuffer(), storage);
    EXPECT_EQ(b.GetPosition(), 1);
    EXPECT_EQ(b.GetEndian(), MByteBuffer::BIG_ENDIAN);
    b.GetByte();
    EXPECT_EQ(a.GetPosition(), 1) << "the cursors are separate";
}

TEST(MByteBuffer, UncheckedSettersNeverReachOutsideTheStorage) {
    char storage[4] = {1, 2, 3, 4};
    MByteBuffer b;
    b.Wrap(storage, 4);
    b.SetSize(64);  // larger than the storage
    EXPECT_EQ(b.GetInt(2), 0);
    EXPECT_EQ(b.GetByte(10), 0);
    char dst[64];
    EXPECT_EQ(b.Get(dst, 1, 63), 0);
    b.SetPosition(-3);
    EXPECT_EQ(b.GetShort(), 0);
    EXPECT_EQ(b.GetByte(-1), 0);
    EXPECT_EQ(b.Put(dst, 2), 0);
    MByteBuffer empty;
    empty.SetSize(8);
    EXPECT_EQ(empty.GetINT64(0), 0);
    EXPECT_EQ(empty.Put(dst, 4), 0);
}
