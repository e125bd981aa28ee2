#include "client/frame_scan.h"

#include "protocol/ostrand_protocol_cs.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: commands

bool IsLastPackage(const char* frame, size_t len) {
  const uint32_t cmd = CmdOf(frame);
  if (cmd != OSTRAND_API_LIST_GETALL_RES && cmd != OSTRAND_API_GET_BY_PARTKEY_RES) {
    return true;
  }
  constexpr size_t kHeadLenPlace = 4;
  constexpr size_t kMorePlace = 4;  // in the body, after its result
  const size_t body = LoadBigEndian<uint32_t>(frame + kHeadLenPlace);
  if (body + kMorePlace >= len) {
    return true;  // an answer that tells of a failure may come without body
  }
  return LoadBigEndian<int32_t>(frame + body) != 0 || frame[body + kMorePlace] == 0;
}

}  // namespace OstrandService
