// An answer, or a package of one, in a package of its own.
//
//   while (client.Receive(response, 100) == 1) {
//     RecordView record;
//     FieldView level;
//     while (response.NextRecord(record)) {
//       if (record.mark.result == 0 && record.FindValue("level", level)) { ... }
//     }
//   }
//
// One object takes any number of answers, one after the other. Its package takes over 10 MiB of
// address space, of which only what was ever written is memory. Everything handed out (texts,
// views, records) points into the object and holds until the next Unpack, BuildTimeOutRes or
// SetUserBuff.
//
// Getters read the package as it is: the router strips the routing context and sets results in it.
//
// Without memory for the package Unpack and BuildTimeOutRes answer ROUTER_ERR_ALLOCATION, and
// getters answer 0 or null.
// Ownership: owns package and user buffer; copies what it is given. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "common/export.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_service_response.h"

namespace OstrandService {

class OSTRAND_API ClientResponse : public OstrandServiceResponse {
 public:
  // The result of what stands in place of an answer that did not come in time.
  static constexpr int32_t kResultTimeOut = -20499;  // 0xFFFFAFED

  ClientResponse();
  ~ClientResponse() override;
  ClientResponse(const ClientResponse&) = delete;
  ClientResponse& operator=(const ClientResponse&) = delete;

  int32_t GetAppId() const;
  // The server's schema version of the table; -1 unknown.
  int32_t GetMetaVersion() const;
  // A field of the key in the head; false when there is none.
  bool GetKey(std::string_view name, ostrand_protocol_cs::FieldView& field) const;

  // Records in this package; 0 for commands without.
  uint32_t GetRecordCount() const;
  // The next record, from the first on; false behind the last. Each record says in its mark what
  // became of it, where it stands and which version it has.
  bool NextRecord(ostrand_protocol_cs::RecordView& record);
  // Makes the first record the next one.
  void RewindRecords() { m_reader.reset(); }
  // A value of the first record; false when there is none.
  bool GetValue(std::string_view name, ostrand_protocol_cs::FieldView& field) const;

  // Entries of the answer to a TTL command, in the order of the request. null: no such entry.
  uint32_t GetTTLCount() const;
  const ostrand_protocol_cs::OStrandRecordTTL* GetTTL(uint32_t index) const;

  // The body of the answer to a metadata request; null for other commands.
  const ostrand_protocol_cs::OStrandMetadataGetRes* GetMetadata() const;

  // OstrandServiceResponse
  const char* GetPkgUserBuff(size_t* len) override;
  const char* GetUserBuff(size_t* len) override;
  // Any length. ROUTER_ERR_ARGUMENT for null with a length; ROUTER_ERR_ALLOCATION. After a failure
  // the user buffer is as before.
  int SetUserBuff(const char* buffer, unsigned int len) override;
  int GetOstrandPackagePtr(const ostrand_protocol_cs::OStrandPkg*& pkg) override;
  uint32_t GetCmd() const override;
  uint32_t GetSubCmd() const override;
  int32_t GetResult() const override;
  const char* GetTableName(size_t* len) const override;
  int32_t GetZoneId() const override;
  int32_t GetSequence() const override;
  uint64_t GetAsynID() const override;
  const char* GetPerfTest(size_t* len) const override;
  // Only answers to OSTRAND_API_LIST_GETALL_REQ and OSTRAND_API_GET_BY_PARTKEY_REQ come in several
  // packages.
  int HaveMoreResPkgs() override;
  // The codes of the codec; then nothing of an older answer is left.
  int Unpack(const char* data, size_t len) override;
  // The result is kResultTimeOut, in a body that has one, too. Without memory for the user buffer
  // the answer has none and the code is ROUTER_ERR_ALLOCATION.
  int BuildTimeOutRes(int64_t app_id, int32_t zone_id, const char* table_name, uint32_t resp_cmd,
                      const char* user_buffer, uint32_t user_buffer_len, uint64_t async_id,
                      int32_t seq) override;

 private:
  const ostrand_protocol_cs::OStrandRecords* Records() const;

  const std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;
  std::optional<ostrand_protocol_cs::RecordReader> m_reader;  // from the first NextRecord on
  bool m_has_user_buff = false;                               // else the package's counts
  size_t m_user_buff_len = 0;
  size_t m_user_buff_room = 0;
  std::unique_ptr<char[]> m_user_buff;
};

}  // namespace OstrandService
