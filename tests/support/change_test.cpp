#include "tests/support/change_test.h"

namespace acl_test {

confd_iter_ret ChangeTest::Change(const std::string& path, int operation, Value new_value) {
  KeyPath keypath(root_ + path);
  confd_value_t* newv = new_value.get()->type == C_NOEXISTS ? nullptr : new_value.get();
  return point_.diff_iterator(&keypath, static_cast<confd_iter_op>(operation), nullptr, newv);
}

Lines ChangeTest::TakeChange() {
  Lines lines = TakeEffects();
  const std::string path_line =
      std::string("log ") + (point_.ordinal == 0 ? "AclProfilesDiffIt" : "AclInterfacesDiffIt") +
      " - modified path: /config/";
  EXPECT_FALSE(lines.empty());
  if (lines.empty()) return lines;
  EXPECT_EQ(lines[0].compare(0, path_line.size(), path_line), 0) << lines[0];
  lines.erase(lines.begin());
  return lines;
}

void ChangeTest::Run(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path + " operation " + std::to_string(row.operation) + ' ' +
                 ToText(row.new_value.get()));
    size_t asked = 0;
    for (size_t line = 0; line < row.effects.size(); ++line) {
      if (row.effects[line].compare(0, 6, "model ") != 0) continue;
      ASSERT_LT(asked, row.on_refusal.size());
      RunRefusal(row, line, row.on_refusal[asked++]);
    }
    EXPECT_EQ(asked, row.on_refusal.size());
    EXPECT_EQ(Change(row.path, row.operation, row.new_value), ITER_RECURSE);
    EXPECT_EQ(TakeChange(), row.effects);
  }
}

void ChangeTest::RunRefusal(const Row& row, size_t line, const std::string& logged) {
  SCOPED_TRACE("refused: " + row.effects[line]);
  platform_.On(row.effects[line], acl_app::ACL_ERR_NOT_FOUND);
  EXPECT_EQ(Change(row.path, row.operation, row.new_value), ITER_CONTINUE);
  platform_.EndRules();
  Lines expected(row.effects.begin(), row.effects.begin() + line + 1);
  if (!logged.empty()) expected.push_back(logged);
  EXPECT_EQ(TakeChange(), expected);
}

}  // namespace acl_test
