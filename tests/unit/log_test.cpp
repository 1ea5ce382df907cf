// The log facility and the log dictionary's callouts.
#include "app/log.h"

#include "app/log_callouts.h"
#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::AclLog;

class LogTest : public testing::Test {
 protected:
  ScriptedPlatform platform_;
};

TEST_F(LogTest, LinesAreSentWhileThereIsAHandle) {
  AclLog::SendDebug("before %d", 1);
  {
    AclLog log(platform_.middleware());
    AclLog::SendDebug("%s has %d%%", "P %s", 7);
    AclLog::SendLog(reinterpret_cast<const qzmw_log_msg_t*>("port %d"), 9);
  }
  AclLog::SendDebug("after");
  AclLog::SendLog(nullptr);
  EXPECT_EQ(platform_.Take(), Text(R"(
      qzmw_log_init 55 32 ACL ; log P %s has 7% ; message port 9 ; qzmw_log_finish)"));
}

TEST_F(LogTest, EachObjectReplacesTheHandle) {
  AclLog first(platform_.middleware());
  {
    AclLog second(platform_.middleware());
    AclLog::SendDebug("second");
  }
  AclLog::SendDebug("dropped");
  AclLog third(platform_.middleware());
  AclLog silent(nullptr);  // turns logging off
  AclLog::SendDebug("dropped");
  platform_.On("qzmw_log_init", -1);
  AclLog failed(platform_.middleware());
  AclLog::SendDebug("dropped");
  EXPECT_EQ(platform_.Take(), Text(R"(
      qzmw_log_init 55 32 ACL ; qzmw_log_finish
      qzmw_log_init 55 32 ACL ; log second ; qzmw_log_finish
      qzmw_log_init 55 32 ACL ; qzmw_log_finish
      qzmw_log_init 55 32 ACL
      fault 0 AclLog log: AclLog could not init log system)"));
}

TEST_F(LogTest, DictionaryIsHandedOverWithTheClassesInUse) {
  platform_.actual_classes = {{32, 4711}};
  EXPECT_EQ(ElemLogCfgGetHandle(), &platform_.log_tables) << "what the library returns";
  EXPECT_STREQ(ElemLogCfgCalloutGetClassName(4711), "ACL");
  EXPECT_EQ(ElemLogCfgCalloutGetClassName(32), nullptr);
  const ElemLogTables& tables = *platform_.log_tables;
  EXPECT_STREQ(tables.classes[0].name, "ACL");
  EXPECT_EQ(tables.classes[0].value, 4711) << "replaced in place";
  ASSERT_NE(tables.word, nullptr);
  EXPECT_EQ(*tables.word, 0);
  EXPECT_EQ(tables.unused, nullptr);
  EXPECT_EQ(tables.components->value, 55);
  int severities = 0;
  for (const ElemLogRow* row = tables.severities; row->name != nullptr; ++row) ++severities;
  EXPECT_EQ(severities, 8) << "ended by a row without a name";
  platform_.actual_classes = {{4711, 32}};
  ElemLogCfgGetHandle();
  EXPECT_STREQ(ElemLogCfgCalloutGetClassName(32), "ACL") << "the replaced one is looked up";
  EXPECT_EQ(ElemLogCfgGetBaseClass(), 100);
}

// The numbers mean something to the element's library alone, so nothing else notices a wrong one.
TEST_F(LogTest, DictionaryTables) {
  ElemLogCfgGetHandle();
  const ElemLogHeader& header = *platform_.log_header;
  Lines lines;
  const auto add = [&lines](std::string row, const auto& numbers) {
    for (int number : numbers) row += ' ' + std::to_string(number);
    lines.push_back(row);
  };
  add("header", header.settings);
  for (int i : {0, 1, 2, 3, 4}) add(header.fields[i].key, header.fields[i].attributes);
  for (int i : {0, 1, 2}) add(header.outputs[i].key, header.outputs[i].settings);
  for (int i = 0; i < ElemWebCfgGetNumCategories(); ++i) {
    add(ElemWebCfgGetCategories()[i].keyword, ElemWebCfgGetCategories()[i].settings);
  }
  EXPECT_EQ(lines, Text(R"(
      header 3 7 3 100 1 ; class 0 0 0 1 0 1 0 0 0 0 ; subclass 0 0 0 0 0 0 0 0 0 0
      type 0 1 0 0 0 0 0 0 0 0 ; eid 0 0 0 0 0 0 0 0 0 0 ; severity 32 0 1 0 1 1 1 0 0 0
      userLog 2 -1 50 1 10 1 ; devLog 2 -1 50 1 10 1 ; remoteUserLog 4 -1 0 0 0 1
      user 0 0 0 ; element 0 1 1 ; debug 2 2 1)"));
}

}  // namespace
}  // namespace acl_test
