#include "net/address.h"

#include <gtest/gtest.h>

#include <string>

namespace OSTRNET {
namespace {

TEST(TcpUrl, OfAnIpv4AddressGivesTheEndpoint) {
  TcpAddress address;
  ASSERT_TRUE(ParseTcpUrl("tcp://10.1.2.3:9000", address));
  EXPECT_TRUE(address.is_numeric);
  EXPECT_EQ("10.1.2.3", address.host);
  EXPECT_EQ("10.1.2.3:9000", address.endpoint.Text());
}

TEST(TcpUrl, OfAnIpv6AddressIsInBrackets) {
  TcpAddress address;
  ASSERT_TRUE(ParseTcpUrl("tcp://[::1]:65535", address));
  EXPECT_TRUE(address.is_numeric);
  EXPECT_EQ("::1", address.host);
  EXPECT_EQ(Endpoint::Loopback(65535, Endpoint::Family::kIpv6), address.endpoint);
  EXPECT_EQ("[::1]:65535", address.endpoint.Text());
}

TEST(TcpUrl, OfALinkLocalAddressKeepsItsScope) {
  TcpAddress address;
  ASSERT_TRUE(ParseTcpUrl("tcp://[fe80::1%3]:80", address));
  EXPECT_EQ(3U, address.endpoint.scope);
  EXPECT_EQ("[fe80::1%3]:80", address.endpoint.Text());
}

TEST(TcpUrl, OfANameKeepsNameAndPort) {
  TcpAddress address;
  ASSERT_TRUE(ParseTcpUrl("tcp://dir_1.Example-net.org:1", address));
  EXPECT_FALSE(address.is_numeric);
  EXPECT_EQ("dir_1.Example-net.org", address.host);
  EXPECT_EQ(1, address.endpoint.port);
}

TEST(TcpUrl, OfAnotherFormIsRefusedAndChangesNothing) {
  const std::string long_name(254, 'a');
  const std::string urls[] = {
      "",
      "tcp://",
      "tcp:/host:1",
      "udp://host:1",
      "TCP://host:1",
      "tcp://:1",
      "tcp://host",
      "tcp://host:",
      "tcp://host:0",
      "tcp://host:65536",
      "tcp://host:99999999999999999999",
      "tcp://host:1a",
      "tcp://host:+1",
      "tcp://host: 1",
      "tcp://host:1/",
      "tcp://host:1:2",
      "tcp://ho st:1",
      "tcp://host%1:1",
      "tcp://user@host:1",
      "tcp://1.2.3:1",
      "tcp://1.2.3.256:1",
      "tcp://1.2.3.4.5:1",
      "tcp://12345:1",
      "tcp://...:1",
      "tcp://::1:1",
      "tcp://[::1:1",
      "tcp://[::1]1",
      "tcp://[::1]",
      "tcp://[]:1",
      "tcp://[1.2.3.4]:1",
      "tcp://[host]:1",
      "tcp://[fe80::1%]:1",
      "tcp://[fe80::1%eth0]:1",
      std::string("tcp://1.2.3.4\0:1", 16),
      "tcp://" + long_name + ":1",
  };
  for (const std::string& url : urls) {
    TcpAddress address;
    address.host = "before";
    EXPECT_FALSE(ParseTcpUrl(url, address)) << url;
    EXPECT_EQ("before", address.host) << url;
  }
  TcpAddress address;
  EXPECT_TRUE(ParseTcpUrl("tcp://" + long_name.substr(1) + ":1", address));
}

TEST(Endpoint, IsParsedWithoutBrackets) {
  Endpoint endpoint;
  EXPECT_TRUE(ParseEndpoint("2001:db8::7", 5, endpoint));
  EXPECT_EQ("[2001:db8::7]:5", endpoint.Text());
  EXPECT_TRUE(ParseEndpoint("127.0.0.1", 6, endpoint));
  EXPECT_EQ(Endpoint::Loopback(6), endpoint);
  EXPECT_FALSE(ParseEndpoint("[::1]", 6, endpoint));
  EXPECT_FALSE(ParseEndpoint("localhost", 6, endpoint));
  EXPECT_FALSE(ParseEndpoint("", 6, endpoint));
  EXPECT_EQ(Endpoint::Loopback(6), endpoint);
}

TEST(Endpoint, DiffersByFamilyPortAddressAndScope) {
  const Endpoint one = Endpoint::Loopback(1, Endpoint::Family::kIpv6);
  Endpoint other = one;
  EXPECT_EQ(one, other);
  other.scope = 1;
  EXPECT_NE(one, other);
  EXPECT_NE(one, Endpoint::Loopback(2, Endpoint::Family::kIpv6));
  EXPECT_NE(one, Endpoint::Loopback(1));
}

}  // namespace
}  // namespace OSTRNET
