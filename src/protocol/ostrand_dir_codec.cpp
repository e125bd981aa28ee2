#include "protocol/ostrand_dir_codec.h"

#include <algorithm>
#include <cstring>

#include "protocol/byte_order.h"

namespace ostrand_protocol_dir {
namespace {

using ostrand_protocol_cs::LoadBigEndian;

// Where a record has its numbers; everything else is text and raw bytes.
struct Number {
  size_t offset;
  size_t width;
};

constexpr Number kHeadNumbers[] = {
    {offsetof(tagOstrdirCSHead, wMagic), 2},   {offsetof(tagOstrdirCSHead, wCmd), 2},
    {offsetof(tagOstrdirCSHead, nVersion), 2}, {offsetof(tagOstrdirCSHead, nHeadLen), 2},
    {offsetof(tagOstrdirCSHead, iBodyLen), 4}, {offsetof(tagOstrdirCSHead, ullAppID), 8},
};
constexpr Number kRequestNumbers[] = {
    {offsetof(tagReqGetTablesAndAccess, iAppID), 4},
    {offsetof(tagReqGetTablesAndAccess, iZoneID), 4},
};
constexpr size_t kConf = offsetof(tagResGetTablesAndAccess, stConfData);
constexpr Number kResponseNumbers[] = {
    {offsetof(tagResGetTablesAndAccess, iResult), 4},
    {offsetof(tagResGetTablesAndAccess, iSetID), 4},
    {offsetof(tagResGetTablesAndAccess, iAppID), 4},
    {offsetof(tagResGetTablesAndAccess, iZoneID), 4},
    {offsetof(tagResGetTablesAndAccess, iTableCount), 4},
    {offsetof(tagResGetTablesAndAccess, iAccessCount), 4},
    {kConf + offsetof(tagConfData, iHeartbeatMs), 4},
    {kConf + offsetof(tagConfData, iCheckHeartbeatMs), 4},
    {kConf + offsetof(tagConfData, iJudgeThreshold), 4},
    {kConf + offsetof(tagConfData, iJudgeCheckPeriod), 4},
    {kConf + offsetof(tagConfData, iJudgeCheckTimes), 4},
    {kConf + offsetof(tagConfData, iRecheckInterval), 4},
    {kConf + offsetof(tagConfData, iMaxRemoveRate), 4},
};

// Turns the numbers of a record from host to wire order or back: the same bytes, swapped.
template <size_t N>
void SwapNumbers(char* record, const Number (&numbers)[N]) {
  for (const Number& number : numbers) {
    char* const at = record + number.offset;
    const uint16_t one = 1;
    if (*reinterpret_cast<const char*>(&one) == 1) {
      std::reverse(at, at + number.width);
    }
  }
}

template <size_t N>
int Pack(char* buffer, size_t& len, const tagOStrdirCSPkg& pkg, uint16_t cmd, size_t body_len,
         const Number (&body_numbers)[N]) {
  const size_t frame_len = OSTRDIR_HEAD_LEN + body_len;
  if (buffer == nullptr || len < frame_len) {
    return OSTRDIR_ERR_ARGUMENT;
  }
  tagOstrdirCSHead head = pkg.stHead;
  head.wMagic = OSTRDIR_MAGIC;
  head.wCmd = cmd;
  head.nVersion = OSTRDIR_VERSION;
  head.nHeadLen = static_cast<int16_t>(OSTRDIR_HEAD_LEN);
  head.iBodyLen = static_cast<int32_t>(body_len);
  std::memcpy(buffer, &head, sizeof(head));
  SwapNumbers(buffer, kHeadNumbers);
  std::memcpy(buffer + OSTRDIR_HEAD_LEN, &pkg.stBody, body_len);
  SwapNumbers(buffer + OSTRDIR_HEAD_LEN, body_numbers);
  len = frame_len;
  return 0;
}

template <size_t N>
int Unpack(tagOStrdirCSPkg& pkg, const char* data, size_t len, uint16_t cmd, size_t record_body_len,
           const Number (&body_numbers)[N]) {
  std::memset(&pkg, 0, sizeof(pkg));
  const int frame_len = DirFrameLength(data, len);
  if (frame_len < 0) {
    return frame_len;
  }
  if (frame_len == 0 || static_cast<size_t>(frame_len) != len) {
    return OSTRDIR_ERR_FRAME_LEN;
  }
  if (LoadBigEndian<uint16_t>(data + offsetof(tagOstrdirCSHead, wCmd)) != cmd) {
    return OSTRDIR_ERR_COMMAND;
  }
  const auto head_len =
      static_cast<size_t>(LoadBigEndian<int16_t>(data + offsetof(tagOstrdirCSHead, nHeadLen)));
  std::memcpy(&pkg.stHead, data, OSTRDIR_HEAD_LEN);
  SwapNumbers(reinterpret_cast<char*>(&pkg.stHead), kHeadNumbers);
  std::memcpy(&pkg.stBody, data + head_len, std::min(len - head_len, record_body_len));
  SwapNumbers(reinterpret_cast<char*>(&pkg.stBody), body_numbers);
  return 0;
}

}  // namespace

int DirFrameLength(const char* data, size_t len) {
  if (data == nullptr || len < OSTRDIR_HEAD_LEN) {
    return 0;
  }
  if (LoadBigEndian<uint16_t>(data + offsetof(tagOstrdirCSHead, wMagic)) != OSTRDIR_MAGIC) {
    return OSTRDIR_ERR_MAGIC;
  }
  const int64_t head_len = LoadBigEndian<int16_t>(data + offsetof(tagOstrdirCSHead, nHeadLen));
  const int64_t body_len = LoadBigEndian<int32_t>(data + offsetof(tagOstrdirCSHead, iBodyLen));
  if (head_len < static_cast<int64_t>(OSTRDIR_HEAD_LEN)) {
    return OSTRDIR_ERR_HEAD_LEN;
  }
  if (body_len < 0 || head_len + body_len > static_cast<int64_t>(OSTRDIR_MAX_FRAME_LEN)) {
    return OSTRDIR_ERR_FRAME_LEN;
  }
  return static_cast<int>(head_len + body_len);
}

int PackDirRequest(char* buffer, size_t& len, const tagOStrdirCSPkg& pkg) {
  return Pack(buffer, len, pkg, OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_REQ,
              sizeof(tagReqGetTablesAndAccess), kRequestNumbers);
}

int PackDirResponse(char* buffer, size_t& len, const tagOStrdirCSPkg& pkg) {
  return Pack(buffer, len, pkg, OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES,
              sizeof(tagResGetTablesAndAccess), kResponseNumbers);
}

int UnpackDirRequest(tagOStrdirCSPkg& pkg, const char* data, size_t len) {
  return Unpack(pkg, data, len, OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_REQ,
                sizeof(tagReqGetTablesAndAccess), kRequestNumbers);
}

int UnpackDirResponse(tagOStrdirCSPkg& pkg, const char* data, size_t len) {
  return Unpack(pkg, data, len, OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES,
                sizeof(tagResGetTablesAndAccess), kResponseNumbers);
}

}  // namespace ostrand_protocol_dir
