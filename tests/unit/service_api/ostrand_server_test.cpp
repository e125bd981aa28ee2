#include "service_api/ostrand_server.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "fakes/fake_net_thread.h"
#include "fakes/fake_ostrand_server.h"

namespace OstrandService {
namespace {

using OstrandFakes::FakeNetThread;
using OstrandFakes::FakeOstrandServer;

class OstrandServerTest : public testing::Test {
 protected:
  void ExpectLastError(int32_t code, const std::string& text) {
    int32_t copied_code = 0x7777;
    std::string copied_text = "unset";
    server.GetLastError(copied_code, copied_text);
    EXPECT_EQ(code, copied_code);
    EXPECT_EQ(text, copied_text);
    EXPECT_EQ(code, server.auth_fail_code());
    EXPECT_EQ(text, server.auth_fail_text());
  }

  FakeOstrandServer server{nullptr};
};

TEST_F(OstrandServerTest, HasNoErrorAtFirst) { ExpectLastError(0, ""); }

TEST_F(OstrandServerTest, LastErrorIsOnePairUnderTwoNames) {
  server.SetLastError(-18195, "Connect proxy failed.");
  ExpectLastError(-18195, "Connect proxy failed.");
  server.SetLastError(-6413, "too low");
  ExpectLastError(-6413, "too low");
}

TEST_F(OstrandServerTest, ACodeAloneLeavesTheText) {
  server.SetLastError(-1, "text");
  server.SetLastError(-2);
  ExpectLastError(-2, "text");
}

TEST_F(OstrandServerTest, ANullTextIsTheEmptyOne) {
  server.SetLastError(-1, "text");
  server.SetLastError(-2, nullptr);
  ExpectLastError(-2, "");
}

TEST_F(OstrandServerTest, Keeps255CharactersOfAnErrorText) {
  for (const size_t length : {254U, 255U, 256U, 5000U}) {
    server.SetLastError(-1, std::string(length, 'e').c_str());
    ExpectLastError(-1, std::string(length < 255 ? length : 255, 'e'));
  }
}

TEST_F(OstrandServerTest, CodeAndTextNeverMixBetweenThreads) {
  server.SetLastError(1, "one");
  std::thread writer([this] {
    for (int i = 0; i < 2000; ++i) {
      server.SetLastError(2, "two");
      server.SetLastError(1, "one");
    }
  });
  for (int i = 0; i < 2000; ++i) {
    int32_t code = 0;
    std::string text;
    server.GetLastError(code, text);
    ASSERT_EQ(code == 1 ? "one" : "two", text);
  }
  writer.join();
}

TEST_F(OstrandServerTest, HasNoTablesAndNoLocalBufferAtFirst) {
  EXPECT_TRUE(server.m_register_table.empty());
  EXPECT_EQ(nullptr, server.m_local_buffer);
}

TEST_F(OstrandServerTest, ATableIsToBeCheckedFirst) {
  const RegisterTableInfo info;
  EXPECT_EQ(nullptr, info.local_meta);
  EXPECT_NE(RegisterTableInfo::kCheckPassed, info.check_ret);
  EXPECT_NE(RegisterTableInfo::kCheckFailed, info.check_ret);
  EXPECT_EQ(-1, info.data_protocol_type) << "unknown";
}

TEST(ScopedPause, PausesForItsScopeAndNests) {
  FakeNetThread thread(nullptr);
  {
    const ScopedPause outer(thread);
    EXPECT_EQ(1, thread.depth());
    {
      const ScopedPause inner(thread);
      EXPECT_EQ(2, thread.depth());
    }
    EXPECT_EQ(1, thread.depth());
  }
  EXPECT_EQ(0, thread.depth());
  EXPECT_EQ(2, thread.pause_count());
}

}  // namespace
}  // namespace OstrandService
