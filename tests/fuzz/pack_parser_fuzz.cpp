// Any bytes as what a proxy has sent so far: the parser tells the length of the frame that begins
// there, or that it cannot tell yet, or that no frame begins so. Its answer depends on the first 12
// bytes alone, agrees with a plain reading of them, and only a refusal is logged, once.
//
// Each input is taken as it is, and once more with the magic in its place.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "fuzz/quiet_logger.h"
#include "service_api/ostrand_service_response.h"
#include "service_api/proxy_pack_parser.h"

namespace {

void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

constexpr size_t kTold = 12;
constexpr int64_t kMaxFrame = 16777216;

int64_t BigEndianAt(const std::string& bytes, size_t offset, size_t width) {
  int64_t value = 0;
  for (size_t i = offset; i < offset + width; ++i) {
    value = value * 256 + static_cast<unsigned char>(bytes[i]);
  }
  return value;
}

// The plain reading.
int Expected(const std::string& bytes) {
  if (bytes.size() < kTold) {
    return 0;
  }
  const int64_t head = BigEndianAt(bytes, 4, 4);
  const int64_t frame = head + BigEndianAt(bytes, 8, 4);
  if (bytes.compare(0, 2, "OT") != 0 || head < 28 || frame > kMaxFrame) {
    return OstrandService::OstrandServiceResponse::kErrBadFrameHead;
  }
  return static_cast<int>(frame);
}

int Parse(const std::string& bytes, OstrandCommon::Logger* logger) {
  // A copy that ends where its memory ends.
  const std::unique_ptr<char[]> exact(new char[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), exact.get());
  OstrandService::ProxyPackParser parser(logger, 1);
  return parser.ParsePackLength(exact.get(), static_cast<unsigned int>(bytes.size()));
}

void Check(const std::string& bytes) {
  QuietLogger logger;
  const int length = Parse(bytes, &logger);
  Require(length == Expected(bytes));
  Require(logger.lines() == (length < 0 ? 1 : 0));
  Require(Parse(bytes, nullptr) == length);
  Require(Parse(bytes.substr(0, kTold), nullptr) == length);
  Require(Parse(bytes.substr(0, kTold - 1), nullptr) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  Check(bytes);
  if (size >= 2) {
    bytes.replace(0, 2, "OT");
    Check(bytes);
  }
  return 0;
}
