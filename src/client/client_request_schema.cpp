// Fitting a request to its table's schema, and telling its fault.
#include <cstring>

#include "client/client_request.h"
#include "client/error_text.h"
#include "client/request_form.h"
#include "client/runtime_errors.h"
#include "vex/vex_schema.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: what a request is made of

namespace {

constexpr uint8_t kOpenMark = 0x80;

const VexField* FindIn(const std::vector<VexField>& fields, std::string_view name) {
  for (const VexField& field : fields) {
    if (field.name == name) {
      return &field;
    }
  }
  return nullptr;
}

const VexField* FindIn(const VexMeta& schema, std::string_view name) {
  const VexField* const key = FindIn(schema.key_fields, name);
  return key != nullptr ? key : FindIn(schema.value_fields, name);
}

VexFieldType TypeOfMark(uint8_t mark) {
  return static_cast<VexFieldType>(mark & static_cast<uint8_t>(~kOpenMark));
}

// Whether a value of this type, width open or not, may stand in a field of the schema.
int CheckValue(const VexField& field, uint8_t mark, std::string_view value) {
  const VexFieldType type = TypeOfMark(mark);
  if (value.empty()) {
    return 0;  // it only names the field, or is an empty text
  }
  if (!IsNumberType(field.type)) {
    return !IsNumberType(type) && value.size() <= field.size ? 0 : RUNTIME_ERR_FIELD_TYPE;
  }
  const bool has_width = value.size() == vex_type_info(field.type)->width;
  if (!IsNumberType(type)) {
    return has_width ? 0 : RUNTIME_ERR_FIELD_TYPE;  // bytes that the application made itself
  }
  if (!IsIntegerType(type) || !IsIntegerType(field.type)) {
    return type == field.type ? 0 : RUNTIME_ERR_FIELD_TYPE;
  }
  if ((mark & kOpenMark) == 0 && !has_width) {
    return RUNTIME_ERR_FIELD_TYPE;
  }
  char converted[8];
  return ConvertInteger(type, value, field.type, converted) ? 0 : RUNTIME_ERR_VALUE_RANGE;
}

// Goes through the bytes of a request field by field, and moves what stands behind a field that got
// shorter. Fields only get shorter, so that what is written never overtakes what is read.
class Fitter {
 public:
  Fitter(const VexMeta& schema, RequestBytes& bytes, size_t begin)
      : m_schema(schema), m_bytes(bytes), m_read(begin), m_write(begin) {}

  size_t read() const { return m_read; }
  size_t write() const { return m_write; }
  char* At(size_t place) { return m_bytes.data() + place; }

  void Copy(size_t len) {
    std::memmove(At(m_write), At(m_read), len);
    m_read += len;
    m_write += len;
  }

  // Answers the length that the value has now.
  size_t FitField() {
    FieldView field;
    FieldReader(At(m_read), 1).Next(field);
    const std::string_view name = field.name;
    const size_t value_len = field.value.size();
    const VexField* const in_schema = FindIn(m_schema, name);
    const uint8_t mark = m_bytes.mark(m_next_mark);
    const bool changes = in_schema != nullptr && (mark & kOpenMark) != 0;
    char converted[8] = {};
    size_t new_len = value_len;
    if (changes) {
      ConvertInteger(TypeOfMark(mark), field.value, in_schema->type, converted);
      new_len = vex_type_info(in_schema->type)->width;
      m_bytes.SetMark(m_next_mark, static_cast<uint8_t>(in_schema->type));
    }
    ++m_next_mark;
    Copy(sizeof(uint32_t) + name.size() + 1);
    StoreBigEndian(At(m_write), static_cast<uint32_t>(new_len));
    m_read += sizeof(uint32_t);
    m_write += sizeof(uint32_t);
    std::memmove(At(m_write), changes ? converted : At(m_read), new_len);
    m_read += value_len;
    m_write += new_len;
    return new_len;
  }

 private:
  const VexMeta& m_schema;
  RequestBytes& m_bytes;
  size_t m_read;
  size_t m_write;
  size_t m_next_mark = 0;
};

}  // namespace

// Calls visit(field, number of its mark) for each field, in the order in which they stand.
template <typename Visit>
void ClientRequest::VisitFields(Visit&& visit) const {
  size_t mark = 0;
  const auto visit_all = [&visit, &mark](FieldReader& fields) {
    for (FieldView field; fields.Next(field); ++mark) {
      visit(field, mark);
    }
  };
  FieldReader key(m_bytes.data() + m_head.user_len, m_head.key_num);
  visit_all(key);
  RecordReader records = Records();
  for (RecordView record; records.Next(record);) {
    visit_all(record.keys);
    visit_all(record.values);
  }
  if (KeyPlaceOf(m_head.cmd) == KeyPlace::kEntries) {
    const char* entry = Body() + sizeof(uint32_t);
    for (uint32_t i = 0; i < GetRecordCount(); ++i) {
      FieldReader fields(entry + 8, LoadBigEndian<uint32_t>(entry + 4));
      visit_all(fields);
      entry = fields.position() + EntryTailLen(m_head.cmd);
    }
  }
}

int ClientRequest::ApplySchema(const VexMeta* schema) {
  if (schema == nullptr || m_fault != 0) {
    return m_fault;
  }
  bool changes = false;
  VisitFields([this, schema, &changes](const FieldView& field, size_t mark_at) {
    const VexField* const in_schema = FindIn(*schema, field.name);
    const uint8_t mark = m_bytes.mark(mark_at);
    if (in_schema == nullptr) {
      return;
    }
    changes = changes || (mark & kOpenMark) != 0;
    if (const int ret = CheckValue(*in_schema, mark, field.value)) {
      Fail(ret, field.name);
    }
  });
  if (m_fault == 0 && changes) {
    FitFields(*schema);
  }
  return m_fault;
}

// REQUIRES: each value fits its field.
void ClientRequest::FitFields(const VexMeta& schema) {
  Fitter fitter(schema, m_bytes, m_head.user_len);
  for (uint32_t i = 0; i < m_head.key_num; ++i) {
    fitter.FitField();
  }
  const auto count = GetRecordCount();
  const size_t body_at = fitter.write();
  const size_t body_end = size_t{m_head.user_len} + m_head.key_len + m_head.body_len;
  const bool has_records = HasRecords(BodyKindOfCmd(m_head.cmd));
  const bool has_entries = KeyPlaceOf(m_head.cmd) == KeyPlace::kEntries;
  fitter.Copy(EmptyBodyLen(BodyKindOfCmd(m_head.cmd)));
  for (uint32_t i = 0; i < count; ++i) {
    const size_t begin = fitter.write();
    const char* const header = fitter.At(fitter.read());
    const uint32_t keys = LoadBigEndian<uint32_t>(header + (has_records ? 16 : 4));
    const uint32_t values = has_records ? LoadBigEndian<uint32_t>(header + 20) : 0;
    fitter.Copy(has_records ? OSTRAND_RECORD_HEADER_LEN : 8);
    for (uint32_t key = 0; key < keys; ++key) {
      fitter.FitField();
    }
    m_record.begin = static_cast<uint32_t>(begin - body_at);
    m_record.keys_end = static_cast<uint32_t>(fitter.write() - body_at);
    m_record.values_len = 0;
    for (uint32_t value = 0; value < values; ++value) {
      m_record.values_len += static_cast<uint32_t>(fitter.FitField());
    }
    if (has_records) {
      StoreBigEndian(fitter.At(begin), static_cast<uint32_t>(fitter.write() - begin));
    } else if (has_entries) {
      fitter.Copy(EntryTailLen(m_head.cmd));
    }
  }
  fitter.Copy(body_end - fitter.read());  // of commands without records: all of it
  m_head.key_len = static_cast<uint32_t>(body_at) - m_head.user_len;
  m_head.body_len = static_cast<uint32_t>(fitter.write() - body_at);
  m_bytes.Erase(fitter.write(), m_bytes.size() - fitter.write());
  if (has_records) {
    StoreBigEndian(Body() + 4, static_cast<uint32_t>(m_head.body_len - 8));
  }
}

std::string ClientRequest::FaultText() const {
  if (m_fault == 0) {
    return {};
  }
  std::string text = ErrorText(m_fault);
  if (m_fault_field[0] != '\0') {
    text = "\"" + std::string(m_fault_field) + "\": " + text;
  }
  return text;
}

}  // namespace OstrandService
