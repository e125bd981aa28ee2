// Directory answers while memory runs out, and answers that lie anywhere in memory.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "unit/service_api/router_route_change_test.h"

namespace OstrandService {
namespace {

using ostrand_protocol_dir::tagOStrdirCSPkg;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::AllocationFaults;
using OstrandFakes::DirectoryAnswer;

using Index = std::map<std::string, int32_t>;

constexpr int kAllocation = -9747;

// --- Out of memory ---

// What a flush did whose n-th allocation failed.
struct Attempt {
  int code;
  bool struck;
  int outstanding;
};

template <typename Router>
Attempt FlushWithout(Router& router, const DirectoryAnswer& answer,
                     void (AllocationFaults::*fail)(int), int n) {
  AllocationFaults faults;
  (faults.*fail)(n);
  const int code = router.FlushRoute(answer.get());
  return {code, faults.struck(), faults.outstanding()};
}

TEST_F(RouterRouteTest, UsesNoneOfAFirstRouteThatCannotBeIndexed) {
  const DirectoryAnswer answer({kB, kA, kC});
  int failures = 0;
  for (bool struck = true; struck; failures += struck ? 1 : 0) {
    SCOPED_TRACE(failures + 1);
    const Attempt attempt =
        FlushWithout(*router, answer, &AllocationFaults::FailThrowing, failures + 1);
    struck = attempt.struck;
    EXPECT_EQ(struck ? kAllocation : 0, attempt.code);
    EXPECT_EQ(struck ? Texts() : Texts({kB, kA, kC}), UrlsIn(in_use));
    EXPECT_EQ(struck ? 0U : 3U, mgr.live_count());
    EXPECT_EQ(Texts(), Broken());
    EXPECT_FALSE(ListIsLocked());
  }
  EXPECT_LE(6, failures) << "each url twice at least";
  EXPECT_EQ(Index({{kA, 0}, {kB, 1}, {kC, 2}}), peer->m_all_servers());
}

TEST_F(RouterRouteTest, KeepsWhatItCouldMakeOfAFirstRoute) {
  const Texts route = {kB, kA, kC};
  for (int n = 1; n <= 3; ++n) {
    SCOPED_TRACE(n);
    logger.Clear();
    const Attempt attempt =
        FlushWithout(*router, DirectoryAnswer(route), &AllocationFaults::FailNothrow, n);
    ASSERT_TRUE(attempt.struck);
    EXPECT_EQ(kAllocation, attempt.code);
    EXPECT_EQ(Texts(route.begin(), route.begin() + n - 1), UrlsIn(in_use));
    EXPECT_EQ(static_cast<size_t>(n - 1), mgr.live_count());
    EXPECT_EQ(
        Line(OSTRAND_LOG_LEVEL_ERROR, "AddServerNode",
             "new ProxyServerConnector failed. server_url:" + route[static_cast<size_t>(n) - 1]),
        logger.Lines().back());
    EXPECT_EQ(Index({{kA, 0}, {kB, 1}, {kC, 2}}), peer->m_all_servers());
    EXPECT_EQ(Texts(), Broken());
    EXPECT_FALSE(ListIsLocked());
    peer->ReleaseServerList(in_use);
  }
}

TEST_F(RouteChangeTest, StopsAtAProxyThatThereIsNoMemoryForAndGoesOnFromThere) {
  const DirectoryAnswer answer({kC, kA, kD});
  const struct {
    int failing;
    Texts prepared;
  } kCases[] = {{1, {}}, {2, {kC, kA}}, {1, {kC, kA}}};
  for (const auto& c : kCases) {
    const Attempt attempt =
        FlushWithout(*router, answer, &AllocationFaults::FailNothrow, c.failing);
    EXPECT_TRUE(attempt.struck);
    EXPECT_EQ(kAllocation, attempt.code);
    EXPECT_EQ(c.prepared, UrlsIn(preparing));
    EXPECT_EQ(Texts(), Broken());
    EXPECT_FALSE(ListIsLocked());
  }
  EXPECT_EQ(3U, mgr.live_count());
  EXPECT_EQ(0, Flush(answer));
  EXPECT_EQ(Texts({kC, kA, kD}), UrlsIn(preparing));
}

// The numbers of the urls decide where the ring has whom: all of a route have them, or none.
TEST_F(RouteChangeTest, KeepsTheWholeIndexWhenItRunsOutOfMemory) {
  const Index before = peer->m_all_servers();
  ASSERT_EQ(Index({{kA, 0}, {kB, 1}}), before);
  const DirectoryAnswer answer({kB, kC, kD});
  int failures = 0;
  for (bool struck = true; struck; failures += struck ? 1 : 0) {
    SCOPED_TRACE(failures + 1);
    const Attempt attempt =
        FlushWithout(*router, answer, &AllocationFaults::FailThrowing, failures + 1);
    struck = attempt.struck;
    if (struck) {
      EXPECT_EQ(kAllocation, attempt.code);
      EXPECT_EQ(before, peer->m_all_servers());
      EXPECT_EQ(0, attempt.outstanding) << "nothing is left lying";
    }
  }
  EXPECT_LE(6, failures) << "each url twice at least";
  EXPECT_EQ(Index({{kB, 0}, {kC, 1}, {kD, 2}}), peer->m_all_servers());
}

// --- Records at an odd address ---

// The record of the wire wherever a frame happened to lie.
class OddAnswer {
 public:
  explicit OddAnswer(const DirectoryAnswer& answer) : m_bytes(1 + sizeof(tagOStrdirCSPkg)) {
    std::memcpy(&m_bytes[1], answer.get(), sizeof(tagOStrdirCSPkg));
  }
  const tagOStrdirCSPkg* get() const {
    return reinterpret_cast<const tagOStrdirCSPkg*>(&m_bytes[1]);
  }

 private:
  std::vector<char> m_bytes;  // begins at an even address
};

TEST_F(RouterRouteTest, ReadsAnAnswerAtAnOddAddress) {
  const OddAnswer first(DirectoryAnswer({kB, kA}));
  ASSERT_EQ(1U, reinterpret_cast<uintptr_t>(first.get()) % 2);
  EXPECT_EQ(0, router->FlushRoute(first.get()));
  EXPECT_EQ(Texts({kB, kA}), UrlsIn(in_use));
  EXPECT_EQ(Index({{kA, 0}, {kB, 1}}), peer->m_all_servers());
  EXPECT_EQ(0, router->FlushRoute(first.get())) << "which is the route in use";
  EXPECT_TRUE(UrlsIn(preparing).empty());

  EXPECT_EQ(0, router->FlushRoute(OddAnswer(DirectoryAnswer({kB, kC})).get()));
  EXPECT_EQ(Texts({kB, kC}), UrlsIn(preparing));
  EXPECT_EQ(0, router->FlushRoute(OddAnswer(DirectoryAnswer({kB, kD})).get()));
  EXPECT_EQ(Texts({kB, kD}), UrlsIn(preparing));
  EXPECT_EQ(Texts({kC}), UrlsIn(removing));
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(RouterRouteTest, RefusesABadAnswerAtAnOddAddressToo) {
  DirectoryAnswer command({kA});
  command.SetCmd(106);
  DirectoryAnswer result({kA});
  result.SetResult(-1);
  DirectoryAnswer nobody{Texts()};
  for (const DirectoryAnswer* answer : {&command, &result, &nobody}) {
    EXPECT_EQ(-1811, router->FlushRoute(OddAnswer(*answer).get()));
  }
  EXPECT_EQ(3, logger.Count(OSTRAND_LOG_LEVEL_ERROR));
  EXPECT_TRUE(UrlsIn(in_use).empty());
}

}  // namespace
}  // namespace OstrandService
