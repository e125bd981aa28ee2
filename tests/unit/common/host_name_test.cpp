#include "common/host_name.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace OstrandCommon {
namespace {

int LongName(char* name, size_t size) {
  std::memset(name, 'h', size);
  return 0;
}

int ShortName(char* name, size_t size) {
  const char kName[] = "table-client-7";
  if (size < sizeof(kName)) {
    return -1;
  }
  std::memcpy(name, kName, sizeof(kName));
  return 0;
}

int NoName(char*, size_t) { return -1; }

class HostNameTest : public testing::Test {
 protected:
  ~HostNameTest() override { ReplaceHostName(nullptr); }

  char m_name[256];
};

TEST_F(HostNameTest, TellsTheMachinesName) {
  EXPECT_EQ(0, GetHostName(m_name, sizeof(m_name)));
  EXPECT_NE(std::string(), m_name);
}

TEST_F(HostNameTest, ZeroesWhatTheNameDoesNotFill) {
  ReplaceHostName(&ShortName);
  std::memset(m_name, '#', sizeof(m_name));
  EXPECT_EQ(0, GetHostName(m_name, sizeof(m_name)));
  const std::string name = "table-client-7";
  EXPECT_EQ(name + std::string(sizeof(m_name) - name.size(), '\0'),
            std::string(m_name, sizeof(m_name)));
}

TEST_F(HostNameTest, EndsANameThatIsTooLong) {
  ReplaceHostName(&LongName);
  EXPECT_EQ(0, GetHostName(m_name, sizeof(m_name)));
  EXPECT_EQ(std::string(255, 'h') + '\0', std::string(m_name, sizeof(m_name)));
}

TEST_F(HostNameTest, IsTheEmptyTextWhenTheSystemDoesNotTell) {
  ReplaceHostName(&NoName);
  std::memset(m_name, '#', sizeof(m_name));
  EXPECT_EQ(-1, GetHostName(m_name, sizeof(m_name)));
  EXPECT_STREQ("", m_name);
}

TEST_F(HostNameTest, RefusesNoRoom) {
  m_name[0] = '#';
  EXPECT_EQ(-1, GetHostName(m_name, 0));
  EXPECT_EQ('#', m_name[0]);
  EXPECT_EQ(-1, GetHostName(nullptr, 10));
}

TEST_F(HostNameTest, NullPutsTheSystemsFunctionBack) {
  ReplaceHostName(&NoName);
  ReplaceHostName(nullptr);
  EXPECT_EQ(0, GetHostName(m_name, sizeof(m_name)));
}

}  // namespace
}  // namespace OstrandCommon
