#include <algorithm>

#include "protocol/body_visitor.h"
#include "protocol/codec_errors.h"
#include "protocol/ostrand_protocol_cs.h"
#include "protocol/text_dump.h"

namespace ostrand_protocol_cs {
namespace {

// Lengths are shown as they stand; what they count is shown up to its capacity, since a package
// that somebody is still filling may hold anything.
size_t Within(size_t len, size_t capacity) { return std::min(len, capacity); }

void Show(TextDump& dump, const OStrandKeySet& keys) {
  dump.Number("iVersion", keys.iVersion);
  dump.Unsigned("dwFieldNum", keys.dwFieldNum);
  for (uint32_t i = 0; i < Within(keys.dwFieldNum, OSTRAND_MAX_KEY_FIELD_NUM); ++i) {
    const OStrandKeyField& field = keys.astFields[i];
    dump.Open("astFields", i);
    dump.Text("szFieldName", field.szFieldName, sizeof(field.szFieldName));
    dump.Unsigned("dwFieldLen", field.dwFieldLen);
    dump.Bytes("szFieldBuff", field.szFieldBuff,
               Within(field.dwFieldLen, sizeof(field.szFieldBuff)));
    dump.Close();
  }
}

void Show(TextDump& dump, const OStrandRouterInfo& info) {
  dump.Number("iAppID", info.iAppID);
  dump.Number("iZoneID", info.iZoneID);
  dump.Number("iShardID", info.iShardID);
  dump.Unsigned("dwTableNameLen", info.dwTableNameLen);
  dump.Text("szTableName", info.szTableName, Within(info.dwTableNameLen, sizeof(info.szTableName)));
}

void Show(TextDump& dump, const OStrandPkgHead& head) {
  dump.Unsigned("wMagic", head.wMagic);
  dump.Unsigned("wVersion", head.wVersion);
  dump.Unsigned("dwHeadLen", head.dwHeadLen);
  dump.Unsigned("dwBodyLen", head.dwBodyLen);
  dump.Unsigned("ullAsynID", head.ullAsynID);
  dump.Number("iSeq", head.iSeq);
  dump.Unsigned("dwCmd", head.dwCmd);
  dump.Word("cmd", NameOfCmd(head.dwCmd));
  dump.Number("iFlags", head.iFlags);
  dump.Open("stRouterInfo");
  Show(dump, head.stRouterInfo);
  dump.Close();
  dump.Unsigned("dwUserBuffLen", head.dwUserBuffLen);
  dump.Bytes("szUserBuff", head.szUserBuff, Within(head.dwUserBuffLen, sizeof(head.szUserBuff)));
  dump.Open("stKeyInfo");
  Show(dump, head.stKeyInfo);
  dump.Close();
  dump.Number("iVexMetaVersion", head.iVexMetaVersion);
  dump.Unsigned("bReqBodyCompressType", head.bReqBodyCompressType);
  dump.Unsigned("bRespBodyCompressType", head.bRespBodyCompressType);
  dump.Unsigned("dwSplitTableKeyBuffLen", head.dwSplitTableKeyBuffLen);
  dump.Bytes("szSplitTableKeyBuff", head.szSplitTableKeyBuff,
             Within(head.dwSplitTableKeyBuffLen, sizeof(head.szSplitTableKeyBuff)));
  dump.Number("iResult", head.iResult);
  dump.Unsigned("dwSubCmd", head.dwSubCmd);
  dump.Unsigned("dwPerfTestLen", head.dwPerfTestLen);
  dump.Bytes("szPerfTest", head.szPerfTest, Within(head.dwPerfTestLen, sizeof(head.szPerfTest)));
}

void Show(TextDump& dump, const OStrandAppSignupReq& body) {
  dump.Text("szSignature", body.szSignature, sizeof(body.szSignature));
  dump.Number("nType", body.nType);
  dump.Text("szUserName", body.szUserName, sizeof(body.szUserName));
  dump.Text("szPasswordMd5", body.szPasswordMd5, sizeof(body.szPasswordMd5));
}

void Show(TextDump& dump, const OStrandAppSignupRes& body) { dump.Number("iResult", body.iResult); }

void Show(TextDump& dump, const OStrandHeartBeatReq& body) {
  dump.Number("tCurTime", body.tCurTime);
  dump.Number("llApiTimeUs", body.llApiTimeUs);
}

void Show(TextDump& dump, const OStrandHeartBeatRes& body) {
  dump.Number("tCurTime", body.tCurTime);
  dump.Number("llApiTimeUs", body.llApiTimeUs);
  dump.Number("llProxyTimeUs", body.llProxyTimeUs);
}

void Show(TextDump& dump, const OStrandMetadataGetReq& body) {
  dump.Unsigned("dwMetadataVersion", body.dwMetadataVersion);
}

void Show(TextDump& dump, const OStrandMetadataGetRes& body) {
  dump.Unsigned("dwOstrandType", body.dwOstrandType);
  dump.Number("iVexMetaCurrentVersion", body.iVexMetaCurrentVersion);
  dump.Number("iIdlType", body.iIdlType);
  dump.Number("iIdlConLen", body.iIdlConLen);
  const size_t len = body.iIdlConLen < 0 ? 0 : static_cast<size_t>(body.iIdlConLen);
  dump.Bytes("szIdlContent", body.szIdlContent, Within(len, sizeof(body.szIdlContent)));
}

void ShowFields(TextDump& dump, const char* name, FieldReader fields) {
  FieldView field;
  for (uint32_t i = 0; fields.Next(field) && !dump.full(); ++i) {
    dump.Open(name, i);
    dump.Bytes("name", field.name.data(), field.name.size());
    dump.Unsigned("len", field.value.size());
    dump.Bytes("value", field.value.data(), field.value.size());
    dump.Close();
  }
}

void Show(TextDump& dump, const OStrandRecords& records) {
  dump.Unsigned("dwRecordNum", records.dwRecordNum);
  dump.Unsigned("dwRecordsLen", records.dwRecordsLen);
  if (records.dwRecordsLen > sizeof(records.szRecords) ||
      CheckRecords(records.szRecords, records.dwRecordsLen, records.dwRecordNum) != 0) {
    dump.Word("szRecords", "malformed");
    return;
  }
  RecordReader reader(records);
  RecordView record;
  for (uint32_t i = 0; reader.Next(record) && !dump.full(); ++i) {
    dump.Open("record", i);
    dump.Number("iResult", record.mark.result);
    dump.Number("iIndex", record.mark.index);
    dump.Number("iVersion", record.mark.version);
    ShowFields(dump, "key", record.keys);
    ShowFields(dump, "value", record.values);
    dump.Close();
  }
}

void Show(TextDump& dump, const OStrandMultiPkgRes& body) {
  dump.Number("iResult", body.iResult);
  dump.Unsigned("bHasMorePkgs", body.bHasMorePkgs);
  dump.Open("stRecords");
  Show(dump, body.stRecords);
  dump.Close();
}

// The entries of a TTL body that there is room for.
uint32_t BeginTTL(TextDump& dump, uint32_t record_num) {
  dump.Unsigned("dwRecordNum", record_num);
  return static_cast<uint32_t>(Within(record_num, OSTRAND_MAX_TTL_RECORD_NUM));
}

void Show(TextDump& dump, const OStrandSetTTLReq& body) {
  const uint32_t num = BeginTTL(dump, body.dwRecordNum);
  for (uint32_t i = 0; i < num && !dump.full(); ++i) {
    dump.Open("astKeyInfo", i);
    Show(dump, body.astKeyInfo[i]);
    dump.Number("llTTLMs", body.allTTLMs[i]);
    dump.Close();
  }
}

void Show(TextDump& dump, const OStrandGetTTLReq& body) {
  const uint32_t num = BeginTTL(dump, body.dwRecordNum);
  for (uint32_t i = 0; i < num && !dump.full(); ++i) {
    dump.Open("astKeyInfo", i);
    Show(dump, body.astKeyInfo[i]);
    dump.Close();
  }
}

void Show(TextDump& dump, const OStrandTTLRes& body) {
  const uint32_t num = BeginTTL(dump, body.dwRecordNum);
  for (uint32_t i = 0; i < num && !dump.full(); ++i) {
    dump.Open("astRecordTTL", i);
    dump.Number("iResult", body.astRecordTTL[i].iResult);
    dump.Number("llTTLMs", body.astRecordTTL[i].llTTLMs);
    dump.Close();
  }
}

void Show(TextDump& dump, const OStrandPkgBody& body, uint32_t cmd) {
  VisitBody(body, BodyKindOfCmd(cmd), [&dump](const char* name, const auto& record) {
    dump.Open("stBody");
    dump.Open(name);
    Show(dump, record);
    dump.Close();
    dump.Close();
  });
}

}  // namespace

int OStrandPkg::visualize(char* out, size_t cap, size_t* used, int indent, char separator) const {
  if (out == nullptr || cap == 0) {
    return OSTRAND_CODEC_ERR_ARGUMENT;
  }
  TextDump dump(out, cap, indent, separator);
  dump.Open("stHead");
  Show(dump, stHead);
  dump.Close();
  Show(dump, stBody, stHead.dwCmd);
  if (used != nullptr) {
    *used = dump.used();
  }
  return dump.full() ? OSTRAND_CODEC_ERR_BUFFER_FULL : 0;
}

}  // namespace ostrand_protocol_cs
