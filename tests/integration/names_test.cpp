// Urls with names and IPv6 addresses, of directories and of proxies.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fakes/forwarding_system.h"
#include "integration/integration_kit.h"
#include "net/address.h"

namespace OstrandTests {
namespace {

using OSTRNET::Endpoint;

// Knows the names that a test gives it, and no others.
class KnowingSystem : public OstrandFakes::ForwardingSystem {
 public:
  void SetAddresses(const std::string& host, const std::vector<std::string>& addresses) {
    std::vector<Endpoint>& endpoints = m_names[host];
    endpoints.clear();
    for (const std::string& address : addresses) {
      endpoints.emplace_back();
      ASSERT_TRUE(OSTRNET::ParseEndpoint(address, 0, endpoints.back()));
    }
  }
  void LookUp(const std::string& host, std::shared_ptr<OSTRNET::NameListener> listener) override {
    const auto found = m_names.find(host);
    if (found == m_names.end()) {
      listener->OnAddresses({}, "nobody has this name");
    } else {
      listener->OnAddresses(found->second, nullptr);
    }
  }

 private:
  std::map<std::string, std::vector<Endpoint>> m_names;
};

class Names : public RuntimeTest {
 protected:
  // The same port of another host.
  static std::string At(const std::string& host, const std::string& url) {
    return "tcp://" + host + url.substr(url.rfind(':'));
  }
  // Options with directory and proxies under this host.
  OstrandService::ClientOptions OptionsAt(const std::string& host) {
    std::vector<std::string> urls;
    for (const std::string& url : m_fleet->ProxyUrls()) {
      urls.push_back(At(host, url));
    }
    m_fleet->SetRoute(kZone, urls);
    auto options = Options();
    options.directory_urls = {At(host, m_fleet->DirectoryUrl())};
    return options;
  }
  void ExpectServed() {
    ASSERT_TRUE(m_work->Run(300));
    ASSERT_TRUE(m_work->Drain());
    EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
  }

  KnowingSystem m_knowing;
};

// The fleet listens at 127.0.0.1 alone; at the others nobody does.
TEST_F(Names, WithDeadAddressesAndALivingOneAreReachedAtThatOne) {
  m_system = &m_knowing;
  m_knowing.SetAddresses("fleet.test", {"127.0.0.2", "127.0.0.3", "127.0.0.1"});
  StartFleet(2);
  StartClient(OptionsAt("fleet.test"));
  ExpectServed();
  for (size_t i = 0; i < 2; ++i) {
    m_fleet->CloseConnections(i);
    ASSERT_TRUE(UpdateUntil([&] { return m_fleet->Counters(i).sign_ups_accepted == 2; }));
  }
  ExpectServed();
}

TEST_F(Names, ThatNobodyHasAreToldAndLookedUpAgain) {
  m_system = &m_knowing;
  StartFleet(1);
  const auto options = OptionsAt("fleet.test");
  StartClientUnready(options);
  EXPECT_EQ(m_client->WaitReady(100), OstrandService::CLIENT_ERR_NOT_READY_IN_TIME);
  int32_t code = 0;
  std::string text;
  m_client->GetLastError(code, text);
  EXPECT_EQ(code, OstrandService::CLIENT_ERR_DIRECTORY);
  EXPECT_EQ(text, "directory " + options.directory_urls[0] + ": look up: nobody has this name");
  m_knowing.SetAddresses("fleet.test", {"127.0.0.1"});
  EXPECT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
}

// The system's own names: one whose first address may be of the other family, with nobody there.
TEST_F(Names, LocalhostIsReached) {
  StartFleet(2);
  StartClientUnready(OptionsAt("localhost"));
  const int ret = m_client->WaitReady(5000);
  int32_t code = 0;
  std::string text;
  m_client->GetLastError(code, text);
  if (ret != 0 && text.find("look up") != std::string::npos) {
    m_serves_at_end = false;
    GTEST_SKIP() << "this machine does not know localhost: " << text;
  }
  ASSERT_EQ(ret, 0) << text;
  m_work = std::make_unique<Workload>(*m_client);
  ExpectServed();
}

// The fleet's IPv4 address in its IPv6 form goes through sockets of IPv6.
TEST_F(Names, AddressesOfIpv6AreReached) {
  OSTRNET::System& kernel = OSTRNET::System::Kernel();
  const int fd = kernel.OpenSocket(Endpoint::Family::kIpv6);
  if (fd < 0) {
    GTEST_SKIP() << "this machine has no IPv6";
  }
  kernel.Close(fd);
  StartFleet(2);
  StartClient(OptionsAt("[::ffff:127.0.0.1]"));
  ExpectServed();
  EXPECT_EQ(std::string(m_client->UsedProxyUrl(kZone)).rfind("tcp://[::ffff:127.0.0.1]:", 0), 0u);
}

}  // namespace
}  // namespace OstrandTests
