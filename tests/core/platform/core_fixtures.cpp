#include "tests/core/platform/core_fixtures.h"

#include <algorithm>
#include <sstream>

namespace acl_test {
namespace {

void Replace(const std::string& what, const std::string& by, std::string* text) {
  for (size_t at = 0; (at = text->find(what, at)) != std::string::npos; at += by.size()) {
    text->replace(at, what.size(), by);
  }
}

// The parts of a text, each without the blanks around it.
Lines Split(std::string text, const std::string& separator, const Names& names) {
  // From the last to the first: a name comes before those that it is the beginning of. Twice: what
  // a name stands for may hold names.
  for (auto name = names.rbegin(); name != names.rend(); ++name)
    Replace(name->first, name->second, &text);
  for (auto name = names.rbegin(); name != names.rend(); ++name)
    Replace(name->first, name->second, &text);
  Replace(separator, "\n", &text);
  Lines parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part);) {
    part.erase(part.find_last_not_of(' ') + 1);
    parts.push_back(part.substr(std::min(part.find_first_not_of(' '), part.size())));
  }
  return parts;
}

}  // namespace

Lines Text(std::string block, const Names& names) {
  Lines lines = Split(std::move(block), " ; ", names);
  lines.erase(std::remove(lines.begin(), lines.end(), ""), lines.end());
  return lines;
}

std::vector<Lines> Rows(const std::string& block, const Names& names) {
  std::vector<Lines> rows;
  for (const std::string& line : Split(block, "\n", {})) {
    if (!line.empty()) rows.push_back(Split(line + "  ", "| ", names));
  }
  return rows;
}

Lines Dump(acl_app::AclCache& model) {
  Lines lines;
  for (const auto& [name, profile] : Model::PreCreated(model)) {
    lines.push_back(Line(name, "pending type", profile.type));
    for (const auto& entry : profile.entries) lines.push_back(Line(name, Describe(entry.second)));
  }
  for (const auto& [name, group] : Model::Profiles(model)) {
    lines.push_back(Line(name, "type", group.getType(), "priority", group.getPriority(), "id",
                         group.getId(), "stage", group.getStage()));
    for (const std::string& entry : Describe(group)) lines.push_back(Line(name, entry));
  }
  for (const auto& [interface, profiles] : Model::Interfaces(model)) {
    lines.push_back(Line(interface, "binds"));
    for (const std::string& profile : profiles) lines.back() += ' ' + profile;
  }
  return lines;
}

acl_app::aclErr_t ModelTest::CreateMatch(const std::string& profile, int prio, unsigned int kind,
                                         const std::string& value1, const std::string& value2) {
  Value first(value1), second(value2);
  return model_.CreateMatch(profile, prio, static_cast<acl_app::aclFiltersMatch_t>(kind), first,
                            second);
}

ManagerSetup::ManagerSetup() {
  manager_.SetInterface(&connection_);
  platform_.Take();
}

confd_iter_ret ManagerSetup::Change(const std::string& change) {
  static const std::map<std::string, int> operations = {{"created", MOP_CREATED},
                                                        {"deleted", MOP_DELETED},
                                                        {"modified", MOP_MODIFIED},
                                                        {"set", MOP_VALUE_SET},
                                                        {"7", 7}};
  const size_t blank = change.find(' ');
  const size_t end = std::min(change.find(" = "), change.size());
  KeyPath path(change.substr(blank + 1, end - blank - 1));
  Value value(end == change.size() ? "" : change.substr(end + 3));
  const size_t point = StartsWith(path.text(), "/config/access-list/acl-profile") ? 0 : 1;
  return manager_.GetSubscriptionPoints().at(point).diff_iterator(
      &path, static_cast<confd_iter_op>(operations.at(change.substr(0, blank))), nullptr, value);
}

void ManagerTest::ExpectChange(const std::string& change, confd_iter_ret result,
                               const Lines& effects) {
  EXPECT_EQ(Change(change), result) << change;
  Lines lines = TakeEffects();
  ASSERT_FALSE(lines.empty()) << change;
  EXPECT_THAT(lines[0], testing::ContainsRegex("^log Acl[A-Za-z]+DiffIt - modified path: /config"));
  lines.erase(lines.begin());
  EXPECT_EQ(lines, effects) << change;
}

void ManagerTest::RunChanges(const std::string& root, const std::string& block,
                             const Names& names) {
  std::string change;
  Lines effects;
  for (const std::string& line : Text(block, names)) {
    const size_t refusal = line.find(" ! ");
    const bool asks = StartsWith(line, "model ");
    if (!asks && !StartsWith(line, "log ")) {
      if (!change.empty()) ExpectChange(change, ITER_RECURSE, effects);
      change = line;
      change.insert(change.find(' ') + 1, root);
      effects.clear();
      continue;
    }
    effects.push_back(line.substr(0, refusal));
    if (!asks) continue;
    platform_.On(effects.back(), acl_app::ACL_ERR_NOT_FOUND);
    Lines until_refused = effects;
    if (refusal != std::string::npos) until_refused.push_back("log " + line.substr(refusal + 3));
    ExpectChange(change, ITER_CONTINUE, until_refused);
    platform_.EndRules();
  }
  ExpectChange(change, ITER_RECURSE, effects);
}

}  // namespace acl_test
