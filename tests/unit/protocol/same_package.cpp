#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

using ::testing::AssertionFailure;
using ::testing::AssertionResult;
using ::testing::AssertionSuccess;

#define RETURN_IF_MEMBER_DIFFERS(a, b, member)       \
  if ((a).member != (b).member) {                    \
    return AssertionFailure() << #member " differs"; \
  }

bool SameBytes(const char* a, const char* b, size_t len) { return std::memcmp(a, b, len) == 0; }

AssertionResult SameHead(const OStrandPkgHead& a, const OStrandPkgHead& b) {
  RETURN_IF_MEMBER_DIFFERS(a, b, wMagic)
  RETURN_IF_MEMBER_DIFFERS(a, b, wVersion)
  RETURN_IF_MEMBER_DIFFERS(a, b, ullAsynID)
  RETURN_IF_MEMBER_DIFFERS(a, b, iSeq)
  RETURN_IF_MEMBER_DIFFERS(a, b, dwCmd)
  RETURN_IF_MEMBER_DIFFERS(a, b, iFlags)
  RETURN_IF_MEMBER_DIFFERS(a, b, stRouterInfo.iAppID)
  RETURN_IF_MEMBER_DIFFERS(a, b, stRouterInfo.iZoneID)
  RETURN_IF_MEMBER_DIFFERS(a, b, stRouterInfo.iShardID)
  RETURN_IF_MEMBER_DIFFERS(a, b, stRouterInfo.dwTableNameLen)
  RETURN_IF_MEMBER_DIFFERS(a, b, dwUserBuffLen)
  RETURN_IF_MEMBER_DIFFERS(a, b, iVexMetaVersion)
  RETURN_IF_MEMBER_DIFFERS(a, b, bReqBodyCompressType)
  RETURN_IF_MEMBER_DIFFERS(a, b, bRespBodyCompressType)
  RETURN_IF_MEMBER_DIFFERS(a, b, dwSplitTableKeyBuffLen)
  RETURN_IF_MEMBER_DIFFERS(a, b, iResult)
  RETURN_IF_MEMBER_DIFFERS(a, b, dwSubCmd)
  RETURN_IF_MEMBER_DIFFERS(a, b, dwPerfTestLen)
  if (std::string(a.stRouterInfo.szTableName) != b.stRouterInfo.szTableName) {
    return AssertionFailure() << "szTableName differs";
  }
  if (!SameBytes(a.szUserBuff, b.szUserBuff, a.dwUserBuffLen)) {
    return AssertionFailure() << "szUserBuff differs";
  }
  if (!SameBytes(a.szSplitTableKeyBuff, b.szSplitTableKeyBuff, a.dwSplitTableKeyBuffLen)) {
    return AssertionFailure() << "szSplitTableKeyBuff differs";
  }
  if (!SameBytes(a.szPerfTest, b.szPerfTest, a.dwPerfTestLen)) {
    return AssertionFailure() << "szPerfTest differs";
  }
  return SameKeySet(a.stKeyInfo, b.stKeyInfo);
}

AssertionResult SameMultiPkg(const OStrandMultiPkgRes& a, const OStrandMultiPkgRes& b) {
  RETURN_IF_MEMBER_DIFFERS(a, b, iResult)
  RETURN_IF_MEMBER_DIFFERS(a, b, bHasMorePkgs)
  return SameRecords(a.stRecords, b.stRecords);
}

AssertionResult SameMetadata(const OStrandMetadataGetRes& a, const OStrandMetadataGetRes& b) {
  RETURN_IF_MEMBER_DIFFERS(a, b, dwOstrandType)
  RETURN_IF_MEMBER_DIFFERS(a, b, iVexMetaCurrentVersion)
  RETURN_IF_MEMBER_DIFFERS(a, b, iIdlType)
  RETURN_IF_MEMBER_DIFFERS(a, b, iIdlConLen)
  if (!SameBytes(a.szIdlContent, b.szIdlContent, static_cast<size_t>(a.iIdlConLen))) {
    return AssertionFailure() << "szIdlContent differs";
  }
  return AssertionSuccess();
}

AssertionResult SameSignup(const OStrandAppSignupReq& a, const OStrandAppSignupReq& b) {
  RETURN_IF_MEMBER_DIFFERS(a, b, nType)
  if (std::string(a.szSignature) != b.szSignature || std::string(a.szUserName) != b.szUserName ||
      std::string(a.szPasswordMd5) != b.szPasswordMd5) {
    return AssertionFailure() << "a text of the sign-up differs";
  }
  return AssertionSuccess();
}

AssertionResult SameSetTTL(const OStrandSetTTLReq& a, const OStrandSetTTLReq& b) {
  RETURN_IF_MEMBER_DIFFERS(a, b, dwRecordNum)
  for (uint32_t i = 0; i < a.dwRecordNum; ++i) {
    RETURN_IF_MEMBER_DIFFERS(a, b, allTTLMs[i])
    if (const auto same = SameKeySet(a.astKeyInfo[i], b.astKeyInfo[i]); !same) {
      return same;
    }
  }
  return AssertionSuccess();
}

AssertionResult SameGetTTL(const OStrandGetTTLReq& a, const OStrandGetTTLReq& b) {
  RETURN_IF_MEMBER_DIFFERS(a, b, dwRecordNum)
  for (uint32_t i = 0; i < a.dwRecordNum; ++i) {
    if (const auto same = SameKeySet(a.astKeyInfo[i], b.astKeyInfo[i]); !same) {
      return same;
    }
  }
  return AssertionSuccess();
}

AssertionResult SameTTLRes(const OStrandTTLRes& a, const OStrandTTLRes& b) {
  RETURN_IF_MEMBER_DIFFERS(a, b, dwRecordNum)
  for (uint32_t i = 0; i < a.dwRecordNum; ++i) {
    RETURN_IF_MEMBER_DIFFERS(a, b, astRecordTTL[i].iResult)
    RETURN_IF_MEMBER_DIFFERS(a, b, astRecordTTL[i].llTTLMs)
  }
  return AssertionSuccess();
}

AssertionResult SameNumbers(const OStrandPkgBody& a, const OStrandPkgBody& b, BodyKind kind) {
  switch (kind) {
    case BodyKind::kAppSignupRes: RETURN_IF_MEMBER_DIFFERS(a, b, stAppSignupRes.iResult) break;
    case BodyKind::kHeartBeatReq:
      RETURN_IF_MEMBER_DIFFERS(a, b, stHeartBeatReq.tCurTime)
      RETURN_IF_MEMBER_DIFFERS(a, b, stHeartBeatReq.llApiTimeUs)
      break;
    case BodyKind::kHeartBeatRes:
      RETURN_IF_MEMBER_DIFFERS(a, b, stHeartBeatRes.tCurTime)
      RETURN_IF_MEMBER_DIFFERS(a, b, stHeartBeatRes.llApiTimeUs)
      RETURN_IF_MEMBER_DIFFERS(a, b, stHeartBeatRes.llProxyTimeUs)
      break;
    case BodyKind::kMetadataGetReq:
      RETURN_IF_MEMBER_DIFFERS(a, b, stMetadataGetReq.dwMetadataVersion)
      break;
    default: break;
  }
  return AssertionSuccess();
}

AssertionResult SameBody(const OStrandPkgBody& a, const OStrandPkgBody& b, BodyKind kind) {
  switch (kind) {
    case BodyKind::kAppSignupReq: return SameSignup(a.stAppSignupReq, b.stAppSignupReq);
    case BodyKind::kMetadataGetRes: return SameMetadata(a.stMetadataGetRes, b.stMetadataGetRes);
    case BodyKind::kRecord:
    case BodyKind::kRecords: return SameRecords(a.stRecords, b.stRecords);
    case BodyKind::kListGetAllRes: return SameMultiPkg(a.stListGetAllRes, b.stListGetAllRes);
    case BodyKind::kGetByPartKeyRes: return SameMultiPkg(a.stGetByPartKeyRes, b.stGetByPartKeyRes);
    case BodyKind::kSetTTLReq: return SameSetTTL(a.stSetTTLReq, b.stSetTTLReq);
    case BodyKind::kGetTTLReq: return SameGetTTL(a.stGetTTLReq, b.stGetTTLReq);
    case BodyKind::kTTLRes: return SameTTLRes(a.stTTLRes, b.stTTLRes);
    default: return SameNumbers(a, b, kind);
  }
}

bool SameFields(FieldReader a, FieldReader b) {
  FieldView field_a;
  FieldView field_b;
  while (a.Next(field_a)) {
    if (!b.Next(field_b) || field_a.name != field_b.name || field_a.value != field_b.value) {
      return false;
    }
  }
  return !b.Next(field_b);
}

bool SameMark(const RecordMark& a, const RecordMark& b) {
  return a.result == b.result && a.index == b.index && a.version == b.version;
}

}  // namespace

AssertionResult SamePackage(const OStrandPkg& a, const OStrandPkg& b) {
  if (const auto same = SameHead(a.stHead, b.stHead); !same) {
    return same;
  }
  return SameBody(a.stBody, b.stBody, BodyKindOfCmd(a.stHead.dwCmd));
}

AssertionResult SameKeySet(const OStrandKeySet& a, const OStrandKeySet& b) {
  RETURN_IF_MEMBER_DIFFERS(a, b, iVersion)
  RETURN_IF_MEMBER_DIFFERS(a, b, dwFieldNum)
  for (uint32_t i = 0; i < a.dwFieldNum; ++i) {
    RETURN_IF_MEMBER_DIFFERS(a, b, astFields[i].dwFieldLen)
    const OStrandKeyField& field_a = a.astFields[i];
    const OStrandKeyField& field_b = b.astFields[i];
    if (std::string(field_a.szFieldName) != field_b.szFieldName) {
      return AssertionFailure() << "name of key field " << i << " differs";
    }
    if (!SameBytes(field_a.szFieldBuff, field_b.szFieldBuff, field_a.dwFieldLen)) {
      return AssertionFailure() << "value of key field " << i << " differs";
    }
  }
  return AssertionSuccess();
}

AssertionResult SameRecords(const OStrandRecords& a, const OStrandRecords& b) {
  RETURN_IF_MEMBER_DIFFERS(a, b, dwRecordNum)
  RecordReader reader_a(a);
  RecordReader reader_b(b);
  RecordView record_a;
  RecordView record_b;
  for (uint32_t i = 0; i < a.dwRecordNum; ++i) {
    if (!reader_a.Next(record_a) || !reader_b.Next(record_b)) {
      return AssertionFailure() << "record " << i << " is missing";
    }
    if (!SameMark(record_a.mark, record_b.mark) || !SameFields(record_a.keys, record_b.keys) ||
        !SameFields(record_a.values, record_b.values)) {
      return AssertionFailure() << "record " << i << " differs";
    }
  }
  return AssertionSuccess();
}

}  // namespace ostrand_protocol_cs
