#include "protocol/record_buffer.h"

#include <gtest/gtest.h>

#include <string>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

class RecordBuffer : public ::testing::Test {
 protected:
  // What is there must be sound after every call.
  void ExpectSound() {
    EXPECT_EQ(CheckRecords(m_records.szRecords, m_records.dwRecordsLen, m_records.dwRecordNum), 0);
  }

  const std::unique_ptr<OStrandPkg> m_pkg = NewPackage(OSTRAND_API_BATCH_INSERT_REQ);
  OStrandRecords& m_records = m_pkg->stBody.stRecords;
};

TEST_F(RecordBuffer, WhatWasWrittenIsRead) {
  RecordWriter writer(m_records);
  RecordMark mark;
  mark.result = -1293;
  mark.index = 4;
  mark.version = 17;
  ASSERT_EQ(writer.BeginRecord(mark), 0);
  ASSERT_EQ(writer.AddKeyField("id", "0123456789abcdef"), 0);
  ASSERT_EQ(writer.AddKeyField("zone", ""), 0);
  ASSERT_EQ(writer.AddValueField("level", std::string_view("\0\0\0\x50", 4)), 0);
  ASSERT_EQ(writer.BeginRecord(), 0);

  RecordReader reader(m_records);
  RecordView record;
  FieldView field;
  ASSERT_TRUE(reader.Next(record));
  EXPECT_EQ(record.mark.result, -1293);
  EXPECT_EQ(record.mark.index, 4);
  EXPECT_EQ(record.mark.version, 17);
  EXPECT_EQ(record.keys.left(), 2u);
  ASSERT_TRUE(record.keys.Next(field));
  EXPECT_EQ(field.name, "id");
  EXPECT_EQ(field.value, "0123456789abcdef");
  ASSERT_TRUE(record.keys.Next(field));
  EXPECT_EQ(field.name, "zone");
  EXPECT_EQ(field.value, "");
  EXPECT_FALSE(record.keys.Next(field));
  ASSERT_TRUE(record.values.Next(field));
  EXPECT_EQ(field.name, "level");
  EXPECT_EQ(field.value, std::string_view("\0\0\0\x50", 4));
  EXPECT_FALSE(record.values.Next(field));

  ASSERT_TRUE(reader.Next(record));
  EXPECT_EQ(record.mark.result, 0);
  EXPECT_EQ(record.mark.index, -1);
  EXPECT_EQ(record.mark.version, -1);
  EXPECT_EQ(record.keys.left(), 0u);
  EXPECT_EQ(record.values.left(), 0u);
  EXPECT_FALSE(reader.Next(record));
}

TEST_F(RecordBuffer, ViewsPointIntoThePackageAndNamesEndInNul) {
  RecordWriter writer(m_records);
  ASSERT_EQ(writer.BeginRecord(), 0);
  ASSERT_EQ(writer.AddValueField("name", "value"), 0);
  RecordReader reader(m_records);
  RecordView record;
  FieldView field;
  ASSERT_TRUE(reader.Next(record));
  ASSERT_TRUE(record.values.Next(field));
  EXPECT_STREQ(field.name.data(), "name");
  EXPECT_GE(field.value.data(), m_records.szRecords);
  EXPECT_LT(field.value.data(), m_records.szRecords + m_records.dwRecordsLen);
}

TEST_F(RecordBuffer, FieldsAreFoundByName) {
  RecordWriter writer(m_records);
  ASSERT_EQ(writer.BeginRecord(), 0);
  ASSERT_EQ(writer.AddKeyField("id", "key"), 0);
  ASSERT_EQ(writer.AddValueField("id", "first"), 0);
  ASSERT_EQ(writer.AddValueField("id", "second"), 0);
  RecordReader reader(m_records);
  RecordView record;
  ASSERT_TRUE(reader.Next(record));
  FieldView field;
  ASSERT_TRUE(record.FindKey("id", field));
  EXPECT_EQ(field.value, "key");
  ASSERT_TRUE(record.FindValue("id", field));
  EXPECT_EQ(field.value, "first");
  EXPECT_FALSE(record.FindValue("i", field));
  EXPECT_FALSE(record.FindKey("idx", field));
  EXPECT_EQ(field.value, "first");
}

TEST_F(RecordBuffer, AWriterAppendsBehindWhatIsThere) {
  RecordWriter first(m_records);
  ASSERT_EQ(first.BeginRecord(), 0);
  ASSERT_EQ(first.AddValueField("a", "1"), 0);
  RecordWriter second(m_records);
  EXPECT_EQ(second.AddValueField("b", "2"), OSTRAND_CODEC_ERR_RECORD_ORDER);
  ASSERT_EQ(second.BeginRecord(), 0);
  ASSERT_EQ(second.AddValueField("b", "2"), 0);
  EXPECT_EQ(m_records.dwRecordNum, 2u);
  ExpectSound();
}

TEST_F(RecordBuffer, FieldsNeedARecordAndKeysComeFirst) {
  RecordWriter writer(m_records);
  EXPECT_EQ(writer.AddKeyField("k", "v"), OSTRAND_CODEC_ERR_RECORD_ORDER);
  EXPECT_EQ(writer.AddValueField("f", "v"), OSTRAND_CODEC_ERR_RECORD_ORDER);
  EXPECT_EQ(m_records.dwRecordsLen, 0u);
  ASSERT_EQ(writer.BeginRecord(), 0);
  ASSERT_EQ(writer.AddValueField("f", "v"), 0);
  EXPECT_EQ(writer.AddKeyField("k", "v"), OSTRAND_CODEC_ERR_RECORD_ORDER);
  ASSERT_EQ(writer.BeginRecord(), 0);
  EXPECT_EQ(writer.AddKeyField("k", "v"), 0);
  ExpectSound();
}

TEST_F(RecordBuffer, NamesHaveOneTo31CharactersWithoutNul) {
  RecordWriter writer(m_records);
  ASSERT_EQ(writer.BeginRecord(), 0);
  EXPECT_EQ(writer.AddValueField("", "v"), OSTRAND_CODEC_ERR_FIELD_NAME);
  EXPECT_EQ(writer.AddValueField(std::string(32, 'n'), "v"), OSTRAND_CODEC_ERR_FIELD_NAME);
  EXPECT_EQ(writer.AddValueField(std::string_view("a\0b", 3), "v"), OSTRAND_CODEC_ERR_FIELD_NAME);
  EXPECT_EQ(writer.AddKeyField("", "v"), OSTRAND_CODEC_ERR_FIELD_NAME);
  EXPECT_EQ(writer.AddKeyField(std::string(31, 'n'), "v"), 0);
  EXPECT_EQ(writer.AddValueField(std::string(31, 'n'), "v"), 0);
  ExpectSound();
}

TEST_F(RecordBuffer, ARecordHasUpTo8KeyFieldsOfUpTo1024Bytes) {
  RecordWriter writer(m_records);
  ASSERT_EQ(writer.BeginRecord(), 0);
  EXPECT_EQ(writer.AddKeyField("k", std::string(1025, 'v')), OSTRAND_CODEC_ERR_KEY_FIELD_LEN);
  for (int i = 0; i < 8; ++i) {
    ASSERT_EQ(writer.AddKeyField("k", std::string(1024, 'v')), 0);
  }
  EXPECT_EQ(writer.AddKeyField("k", "v"), OSTRAND_CODEC_ERR_KEY_FIELD_NUM);
  ExpectSound();
}

TEST_F(RecordBuffer, ARecordHasUpTo128ValueFields) {
  RecordWriter writer(m_records);
  ASSERT_EQ(writer.BeginRecord(), 0);
  for (int i = 0; i < 128; ++i) {
    ASSERT_EQ(writer.AddValueField("f", "v"), 0);
  }
  EXPECT_EQ(writer.AddValueField("f", ""), OSTRAND_CODEC_ERR_VALUE_FIELD_NUM);
  ExpectSound();
}

TEST_F(RecordBuffer, ARecordHasUpTo1MiBOfValuesTogether) {
  RecordWriter writer(m_records);
  ASSERT_EQ(writer.BeginRecord(), 0);
  EXPECT_EQ(writer.AddValueField("f", std::string(1048577, 'v')), OSTRAND_CODEC_ERR_VALUE_LEN);
  ASSERT_EQ(writer.AddValueField("f", std::string(1048575, 'v')), 0);
  EXPECT_EQ(writer.AddValueField("f", "vv"), OSTRAND_CODEC_ERR_VALUE_LEN);
  EXPECT_EQ(writer.AddValueField("f", "v"), 0);
  EXPECT_EQ(writer.AddValueField("f", "v"), OSTRAND_CODEC_ERR_VALUE_LEN);
  EXPECT_EQ(writer.AddValueField("f", ""), 0);
  ExpectSound();
}

TEST_F(RecordBuffer, AllRecordsHave8MiBTogether) {
  constexpr size_t kFraming = 24 + 4 + 2 + 4;  // of a record with one field of a one-letter name
  RecordWriter writer(m_records);
  for (int i = 0; i < 7; ++i) {
    ASSERT_EQ(writer.BeginRecord(), 0);
    ASSERT_EQ(writer.AddValueField("f", std::string(1048576, 'v')), 0);
  }
  ASSERT_EQ(writer.BeginRecord(), 0);
  const size_t left = 8388608 - 7 * (1048576 + kFraming) - kFraming;
  EXPECT_EQ(writer.AddValueField("f", std::string(left + 1, 'v')), OSTRAND_CODEC_ERR_RECORDS_LEN);
  ExpectSound();
  ASSERT_EQ(writer.AddValueField("f", std::string(left - 23, 'v')), 0);
  EXPECT_EQ(m_records.dwRecordsLen, 8388608u - 23);
  EXPECT_EQ(writer.BeginRecord(), OSTRAND_CODEC_ERR_RECORDS_LEN);
  EXPECT_EQ(m_records.dwRecordNum, 8u);
  ASSERT_EQ(writer.AddValueField("f", std::string(23 - 10, 'v')), 0);
  EXPECT_EQ(m_records.dwRecordsLen, 8388608u);
  ExpectSound();
}

TEST_F(RecordBuffer, AKeySetIsAddedWholeOrNotAtAll) {
  OStrandKeySet& keys = m_pkg->stHead.stKeyInfo;
  AddKeyField(keys, "a", "1");
  AddKeyField(keys, "b", "22");
  RecordWriter writer(m_records);
  EXPECT_EQ(writer.AddKeySet(keys), OSTRAND_CODEC_ERR_RECORD_ORDER);
  ASSERT_EQ(writer.BeginRecord(), 0);
  ASSERT_EQ(writer.AddKeySet(keys), 0);
  const uint32_t len = m_records.dwRecordsLen;

  keys.astFields[1].dwFieldLen = 1025;
  EXPECT_EQ(writer.AddKeySet(keys), OSTRAND_CODEC_ERR_KEY_FIELD_LEN);
  keys.astFields[1].dwFieldLen = 2;
  keys.astFields[1].szFieldName[0] = '\0';
  EXPECT_EQ(writer.AddKeySet(keys), OSTRAND_CODEC_ERR_FIELD_NAME);
  keys.dwFieldNum = 9;
  EXPECT_EQ(writer.AddKeySet(keys), OSTRAND_CODEC_ERR_KEY_FIELD_NUM);
  EXPECT_EQ(m_records.dwRecordsLen, len);
  ExpectSound();

  RecordReader reader(m_records);
  RecordView record;
  ASSERT_TRUE(reader.Next(record));
  EXPECT_EQ(record.keys.left(), 2u);
  FieldView field;
  ASSERT_TRUE(record.FindKey("b", field));
  EXPECT_EQ(field.value, "22");
}

TEST_F(RecordBuffer, NoRecordsAreSound) {
  EXPECT_EQ(CheckRecords(nullptr, 0, 0), 0);
  EXPECT_EQ(CheckRecords(nullptr, 0, 1), OSTRAND_CODEC_ERR_RECORD_LEN);
  RecordReader reader(m_records);
  RecordView record;
  EXPECT_FALSE(reader.Next(record));
}

}  // namespace
}  // namespace ostrand_protocol_cs
