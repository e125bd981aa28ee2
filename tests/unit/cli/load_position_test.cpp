#include "cli/load_position.h"

#include <gtest/gtest.h>

namespace OstrandCli {
namespace {

TEST(LoadPositionTest, StaysAtTheFirstUnfinishedLine) {
  LoadPosition position;
  position.Begin(2, 10);
  position.Begin(3, 20);
  position.Begin(4, 30);
  position.Finish(3);
  EXPECT_EQ(position.FirstOpenLine(), 2U);
  EXPECT_EQ(position.FirstOpenOffset(), 10U);
  EXPECT_EQ(position.DoneBehind(), std::set<uint64_t>({3}));
  position.Finish(2);
  EXPECT_EQ(position.FirstOpenLine(), 4U);
  EXPECT_EQ(position.FirstOpenOffset(), 30U);
  EXPECT_TRUE(position.DoneBehind().empty());
  position.Finish(4);
  EXPECT_FALSE(position.HasOpen());
}

TEST(LoadPositionTest, PassesOverWhatAnEarlierRunFinished) {
  LoadPosition position({5, 7});
  position.Begin(4, 40);
  EXPECT_TRUE(position.SkipDone(5));
  EXPECT_FALSE(position.SkipDone(6));
  position.Begin(6, 60);
  EXPECT_EQ(position.DoneBehind(), std::set<uint64_t>({5, 7}))
      << "line 5 is passed and line 7 not met, but line 4 is still open";
  position.Finish(4);
  EXPECT_EQ(position.DoneBehind(), std::set<uint64_t>({7}));
  EXPECT_TRUE(position.SkipDone(7));
  EXPECT_EQ(position.DoneBehind(), std::set<uint64_t>({7}));
  position.Finish(6);
  EXPECT_TRUE(position.DoneBehind().empty());
}

TEST(LoadPositionTest, ForgetsADoneLineWhenNothingIsOpen) {
  LoadPosition position({5});
  EXPECT_TRUE(position.SkipDone(5));
  EXPECT_TRUE(position.DoneBehind().empty());
}

}  // namespace
}  // namespace OstrandCli
