#include <gtest/gtest.h>

#include "cli/connection.h"

namespace OstrandCli {
namespace {

TEST(ResolveAddressTest, TakesNumbersAsTheyAre) {
  const char* const given[] = {"tcp://127.0.0.1:9000", "127.0.0.1:9000"};
  for (const char* address : given) {
    std::string url;
    std::string error;
    EXPECT_TRUE(ResolveAddress(address, url, error)) << error;
    EXPECT_EQ(url, "tcp://127.0.0.1:9000");
  }
}

TEST(ResolveAddressTest, LooksUpTheNameOfThisHost) {
  std::string url;
  std::string error;
  EXPECT_TRUE(ResolveAddress("tcp://localhost:9000", url, error)) << error;
  EXPECT_EQ(url, "tcp://127.0.0.1:9000");
}

TEST(ResolveAddressTest, SaysThatANameDoesNotResolve) {
  std::string url;
  std::string error;
  EXPECT_FALSE(ResolveAddress("tcp://no such host:9000", url, error));
  EXPECT_EQ(error,
            "the host \"no such host\" does not resolve: check the name, or give its IPv4 address");
}

TEST(ResolveAddressTest, SaysWhatAnAddressIs) {
  const char* const given[] = {"",         "tcp://",       "127.0.0.1",       "127.0.0.1:0",
                               "host:",    "host:65536",   "host:9000x",      ":9000",
                               "a:b:9000", "tcp://a/b:90", "udp://host:9000", "host:-1"};
  for (const char* address : given) {
    std::string url;
    std::string error;
    EXPECT_FALSE(ResolveAddress(address, url, error)) << address;
    EXPECT_EQ(error,
              "\"" + std::string(address) +
                  "\" is no address: write it as tcp://HOST:PORT, with a port of 1 to 65535");
  }
}

}  // namespace
}  // namespace OstrandCli
