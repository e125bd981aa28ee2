// Finding tables in a loaded library and reading them.
#include <gtest/gtest.h>

#include "unit/vex/vex_test_util.h"

namespace {

using vex_test::ImageOf;
using vex_test::Load;
using vex_test::Loaded;
using vex_test::UserLibrary;

class VexMetaTest : public testing::Test {
 protected:
  void SetUp() override {
    VexMetaLib lib = UserLibrary();
    lib.tables.push_back({std::string(31, 't'), 7, "", {}, {}});
    m_loaded = Load(ImageOf(lib));
    ASSERT_EQ(m_loaded.code, kVexOk);
  }
  LPVEXMETA Find(const char* name) { return vex_get_meta_by_name(m_loaded.lib.get(), name); }

  Loaded m_loaded;
};

TEST_F(VexMetaTest, IsFoundByItsExactName) {
  ASSERT_NE(Find("user"), nullptr);
  EXPECT_EQ(Find("user")->name, "user");
  EXPECT_NE(Find(std::string(31, 't').c_str()), nullptr);
  for (const char* absent : {"", "use", "user2", "User", "t"}) {
    EXPECT_EQ(Find(absent), nullptr) << absent;
  }
}

TEST_F(VexMetaTest, IsNotFoundWithNullArguments) {
  EXPECT_EQ(Find(nullptr), nullptr);
  EXPECT_EQ(vex_get_meta_by_name(nullptr, "user"), nullptr);
}

TEST_F(VexMetaTest, TellsItsVersion) {
  EXPECT_EQ(vex_get_meta_current_version(Find("user")), 3);
  EXPECT_EQ(vex_get_meta_current_version(Find(std::string(31, 't').c_str())), 7);
  EXPECT_EQ(vex_get_meta_current_version(nullptr), -1);
}

TEST_F(VexMetaTest, TellsItsAttribute) {
  EXPECT_STREQ(vex_get_meta_customattr2(Find("user")), "DataProtocolType=VEX");
  EXPECT_EQ(vex_get_meta_customattr2(Find(std::string(31, 't').c_str())), nullptr);
  EXPECT_EQ(vex_get_meta_customattr2(nullptr), nullptr);
}

TEST_F(VexMetaTest, ShowsItsFields) {
  const LPVEXMETA user = Find("user");
  ASSERT_NE(user, nullptr);
  ASSERT_EQ(user->key_fields.size(), 1U);
  EXPECT_EQ(user->key_fields[0].name, "uid");
  EXPECT_EQ(user->key_fields[0].type, VexFieldType::kUint64);
  EXPECT_EQ(user->key_fields[0].size, 8U);
  EXPECT_EQ(user->key_fields[0].since_version, 0);
  ASSERT_EQ(user->value_fields.size(), 2U);
  EXPECT_EQ(user->value_fields[0].name, "nick");
  EXPECT_EQ(user->value_fields[0].type, VexFieldType::kString);
  EXPECT_EQ(user->value_fields[0].size, 300U);
  EXPECT_EQ(user->value_fields[1].since_version, 3);
}

TEST_F(VexMetaTest, IsFreedWithItsLibrary) {
  LPVEXMETALIB lib = m_loaded.lib.release();
  vex_free_lib(&lib);
  EXPECT_EQ(lib, nullptr);
  vex_free_lib(&lib);
  EXPECT_EQ(lib, nullptr);
  vex_free_lib(nullptr);
}

}  // namespace
