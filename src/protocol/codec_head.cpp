#include "protocol/codec_head.h"

#include "protocol/codec_key_set.h"

namespace ostrand_protocol_cs {
namespace {

// A table name carries its own length, so the length must agree with its NUL.
void PackTableName(ByteWriter& out, const OStrandRouterInfo& info) {
  const size_t len = info.dwTableNameLen;
  if (len > 0 && len <= sizeof(info.szTableName) && strnlen(info.szTableName, len) != len - 1) {
    out.Fail(OSTRAND_CODEC_ERR_TEXT);
  }
  out.PutCounted(info.szTableName, len, sizeof(info.szTableName), OSTRAND_CODEC_ERR_TABLE_NAME);
}

bool HasPerfTest(uint16_t version) { return version >= OSTRAND_PKG_PERF_TEST_VERSION; }

}  // namespace

void PackHead(ByteWriter& shared_out, const OStrandPkgHead& head, uint16_t version) {
  ByteWriter out = shared_out;  // a local copy stays in registers
  constexpr uint32_t kFilledInLater = 0;
  out.Put(OSTRAND_PKG_MAGIC, version, kFilledInLater, kFilledInLater, head.ullAsynID, head.iSeq,
          head.dwCmd, head.iFlags, head.stRouterInfo.iAppID, head.stRouterInfo.iZoneID,
          head.stRouterInfo.iShardID);
  PackTableName(out, head.stRouterInfo);
  out.PutCounted(head.szUserBuff, head.dwUserBuffLen, sizeof(head.szUserBuff),
                 OSTRAND_CODEC_ERR_USER_BUFF_LEN);
  PackKeySet(out, head.stKeyInfo);
  out.Put(head.iVexMetaVersion, head.bReqBodyCompressType, head.bRespBodyCompressType);
  out.PutCounted(head.szSplitTableKeyBuff, head.dwSplitTableKeyBuffLen,
                 sizeof(head.szSplitTableKeyBuff), OSTRAND_CODEC_ERR_SPLIT_TABLE_KEY_LEN);
  out.Put(head.iResult, head.dwSubCmd);
  if (HasPerfTest(version)) {
    out.PutCounted(head.szPerfTest, head.dwPerfTestLen, sizeof(head.szPerfTest),
                   OSTRAND_CODEC_ERR_PERF_TEST_LEN);
  }
  shared_out = out;
}

void UnpackHead(ByteReader& shared_in, OStrandPkgHead& head) {
  ByteReader in = shared_in;  // a local copy stays in registers
  in.Get(head.wMagic, head.wVersion, head.dwHeadLen, head.dwBodyLen, head.ullAsynID, head.iSeq,
         head.dwCmd, head.iFlags, head.stRouterInfo.iAppID, head.stRouterInfo.iZoneID,
         head.stRouterInfo.iShardID);
  head.stRouterInfo.dwTableNameLen =
      in.GetText(head.stRouterInfo.szTableName, sizeof(head.stRouterInfo.szTableName),
                 OSTRAND_CODEC_ERR_TABLE_NAME);
  head.dwUserBuffLen =
      in.GetCounted(head.szUserBuff, sizeof(head.szUserBuff), OSTRAND_CODEC_ERR_USER_BUFF_LEN);
  UnpackKeySet(in, head.stKeyInfo);
  in.Get(head.iVexMetaVersion, head.bReqBodyCompressType, head.bRespBodyCompressType);
  head.dwSplitTableKeyBuffLen =
      in.GetCounted(head.szSplitTableKeyBuff, sizeof(head.szSplitTableKeyBuff),
                    OSTRAND_CODEC_ERR_SPLIT_TABLE_KEY_LEN);
  in.Get(head.iResult, head.dwSubCmd);
  head.dwPerfTestLen = 0;
  if (HasPerfTest(head.wVersion)) {
    head.dwPerfTestLen =
        in.GetCounted(head.szPerfTest, sizeof(head.szPerfTest), OSTRAND_CODEC_ERR_PERF_TEST_LEN);
  }
  shared_in = in;
}

}  // namespace ostrand_protocol_cs
