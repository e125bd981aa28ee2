#include "service_api/proxy_pack_parser.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "fakes/recording_logger.h"
#include "service_api/ostrand_service_response.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::LogLine;
using OstrandFakes::RecordingLogger;

constexpr int kModuleId = 31;

// A head of 28 bytes in front of a body of 5: magic, version 127, both lengths.
const std::string kFrameHead("\x4F\x54\x00\x7F\x00\x00\x00\x1C\x00\x00\x00\x05", 12);

std::string BadHead(size_t length) {
  std::string head(length, '\xAB');
  head[0] = '\x4F';
  head[1] = '\x55';
  return head;
}

LogLine Failure(const std::string& data, const std::string& dump) {
  char text[300];
  std::snprintf(text, sizeof(text), "GetPkgLen failed. ret:%d buffer:%p data_len:%u dump:%s",
                OstrandServiceResponse::kErrBadFrameHead, static_cast<const void*>(data.data()),
                static_cast<unsigned int>(data.size()), dump.c_str());
  return LogLine{OSTRAND_LOG_LEVEL_ERROR, kModuleId, "src/service_api/proxy_pack_parser",
                 "ParsePackLength", text};
}

int Parse(ProxyPackParser& parser, const std::string& data) {
  return parser.ParsePackLength(data.data(), static_cast<unsigned int>(data.size()));
}

TEST(ProxyPackParser, AnswersTheLengthOfTheWholeFrame) {
  RecordingLogger logger;
  ProxyPackParser parser(&logger, kModuleId);
  EXPECT_EQ(33, Parse(parser, kFrameHead));
  EXPECT_EQ(33, Parse(parser, kFrameHead + std::string(100, 'x')));
  EXPECT_TRUE(logger.Lines().empty());
}

TEST(ProxyPackParser, AnswersZeroForTooFewBytesAndLogsNothing) {
  RecordingLogger logger;
  ProxyPackParser parser(&logger, kModuleId);
  EXPECT_EQ(0, parser.ParsePackLength(nullptr, 0));
  for (size_t length = 0; length < 12; ++length) {
    EXPECT_EQ(0, Parse(parser, BadHead(length)));
  }
  EXPECT_TRUE(logger.Lines().empty());
}

TEST(ProxyPackParser, LogsAMalformedHeadWithItsFirstBytes) {
  RecordingLogger logger;
  ProxyPackParser parser(&logger, kModuleId);
  const std::string head = BadHead(12);
  EXPECT_EQ(OstrandServiceResponse::kErrBadFrameHead, Parse(parser, head));
  EXPECT_EQ(std::vector<LogLine>({Failure(head, "4f 55 ab ab ab ab ab ab ab ab ab ab ")}),
            logger.Lines());
}

TEST(ProxyPackParser, LogsNoMoreThan32Bytes) {
  for (const size_t length : {31U, 32U, 33U, 5000U}) {
    RecordingLogger logger;
    ProxyPackParser parser(&logger, kModuleId);
    const std::string head = BadHead(length);
    EXPECT_EQ(OstrandServiceResponse::kErrBadFrameHead, Parse(parser, head));
    std::string dump = "4f 55 ";
    for (size_t i = 2; i < length && i < 32; ++i) {
      dump += "ab ";
    }
    EXPECT_EQ(std::vector<LogLine>({Failure(head, dump)}), logger.Lines()) << length;
  }
}

TEST(ProxyPackParser, AnswersTheSameWithoutALogger) {
  ProxyPackParser parser(nullptr, kModuleId);
  EXPECT_EQ(33, Parse(parser, kFrameHead));
  EXPECT_EQ(0, Parse(parser, ""));
  EXPECT_EQ(OstrandServiceResponse::kErrBadFrameHead, Parse(parser, BadHead(40)));
}

TEST(ProxyPackParser, IsDestroyedThroughItsInterface) {
  RecordingLogger logger;
  OSTRNET::IPackParser* parser = new ProxyPackParser(&logger, kModuleId);
  EXPECT_EQ(33, parser->ParsePackLength(kFrameHead.data(), 12));
  delete parser;
}

}  // namespace
}  // namespace OstrandService
