// The log facility and the log dictionary's callouts.
#include "app/log.h"

#include "app/log_callouts.h"
#include "tests/core/platform/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::AclLog;

class LogTest : public testing::Test {
 protected:
  ScriptedPlatform platform_;
};

TEST_F(LogTest, LinesAreSentWhileThereIsAHandleAndEachObjectReplacesIt) {
  AclLog::SendDebug("before %d", 1);
  {
    AclLog log(platform_.middleware());
    AclLog::SendDebug("%s has %d%%", "P %s", 7);
    AclLog::SendLog(reinterpret_cast<const qzmw_log_msg_t*>("port %d"), 9);
    AclLog second(platform_.middleware());
    AclLog::SendDebug("second");
  }
  AclLog::SendDebug("after");
  AclLog::SendLog(nullptr);
  AclLog third(platform_.middleware());
  AclLog silent(nullptr);  // turns logging off
  AclLog::SendDebug("dropped");
  platform_.On("qzmw_log_init", -1);
  AclLog failed(platform_.middleware());
  AclLog::SendDebug("dropped");
  EXPECT_EQ(platform_.Take(), Text(R"(
      $init ; log P %s has 7% ; message port 9 ; qzmw_log_finish
      $init ; log second ; qzmw_log_finish
      $init ; qzmw_log_finish
      $init ; fault 0 AclLog log: AclLog could not init log system)",
                                   {{"$init", "qzmw_log_init 55 32 ACL"}}));
}

TEST_F(LogTest, DictionaryIsHandedOverWithTheClassesInUse) {
  platform_.actual_classes = {{32, 4711}, {4711, 33}};
  EXPECT_EQ(ElemLogCfgGetHandle(), &platform_.log_tables) << "what the library returns";
  EXPECT_STREQ(ElemLogCfgCalloutGetClassName(4711), "ACL") << "replaced in place";
  EXPECT_EQ(ElemLogCfgCalloutGetClassName(32), nullptr);
  platform_.actual_classes = {{4711, 32}};
  ElemLogCfgGetHandle();
  EXPECT_STREQ(ElemLogCfgCalloutGetClassName(32), "ACL") << "the replaced one is looked up";
  EXPECT_EQ(ElemLogCfgGetBaseClass(), 100);
}

// The tables mean something to the element's library alone, so nothing else notices a wrong value.
TEST_F(LogTest, DictionaryTables) {
  ElemLogCfgGetHandle();
  const ElemLogHeader& header = *platform_.log_header;
  const ElemLogTables& tables = *platform_.log_tables;
  ASSERT_NE(tables.word, nullptr);
  EXPECT_EQ(*tables.word, 0);
  EXPECT_EQ(tables.unused, nullptr);
  Lines lines;
  const auto add = [&lines](std::string row, const auto& numbers) {
    for (int number : numbers) row = Line(row, number);
    lines.push_back(row);
  };
  for (const ElemLogRow* row :
       {static_cast<const ElemLogRow*>(tables.classes), tables.components, tables.severities}) {
    for (; row->name != nullptr; ++row) {
      lines.push_back(Line(row->name, row->short_name, row->value, row->reserved));
    }
    lines.push_back(Line("end", row->value, row->reserved));
  }
  add("header", header.settings);
  for (const ElemLogField* f = header.fields; f->key != nullptr; ++f) {
    add(Line(Word(f->index), f->key, f->name, f->display, f->short_display), f->attributes);
  }
  for (const ElemLogOutput* output = header.outputs; output->key != nullptr; ++output) {
    add(Line(output->key, output->name), output->settings);
  }
  for (int i = 0; i < ElemWebCfgGetNumCategories(); ++i) {
    const ElemWebCategory& category = ElemWebCfgGetCategories()[i];
    add(Line(category.title, category.keyword), category.settings);
  }
  EXPECT_EQ(nullptr, ElemWebCfgGetCategories()[ElemWebCfgGetNumCategories()].title);
  EXPECT_EQ(lines, Text(R"(
      ACL ACL 32 0 ; end 0 0 ; ACL_APP ACL_APP 55 0 ; end 0 0
      Alert Alert 64 0 ; Critical Crit 32 0 ; Debug Debug 1 0 ; Emergency Emerg 128 0
      Error Error 16 0 ; Informational Info 2 0 ; Notice Notice 4 0 ; Warning Warn 8 0
      end 0 0
      header 3 7 3 100 1
      0 class component Component Component 0 0 0 1 0 1 0 0 0 0
      1 subclass messageID MessageID MSG_ID 0 0 0 0 0 0 0 0 0 0
      2 type type Type Type 0 1 0 0 0 0 0 0 0 0
      3 eid facility Facility Facility 0 0 0 0 0 0 0 0 0 0
      4 severity severity Severity Sev 32 0 1 0 1 1 1 0 0 0
      userLog UserLog 2 -1 50 1 10 1
      devLog DeveloperLog 2 -1 50 1 10 1
      remoteUserLog RemoteUserLog 4 -1 0 0 0 1
      Application Commands user 0 0 0 ; Element Commands element 0 1 1
      Element Internal Commands debug 2 2 1)"));
}

}  // namespace
}  // namespace acl_test
