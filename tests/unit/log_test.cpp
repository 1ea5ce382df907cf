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
  platform_.actual_classes = {{4711, 32}};
  ElemLogCfgGetHandle();
  EXPECT_STREQ(ElemLogCfgCalloutGetClassName(32), "ACL") << "the replaced one is looked up";
  EXPECT_EQ(ElemLogCfgGetBaseClass(), 100);
}

template <class Numbers>
std::string Join(std::initializer_list<std::string> words, const Numbers& numbers) {
  std::string line;
  for (const std::string& word : words) line += word + '|';
  for (int number : numbers) line += std::to_string(number) + ' ';
  line.pop_back();
  return line;
}

TEST_F(LogTest, DictionaryTables) {
  ElemLogCfgGetHandle();
  const ElemLogHeader& header = *platform_.log_header;
  Lines lines = {Join({"header"}, header.settings)};
  lines.push_back(
      Join({platform_.log_tables->components->name, platform_.log_tables->components->short_name},
           std::vector<int>{platform_.log_tables->components->value}));
  for (const ElemLogRow* row = platform_.log_tables->severities; row->name != nullptr; ++row) {
    lines.push_back(
        Join({row->name, row->short_name}, std::vector<int>{row->value, row->reserved}));
  }
  for (const ElemLogField* row = header.fields; row != header.fields + 5; ++row) {
    EXPECT_EQ(row->index, row - header.fields);
    lines.push_back(Join({row->key, row->name, row->display, row->short_display}, row->attributes));
  }
  for (const ElemLogOutput* row = header.outputs; row != header.outputs + 3; ++row) {
    lines.push_back(Join({row->key, row->name}, row->settings));
  }
  const ElemWebCategory* categories = ElemWebCfgGetCategories();
  for (int i = 0; i < ElemWebCfgGetNumCategories(); ++i) {
    lines.push_back(Join({categories[i].title, categories[i].keyword}, categories[i].settings));
  }
  EXPECT_EQ(lines, Text(R"(
      header|3 7 3 100 1 ; ACL_APP|ACL_APP|55
      Alert|Alert|64 0 ; Critical|Crit|32 0 ; Debug|Debug|1 0 ; Emergency|Emerg|128 0
      Error|Error|16 0 ; Informational|Info|2 0 ; Notice|Notice|4 0 ; Warning|Warn|8 0
      class|component|Component|Component|0 0 0 1 0 1 0 0 0 0
      subclass|messageID|MessageID|MSG_ID|0 0 0 0 0 0 0 0 0 0
      type|type|Type|Type|0 1 0 0 0 0 0 0 0 0
      eid|facility|Facility|Facility|0 0 0 0 0 0 0 0 0 0
      severity|severity|Severity|Sev|32 0 1 0 1 1 1 0 0 0
      userLog|UserLog|2 -1 50 1 10 1
      devLog|DeveloperLog|2 -1 50 1 10 1
      remoteUserLog|RemoteUserLog|4 -1 0 0 0 1
      Application Commands|user|0 0 0
      Element Commands|element|0 1 1
      Element Internal Commands|debug|2 2 1)"));
}

}  // namespace
}  // namespace acl_test
