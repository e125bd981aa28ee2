#include "client/frame_queue.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <string>

#include "client/frame_scan.h"
#include "unit/client/connector_test.h"

namespace OstrandTests {
namespace {

using OstrandService::FrameQueue;
using OstrandService::IsLastPackage;

std::string FrontOf(const FrameQueue& queue) {
  const char* frame = nullptr;
  size_t len = 0;
  return queue.Front(frame, len) ? std::string(frame, len) : "none";
}
void Push(FrameQueue& queue, const std::string& frame) {
  ASSERT_TRUE(queue.Push(frame.data(), frame.size()));
}
std::string TakeFrom(FrameQueue& queue) {
  std::string frame = FrontOf(queue);
  queue.Take();
  return frame;
}

TEST(FrameQueue, HandsFramesOutInTheOrderInWhichTheyCame) {
  FrameQueue queue;
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(FrontOf(queue), "none");
  Push(queue, "one");
  Push(queue, "");
  Push(queue, "three");
  EXPECT_EQ(queue.bytes(), 3u + 0 + 5 + 3 * 4);
  EXPECT_EQ(TakeFrom(queue), "one");
  EXPECT_EQ(queue.bytes(), 0u + 5 + 2 * 4);
  EXPECT_EQ(TakeFrom(queue), "");
  EXPECT_EQ(TakeFrom(queue), "three");
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(queue.bytes(), 0u);
  EXPECT_EQ(FrontOf(queue), "none");
}

TEST(FrameQueue, KeepsATakenFrameReadableUntilTheNextOperation) {
  FrameQueue queue;
  const std::string large(200000, 'x');  // such memory is given back when it is empty
  Push(queue, large);
  const char* frame = nullptr;
  size_t len = 0;
  ASSERT_TRUE(queue.Front(frame, len));
  queue.Take();
  const char* next = nullptr;
  size_t next_len = 0;
  EXPECT_FALSE(queue.Front(next, next_len));
  EXPECT_TRUE(std::string(frame, len) == large);
}

TEST(FrameQueue, TakesAllOfAnotherOne) {
  FrameQueue first;
  FrameQueue second;
  Push(first, "1");
  Push(first, "2");
  Push(second, "3");
  Push(second, "4");
  first.Take();
  second.Take();
  ASSERT_TRUE(first.TakeAllOf(second));
  EXPECT_TRUE(second.empty());
  EXPECT_EQ(TakeFrom(first), "2");
  EXPECT_EQ(TakeFrom(first), "4");
  EXPECT_TRUE(first.empty());
  Push(second, "5");
  ASSERT_TRUE(first.TakeAllOf(second)) << "into an empty one";
  EXPECT_EQ(TakeFrom(first), "5");
  ASSERT_TRUE(first.TakeAllOf(second)) << "an empty one";
  EXPECT_TRUE(first.empty());
}

TEST(FrameQueue, VisitsWhatWasNotTaken) {
  FrameQueue queue;
  for (const char* frame : {"1", "22", "333"}) {
    Push(queue, frame);
  }
  queue.Take();
  std::string seen;
  queue.ForEach([&](const char* frame, size_t len) { seen += std::string(frame, len) + ","; });
  EXPECT_EQ(seen, "22,333,");
  queue.Clear();
  EXPECT_TRUE(queue.empty());
}

// Random operations, against a deque.
TEST(FrameQueue, AgreesWithADeque) {
  FrameQueue queue;
  FrameQueue other;
  std::deque<std::string> expected;
  std::mt19937 random(7);
  for (int step = 0; step < 20000; ++step) {
    const bool growing = step / 2000 % 2 == 0;
    if (random() % 100 < (growing ? 60u : 40u)) {
      const std::string frame(random() % 300, static_cast<char>('a' + step % 26));
      if (random() % 10 == 0) {
        Push(other, frame);
        ASSERT_TRUE(queue.TakeAllOf(other));
      } else {
        Push(queue, frame);
      }
      expected.push_back(frame);
    } else if (!expected.empty()) {
      ASSERT_EQ(TakeFrom(queue), expected.front());
      expected.pop_front();
    }
    ASSERT_EQ(queue.empty(), expected.empty());
  }
}

TEST(FrameScan, FindsIdAndCommand) {
  const std::string frame = IdFrame(0x1122334455667788, "", 0x99AABBCC);
  EXPECT_EQ(OstrandService::AsynIdOf(frame.data()), 0x1122334455667788u);
  EXPECT_EQ(OstrandService::CmdOf(frame.data()), 0x99AABBCCu);
}

TEST(FrameScan, KnowsTheLastPackageOfAnAnswer) {
  const auto is_last = [](const std::string& frame) {
    return IsLastPackage(frame.data(), frame.size());
  };
  EXPECT_TRUE(is_last(IdFrame(1, "")));
  EXPECT_FALSE(is_last(PackageFrame(1, 0, true)));
  EXPECT_TRUE(is_last(PackageFrame(1, 0, false)));
  EXPECT_TRUE(is_last(PackageFrame(1, -1, true))) << "after an error nothing follows";
  const auto cmd = ostrand_protocol_cs::OSTRAND_API_GET_BY_PARTKEY_RES;
  EXPECT_FALSE(is_last(IdFrame(1, std::string(4, '\0') + '\1', cmd)));
  for (size_t body_len = 0; body_len < 5; ++body_len) {
    EXPECT_TRUE(is_last(IdFrame(1, std::string(body_len, '\0'), cmd))) << body_len;
  }
  std::string frame = PackageFrame(1, 0, true);
  frame.replace(4, 4, BigEndian(0xFFFFFFFF, 4));  // a head that is longer than the frame
  EXPECT_TRUE(is_last(frame));
}

}  // namespace
}  // namespace OstrandTests
