#include <algorithm>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

size_t Below(std::mt19937& random, size_t end) { return random() % end; }

// Mostly short, now and then up to the whole capacity.
size_t RandomLen(std::mt19937& random, size_t capacity) {
  switch (Below(random, 8)) {
    case 0: return capacity;
    case 1: return Below(random, capacity + 1);
    case 2: return 0;
    default: return Below(random, std::min<size_t>(capacity, 20) + 1);
  }
}

std::string RandomBytes(std::mt19937& random, size_t len) {
  std::string bytes(len, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(random());
  }
  return bytes;
}

std::string RandomWord(std::mt19937& random, size_t len) {
  std::string word(len, '\0');
  for (char& letter : word) {
    letter = static_cast<char>('a' + Below(random, 26));
  }
  return word;
}

std::string RandomName(std::mt19937& random) {
  return RandomWord(random, std::max<size_t>(1, RandomLen(random, OSTRAND_MAX_FIELD_NAME_LEN - 1)));
}

int64_t RandomInt64(std::mt19937& random) {
  return static_cast<int64_t>((uint64_t{random()} << 32) | random());
}

uint32_t RandomUint32(std::mt19937& random) { return static_cast<uint32_t>(random()); }

int32_t RandomInt32(std::mt19937& random) { return static_cast<int32_t>(random()); }

void FillRandom(OStrandKeySet& keys, std::mt19937& random) {
  keys.iVersion = RandomInt32(random);
  keys.dwFieldNum = 0;
  const size_t num = RandomLen(random, OSTRAND_MAX_KEY_FIELD_NUM);
  for (size_t i = 0; i < num; ++i) {
    AddKeyField(keys, RandomName(random),
                RandomBytes(random, RandomLen(random, OSTRAND_MAX_KEY_FIELD_LEN)));
  }
}

void FillRandom(OStrandPkgHead& head, std::mt19937& random) {
  head.ullAsynID = static_cast<uint64_t>(RandomInt64(random));
  head.iSeq = RandomInt32(random);
  head.iFlags = RandomInt32(random);
  head.stRouterInfo.iAppID = RandomInt32(random);
  head.stRouterInfo.iZoneID = RandomInt32(random);
  head.stRouterInfo.iShardID = RandomInt32(random);
  SetTableName(head, RandomWord(random, RandomLen(random, OSTRAND_MAX_TABLE_NAME_LEN - 1)));
  SetUserBuff(head, RandomBytes(random, RandomLen(random, OSTRAND_MAX_USER_BUFF_LEN)));
  FillRandom(head.stKeyInfo, random);
  head.iVexMetaVersion = RandomInt32(random);
  const std::string split =
      RandomBytes(random, RandomLen(random, OSTRAND_MAX_SPLIT_TABLE_KEY_BUFF_LEN));
  head.dwSplitTableKeyBuffLen = static_cast<uint32_t>(split.size());
  std::memcpy(head.szSplitTableKeyBuff, split.data(), split.size());
  head.iResult = RandomInt32(random);
  head.dwSubCmd = RandomUint32(random);
  const std::string perf = RandomBytes(random, RandomLen(random, OSTRAND_MAX_PERF_TEST_LEN));
  head.dwPerfTestLen = static_cast<uint32_t>(perf.size());
  std::memcpy(head.szPerfTest, perf.data(), perf.size());
}

void FillRandom(OStrandRecords& records, size_t num, std::mt19937& random) {
  RecordWriter writer(records);
  for (size_t i = 0; i < num; ++i) {
    RecordMark mark;
    mark.result = RandomInt32(random);
    mark.index = RandomInt32(random);
    mark.version = RandomInt32(random);
    ASSERT_EQ(writer.BeginRecord(mark), 0);
    const size_t keys = RandomLen(random, OSTRAND_MAX_KEY_FIELD_NUM);
    for (size_t key = 0; key < keys; ++key) {
      ASSERT_EQ(
          writer.AddKeyField(RandomName(random), RandomBytes(random, RandomLen(random, 1024))), 0);
    }
    const size_t values = RandomLen(random, OSTRAND_MAX_VALUE_FIELD_NUM);
    for (size_t value = 0; value < values; ++value) {
      ASSERT_EQ(
          writer.AddValueField(RandomName(random), RandomBytes(random, RandomLen(random, 2000))),
          0);
    }
  }
}

void FillRandom(OStrandMultiPkgRes& body, std::mt19937& random) {
  body.iResult = RandomInt32(random);
  body.bHasMorePkgs = static_cast<uint8_t>(Below(random, 2));
  FillRandom(body.stRecords, Below(random, 4), random);
}

void FillRandom(OStrandPkgBody& body, BodyKind kind, std::mt19937& random) {
  switch (kind) {
    case BodyKind::kUnknown:
    case BodyKind::kNothing:
    case BodyKind::kSkipped: return;
    case BodyKind::kAppSignupReq:
      SetText(body.stAppSignupReq.szSignature, RandomWord(random, RandomLen(random, 1023)));
      body.stAppSignupReq.nType = static_cast<int16_t>(random());
      SetText(body.stAppSignupReq.szUserName, RandomWord(random, RandomLen(random, 32)));
      SetText(body.stAppSignupReq.szPasswordMd5, RandomWord(random, RandomLen(random, 127)));
      return;
    case BodyKind::kAppSignupRes: body.stAppSignupRes.iResult = RandomInt32(random); return;
    case BodyKind::kHeartBeatReq:
      body.stHeartBeatReq.tCurTime = RandomInt64(random);
      body.stHeartBeatReq.llApiTimeUs = RandomInt64(random);
      return;
    case BodyKind::kHeartBeatRes:
      body.stHeartBeatRes.tCurTime = RandomInt64(random);
      body.stHeartBeatRes.llApiTimeUs = RandomInt64(random);
      body.stHeartBeatRes.llProxyTimeUs = RandomInt64(random);
      return;
    case BodyKind::kMetadataGetReq:
      body.stMetadataGetReq.dwMetadataVersion = RandomUint32(random);
      return;
    case BodyKind::kMetadataGetRes: {
      OStrandMetadataGetRes& res = body.stMetadataGetRes;
      res.dwOstrandType = RandomUint32(random);
      res.iVexMetaCurrentVersion = RandomInt32(random);
      res.iIdlType = RandomInt32(random);
      const std::string image = RandomBytes(random, RandomLen(random, 5000));
      res.iIdlConLen = static_cast<int32_t>(image.size());
      std::memcpy(res.szIdlContent, image.data(), image.size());
      return;
    }
    case BodyKind::kRecord: FillRandom(body.stRecords, Below(random, 2), random); return;
    case BodyKind::kRecords: FillRandom(body.stRecords, Below(random, 5), random); return;
    case BodyKind::kListGetAllRes: FillRandom(body.stListGetAllRes, random); return;
    case BodyKind::kGetByPartKeyRes: FillRandom(body.stGetByPartKeyRes, random); return;
    case BodyKind::kSetTTLReq:
      body.stSetTTLReq.dwRecordNum = static_cast<uint32_t>(Below(random, 4));
      for (uint32_t i = 0; i < body.stSetTTLReq.dwRecordNum; ++i) {
        FillRandom(body.stSetTTLReq.astKeyInfo[i], random);
        body.stSetTTLReq.allTTLMs[i] = RandomInt64(random);
      }
      return;
    case BodyKind::kGetTTLReq:
      body.stGetTTLReq.dwRecordNum = static_cast<uint32_t>(Below(random, 4));
      for (uint32_t i = 0; i < body.stGetTTLReq.dwRecordNum; ++i) {
        FillRandom(body.stGetTTLReq.astKeyInfo[i], random);
      }
      return;
    case BodyKind::kTTLRes:
      body.stTTLRes.dwRecordNum = static_cast<uint32_t>(Below(random, 9));
      for (uint32_t i = 0; i < body.stTTLRes.dwRecordNum; ++i) {
        body.stTTLRes.astRecordTTL[i] = {RandomInt32(random), RandomInt64(random)};
      }
      return;
  }
}

}  // namespace

void FillRandom(OStrandPkg& pkg, uint32_t cmd, std::mt19937& random) {
  pkg.stHead.construct();
  pkg.stHead.dwCmd = cmd;
  ASSERT_EQ(pkg.stBody.construct(cmd), 0);
  FillRandom(pkg.stHead, random);
  FillRandom(pkg.stBody, BodyKindOfCmd(cmd), random);
}

}  // namespace ostrand_protocol_cs
