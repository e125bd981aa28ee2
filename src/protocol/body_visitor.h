// Which member of the body union belongs to which kind of body: the one place that says so.
#pragma once

#include "protocol/ostrand_protocol_cs.h"

namespace ostrand_protocol_cs {

// Calls visit(name of the member, member); not called for kinds that have no record. Body is
// OStrandPkgBody or const OStrandPkgBody.
template <typename Body, typename Visit>
void VisitBody(Body& body, BodyKind kind, Visit&& visit) {
  switch (kind) {
    case BodyKind::kUnknown:
    case BodyKind::kNothing:
    case BodyKind::kSkipped: return;
#define OSTRAND_VISIT(kind_of_body, member) \
  case BodyKind::kind_of_body: visit(#member, body.member); return;
      OSTRAND_VISIT(kAppSignupReq, stAppSignupReq)
      OSTRAND_VISIT(kAppSignupRes, stAppSignupRes)
      OSTRAND_VISIT(kHeartBeatReq, stHeartBeatReq)
      OSTRAND_VISIT(kHeartBeatRes, stHeartBeatRes)
      OSTRAND_VISIT(kMetadataGetReq, stMetadataGetReq)
      OSTRAND_VISIT(kMetadataGetRes, stMetadataGetRes)
      OSTRAND_VISIT(kRecord, stRecords)
      OSTRAND_VISIT(kRecords, stRecords)
      OSTRAND_VISIT(kListGetAllRes, stListGetAllRes)
      OSTRAND_VISIT(kGetByPartKeyRes, stGetByPartKeyRes)
      OSTRAND_VISIT(kSetTTLReq, stSetTTLReq)
      OSTRAND_VISIT(kGetTTLReq, stGetTTLReq)
      OSTRAND_VISIT(kTTLRes, stTTLRes)
#undef OSTRAND_VISIT
  }
}

}  // namespace ostrand_protocol_cs
