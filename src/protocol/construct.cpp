#include <new>

#include "protocol/body_visitor.h"
#include "protocol/codec_errors.h"
#include "protocol/ostrand_protocol_cs.h"

namespace ostrand_protocol_cs {
namespace {

void Construct(OStrandAppSignupReq& body) {
  body.szSignature[0] = '\0';
  body.nType = 0;
  body.szUserName[0] = '\0';
  body.szPasswordMd5[0] = '\0';
}

void Construct(OStrandMetadataGetRes& body) {
  body.dwOstrandType = 0;
  body.iVexMetaCurrentVersion = 0;
  body.iIdlType = 0;
  body.iIdlConLen = 0;
}

void Construct(OStrandRecords& records) {
  records.dwRecordNum = 0;
  records.dwRecordsLen = 0;
}

void Construct(OStrandMultiPkgRes& body) {
  body.iResult = 0;
  body.bHasMorePkgs = 0;
  Construct(body.stRecords);
}

void Construct(OStrandAppSignupRes& body) { body = OStrandAppSignupRes(); }
void Construct(OStrandHeartBeatReq& body) { body = OStrandHeartBeatReq(); }
void Construct(OStrandHeartBeatRes& body) { body = OStrandHeartBeatRes(); }
void Construct(OStrandMetadataGetReq& body) { body = OStrandMetadataGetReq(); }
void Construct(OStrandSetTTLReq& body) { body.dwRecordNum = 0; }
void Construct(OStrandGetTTLReq& body) { body.dwRecordNum = 0; }
void Construct(OStrandTTLRes& body) { body.dwRecordNum = 0; }

}  // namespace

int OStrandPkgHead::construct() {
  wMagic = OSTRAND_PKG_MAGIC;
  wVersion = OSTRAND_PKG_CURRENT_VERSION;
  dwHeadLen = 0;
  dwBodyLen = 0;
  ullAsynID = 0;
  iSeq = 0;
  dwCmd = 0;
  iFlags = 0;
  stRouterInfo.iAppID = 0;
  stRouterInfo.iZoneID = 0;
  stRouterInfo.iShardID = 0;
  stRouterInfo.dwTableNameLen = 0;
  stRouterInfo.szTableName[0] = '\0';
  dwUserBuffLen = 0;
  szUserBuff[0] = '\0';
  stKeyInfo.iVersion = -1;
  stKeyInfo.dwFieldNum = 0;
  iVexMetaVersion = -1;
  bReqBodyCompressType = 0;
  bRespBodyCompressType = 0;
  dwSplitTableKeyBuffLen = 0;
  szSplitTableKeyBuff[0] = '\0';
  iResult = 0;
  dwSubCmd = 0;
  dwPerfTestLen = 0;
  szPerfTest[0] = '\0';
  return 0;
}

int OStrandPkgBody::construct(int64_t cmd) {
  const BodyKind kind = BodyKindOfCmd(cmd);
  if (kind == BodyKind::kUnknown) {
    return OSTRAND_CODEC_ERR_COMMAND;
  }
  VisitBody(*this, kind, [](const char* /*name*/, auto& record) { Construct(record); });
  return 0;
}

std::unique_ptr<OStrandPkg> NewOStrandPkg() {
  return std::unique_ptr<OStrandPkg>(new (std::nothrow) OStrandPkg);
}

}  // namespace ostrand_protocol_cs
