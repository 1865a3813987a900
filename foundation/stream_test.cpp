// Tests of the streams: little-endian blocks, a buffer's bounds, and
// copying between streams.
#include "foundation/stream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace QUtils {
namespace {

// A source that hands out `good` bytes and then fails with `code`.
class FailingSource : public PBufStream {
 public:
  FailingSource(uint32_t good, int code) : good(good), code(code) {}
  int read(void* data, uint32_t size, uint32_t* outCount) override {
    if (position() >= good) {
      *outCount = 0;
      return code;
    }
    return PBufStream::read(data, size < good - position() ? size : static_cast<uint32_t>(good - position()),
                            outCount);
  }
  uint32_t good;
  int code;
};

TEST(BlockTest, RoundTripsLittleEndianBlocks) {
  PBufStream stream;
  ASSERT_EQ(0, stream.allocate(400));
  stream.open();
  std::string data(300, 'x');
  data[0] = 'a';
  uint32_t count = 0;
  EXPECT_EQ(0, stream.writeBlock(data.data(), 300, &count));
  EXPECT_EQ(302u, count);
  EXPECT_EQ(0, stream.writeBlock("", 0, &count));
  EXPECT_EQ(2u, count);
  EXPECT_EQ(304, stream.position());
  // 300 = 0x012C, low byte first; the empty block is two zero bytes.
  EXPECT_EQ(0x2C, stream.getBuffer()[0]);
  EXPECT_EQ(0x01, stream.getBuffer()[1]);
  EXPECT_EQ(0, stream.getBuffer()[302]);
  EXPECT_EQ(0, stream.getBuffer()[303]);

  stream.seek(0);
  char back[65535];
  uint16_t size = 7;
  EXPECT_EQ(0, stream.readBlock(back, &size, &count));
  EXPECT_EQ(300, size);
  EXPECT_EQ(302u, count);
  EXPECT_EQ(data, std::string(back, 300));
  EXPECT_EQ(0, stream.readBlock(back, &size, &count));
  EXPECT_EQ(0, size);
  EXPECT_EQ(2u, count);
}

TEST(BlockTest, ShortHeadersAndDataFail) {
  PBufStream stream;
  stream.allocate(1);
  stream.open();
  uint32_t count = 9;
  EXPECT_EQ(-1, stream.writeBlock("abc", 3, &count));  // only one byte of the length fits
  EXPECT_EQ(0u, count);

  unsigned char truncated[] = {5, 0, 'a', 'b'};  // promises 5 bytes, holds 2
  stream.setBuffer(truncated, sizeof truncated);
  stream.open();
  char back[65535];
  uint16_t size = 0;
  EXPECT_NE(0, stream.readBlock(back, &size, &count));
  EXPECT_EQ(4u, count);
  stream.seek(3);  // one byte left: not even a length
  EXPECT_EQ(-1, stream.readBlock(back, &size, &count));
}

TEST(BlockTest, ReadBlockStringKeepsToTheRoom) {
  unsigned char blocks[] = {4, 0, 'a', 'b', 'c', 'd', 5, 0, 'e', 'f', 'g', 'h', 'i', 0, 0};
  PBufStream stream;
  stream.setBuffer(blocks, sizeof blocks);
  stream.open();
  char text[8];
  std::memset(text, '#', sizeof text);
  uint16_t room = 5;
  uint32_t count = 0;
  EXPECT_EQ(0, stream.readBlockString(text, &room, &count));
  EXPECT_STREQ("abcd", text);
  EXPECT_EQ(4, room);
  EXPECT_EQ(6u, count);

  // Five characters need six bytes: refused, and the text stays unread.
  room = 5;
  EXPECT_EQ(-1, stream.readBlockString(text, &room, &count));
  EXPECT_EQ(8, stream.position());
  EXPECT_STREQ("abcd", text);
  room = 6;
  stream.seek(6);
  EXPECT_EQ(0, stream.readBlockString(text, &room, &count));
  EXPECT_STREQ("efghi", text);

  // An empty block leaves buffer and room alone.
  room = 6;
  EXPECT_EQ(0, stream.readBlockString(text, &room, &count));
  EXPECT_EQ(6, room);
  EXPECT_STREQ("efghi", text);
}

TEST(BufStreamTest, StaysInsideItsBuffer) {
  char data[10] = "012345678";
  PBufStream stream;
  stream.setBuffer(data, 10);
  stream.open();
  EXPECT_EQ(0, stream.seek(10));
  EXPECT_TRUE(stream.atEnd());
  char byte;
  uint32_t count = 7;
  EXPECT_EQ(-1, stream.read(&byte, 1, &count));
  EXPECT_EQ(0u, count);
  EXPECT_EQ(-1, stream.seek(11));
  EXPECT_EQ(-1, stream.seekRelative(-11));
  EXPECT_EQ(10, stream.position());
  EXPECT_EQ(0, stream.seekFromEnd(-4));
  EXPECT_EQ(6, stream.position());

  EXPECT_EQ(0, stream.write("ABCDEFGHIJ", 10, &count));
  EXPECT_EQ(4u, count);
  EXPECT_EQ(0, std::memcmp("012345ABCD", data, 10));
  EXPECT_EQ(0, stream.write("K", 1, &count));
  EXPECT_EQ(0u, count);

  // A new buffer keeps the position; open goes back to the start.
  char other[20] = {};
  stream.setBuffer(other, 20);
  EXPECT_EQ(10, stream.position());
  stream.open();
  EXPECT_EQ(0, stream.position());
  EXPECT_EQ(2, stream.isOpen());
  stream.close();
  stream.close();
  EXPECT_EQ(-1, stream.close());
  EXPECT_EQ(0, stream.isOpen());
}

TEST(CopyStreamTest, ShortSourceEndsWithoutFailure) {
  char source[10] = "abcdefghi";
  PBufStream from, to;
  from.setBuffer(source, 10);
  from.open();
  to.allocate(100);
  to.open();
  int64_t got = -1, written = -1;
  EXPECT_EQ(0, copyStream(&to, &from, 50, &got, &written, 3));
  EXPECT_EQ(10, got);
  EXPECT_EQ(10, written);
  EXPECT_EQ(0, std::memcmp(source, to.getBuffer(), 10));

  EXPECT_EQ(0, copyStream(&to, &from, 0, &got, &written, 0));
  EXPECT_EQ(0, got);
  EXPECT_EQ(0, written);
}

TEST(CopyStreamTest, StopsAtTheFirstFailureOrAFullDestination) {
  FailingSource failing(8, 42);  // two full blocks of 4, then the failure
  failing.allocate(20);
  failing.open();
  PBufStream to;
  to.allocate(100);
  to.open();
  int64_t got = 0, written = 0;
  EXPECT_EQ(42, copyStream(&to, &failing, 20, &got, &written, 4));
  EXPECT_EQ(8, got);
  EXPECT_EQ(8, written);

  PBufStream source, small;
  source.allocate(100);
  source.open();
  small.allocate(5);
  small.open();
  EXPECT_EQ(0, copyStream(&small, &source, 100, &got, &written, 0));
  EXPECT_EQ(5, written);
  EXPECT_GT(got, written);
}

TEST(MemStreamTest, GrowsAcrossBlocksAndSeeksBack) {
  PMemStream stream(4);
  EXPECT_EQ(0, stream.open());
  EXPECT_EQ(-1, stream.open());
  uint32_t count = 0;
  EXPECT_EQ(0, stream.write("0123456789", 10, &count));
  EXPECT_EQ(10u, count);
  EXPECT_EQ(10, stream.size());
  EXPECT_TRUE(stream.atEnd());

  // Overwrite across the boundary of the first two blocks, then go on past the end.
  EXPECT_EQ(0, stream.seek(3));
  EXPECT_EQ(0, stream.write("abc", 3, &count));
  EXPECT_EQ(0, stream.seek(8));
  EXPECT_EQ(0, stream.write("XYZ", 3, &count));
  EXPECT_EQ(11, stream.size());

  char back[16] = {};
  EXPECT_EQ(0, stream.seek(0));
  EXPECT_EQ(0, stream.read(back, 16, &count));
  EXPECT_EQ(11u, count);
  EXPECT_EQ("012abc67XYZ", std::string(back, count));
  EXPECT_EQ(0, stream.seek(4));
  EXPECT_EQ(0, stream.read(back, 4, &count));
  EXPECT_EQ("bc67", std::string(back, count));
  EXPECT_EQ(-1, stream.seek(12));
  EXPECT_EQ(0, stream.seekFromEnd(-5));
  EXPECT_EQ(11, stream.position());
}

}  // namespace
}  // namespace QUtils
