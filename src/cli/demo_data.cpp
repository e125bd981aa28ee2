#include "cli/demo_data.h"

#include <string_view>

#include "protocol/byte_order.h"
#include "protocol/ostrand_api_cmds.h"
#include "protocol/record_buffer.h"

namespace OstrandCli {
namespace {

using ostrand_protocol_cs::FieldReader;
using ostrand_protocol_cs::FieldView;
using ostrand_protocol_cs::RecordView;
using OstrandService::ClientRequest;
using OstrandService::ClientResponse;

constexpr char kPackage[] = "package";
constexpr char kVersion[] = "version";
constexpr char kSection[] = "section";
constexpr char kSize[] = "size";
constexpr char kDescription[] = "description";
constexpr char kLabel[] = "label";
constexpr char kRevision[] = "revision";
constexpr size_t kValues = 5;

template <typename Number>
std::string BigEndian(Number number) {
  char bytes[sizeof(number)];
  ostrand_protocol_cs::StoreBigEndian(bytes, number);
  return {bytes, sizeof(bytes)};
}

bool Begin(ClientRequest& request, uint32_t cmd, const PackageRecord& record) {
  return request.Init(cmd, kDemoZone, kDemoTable) == 0 &&
         request.SetKey(kPackage, record.name) == 0 &&
         request.SetKey(kVersion, record.version) == 0;
}

// What a value has to be.
struct Expected {
  std::string_view name;
  std::string value;
};

std::string Compare(const RecordView& record, const Expected (&expected)[kValues]) {
  for (const Expected& field : expected) {
    FieldView found;
    if (!record.FindValue(field.name, found)) {
      return "it has no field " + std::string(field.name);
    }
    if (found.value != field.value) {
      return "its field " + std::string(field.name) + " is another";
    }
  }
  size_t count = 0;
  FieldReader values = record.values;
  for (FieldView value; values.Next(value);) {
    ++count;
  }
  return count == kValues ? "" : "it has fields that nobody wrote";
}

std::string LabelOf(const PackageRecord& record) { return record.name + " " + record.version; }

}  // namespace

VexMeta DemoSchema() {
  constexpr auto kString = VexFieldType::kString;
  constexpr auto kKeyBytes = static_cast<uint32_t>(kMaxPackageKeyBytes);
  constexpr auto kTextBytes = static_cast<uint32_t>(kMaxPackageTextBytes);
  VexMeta schema;
  schema.name = kDemoTable;
  schema.key_fields = {{kPackage, kString, kKeyBytes, 0}, {kVersion, kString, kKeyBytes, 0}};
  schema.value_fields = {{kLabel, kString, 2 * kKeyBytes + 1, 0},
                         {kSection, kString, kTextBytes, 0},
                         {kSize, VexFieldType::kUint64, 8, 0},
                         {kDescription, kString, kTextBytes, 0},
                         {kRevision, VexFieldType::kUint32, 4, 0}};
  return schema;
}

bool BuildReplace(ClientRequest& request, const PackageRecord& record, uint32_t revision) {
  return Begin(request, ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, record) &&
         request.AddValue(kLabel, LabelOf(record)) == 0 &&
         request.AddValue(kSection, record.section) == 0 &&
         request.AddValue(kSize, BigEndian(record.size)) == 0 &&
         request.AddValue(kDescription, record.description) == 0 &&
         request.AddValue(kRevision, BigEndian(revision)) == 0;
}

bool BuildUpdate(ClientRequest& request, const PackageRecord& record, uint32_t revision) {
  return Begin(request, ostrand_protocol_cs::OSTRAND_API_UPDATE_REQ, record) &&
         request.AddValue(kRevision, BigEndian(revision)) == 0;
}

bool BuildGet(ClientRequest& request, const PackageRecord& record) {
  return Begin(request, ostrand_protocol_cs::OSTRAND_API_GET_REQ, record);
}

std::string Difference(ClientResponse& response, const PackageRecord& record, uint32_t revision) {
  RecordView found;
  response.RewindRecords();
  if (!response.NextRecord(found)) {
    return "it has no record";
  }
  return Compare(found, {{kLabel, LabelOf(record)},
                         {kSection, record.section},
                         {kSize, BigEndian(record.size)},
                         {kDescription, record.description},
                         {kRevision, BigEndian(revision)}});
}

}  // namespace OstrandCli
