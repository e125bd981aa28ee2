#include "cli/demo_data.h"

#include <string_view>

namespace OstrandCli {
namespace {

using OstrandService::ClientRequest;
using OstrandService::ClientResponse;
using OstrandService::FieldReader;
using OstrandService::FieldValue;
using OstrandService::FieldView;
using OstrandService::RecordView;

constexpr char kPackage[] = "package";
constexpr char kVersion[] = "version";
constexpr char kSection[] = "section";
constexpr char kSize[] = "size";
constexpr char kDescription[] = "description";
constexpr char kLabel[] = "label";
constexpr char kRevision[] = "revision";
constexpr size_t kValues = 5;

template <typename Number>
std::string BytesOf(Number number) {
  const FieldValue value = FieldValue::Of<Number>(number);
  return std::string(value.Bytes());
}

// `request` was begun.
ClientRequest& AddKey(ClientRequest& request, const PackageRecord& record) {
  return request.Zone(kDemoZone).Key(kPackage, record.name).Key(kVersion, record.version);
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
  return AddKey(request.Replace(kDemoTable), record)
             .Set(kLabel, LabelOf(record))
             .Set(kSection, record.section)
             .Set(kSize, record.size)
             .Set(kDescription, record.description)
             .Set<uint32_t>(kRevision, revision)
             .Fault() == 0;
}

bool BuildUpdate(ClientRequest& request, const PackageRecord& record, uint32_t revision) {
  return AddKey(request.Update(kDemoTable), record).Set<uint32_t>(kRevision, revision).Fault() == 0;
}

bool BuildGet(ClientRequest& request, const PackageRecord& record) {
  return AddKey(request.Get(kDemoTable), record).Fault() == 0;
}

std::string Difference(ClientResponse& response, const PackageRecord& record, uint32_t revision) {
  RecordView found;
  response.RewindRecords();
  if (!response.NextRecord(found)) {
    return "it has no record";
  }
  return Compare(found, {{kLabel, LabelOf(record)},
                         {kSection, record.section},
                         {kSize, BytesOf(record.size)},
                         {kDescription, record.description},
                         {kRevision, BytesOf(revision)}});
}

}  // namespace OstrandCli
