#include "protocol/record_decode_helper.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

class CopyKeySet : public ::testing::Test {
 protected:
  CopyKeySet() {
    std::memset(static_cast<void*>(m_src.get()), 0, sizeof(*m_src));
    std::memset(static_cast<void*>(m_dst.get()), 0x5A, sizeof(*m_dst));
  }

  const std::unique_ptr<OStrandKeySet> m_src = std::make_unique<OStrandKeySet>();
  const std::unique_ptr<OStrandKeySet> m_dst = std::make_unique<OStrandKeySet>();
};

TEST_F(CopyKeySet, CopiesVersionNamesAndValues) {
  m_src->iVersion = 17;
  AddKeyField(*m_src, "id", std::string_view("\0\1\2", 3));
  AddKeyField(*m_src, "zone", "");
  CTRecordDecodeHelper::CopyKeySet(*m_dst, *m_src);
  EXPECT_TRUE(SameKeySet(*m_src, *m_dst));
}

TEST_F(CopyKeySet, CopiesAFullSet) {
  for (int i = 0; i < 8; ++i) {
    AddKeyField(*m_src, std::string(31, 'n'), std::string(1024, 'v'));
  }
  CTRecordDecodeHelper::CopyKeySet(*m_dst, *m_src);
  EXPECT_TRUE(SameKeySet(*m_src, *m_dst));
}

TEST_F(CopyKeySet, TouchesNoMoreThanWhatIsUsed) {
  AddKeyField(*m_src, "id", "key");
  CTRecordDecodeHelper::CopyKeySet(*m_dst, *m_src);
  EXPECT_EQ(m_dst->astFields[0].szFieldBuff[3], 0x5A);
  EXPECT_EQ(m_dst->astFields[1].szFieldName[0], 0x5A);
}

TEST_F(CopyKeySet, ReadsCountsAndLengthsOverTheirCapacityAsTheCapacity) {
  for (int i = 0; i < 8; ++i) {
    AddKeyField(*m_src, "k", std::string(1024, 'v'));
  }
  m_src->dwFieldNum = 0xFFFFFFFF;
  m_src->astFields[7].dwFieldLen = 0xFFFFFFFF;
  CTRecordDecodeHelper::CopyKeySet(*m_dst, *m_src);
  EXPECT_EQ(m_dst->dwFieldNum, 8u);
  EXPECT_EQ(m_dst->astFields[7].dwFieldLen, 1024u);
}

TEST_F(CopyKeySet, CopiesASetOntoItself) {
  AddKeyField(*m_src, "id", "key");
  CTRecordDecodeHelper::CopyKeySet(*m_src, *m_src);
  EXPECT_EQ(m_src->dwFieldNum, 1u);
  EXPECT_STREQ(m_src->astFields[0].szFieldBuff, "key");
}

}  // namespace
}  // namespace ostrand_protocol_cs
