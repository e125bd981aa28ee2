#include "net/byte_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include "fakes/sanitizers.h"

namespace OSTRNET {
namespace {

constexpr size_t kKiB = 1024;

std::string Content(const ByteBuffer& buffer) { return {buffer.data(), buffer.size()}; }

void AppendText(ByteBuffer& buffer, const std::string& text) {
  ASSERT_TRUE(buffer.Append(text.data(), text.size()));
}

TEST(ByteBuffer, StartsWithoutMemory) {
  const ByteBuffer buffer;
  EXPECT_EQ(buffer.capacity(), 0u);
  EXPECT_EQ(buffer.size(), 0u);
  EXPECT_TRUE(buffer.empty());
  EXPECT_EQ(buffer.data(), nullptr);
}

TEST(ByteBuffer, TakesNothingFromNowhere) {
  ByteBuffer buffer;
  EXPECT_TRUE(buffer.Append(nullptr, 0));
  EXPECT_EQ(buffer.capacity(), 0u);
  buffer.TakeFront(0);
  buffer.Clear();
  AppendText(buffer, "some");
  EXPECT_TRUE(buffer.Append(nullptr, 0));
  EXPECT_EQ(Content(buffer), "some");
}

TEST(ByteBuffer, IsAQueueOfBytes) {
  ByteBuffer buffer;
  AppendText(buffer, "one ");
  AppendText(buffer, std::string("t\0o", 3));
  EXPECT_EQ(Content(buffer), std::string("one t\0o", 7));
  buffer.TakeFront(4);
  EXPECT_EQ(Content(buffer), std::string("t\0o", 3));
  AppendText(buffer, " three");
  EXPECT_EQ(Content(buffer), std::string("t\0o three", 9));
  buffer.TakeFront(9);
  EXPECT_TRUE(buffer.empty());
}

TEST(ByteBuffer, GrowsByDoubling) {
  ByteBuffer buffer;
  AppendText(buffer, "x");
  EXPECT_EQ(buffer.capacity(), 4 * kKiB);
  AppendText(buffer, std::string(4 * kKiB - 1, 'x'));
  EXPECT_EQ(buffer.capacity(), 4 * kKiB);
  AppendText(buffer, "y");
  EXPECT_EQ(buffer.capacity(), 8 * kKiB);
  AppendText(buffer, std::string(100 * kKiB, 'z'));
  EXPECT_EQ(buffer.capacity(), 128 * kKiB);
  EXPECT_EQ(Content(buffer), std::string(4 * kKiB, 'x') + "y" + std::string(100 * kKiB, 'z'));
}

TEST(ByteBuffer, DoesNotGrowWhileAsMuchIsTakenAsComes) {
  ByteBuffer buffer;
  for (int i = 0; i < 1000; ++i) {
    AppendText(buffer, std::string(1000, static_cast<char>('a' + i % 26)));
    if (i > 0) {
      ASSERT_EQ(*buffer.data(), static_cast<char>('a' + (i - 1) % 26));
      buffer.TakeFront(1000);
    }
  }
  EXPECT_EQ(buffer.capacity(), 4 * kKiB);
}

// What is taken from the front of a nearly full buffer makes room without much moving.
TEST(ByteBuffer, MovesNoMoreThanWasTaken) {
  ByteBuffer buffer;
  AppendText(buffer, std::string(60000, 'x'));
  size_t taken = 60000;
  size_t moved = 0;
  for (int i = 0; i < 1000; ++i) {
    buffer.TakeFront(1000);
    taken += 1000;
    const char* expected = buffer.data();
    AppendText(buffer, std::string(1000, 'y'));
    moved += buffer.data() != expected ? buffer.size() : 0;
  }
  EXPECT_LE(moved, taken);
}

TEST(ByteBuffer, GivesLargeMemoryBackWhenItBecomesEmpty) {
  ByteBuffer taken;
  AppendText(taken, std::string(64 * kKiB + 1, 'x'));
  EXPECT_EQ(taken.capacity(), 128 * kKiB);
  taken.TakeFront(64 * kKiB);
  EXPECT_EQ(taken.capacity(), 128 * kKiB);
  taken.TakeFront(1);
  EXPECT_EQ(taken.capacity(), 0u);

  ByteBuffer cleared;
  AppendText(cleared, std::string(64 * kKiB + 1, 'x'));
  cleared.Clear();
  EXPECT_EQ(cleared.capacity(), 0u);
  EXPECT_TRUE(cleared.empty());
  AppendText(cleared, "again");
  EXPECT_EQ(Content(cleared), "again");
  EXPECT_EQ(cleared.capacity(), 4 * kKiB);
}

TEST(ByteBuffer, KeepsSmallMemoryWhenItBecomesEmpty) {
  ByteBuffer buffer;
  AppendText(buffer, std::string(64 * kKiB, 'x'));
  const char* memory = buffer.data();
  buffer.TakeFront(64 * kKiB);
  EXPECT_EQ(buffer.capacity(), 64 * kKiB);
  AppendText(buffer, std::string(64 * kKiB, 'y'));
  EXPECT_EQ(buffer.data(), memory);
}

TEST(ByteBuffer, LendsRoomAndAddsWhatWasWrittenIntoIt) {
  ByteBuffer buffer;
  AppendText(buffer, "abc");
  char* room = buffer.Prepare(10 * kKiB);
  ASSERT_NE(room, nullptr);
  EXPECT_EQ(Content(buffer), "abc");
  std::memset(room, 'd', 10 * kKiB);
  buffer.Commit(3);
  EXPECT_EQ(Content(buffer), "abcddd");
  buffer.Commit(0);
  EXPECT_EQ(buffer.size(), 6u);
}

TEST(ByteBuffer, StaysAsItIsWithoutMemory) {
  if (OstrandFakes::kAddressSanitizer || OstrandFakes::kThreadSanitizer) {
    GTEST_SKIP() << "its allocator ends the program";
  }
  constexpr size_t kTooMuch = size_t{1} << 47;  // all that a process can address
  ByteBuffer buffer;
  EXPECT_EQ(buffer.Prepare(kTooMuch), nullptr);
  EXPECT_EQ(buffer.capacity(), 0u);
  AppendText(buffer, "abc");
  buffer.TakeFront(1);
  EXPECT_EQ(buffer.Prepare(kTooMuch), nullptr);
  EXPECT_FALSE(buffer.Append("unread", kTooMuch));
  EXPECT_EQ(Content(buffer), "bc");
  EXPECT_EQ(buffer.capacity(), 4 * kKiB);
}

TEST(ByteBuffer, SwapsWithAnother) {
  ByteBuffer one;
  ByteBuffer two;
  AppendText(one, "12345");
  one.TakeFront(1);
  one.Swap(two);
  EXPECT_TRUE(one.empty());
  EXPECT_EQ(one.capacity(), 0u);
  EXPECT_EQ(Content(two), "2345");
  AppendText(one, "new");
  one.Swap(two);
  EXPECT_EQ(Content(one), "2345");
  EXPECT_EQ(Content(two), "new");
}

// Random operations, against a string.
TEST(ByteBuffer, AgreesWithAString) {
  ByteBuffer buffer;
  std::string expected;
  std::mt19937 random(7);
  for (int step = 0; step < 4000; ++step) {
    const size_t len = random() % (step % 100 == 0 ? 100000 : 3000);
    const std::string bytes(len, static_cast<char>('a' + step % 26));
    const auto kind = random() % 8;
    if (kind < 3) {
      AppendText(buffer, bytes);
      expected += bytes;
    } else if (kind == 3) {
      char* room = buffer.Prepare(len + 100);
      ASSERT_NE(room, nullptr);
      std::memcpy(room, bytes.data(), len);
      buffer.Commit(len);
      expected += bytes;
    } else {
      const size_t taken = std::min(len, expected.size());
      buffer.TakeFront(taken);
      expected.erase(0, taken);
    }
    ASSERT_EQ(buffer.size(), expected.size());
    ASSERT_EQ(Content(buffer), expected);
    ASSERT_LE(buffer.capacity(), std::max<size_t>(64 * kKiB, 8 * (expected.size() + 100000)));
  }
}

}  // namespace
}  // namespace OSTRNET
