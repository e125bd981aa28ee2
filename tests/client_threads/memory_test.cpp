// What requests and responses of Client cost in memory.
#include <malloc.h>

#include <thread>
#include <vector>

#include "client_threads/threads_kit.h"
#include "fakes/allocation_faults.h"
#include "fakes/sanitizers.h"
#include "service_api/ostrand_router.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test

using ClientMemory = ClientThreads;

TEST_F(ClientMemory, AHundredThousandResponsesMayBeKept) {
  constexpr size_t kResponses =
      OstrandFakes::kAddressSanitizer || OstrandFakes::kThreadSanitizer ? 10000 : 100000;
  StartFleet();
  StartClient();
  ASSERT_EQ(m_client->Call(Write(1, std::string(100, 'x')), m_response), 0);
  const size_t before = mallinfo2().uordblks;
  std::vector<ClientResponse> kept;
  kept.reserve(kResponses);
  size_t bytes = 0;
  Tally outcomes;
  ClientRequest request = Read(1);
  for (size_t i = 0; i < kResponses; ++i) {
    if (i >= 256) {
      outcomes.WaitFor(static_cast<int>(i - 255));
    }
    ASSERT_EQ(m_client->Send(request,
                             [&](ClientResponse& response) {
                               bytes += response.SizeInMemory() - sizeof(ClientResponse);
                               kept.push_back(std::move(response));
                               outcomes.Add();
                             }),
              0);
  }
  outcomes.WaitFor(static_cast<int>(kResponses));
  const size_t used = mallinfo2().uordblks - before;
  if (!OstrandFakes::kAddressSanitizer && !OstrandFakes::kThreadSanitizer) {
    EXPECT_LE(used, bytes + 1024 * kResponses);
  }
  FieldView value;
  ASSERT_TRUE(kept[kResponses / 2].GetValue("name", value));
  EXPECT_EQ(value.value, std::string(100, 'x'));
}

// Allocations of both threads: the background thread's are counted from one callback to another.
class Allocations : public ClientMemory {
 protected:
  static constexpr int kRequests = 2000;

  void SendAll(int from) {
    for (int i = from; i < from + kRequests; ++i) {
      if (i >= 64) {
        m_outcomes.WaitFor(i - 63);
      }
      m_request.Replace(kTable).Key("id", i % 100).Set("name", "a value of some length");
      ASSERT_EQ(m_client->Send(m_request, [this](ClientResponse&) { m_outcomes.Add(); }), 0);
    }
    m_outcomes.WaitFor(from + kRequests);
  }

  // Runs on the background thread and ends before the next callback there.
  void OnBackgroundThread(const std::function<void()>& work) {
    Tally done;
    m_client->Send(Read(1), [&](ClientResponse&) {
      work();
      done.Add();
    });
    done.WaitFor(1);
  }

  ClientRequest m_request;
  Tally m_outcomes;
};

TEST_F(Allocations, NoneForARequestOnceWarm) {
  StartFleet();
  ClientOptions options = Options();
  options.directory_refresh_ms = kPatienceMs;
  StartClient(options);
  ASSERT_NO_FATAL_FAILURE(SendAll(0));
  std::unique_ptr<OstrandFakes::AllocationFaults> background;
  OnBackgroundThread([&] { background = std::make_unique<OstrandFakes::AllocationFaults>(); });
  int sender = 0;
  {
    const OstrandFakes::AllocationFaults here;
    ASSERT_NO_FATAL_FAILURE(SendAll(kRequests));
    sender = here.count();
  }
  int count = -1;
  OnBackgroundThread([&] {
    count = background->count();
    background.reset();
  });
  EXPECT_EQ(sender, 0);
  // Updates, which a slow machine makes more of, may allocate when something is due.
  EXPECT_LT(count, kRequests / 100);
}

TEST_F(Allocations, NoneForACallOnceWarm) {
  StartFleet();
  StartClient();
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(m_client->Call(m_request.Get(kTable).Key("id", 1), m_response), 0);
  }
  const OstrandFakes::AllocationFaults here;
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(m_client->Call(m_request.Get(kTable).Key("id", 1), m_response), 0);
  }
  EXPECT_EQ(here.count(), 0);
}

TEST_F(Allocations, WithoutMemoryARequestIsACodeAndNothingIsLeft) {
  StartFleet();
  StartClient();
  ASSERT_EQ(m_client->Call(Write(1), m_response), 0);
  for (int nth = 1; nth <= 3; ++nth) {
    for (int throwing = 0; throwing < 2; ++throwing) {
      ClientRequest request = Write(2, std::string(100000, 'x'));
      OstrandFakes::AllocationFaults faults;
      if (throwing == 1) {
        faults.FailThrowing(nth);
      } else {
        faults.FailNothrow(nth);
      }
      const int ret = m_client->Send(request, [](ClientResponse&) {});
      EXPECT_EQ(ret, faults.struck() ? ROUTER_ERR_ALLOCATION : 0);
    }
  }
  EXPECT_EQ(m_client->Call(Write(3), m_response), 0);
}

}  // namespace
}  // namespace OstrandTests
