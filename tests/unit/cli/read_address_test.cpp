#include <gtest/gtest.h>

#include "cli/connection.h"

namespace OstrandCli {
namespace {

TEST(ReadAddressTest, AddsTheSchemeWhereItIsMissing) {
  const char* const given[][2] = {
      {"tcp://127.0.0.1:9000", "tcp://127.0.0.1:9000"},
      {"127.0.0.1:9000", "tcp://127.0.0.1:9000"},
      {"localhost:9000", "tcp://localhost:9000"},
      {"[::1]:9000", "tcp://[::1]:9000"},
  };
  for (const auto& [address, expected] : given) {
    std::string url;
    std::string error;
    EXPECT_TRUE(ReadAddress(address, url, error)) << error;
    EXPECT_EQ(url, expected);
  }
}

TEST(ReadAddressTest, SaysWhatAnAddressIs) {
  const char* const given[] = {"",
                               "tcp://",
                               "127.0.0.1",
                               "127.0.0.1:0",
                               "host:",
                               "host:65536",
                               "host:9000x",
                               ":9000",
                               "a:b:9000",
                               "tcp://a/b:90",
                               "udp://host:9000",
                               "host:-1",
                               "no such host:9000"};
  for (const char* address : given) {
    std::string url;
    std::string error;
    EXPECT_FALSE(ReadAddress(address, url, error)) << address;
    EXPECT_EQ(error, "\"" + std::string(address) +
                         "\" is no address: write it as tcp://HOST:PORT, an IPv6 address in "
                         "brackets, with a port of 1 to 65535");
  }
}

}  // namespace
}  // namespace OstrandCli
