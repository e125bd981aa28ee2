// What bench says of figures that are known.
#include "cli/bench_report.h"

#include <gtest/gtest.h>

#include <string>

#include "client/error_text.h"

namespace OstrandCli {
namespace {

class BenchReportTest : public testing::Test {
 protected:
  BenchReportTest() {
    figures.sent = 1000;
    figures.answered = 990;
    figures.refused = 3;
    figures.timed_out = 6;
    figures.failed = 4;
    figures.codes = {{-7949, 3}, {-12307, 4}};
    figures.by_proxy = {{"tcp://a", 249}, {"tcp://b", 747}};
    figures.latency_ns.Add(200);
    figures.seconds = 2;
    figures.user_cpu_seconds = 0.005;
    figures.system_cpu_seconds = 0.0025;
    figures.system_calls = 125;
    options.distribution = KeyDistribution::kZipfian;
    options.zipf_theta = 0.8;
    options.keys = 77;
    options.value_size = 12;
    options.seed = 5;
    options.read_share = 0.7;
  }

  BenchReport Report() const { return {figures, 700, 300, options, 32}; }

  LoadFigures figures;
  MixedLoadOptions options;
};

TEST_F(BenchReportTest, AsJson) {
  EXPECT_EQ(
      BenchJson(Report()),
      "{\"load\":{\"window\":32,\"read_share\":0.7,\"distribution\":\"zipfian\",\"zipf_theta\":0.8,"
      "\"keys\":77,\"value_size\":12,\"seed\":5},"
      "\"sent\":1000,\"reads\":700,\"writes\":300,\"answered\":990,\"refused\":3,\"timed_out\":6,"
      "\"failed\":4,\"seconds\":2,\"answers_per_second\":495,"
      "\"latency_us\":{\"min\":0.2,\"mean\":0.2,\"p50\":0.2,\"p75\":0.2,\"p90\":0.2,\"p95\":0.2,"
      "\"p99\":0.2,\"p99.9\":0.2,\"p99.99\":0.2,\"max\":0.2},"
      "\"cpu_us_per_request\":{\"user\":5,\"system\":2.5},\"system_calls_per_request\":0.125,"
      "\"proxies\":[{\"url\":\"tcp://a\",\"requests\":249,\"share\":0.25},"
      "{\"url\":\"tcp://b\",\"requests\":747,\"share\":0.75}],"
      "\"errors\":[{\"code\":-12307,\"text\":\"" +
          std::string(OstrandService::ErrorText(-12307)) +
          "\",\"times\":4},{\"code\":-7949,\"text\":\"" + OstrandService::ErrorText(-7949) +
          "\",\"times\":3}]}\n");
}

TEST_F(BenchReportTest, ForTheEye) {
  const std::string text = BenchText(Report());
  for (const char* line : {
           "sent                    1,000 (700 reads, 300 writes)\n",
           "answered                990 (3 of them refused)\n",
           "timed out               6\n",
           "failed                  4\n",
           "time                    2.000 s\n",
           "throughput              495 answers a second\n",
           "client CPU a request    5.00 us user, 2.50 us system\n",
           "system calls a request  0.125\n",
           "p99.99   0.2 us\n",
           "tcp://a       249  25.00%\n",
           "tcp://b       747  75.00%\n",
           "    4  -12307 (",
           "    3  -7949 (",
       }) {
    EXPECT_NE(text.find(line), std::string::npos) << line << "in\n" << text;
  }
}

TEST_F(BenchReportTest, OfNothing) {
  const LoadFigures nothing;
  const BenchReport report{nothing, 0, 0, options, 1};
  EXPECT_NE(BenchText(report).find("0 answers a second"), std::string::npos);
  EXPECT_NE(BenchJson(report).find("\"answers_per_second\":0,"), std::string::npos);
}

TEST(FormatNanoseconds, ChangesTheUnitAtAMillisecond) {
  EXPECT_EQ(FormatNanoseconds(0), "0.0 us");
  EXPECT_EQ(FormatNanoseconds(87049), "87.0 us");
  EXPECT_EQ(FormatNanoseconds(999999), "1000.0 us");
  EXPECT_EQ(FormatNanoseconds(1000000), "1.000 ms");
  EXPECT_EQ(FormatNanoseconds(1234567890), "1234.568 ms");
}

TEST(PercentName, IsShort) {
  EXPECT_EQ(PercentName(50), "p50");
  EXPECT_EQ(PercentName(99.99), "p99.99");
}

}  // namespace
}  // namespace OstrandCli
