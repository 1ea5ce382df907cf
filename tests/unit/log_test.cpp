// The log facility and the log dictionary's callouts.
#include "app/log.h"

#include "app/log_callouts.h"
#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::AclLog;
using testing::ElementsAre;
using testing::IsEmpty;

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
  EXPECT_THAT(platform_.Take(), ElementsAre("qzmw_log_init 55 32 ACL", "log P %s has 7%",
                                            "message port 9", "qzmw_log_finish"));
}

TEST_F(LogTest, SecondObjectReplacesTheHandle) {
  {
    AclLog first(platform_.middleware());
    {
      AclLog second(platform_.middleware());
      AclLog::SendDebug("second");
    }
    AclLog::SendDebug("dropped");
  }
  EXPECT_THAT(platform_.Take(),
              ElementsAre("qzmw_log_init 55 32 ACL", "qzmw_log_finish", "qzmw_log_init 55 32 ACL",
                          "log second", "qzmw_log_finish"));
}

TEST_F(LogTest, NoMiddlewareTurnsLoggingOff) {
  AclLog first(platform_.middleware());
  AclLog silent(nullptr);
  AclLog::SendDebug("dropped");
  EXPECT_THAT(platform_.Take(), ElementsAre("qzmw_log_init 55 32 ACL", "qzmw_log_finish"));
}

TEST_F(LogTest, FailureToOpenIsAFaultAndNoEnd) {
  platform_.On("qzmw_log_init", -1);
  AclLog log(platform_.middleware());
  AclLog::SendDebug("dropped");
  EXPECT_THAT(platform_.Take(),
              ElementsAre("qzmw_log_init 55 32 ACL",
                          "fault 0 AclLog log: AclLog could not init log system"));
}

TEST_F(LogTest, DictionaryIsHandedOverWithTheClassesInUse) {
  platform_.actual_classes = {{32, 4711}};
  EXPECT_EQ(ElemLogCfgGetHandle(), &platform_.log_tables) << "what the library returns";
  EXPECT_STREQ(ElemLogCfgCalloutGetClassName(4711), "ACL");
  EXPECT_EQ(ElemLogCfgCalloutGetClassName(32), nullptr);
  EXPECT_EQ(ElemLogCfgCalloutGetClassName(-1), nullptr);
  const ElemLogTables& tables = *platform_.log_tables;
  EXPECT_STREQ(tables.classes[0].name, "ACL");
  EXPECT_EQ(tables.classes[0].value, 4711) << "replaced in place";
  ASSERT_NE(tables.word, nullptr);
  EXPECT_EQ(*tables.word, 0);
  EXPECT_EQ(tables.unused, nullptr);
  EXPECT_STREQ(tables.components[0].name, "ACL_APP");
  EXPECT_STREQ(tables.components[0].short_name, "ACL_APP");
  EXPECT_EQ(tables.components[0].value, 55);

  platform_.actual_classes = {{4711, 32}};
  ElemLogCfgGetHandle();
  EXPECT_STREQ(ElemLogCfgCalloutGetClassName(32), "ACL") << "the replaced one is looked up";
  EXPECT_EQ(ElemLogCfgGetBaseClass(), 100);
}

TEST_F(LogTest, DictionaryTables) {
  ElemLogCfgGetHandle();
  Lines lines;
  for (const ElemLogRow* row = platform_.log_tables->severities; row->name != nullptr; ++row) {
    lines.push_back(std::string(row->name) + ' ' + row->short_name + ' ' +
                    std::to_string(row->value) + ' ' + std::to_string(row->reserved));
  }
  EXPECT_THAT(lines,
              ElementsAre("Alert Alert 64 0", "Critical Crit 32 0", "Debug Debug 1 0",
                          "Emergency Emerg 128 0", "Error Error 16 0", "Informational Info 2 0",
                          "Notice Notice 4 0", "Warning Warn 8 0"));
  const ElemLogHeader& header = *platform_.log_header;
  EXPECT_THAT(header.settings, ElementsAre(3, 7, 3, 100, 1));
  const auto numbers = [](const auto& values) {
    std::string text;
    for (int value : values) text += ' ' + std::to_string(value);
    return text;
  };
  lines.clear();
  for (int i = 0; i < 5; ++i) {
    const ElemLogField& field = header.fields[i];
    lines.push_back(std::to_string(field.index) + ' ' + field.key + ' ' + field.name + ' ' +
                    field.display + ' ' + field.short_display + numbers(field.attributes));
  }
  EXPECT_THAT(lines, ElementsAre("0 class component Component Component 0 0 0 1 0 1 0 0 0 0",
                                 "1 subclass messageID MessageID MSG_ID 0 0 0 0 0 0 0 0 0 0",
                                 "2 type type Type Type 0 1 0 0 0 0 0 0 0 0",
                                 "3 eid facility Facility Facility 0 0 0 0 0 0 0 0 0 0",
                                 "4 severity severity Severity Sev 32 0 1 0 1 1 1 0 0 0"));
  lines.clear();
  for (int i = 0; i < 3; ++i) {
    const ElemLogOutput& output = header.outputs[i];
    lines.push_back(std::string(output.key) + ' ' + output.name + numbers(output.settings));
  }
  EXPECT_THAT(lines,
              ElementsAre("userLog UserLog 2 -1 50 1 10 1", "devLog DeveloperLog 2 -1 50 1 10 1",
                          "remoteUserLog RemoteUserLog 4 -1 0 0 0 1"));
  lines.clear();
  for (int i = 0; i < ElemWebCfgGetNumCategories(); ++i) {
    const ElemWebCategory& category = ElemWebCfgGetCategories()[i];
    lines.push_back(std::string(category.title) + ' ' + category.keyword +
                    numbers(category.settings));
  }
  EXPECT_THAT(lines,
              ElementsAre("Application Commands user 0 0 0", "Element Commands element 0 1 1",
                          "Element Internal Commands debug 2 2 1"));
}

}  // namespace
}  // namespace acl_test
