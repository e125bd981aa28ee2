#include "common/ostrand_reqresp_util.h"

#include <array>
#include <cstddef>

namespace OstrandCommon {
namespace {

enum CommandClass : uint8_t {
  kNone = 0,
  kSimpleRead,
  kComplexRead,
  kSimpleWrite,
  kComplexWrite,
};

struct ClassOfRequest {
  uint32_t cmd;
  CommandClass command_class;
};

constexpr ClassOfRequest kRequests[] = {
    // Reads.
    {7, kSimpleRead},
    {11, kComplexRead},
    {15, kSimpleRead},
    {23, kComplexRead},
    {25, kComplexRead},
    {83, kSimpleRead},
    {91, kComplexRead},
    {117, kComplexRead},
    {129, kComplexRead},
    {153, kSimpleRead},
    {4225, kComplexRead},
    {4227, kComplexRead},
    {4239, kComplexRead},
    // Inserts.
    {1, kSimpleWrite},
    {17, kSimpleWrite},
    {145, kComplexWrite},
    {155, kSimpleWrite},
    // Updates.
    {5, kSimpleWrite},
    {21, kSimpleWrite},
    {29, kSimpleWrite},
    {89, kComplexWrite},
    {149, kComplexWrite},
    {157, kSimpleWrite},
    {4221, kComplexWrite},
    {4223, kComplexWrite},
    // Replaces.
    {3, kSimpleWrite},
    {147, kComplexWrite},
    {4215, kComplexWrite},
    {4217, kComplexWrite},
    // Deletes.
    {9, kSimpleWrite},
    {13, kSimpleWrite},
    {19, kSimpleWrite},
    {65, kSimpleWrite},
    {151, kComplexWrite},
};

constexpr uint32_t HighestRequest() {
  uint32_t highest = 0;
  for (const ClassOfRequest& request : kRequests) {
    highest = request.cmd > highest ? request.cmd : highest;
  }
  return highest;
}

constexpr std::array<CommandClass, HighestRequest() + 1> MakeTable() {
  std::array<CommandClass, HighestRequest() + 1> table{};
  for (const ClassOfRequest& request : kRequests) {
    table[request.cmd] = request.command_class;
  }
  return table;
}

constexpr auto kClasses = MakeTable();

CommandClass ClassOf(uint32_t request_cmd) {
  return request_cmd < kClasses.size() ? kClasses[request_cmd] : kNone;
}

// Response 0 has no request: its code wraps to one beyond the table.
CommandClass ClassOfResponse(uint32_t response_cmd) { return ClassOf(response_cmd - 1); }

bool IsRead(CommandClass c) { return c == kSimpleRead || c == kComplexRead; }
bool IsWrite(CommandClass c) { return c == kSimpleWrite || c == kComplexWrite; }

constexpr int kWarningResults[] = {-1293, -7949};

}  // namespace

bool OstrandReqRespUtil::IsReadRequest(uint32_t cmd, uint32_t) { return IsRead(ClassOf(cmd)); }

bool OstrandReqRespUtil::IsWriteRequest(uint32_t cmd, uint32_t) { return IsWrite(ClassOf(cmd)); }

bool OstrandReqRespUtil::IsSimpleReadRequest(uint32_t cmd, uint32_t) {
  return ClassOf(cmd) == kSimpleRead;
}

bool OstrandReqRespUtil::IsSimpleWriteRequest(uint32_t cmd, uint32_t) {
  return ClassOf(cmd) == kSimpleWrite;
}

bool OstrandReqRespUtil::IsReadResponse(uint32_t cmd, uint32_t) {
  return IsRead(ClassOfResponse(cmd));
}

bool OstrandReqRespUtil::IsWriteResponse(uint32_t cmd, uint32_t) {
  return IsWrite(ClassOfResponse(cmd));
}

bool OstrandReqRespUtil::IsSimpleReadResponse(uint32_t cmd, uint32_t) {
  return ClassOfResponse(cmd) == kSimpleRead;
}

bool OstrandReqRespUtil::IsSimpleWriteResponse(uint32_t cmd, uint32_t) {
  return ClassOfResponse(cmd) == kSimpleWrite;
}

bool OstrandReqRespUtil::IsComplexAndTransReadRsp(uint32_t cmd, uint32_t) {
  return ClassOfResponse(cmd) == kComplexRead;
}

bool OstrandReqRespUtil::IsComplexAndTransWriteRsp(uint32_t cmd, uint32_t) {
  return ClassOfResponse(cmd) == kComplexWrite;
}

bool OstrandReqRespUtil::ShouldRegardErrorToWarn(int code) {
  for (const int result : kWarningResults) {
    if (code == result) {
      return true;
    }
  }
  return false;
}

}  // namespace OstrandCommon
