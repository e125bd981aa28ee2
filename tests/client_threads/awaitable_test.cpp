// Requests in coroutines; compiled where there are some.
#include <version>

#if defined(__cpp_impl_coroutine) && defined(__cpp_lib_coroutine)

#include <exception>
#include <thread>

#include "client/awaitable.h"
#include "client_threads/threads_kit.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test

using ClientCoroutines = ClientThreads;

// Runs until its first wait, and then by itself.
struct Detached {
  struct promise_type {
    Detached get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
};

Detached WriteThenRead(Client& client, std::string& name, std::thread::id& thread, Tally& done) {
  const ClientResponse written = co_await Request(client, Write(1, "Ada"));
  EXPECT_EQ(written.GetResult(), 0);
  ClientResponse read = co_await Request(client, Read(1));
  FieldView value;
  EXPECT_TRUE(read.GetValue("name", value));
  name = value.value;
  thread = std::this_thread::get_id();
  done.Add();
}

Detached CountPackages(Client& client, int& packages, Tally& done) {
  ClientResponse list = co_await Request(client, ReadList());
  do {
    ++packages;
  } while (list.NextPackage());
  done.Add();
}

Detached Ask(Client& client, ClientRequest request, int32_t& result, Tally& done) {
  const ClientResponse response = co_await Request(client, std::move(request));
  result = response.GetResult();
  done.Add();
}

TEST_F(ClientCoroutines, GoOnOnTheBackgroundThread) {
  StartFleet();
  StartClient();
  std::string name;
  std::thread::id thread;
  Tally done;
  WriteThenRead(*m_client, name, thread, done);
  done.WaitFor(1);
  EXPECT_EQ(name, "Ada");
  EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(ClientCoroutines, GetTheWholeAnswer) {
  StartFleet(1, 3);
  StartClient();
  WriteList(10, 20);
  int packages = 0;
  Tally done;
  CountPackages(*m_client, packages, done);
  done.WaitFor(1);
  EXPECT_EQ(packages, 4);
}

TEST_F(ClientCoroutines, WhatIsRefusedDoesNotSuspend) {
  StartFleet();
  StartClient();
  int32_t result = 0;
  Tally done;
  Ask(*m_client, Get("nobody's").Key("id", 1), result, done);
  EXPECT_EQ(done.Count(), 1);
  EXPECT_EQ(result, CLIENT_ERR_TABLE);
}

TEST_F(ClientCoroutines, StopEndsTheirWait) {
  StartFleet();
  StartClient();
  KeepAnswersBack();
  int32_t result = 0;
  Tally done;
  Ask(*m_client, Write(1), result, done);
  EXPECT_EQ(m_client->Stop(0), 1);
  EXPECT_EQ(done.Count(), 1);
  EXPECT_EQ(result, CLIENT_ERR_CANCELLED);
}

}  // namespace
}  // namespace OstrandTests

#endif
