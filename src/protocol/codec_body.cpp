#include "protocol/codec_body.h"

#include "protocol/body_visitor.h"
#include "protocol/codec_key_set.h"

namespace ostrand_protocol_cs {
namespace {

void Pack(ByteWriter& out, const OStrandAppSignupReq& body) {
  out.PutText(body.szSignature, sizeof(body.szSignature));
  out.Put(body.nType);
  out.PutText(body.szUserName, sizeof(body.szUserName));
  out.PutText(body.szPasswordMd5, sizeof(body.szPasswordMd5));
}

void Unpack(ByteReader& in, OStrandAppSignupReq& body) {
  in.GetText(body.szSignature, sizeof(body.szSignature), OSTRAND_CODEC_ERR_TEXT);
  in.Get(body.nType);
  in.GetText(body.szUserName, sizeof(body.szUserName), OSTRAND_CODEC_ERR_TEXT);
  in.GetText(body.szPasswordMd5, sizeof(body.szPasswordMd5), OSTRAND_CODEC_ERR_TEXT);
}

void Pack(ByteWriter& out, const OStrandAppSignupRes& body) { out.Put(body.iResult); }

void Unpack(ByteReader& in, OStrandAppSignupRes& body) { in.Get(body.iResult); }

void Pack(ByteWriter& out, const OStrandHeartBeatReq& body) {
  out.Put(body.tCurTime, body.llApiTimeUs);
}

void Unpack(ByteReader& in, OStrandHeartBeatReq& body) { in.Get(body.tCurTime, body.llApiTimeUs); }

void Pack(ByteWriter& out, const OStrandHeartBeatRes& body) {
  out.Put(body.tCurTime, body.llApiTimeUs, body.llProxyTimeUs);
}

void Unpack(ByteReader& in, OStrandHeartBeatRes& body) {
  in.Get(body.tCurTime, body.llApiTimeUs, body.llProxyTimeUs);
}

void Pack(ByteWriter& out, const OStrandMetadataGetReq& body) { out.Put(body.dwMetadataVersion); }

void Unpack(ByteReader& in, OStrandMetadataGetReq& body) { in.Get(body.dwMetadataVersion); }

void Pack(ByteWriter& out, const OStrandMetadataGetRes& body) {
  out.Put(body.dwOstrandType, body.iVexMetaCurrentVersion, body.iIdlType);
  // A negative length is far over the capacity once it is unsigned.
  out.PutCounted(body.szIdlContent, static_cast<uint32_t>(body.iIdlConLen),
                 sizeof(body.szIdlContent), OSTRAND_CODEC_ERR_IDL_LEN);
}

void Unpack(ByteReader& in, OStrandMetadataGetRes& body) {
  in.Get(body.dwOstrandType, body.iVexMetaCurrentVersion, body.iIdlType);
  body.iIdlConLen = static_cast<int32_t>(
      in.GetCounted(body.szIdlContent, sizeof(body.szIdlContent), OSTRAND_CODEC_ERR_IDL_LEN));
}

// What leaves is checked like what comes in: a body that was not constructed for its command does
// not become a frame.
void Pack(ByteWriter& out, const OStrandRecords& records) {
  if (records.dwRecordsLen > sizeof(records.szRecords)) {
    out.Fail(OSTRAND_CODEC_ERR_RECORDS_LEN);
    return;
  }
  if (const int ret = CheckRecords(records.szRecords, records.dwRecordsLen, records.dwRecordNum)) {
    out.Fail(ret);
    return;
  }
  out.Put(records.dwRecordNum);
  out.PutCounted(records.szRecords, records.dwRecordsLen, sizeof(records.szRecords),
                 OSTRAND_CODEC_ERR_RECORDS_LEN);
}

// Records in place, checked; empty after a failure.
std::string_view PassRecords(ByteReader& in, uint32_t& num) {
  in.Get(num);
  const std::string_view bytes =
      in.PassCounted(OSTRAND_MAX_RECORDS_LEN, OSTRAND_CODEC_ERR_RECORDS_LEN);
  if (!in.ok()) {
    return {};
  }
  if (const int ret = CheckRecords(bytes.data(), bytes.size(), num)) {
    in.Fail(ret);
    return {};
  }
  return bytes;
}

void Unpack(ByteReader& in, OStrandRecords& records) {
  const std::string_view bytes = PassRecords(in, records.dwRecordNum);
  records.dwRecordsLen = static_cast<uint32_t>(bytes.size());
  if (in.ok()) {
    std::memcpy(records.szRecords, bytes.data(), bytes.size());
  }
}

// Answers how many there are.
uint32_t Check(ByteReader& in, OStrandRecords& records) {
  uint32_t num = 0;
  PassRecords(in, num);
  records.dwRecordNum = 0;
  records.dwRecordsLen = 0;
  return num;
}

void Pack(ByteWriter& out, const OStrandMultiPkgRes& body) {
  out.Put(body.iResult, body.bHasMorePkgs);
  Pack(out, body.stRecords);
}

void Unpack(ByteReader& in, OStrandMultiPkgRes& body) {
  in.Get(body.iResult, body.bHasMorePkgs);
  Unpack(in, body.stRecords);
}

uint32_t Check(ByteReader& in, OStrandMultiPkgRes& body) {
  in.Get(body.iResult, body.bHasMorePkgs);
  return Check(in, body.stRecords);
}

// The number of entries of the TTL bodies.
void PackTTLNum(ByteWriter& out, uint32_t num) {
  if (num > OSTRAND_MAX_TTL_RECORD_NUM) {
    out.Fail(OSTRAND_CODEC_ERR_RECORD_NUM);
  }
  out.Put(num);
}

uint32_t UnpackTTLNum(ByteReader& in) {
  return in.GetCount(OSTRAND_MAX_TTL_RECORD_NUM, OSTRAND_CODEC_ERR_RECORD_NUM);
}

void Pack(ByteWriter& out, const OStrandSetTTLReq& body) {
  PackTTLNum(out, body.dwRecordNum);
  for (uint32_t i = 0; i < body.dwRecordNum && out.error() == 0; ++i) {
    PackKeySet(out, body.astKeyInfo[i]);
    out.Put(body.allTTLMs[i]);
  }
}

void Unpack(ByteReader& in, OStrandSetTTLReq& body) {
  body.dwRecordNum = UnpackTTLNum(in);
  for (uint32_t i = 0; i < body.dwRecordNum && in.ok(); ++i) {
    UnpackKeySet(in, body.astKeyInfo[i]);
    in.Get(body.allTTLMs[i]);
  }
}

uint32_t Check(ByteReader& in, OStrandSetTTLReq& body) {
  const uint32_t num = UnpackTTLNum(in);
  for (uint32_t i = 0; i < num && in.ok(); ++i) {
    CheckKeySet(in);
    in.Take(sizeof(body.allTTLMs[i]));
  }
  body.dwRecordNum = 0;
  return num;
}

void Pack(ByteWriter& out, const OStrandGetTTLReq& body) {
  PackTTLNum(out, body.dwRecordNum);
  for (uint32_t i = 0; i < body.dwRecordNum && out.error() == 0; ++i) {
    PackKeySet(out, body.astKeyInfo[i]);
  }
}

void Unpack(ByteReader& in, OStrandGetTTLReq& body) {
  body.dwRecordNum = UnpackTTLNum(in);
  for (uint32_t i = 0; i < body.dwRecordNum && in.ok(); ++i) {
    UnpackKeySet(in, body.astKeyInfo[i]);
  }
}

uint32_t Check(ByteReader& in, OStrandGetTTLReq& body) {
  const uint32_t num = UnpackTTLNum(in);
  for (uint32_t i = 0; i < num && in.ok(); ++i) {
    CheckKeySet(in);
  }
  body.dwRecordNum = 0;
  return num;
}

void Pack(ByteWriter& out, const OStrandTTLRes& body) {
  PackTTLNum(out, body.dwRecordNum);
  for (uint32_t i = 0; i < body.dwRecordNum && out.error() == 0; ++i) {
    out.Put(body.astRecordTTL[i].iResult, body.astRecordTTL[i].llTTLMs);
  }
}

void Unpack(ByteReader& in, OStrandTTLRes& body) {
  body.dwRecordNum = UnpackTTLNum(in);
  for (uint32_t i = 0; i < body.dwRecordNum && in.ok(); ++i) {
    in.Get(body.astRecordTTL[i].iResult, body.astRecordTTL[i].llTTLMs);
  }
}

uint32_t Check(ByteReader& in, OStrandTTLRes& body) {
  const uint32_t num = UnpackTTLNum(in);
  in.Take(num * OSTRAND_TTL_ENTRY_LEN);
  body.dwRecordNum = 0;
  return num;
}

// Small bodies, and metadata, which are read whole.
template <typename Body>
uint32_t Check(ByteReader& in, Body& body) {
  Unpack(in, body);
  return 0;
}

}  // namespace

void PackBody(ByteWriter& out, const OStrandPkgBody& body, uint32_t cmd) {
  const BodyKind kind = BodyKindOfCmd(cmd);
  if (kind == BodyKind::kUnknown) {
    out.Fail(OSTRAND_CODEC_ERR_COMMAND);
  }
  if (kind == BodyKind::kRecord && body.stRecords.dwRecordNum > 1) {
    out.Fail(OSTRAND_CODEC_ERR_RECORD_NUM);
  }
  VisitBody(body, kind, [&out](const char* /*name*/, const auto& record) { Pack(out, record); });
}

void UnpackBody(ByteReader& in, OStrandPkgBody& body, uint32_t cmd) {
  const BodyKind kind = BodyKindOfCmd(cmd);
  if (kind == BodyKind::kUnknown) {
    in.Fail(OSTRAND_CODEC_ERR_COMMAND);
  }
  if (kind == BodyKind::kSkipped) {
    in.Take(in.left());
  }
  VisitBody(body, kind, [&in](const char* /*name*/, auto& record) { Unpack(in, record); });
  if (kind == BodyKind::kRecord && in.ok() && body.stRecords.dwRecordNum > 1) {
    in.Fail(OSTRAND_CODEC_ERR_RECORD_NUM);
  }
}

void CheckBody(ByteReader& in, OStrandPkgBody& body, uint32_t cmd) {
  const BodyKind kind = BodyKindOfCmd(cmd);
  if (kind == BodyKind::kUnknown) {
    in.Fail(OSTRAND_CODEC_ERR_COMMAND);
  }
  if (kind == BodyKind::kSkipped) {
    in.Take(in.left());
  }
  uint32_t num = 0;
  VisitBody(body, kind,
            [&in, &num](const char* /*name*/, auto& record) { num = Check(in, record); });
  if (kind == BodyKind::kRecord && in.ok() && num > 1) {
    in.Fail(OSTRAND_CODEC_ERR_RECORD_NUM);
  }
}

}  // namespace ostrand_protocol_cs
