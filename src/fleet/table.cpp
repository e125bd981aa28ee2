#include "fleet/table.h"

#include <algorithm>
#include <utility>

#include "fleet/fleet_loop.h"
#include "vex/vex_image.h"

namespace OstrandFleet {
namespace {

constexpr size_t kRowBytes = 200;  // about what a row costs beside its fields
constexpr size_t kFieldBytes = 2 * sizeof(std::string);
constexpr int64_t kLongestTimeToLiveMs = int64_t{1} << 50;

size_t BytesOf(const FieldList& fields) {
  size_t bytes = 0;
  for (const Field& field : fields) {
    bytes += kFieldBytes + field.name.size() + field.value.size();
  }
  return bytes;
}

bool HasName(const FieldList& fields, const std::string& name) {
  return std::any_of(fields.begin(), fields.end(),
                     [&name](const Field& field) { return field.name == name; });
}

bool HasNameTwice(const FieldList& fields) {
  for (auto field = fields.begin(); field != fields.end(); ++field) {
    if (std::any_of(field + 1, fields.end(),
                    [field](const Field& other) { return other.name == field->name; })) {
      return true;
    }
  }
  return false;
}

FieldList SortedByName(FieldList fields) {
  std::sort(fields.begin(), fields.end(),
            [](const Field& a, const Field& b) { return a.name < b.name; });
  return fields;
}

// One text for one key, whatever the order of its fields. Names have no NUL; a length before each
// value keeps different keys apart.
std::string CanonicalKey(const FieldList& key) {
  std::string text;
  for (const Field& field : SortedByName(key)) {
    text += field.name + '\0' + std::to_string(field.value.size()) + ':' + field.value;
  }
  return text;
}

void Merge(FieldList& fields, const FieldList& changes) {
  for (const Field& change : changes) {
    const auto old = std::find_if(fields.begin(), fields.end(), [&change](const Field& field) {
      return field.name == change.name;
    });
    if (old == fields.end()) {
      fields.push_back(change);
    } else {
      old->value = change.value;
    }
  }
}

const VexField* FindField(const std::vector<VexField>& fields, const std::string& name) {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [&name](const VexField& field) { return field.name == name; });
  return found == fields.end() ? nullptr : &*found;
}

int32_t CheckField(const std::vector<VexField>& fields, const Field& field) {
  const VexField* const declared = FindField(fields, field.name);
  if (declared == nullptr) {
    return kInvalidFieldName;
  }
  const VexTypeInfo* const type = vex_type_info(declared->type);
  const bool has_width = type != nullptr && type->width > 0;
  const bool fits =
      has_width ? field.value.size() == type->width : field.value.size() <= declared->size;
  return fits ? kDone : kInvalidFieldType;
}

// Fields without declaration are as they come, each once.
int32_t CheckFields(const std::vector<VexField>& declared, bool enforced, const FieldList& fields) {
  if (HasNameTwice(fields)) {
    return kInvalidFieldName;
  }
  for (const Field& field : fields) {
    const int32_t result = enforced ? CheckField(declared, field) : int32_t{kDone};
    if (result != kDone) {
      return result;
    }
  }
  return kDone;
}

bool DeclaresFields(const VexMeta& schema) {
  return !schema.key_fields.empty() || !schema.value_fields.empty();
}

}  // namespace

Table::Table(TableSetup setup, const StoreLimits& limits, StoreBudget& budget)
    : m_setup(std::move(setup)), m_max_list_elements(limits.max_list_elements), m_budget(budget) {}

Table::~Table() {
  for (const auto& row : m_rows) {
    m_budget.used_bytes -= row.second.bytes;
  }
}

MetadataAnswer Table::Metadata() const {
  if (m_metadata_is_set) {
    return m_metadata;
  }
  MetadataAnswer answer;
  answer.type = m_setup.type;
  answer.version = m_setup.schema.version;
  if (DeclaresFields(m_setup.schema)) {
    vex_write_metalib_buf(VexMetaLib{{m_setup.schema}}, &answer.image);
  }
  return answer;
}

void Table::SetMetadata(MetadataAnswer answer) {
  m_metadata = std::move(answer);
  m_metadata_is_set = true;
}

int32_t Table::CheckKey(const FieldList& key, bool whole) const {
  const VexMeta& schema = m_setup.schema;
  const bool enforced = DeclaresFields(schema);
  const bool lacks_fields =
      key.empty() ||
      (whole && enforced &&
       std::any_of(schema.key_fields.begin(), schema.key_fields.end(),
                   [&key](const VexField& field) { return !HasName(key, field.name); }));
  return lacks_fields ? int32_t{kLacksFields} : CheckFields(schema.key_fields, enforced, key);
}

int32_t Table::CheckValues(const FieldList& values) const {
  return CheckFields(m_setup.schema.value_fields, DeclaresFields(m_setup.schema), values);
}

int32_t Table::CheckValueName(const std::string& name) const {
  const bool known =
      !DeclaresFields(m_setup.schema) || FindField(m_setup.schema.value_fields, name) != nullptr;
  return known ? kDone : kInvalidFieldName;
}

int32_t Table::Insert(const RecordKey& key, const FieldList& values) {
  if (const int32_t result = CheckRequest(key, values)) {
    return result;
  }
  if (Lookup(key.fields) != m_rows.end()) {
    return kRecordExists;
  }
  Row* const row = AddRow(key.fields, BytesOf(values));
  if (row == nullptr) {
    return kStoreFull;
  }
  row->values = values;
  return kDone;
}

int32_t Table::Replace(const RecordKey& key, const FieldList& values) {
  Row* row = nullptr;
  if (const int32_t result = CheckRequest(key, values)) {
    return result;
  }
  const int32_t found = Find(key, row);
  if (found == kRecordMissing) {
    return Insert(key, values);
  }
  if (found != kDone) {
    return found;
  }
  if (!Charge(*row, BytesOf(row->values), BytesOf(values))) {
    return kStoreFull;
  }
  row->values = values;
  row->expires_at_ms = -1;
  ++row->version;
  return kDone;
}

int32_t Table::Update(const RecordKey& key, const FieldList& values) {
  Row* row = nullptr;
  if (const int32_t result = CheckRequest(key, values)) {
    return result;
  }
  if (const int32_t result = Find(key, row)) {
    return result;
  }
  FieldList merged = row->values;
  Merge(merged, values);
  if (!Charge(*row, BytesOf(row->values), BytesOf(merged))) {
    return kStoreFull;
  }
  row->values = std::move(merged);
  ++row->version;
  return kDone;
}

int32_t Table::Delete(const RecordKey& key, const FieldList& /*unused*/) {
  Row* row = nullptr;
  if (const int32_t result = Find(key, row)) {
    return result;
  }
  Remove(*row);
  return kDone;
}

int32_t Table::Find(const RecordKey& key, Row*& row) {
  if (const int32_t result = CheckKey(key.fields, true)) {
    return result;
  }
  const auto place = Lookup(key.fields);
  if (place == m_rows.end()) {
    return kRecordMissing;
  }
  if (key.version != -1 && key.version != place->second.version) {
    return kVersionMismatch;
  }
  row = &place->second;
  return kDone;
}

std::vector<const Row*> Table::FindByPart(const FieldList& part) {
  m_now_ms = WallMicroseconds() / 1000;
  EraseExpired();
  std::vector<const Row*> found;
  for (const auto& entry : m_rows) {
    const FieldList& key = entry.second.key;
    const bool matches = std::all_of(part.begin(), part.end(), [&key](const Field& field) {
      return std::find(key.begin(), key.end(), field) != key.end();
    });
    if (matches) {
      found.push_back(&entry.second);
    }
  }
  return found;
}

void Table::Remove(const Row& row) { Erase(m_rows.find(CanonicalKey(row.key))); }

int32_t Table::SetTimeToLive(const RecordKey& key, int64_t time_ms) {
  Row* row = nullptr;
  if (const int32_t result = Find(key, row)) {
    return result;
  }
  row->expires_at_ms = time_ms < 0 ? -1 : m_now_ms + std::min(time_ms, kLongestTimeToLiveMs);
  return kDone;
}

int32_t Table::GetTimeToLive(const RecordKey& key, int64_t& time_ms) {
  Row* row = nullptr;
  if (const int32_t result = Find(key, row)) {
    return result;
  }
  time_ms = row->expires_at_ms < 0 ? -1 : row->expires_at_ms - m_now_ms;
  return kDone;
}

int32_t Table::InsertElement(const RecordKey& key, const FieldList& values, int32_t& index) {
  Row* list = nullptr;
  if (const int32_t result = CheckRequest(key, values)) {
    return result;
  }
  const int32_t found = Find(key, list);
  if (found != kDone && found != kRecordMissing) {
    return found;
  }
  const size_t size = list == nullptr ? 0 : list->elements.size();
  const size_t place = index == -1 ? size : static_cast<size_t>(index) + 1;
  if (index < -1 || place > size) {
    return kInvalidIndex;
  }
  if (size >= m_max_list_elements) {
    return kListFull;
  }
  if (list == nullptr) {
    list = AddRow(key.fields, BytesOf(values));
  } else if (!Charge(*list, 0, BytesOf(values))) {
    list = nullptr;
  } else {
    ++list->version;
  }
  if (list == nullptr) {
    return kStoreFull;
  }
  list->elements.insert(list->elements.begin() + static_cast<std::ptrdiff_t>(place), values);
  index = static_cast<int32_t>(place);
  return kDone;
}

int32_t Table::UpdateElement(Row& list, int32_t index, const FieldList& values) {
  if (const int32_t result = CheckValues(values)) {
    return result;
  }
  if (!HasElement(list, index)) {
    return kInvalidIndex;
  }
  FieldList& element = list.elements[static_cast<size_t>(index)];
  FieldList merged = element;
  Merge(merged, values);
  if (!Charge(list, BytesOf(element), BytesOf(merged))) {
    return kStoreFull;
  }
  element = std::move(merged);
  ++list.version;
  return kDone;
}

void Table::DeleteElements(Row& list, const std::set<int32_t>& indices) {
  std::vector<FieldList> left;
  for (size_t i = 0; i < list.elements.size(); ++i) {
    if (indices.count(static_cast<int32_t>(i)) == 0) {
      left.push_back(std::move(list.elements[i]));
    } else {
      Charge(list, BytesOf(list.elements[i]), 0);
    }
  }
  if (left.size() != list.elements.size()) {
    ++list.version;
  }
  list.elements.swap(left);
}

bool Table::HasElement(const Row& list, int32_t index) {
  return index >= 0 && static_cast<size_t>(index) < list.elements.size();
}

size_t Table::CountRows() {
  m_now_ms = WallMicroseconds() / 1000;
  EraseExpired();
  return m_rows.size();
}

Table::Rows::iterator Table::Lookup(const FieldList& key) {
  m_now_ms = WallMicroseconds() / 1000;
  const auto place = m_rows.find(CanonicalKey(key));
  if (place != m_rows.end() && place->second.expires_at_ms >= 0 &&
      place->second.expires_at_ms <= m_now_ms) {
    Erase(place);
    return m_rows.end();
  }
  return place;
}

int32_t Table::CheckRequest(const RecordKey& key, const FieldList& values) const {
  const int32_t result = CheckKey(key.fields, true);
  return result != kDone ? result : CheckValues(values);
}

// Null when the store is full.
Row* Table::AddRow(const FieldList& key, size_t value_bytes) {
  Row row;
  if (!Charge(row, 0, kRowBytes + BytesOf(key) + value_bytes)) {
    return nullptr;
  }
  row.key = SortedByName(key);
  row.version = 1;
  return &m_rows.emplace(CanonicalKey(key), std::move(row)).first->second;
}

bool Table::Charge(Row& row, size_t old_bytes, size_t new_bytes) {
  const auto fits = [this, old_bytes, new_bytes] {
    return m_budget.used_bytes - old_bytes + new_bytes <= m_budget.max_bytes;
  };
  if (new_bytes > old_bytes && !fits()) {
    EraseExpired();
    if (!fits()) {
      return false;
    }
  }
  m_budget.used_bytes = m_budget.used_bytes - old_bytes + new_bytes;
  row.bytes = row.bytes - old_bytes + new_bytes;
  return true;
}

void Table::Erase(Rows::iterator place) {
  m_budget.used_bytes -= place->second.bytes;
  m_rows.erase(place);
}

void Table::EraseExpired() {
  for (auto row = m_rows.begin(); row != m_rows.end();) {
    const auto next = std::next(row);
    if (row->second.expires_at_ms >= 0 && row->second.expires_at_ms <= m_now_ms) {
      Erase(row);
    }
    row = next;
  }
}

}  // namespace OstrandFleet
