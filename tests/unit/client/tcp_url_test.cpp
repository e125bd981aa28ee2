#include "client/tcp_url.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace OstrandService {
namespace {

struct GoodUrl {
  const char* url;
  uint32_t ip;  // most significant byte first
  uint16_t port;
};

TEST(ParseTcpUrl, TakesAnAddressInNumbersAndAPort) {
  const GoodUrl kGood[] = {
      {"tcp://127.0.0.1:9000", 0x7F000001, 9000},
      {"tcp://0.0.0.0:1", 0, 1},
      {"tcp://255.255.255.255:65535", 0xFFFFFFFF, 65535},
      {"tcp://10.20.30.40:80", 0x0A141E28, 80},
      {"tcp://1.2.3.4:00080", 0x01020304, 80},
      {"tcp://1.2.3.4:000000000000000065535", 0x01020304, 65535},
  };
  for (const GoodUrl& good : kGood) {
    sockaddr_in address;
    std::memset(&address, 0x5A, sizeof(address));
    ASSERT_TRUE(ParseTcpUrl(good.url, address)) << good.url;
    EXPECT_EQ(address.sin_family, AF_INET) << good.url;
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), good.ip) << good.url;
    EXPECT_EQ(ntohs(address.sin_port), good.port) << good.url;
    EXPECT_EQ(std::string(address.sin_zero, address.sin_zero + 8), std::string(8, '\0'));
  }
}

TEST(ParseTcpUrl, RefusesEverythingElseAndLeavesTheAddressAlone) {
  const char* const kBad[] = {
      nullptr,
      "",
      "t",
      "tcp",
      "tcp:/",
      "tcp://",
      "tcp://:",
      "tcp://:80",
      "127.0.0.1:80",
      " tcp://127.0.0.1:80",
      "TCP://127.0.0.1:80",
      "udp://127.0.0.1:80",
      "tcp:/127.0.0.1:80",
      "tcp:///127.0.0.1:80",
      "tcp://localhost:80",
      "tcp://127.0.0.1",
      "tcp://127.0.0.1:",
      "tcp://127.0.0.1:0",
      "tcp://127.0.0.1:00000",
      "tcp://127.0.0.1:65536",
      "tcp://127.0.0.1:99999",
      "tcp://127.0.0.1:4294967376",            // 80 in 32 bits
      "tcp://127.0.0.1:18446744073709551696",  // 80 in 64 bits
      "tcp://127.0.0.1:-1",
      "tcp://127.0.0.1:+80",
      "tcp://127.0.0.1: 80",
      "tcp://127.0.0.1:80 ",
      "tcp://127.0.0.1:80\n",
      "tcp://127.0.0.1:80x",
      "tcp://127.0.0.1:80/",
      "tcp://127.0.0.1:80:80",
      "tcp://127.0.0.1:0x50",
      "tcp:// 127.0.0.1:80",
      "tcp://127.0.0.1 :80",
      "tcp://127.0.0:80",
      "tcp://127.1:80",
      "tcp://2130706433:80",
      "tcp://127.0.0.256:80",
      "tcp://127.0.0.1.1:80",
      "tcp://127.0.0.-1:80",
      "tcp://0x7f.0.0.1:80",
      "tcp://127.0.0.0001:80",
      "tcp://1111.1111.1111.1111:80",
      "tcp://user@127.0.0.1:80",
      "tcp://[::1]:80",
  };
  sockaddr_in before;
  std::memset(&before, 0x5A, sizeof(before));
  for (const char* bad : kBad) {
    sockaddr_in address = before;
    EXPECT_FALSE(ParseTcpUrl(bad, address)) << bad;
    EXPECT_EQ(std::memcmp(&address, &before, sizeof(address)), 0) << bad;
  }
}

TEST(ParseTcpUrl, ReadsUrlsOfAnyLength) {
  sockaddr_in address{};
  EXPECT_FALSE(ParseTcpUrl(("tcp://" + std::string(100000, '1')).c_str(), address));
  EXPECT_FALSE(ParseTcpUrl(("tcp://" + std::string(100000, '1') + ":80").c_str(), address));
  EXPECT_FALSE(ParseTcpUrl(("tcp://1.2.3.4:" + std::string(100000, '1')).c_str(), address));
  EXPECT_TRUE(ParseTcpUrl(("tcp://1.2.3.4:" + std::string(100000, '0') + "7").c_str(), address));
}

}  // namespace
}  // namespace OstrandService
