#include "tests/support/core_fixtures.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <list>
#include <sstream>
#include <tuple>
#include <type_traits>

namespace acl_test {

namespace {

void Replace(const std::string& what, const std::string& by, std::string* text) {
  for (size_t at = 0; (at = text->find(what, at)) != std::string::npos; at += by.size()) {
    text->replace(at, what.size(), by);
  }
}

void Substitute(const Names& names, std::string* text) {
  // From the last to the first: a name comes before those that it is the beginning of.
  for (auto name = names.rbegin(); name != names.rend(); ++name) {
    Replace(name->first, name->second, text);
  }
}

// The lines of a text, without their indentation.
Lines Split(const std::string& text) {
  Lines lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line.substr(std::min(line.find_first_not_of(' '), line.size())));
  }
  return lines;
}

}  // namespace

Lines Text(std::string block, const Names& names) {
  Substitute(names, &block);
  Replace(" ; ", "\n", &block);
  Lines lines = Split(block);
  lines.erase(std::remove(lines.begin(), lines.end(), ""), lines.end());
  return lines;
}

std::vector<Lines> Rows(const std::string& block, const Names& names) {
  std::vector<Lines> rows;
  for (const std::string& line : Split(block)) {
    if (line.empty()) continue;
    std::string row = line + "  ";  // so that an empty last cell is one
    Substitute(names, &row);
    Replace("| ", "\n", &row);
    rows.push_back(Split(row));
    for (std::string& cell : rows.back()) cell.erase(cell.find_last_not_of(' ') + 1);
  }
  return rows;
}

Lines Dump(acl_app::AclCache& model) {
  Lines lines;
  for (const auto& [name, profile] : Model::PreCreated(model)) {
    lines.push_back(name + " pending type " + std::to_string(profile.type));
    for (const auto& entry : profile.entries) lines.push_back(name + ' ' + Describe(entry.second));
  }
  for (const auto& [name, group] : Model::Profiles(model)) {
    lines.push_back(name + " type " + std::to_string(group.getType()) + " priority " +
                    std::to_string(group.getPriority()) + " id " + std::to_string(group.getId()) +
                    " stage " + std::to_string(group.getStage()));
    for (const std::string& entry : Describe(group)) lines.push_back(name + ' ' + entry);
  }
  for (const auto& [interface, profiles] : Model::Interfaces(model)) {
    lines.push_back(interface + " binds");
    for (const std::string& profile : profiles) lines.back() += ' ' + profile;
  }
  return lines;
}

namespace {

// The words of an operation, as the arguments of a function.
struct Arguments {
  std::istringstream words;
  std::list<Value> values;  // of the pointers given out

  template <class T>
  T Next() {
    std::string word;
    words >> word;
    if constexpr (std::is_same_v<T, std::string>) {
      return word == "''" ? std::string() : word;
    } else if constexpr (std::is_pointer_v<T>) {
      if (word.empty() || word == "null") return nullptr;
      if (std::isalpha(word[0]) != 0) word += ' ' + Next<std::string>();  // "u8 7"
      return values.emplace_back(word).get();
    } else {
      return static_cast<T>(std::stoll(word, nullptr, 0));
    }
  }
};

using Operation = std::function<int(acl_app::AclCache&, Arguments&)>;

template <class... Args>
Operation Op(acl_app::aclErr_t (acl_app::AclCache::*operation)(Args...)) {
  return [operation](acl_app::AclCache& model, Arguments& arguments) {
    std::tuple<std::decay_t<Args>...> values{arguments.Next<std::decay_t<Args>>()...};
    return std::apply([&](const auto&... value) { return (model.*operation)(value...); }, values);
  };
}

}  // namespace

std::string ModelTest::Do(const std::string& operation) {
  using acl_app::AclCache;
  static const std::map<std::string, Operation> operations = {
      {"CreateAclProfile", Op(&AclCache::CreateAclProfile)},
      {"RemoveAclProfile", Op(&AclCache::RemoveAclProfile)},
      {"SetAclPrio", Op(&AclCache::SetAclPrio)},
      {"CreateEntry", Op(&AclCache::CreateEntry)},
      {"RemoveEntry", Op(&AclCache::RemoveEntry)},
      {"CreateMatch", Op(&AclCache::CreateMatch)},
      {"RemoveMatch", Op(&AclCache::RemoveMatch)},
      {"CreateAction", Op(&AclCache::CreateAction)},
      {"RemoveAction", Op(&AclCache::RemoveAction)},
      {"CreateInterface", Op(&AclCache::CreateInterface)},
      {"RemoveInterface", Op(&AclCache::RemoveInterface)},
      {"ClearAclsFromInterface", Op(&AclCache::ClearAclsFromInterface)},
      {"AddAclIntoInterface", Op(&AclCache::AddAclIntoInterface)},
      {"RemoveAclFromInterface", Op(&AclCache::RemoveAclFromInterface)},
  };
  Arguments arguments{std::istringstream(operation), {}};
  const auto name = arguments.Next<std::string>();
  if (name == "Model") {
    std::string text;
    for (const std::string& line : Dump(model_)) text += (text.empty() ? "" : " ; ") + line;
    return text;
  }
  return std::to_string(operations.at(name)(model_, arguments));
}

void ModelTest::Run(const std::string& table, const Names& names) {
  for (const Lines& row : Rows(table, names)) EXPECT_EQ(Do(row[0]), row[1]) << row[0];
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
                                                        {"6", 6},
                                                        {"7", 7}};
  const size_t blank = change.find(' ');
  const size_t end = std::min(change.find(" = "), change.size());
  KeyPath path(change.substr(blank + 1, end - blank - 1));
  Value value(end == change.size() ? std::string() : change.substr(end + 3));
  const size_t point = StartsWith(path.text(), "/config/access-list/acl-profile") ? 0 : 1;
  return manager_.GetSubscriptionPoints().at(point).diff_iterator(
      &path, static_cast<confd_iter_op>(operations.at(change.substr(0, blank))), nullptr,
      end == change.size() ? nullptr : value.get());
}

Lines ManagerTest::TakeChange() {
  Lines lines = TakeEffects();
  EXPECT_FALSE(lines.empty());
  if (lines.empty()) return lines;
  EXPECT_THAT(lines[0], testing::ContainsRegex("^log Acl[A-Za-z]+DiffIt - modified path: /config"));
  lines.erase(lines.begin());
  return lines;
}

void ManagerTest::RunChanges(const std::string& root, const std::string& block,
                             const Names& names) {
  std::vector<ChangeRow> rows;
  for (const std::string& line : Text(block, names)) {
    if (StartsWith(line, "log ") || StartsWith(line, "model ")) {
      rows.back().effects.push_back(line);
    } else if (StartsWith(line, "refused: ")) {
      rows.back().refused[rows.back().effects.size() - 1] = "log " + line.substr(9);
    } else {
      const size_t path = line.find(' ') + 1;
      rows.push_back({line.substr(0, path) + root + line.substr(path), {}, {}});
    }
  }
  ASSERT_FALSE(rows.empty());
  for (const ChangeRow& row : rows) RunRow(row);
}

void ManagerTest::RunRow(const ChangeRow& row) {
  SCOPED_TRACE(row.change);
  for (size_t line = 0; line < row.effects.size(); ++line) {
    if (!StartsWith(row.effects[line], "model ")) continue;
    platform_.On(row.effects[line], acl_app::ACL_ERR_NOT_FOUND);
    EXPECT_EQ(Change(row.change), ITER_CONTINUE) << row.effects[line];
    platform_.EndRules();
    Lines expected(row.effects.begin(), row.effects.begin() + line + 1);
    const auto refused = row.refused.find(line);
    if (refused != row.refused.end()) expected.push_back(refused->second);
    EXPECT_EQ(TakeChange(), expected);
  }
  EXPECT_EQ(Change(row.change), ITER_RECURSE);
  EXPECT_EQ(TakeChange(), row.effects);
}

}  // namespace acl_test
