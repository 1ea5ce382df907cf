// Random edits, each applied by the datastore's small trees and by the plain way: a map from paths
// to values is edited by the letter of RFC 6241, and the whole configuration built from it is
// validated. Both must accept the same and end with the same.
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>

#include "host/cdb/diff_text.h"
#include "host/cdb/edit/edit.h"
#include "host/cdb/edit/edit_node.h"
#include "host/cdb/schema/schema.h"
#include "tests/host/cdb/edit_maker.h"
#include "tests/host/cdb/merged_origins.h"
#include "tests/host/cdb/support.h"
#include "tests/random_rounds.h"

namespace host {
namespace {

constexpr uint32_t kCapacity = 2;

// The configuration as the reference sees it: profiles by type and name, bindings by interface.
struct ProfileFacts {
  std::string priority;
  int64_t entries = 0;
};
struct Facts {
  std::map<std::pair<std::string, std::string>, ProfileFacts> profiles;
  std::multimap<std::string, std::string> bound;
};

void Gather(const lyd_node* first, Facts* facts) {
  for (; first != nullptr; first = first->next) {
    const std::string name = LYD_NAME(first);
    if (name == "ingress" && first->schema->nodetype == LYS_LEAFLIST)
      facts->bound.emplace(ChildText(lyd_parent(first), "interface-name"), TextOf(first));
    if (name == "access-list" && first->schema->nodetype == LYS_LIST) {
      ProfileFacts& profile =
          facts->profiles[{ChildText(first, "acl-type"), ChildText(first, "acl-name")}];
      const lyd_node* child;
      LY_LIST_FOR(lyd_child(first), child) {
        const std::string below = ChildText(child, "priority");
        if (!below.empty()) profile.priority = below;
        if (child->schema->nodetype == LYS_LIST) profile.entries += 1;
      }
    }
    Gather(lyd_child(first), facts);
  }
}

GroupNeeds NeedsOf(const Facts& facts) {
  GroupNeeds needs{{"l2", 0}, {"l3", 0}};
  for (const auto& [interface, name] : facts.bound) {
    for (const auto& [key, profile] : facts.profiles) {
      if (key.second == name) needs[key.first] += profile.entries;
    }
  }
  return needs;
}
GroupNeeds NeedsOf(const lyd_node* tree) {
  Facts facts;
  Gather(tree, &facts);
  return NeedsOf(facts);
}

bool FactsAllow(const lyd_node* before, const lyd_node* after) {
  Facts old_facts, facts;
  Gather(before, &old_facts);
  Gather(after, &facts);
  std::map<std::string, std::string> priorities;  // by name
  for (const auto& [key, profile] : facts.profiles) {
    if (!priorities.emplace(key.second, profile.priority).second) return false;
    const auto old = old_facts.profiles.find(key);
    if (old != old_facts.profiles.end() && old->second.priority != profile.priority) return false;
  }
  std::set<std::string> taken;  // interface and priority
  for (const auto& [interface, profile] : facts.bound) {
    if (priorities.count(profile) == 0) return false;
    if (!taken.insert(interface + " " + priorities[profile]).second) return false;
  }
  for (const auto& [group, need] : NeedsOf(facts)) {
    if (need > kCapacity) return false;
  }
  return true;
}

// A configuration as a line per leaf and list entry; as simple as it is slow.
class Model {
 public:
  // False when an operation's condition on the configuration does not hold.
  bool Apply(const lyd_node* edit, const std::string& parent, Operation inherited) {
    std::vector<std::string> kept;
    for (; edit != nullptr; edit = edit->next) {
      if (IsKey(edit)) continue;
      const Operation operation = OperationOf(edit, inherited);
      const std::string path = EditPath(edit);
      if (!ApplyOne(edit, path, operation)) return false;
      if (!Removes(operation)) kept.push_back(path);
    }
    if (inherited != Operation::kReplace) return true;
    for (auto line = lines_.begin(); line != lines_.end();) {
      bool keep = !Below(line->first, parent);
      for (const std::string& path : kept)
        keep = keep || line->first == path || Below(line->first, path);
      line = keep ? std::next(line) : lines_.erase(line);
    }
    return true;
  }

  std::string Text() const {
    std::string text;
    std::set<std::string> sorted;
    for (const auto& [path, value] : lines_) sorted.insert(path + value);
    for (const std::string& line : sorted) text += line + "\n";
    return text;
  }

  Tree Build(const ly_ctx* context) const {
    lyd_node* tree = nullptr;
    for (const auto& [path, value] : lines_) {
      lyd_node* made = nullptr;
      const char* text = value.empty() ? nullptr : value.c_str() + 3;
      EXPECT_EQ(LY_SUCCESS, lyd_new_path(tree, context, path.c_str(), text, LYD_NEW_PATH_UPDATE,
                                         tree == nullptr ? &tree : &made));
    }
    return Tree(tree);
  }

 private:
  static bool Below(const std::string& path, const std::string& parent) {
    return path.size() > parent.size() && path.compare(0, parent.size(), parent) == 0 &&
           path[parent.size()] == '/';
  }
  bool Has(const std::string& path) const {
    for (const auto& line : lines_) {
      if (line.first == path || Below(line.first, path)) return true;
    }
    return false;
  }
  void Erase(const std::string& path) {
    for (auto line = lines_.begin(); line != lines_.end();)
      line = line->first == path || Below(line->first, path) ? lines_.erase(line) : std::next(line);
  }
  void EraseOtherCases(const std::string& path) {
    const char* pairs[][2] = {{"/dscp", "/tos"}, {"/deny", "/permit"}, {"/mask", "/no-mask"}};
    for (const auto& pair : pairs) {
      for (const int i : {0, 1}) {
        const std::string name = pair[i];
        const size_t at = (path + "/").find(name + "/");
        if (at != std::string::npos) Erase(path.substr(0, at) + pair[1 - i]);
      }
    }
  }

  bool ApplyOne(const lyd_node* edit, const std::string& path, Operation operation) {
    const bool exists = Has(path);
    if (operation == Operation::kDelete && !exists) return false;
    if (operation == Operation::kCreate && exists) return false;
    if (Removes(operation)) {
      Erase(path);
      return true;
    }
    const bool container = IsPlainContainer(edit->schema);
    if (operation == Operation::kNone) {
      if (!exists && !container) return false;
    } else if (!container) {
      EraseOtherCases(path);
      const bool term = (edit->schema->nodetype & LYD_NODE_TERM) != 0;
      lines_[path] = term ? " = " + std::string(TextOf(edit)) : "";
    }
    return Apply(lyd_child(edit), path, operation);
  }

  std::map<std::string, std::string> lines_;  // path to "" or " = value"
};

bool IsValid(const ly_ctx* context, const lyd_node* running, const Model& model) {
  Tree whole = model.Build(context);
  bool valid = false;
  {
    TreeBuilder builder(&whole);
    valid = lyd_validate_all(builder, context, LYD_VALIDATE_NO_STATE, nullptr) == LY_SUCCESS;
  }
  return valid && FactsAllow(running, whole.get());
}

// As clients get it, and the same after it was read back: no trace of how it was reached.
std::string Printed(const lyd_node* tree) {
  char* text = nullptr;
  EXPECT_EQ(LY_SUCCESS,
            lyd_print_mem(&text, tree, LYD_XML, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK));
  const std::string printed = text != nullptr ? text : "";
  free(text);
  return printed;
}
std::string PrintedAfresh(const lyd_node* tree) {
  Tree copy = ParseEdit(LYD_CTX(tree), Printed(tree));
  Normalize(LYD_CTX(tree), &copy);
  return Printed(copy.get());
}

// Follows the commits by applying their differences to a copy of its own.
class Follower : public CommitObserver {
 public:
  explicit Follower(const lyd_node* running) : copy_(CopyTree(running)) {}
  void OnCommit(const lyd_node* diff, const CommitInfo&) override {
    TreeBuilder builder(&copy_);
    lyd_node* whole = nullptr;
    ASSERT_EQ(LY_SUCCESS, lyd_dup_siblings(diff, nullptr, LYD_DUP_RECURSIVE, &whole));
    EXPECT_EQ(LY_SUCCESS, lyd_diff_apply_all(builder, Tree(whole).get()));
    EXPECT_EQ(Printed(diff), DifferenceText(diff));
    ++commits_;
  }
  const lyd_node* copy() const { return copy_.get(); }
  int commits() const { return commits_; }

 private:
  Tree copy_;
  int commits_ = 0;
};

class PropertyTest : public testing::TestWithParam<unsigned> {};

TEST_P(PropertyTest, SmallTreesEqualWholeTrees) {
  DatastoreOptions datastore_options;
  datastore_options.group_capacity = kCapacity;
  auto datastore = OpenDatastore(datastore_options);
  Follower follower(datastore->Running());
  datastore->AddObserver(&follower);
  EditMaker maker(GetParam());
  Model model;
  int accepted = 0, too_large = 0;
  constexpr int kRounds = RandomRounds(6000);
  for (int round = 0; round < kRounds; ++round) {
    const std::string xml = maker.Make();
    const EditOptions options = maker.Options();
    const Tree edit = ParseEdit(datastore->Context(), xml);
    Model edited = model;
    const bool accept = CheckEdit(datastore->Context(), edit.get()).empty() &&
                        edited.Apply(edit.get(), "", FromDefault(options.default_operation)) &&
                        IsValid(datastore->Context(), datastore->Running(), edited);
    if (accept) model = edited;
    const std::string before = Snapshot(datastore->Running());
    const uint64_t id = datastore->TransactionId();
    const EditPreview preview = datastore->Preview(edit.get(), options);
    const DatastoreErrors errors = datastore->Edit(edit.get(), options, Origin{"tester", 1});
    const std::string place = "seed " + std::to_string(GetParam()) + " round " +
                              std::to_string(round) + "\n" + xml + "\n" + ToText(errors);
    ASSERT_EQ(accept, errors.empty()) << place << "before\n" << before;
    const std::string after = Snapshot(datastore->Running());
    ASSERT_EQ(model.Text(), after) << place << "before\n" << before;
    ASSERT_EQ(after, Snapshot(follower.copy())) << place;
    if (accept) {
      ASSERT_EQ(PrintedAfresh(datastore->Running()), Printed(datastore->Running())) << place;
    }
    ASSERT_EQ(after != before, datastore->TransactionId() != id) << place;
    ASSERT_EQ(ToText(preview.errors), ToText(errors)) << place;
    ASSERT_EQ(NeedsOf(datastore->Running()), datastore->Needs()) << place;
    if (accept) {
      ASSERT_EQ(preview.then, datastore->Needs()) << place;
      ASSERT_EQ(MergedOrigins(datastore->Running()), ToldOrigins(*datastore)) << place;
    }
    if (accept) ++accepted;
    if (!accept && errors.back().tag == "resource-denied") ++too_large;
  }
  // The edits must be such that both outcomes are well covered.
  EXPECT_GT(accepted, kRounds / 8);
  EXPECT_LT(accepted, kRounds * 7 / 8);
  EXPECT_GT(follower.commits(), kRounds / 10);
  EXPECT_GT(too_large, 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PropertyTest, testing::Values(1u, 300u));

}  // namespace
}  // namespace host
