// Random edits, each applied by the datastore's small trees and by the plain way: copy the whole
// configuration, edit the copy, validate the whole of it. Both must accept the same and end with
// the same.
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <set>

#include "host/cdb/edit.h"
#include "host/cdb/schema.h"
#include "tests/host/cdb/support.h"

namespace host {
namespace {

class EditMaker {
 public:
  explicit EditMaker(unsigned seed) : random_(seed) {}

  std::string Make() {
    std::string content;
    if (Chance(80))
      content += "<acl-profile" + MaybeOperation(2) + "><ingress" + MaybeOperation(2) + ">" +
                 Several(3, [&] { return RandomProfile(); }) + "</ingress></acl-profile>";
    content += Several(3, [&] { return RandomInterface(); });
    return Config(content);
  }

  EditOptions Options() {
    EditOptions options;
    const int pick = Number(0, 19);
    if (pick == 0) options.default_operation = DefaultOperation::kReplace;
    if (pick == 1) options.default_operation = DefaultOperation::kNone;
    return options;
  }

 private:
  int Number(int low, int high) { return std::uniform_int_distribution<>(low, high)(random_); }
  bool Chance(int percent) { return Number(0, 99) < percent; }
  std::string Pick(const std::vector<std::string>& from) {
    return from[Number(0, static_cast<int>(from.size()) - 1)];
  }
  std::string MaybeOperation(int percent) {
    if (!Chance(percent)) return "";
    return Operate(Pick({"merge", "replace", "create", "delete", "remove", "remove"}));
  }
  std::string Several(int most, const std::function<std::string()>& make) {
    std::string text;
    for (int n = Number(0, most); n > 0; --n) text += make();
    return text;
  }
  std::string Leaf(const std::string& name, const std::string& value) {
    const std::string operation = MaybeOperation(15);
    const bool bare = operation.find("delete") != std::string::npos && Chance(50);
    return "<" + name + operation + ">" + (bare ? "" : value) + "</" + name + ">";
  }
  std::string Address(const std::string& name) {
    std::string content;
    if (Chance(60))
      content += "<mask>" + Leaf("ip", Pick({"10.0.0.1/8", "10.0.0.0/33"})) + "</mask>";
    if (Chance(40)) content += "<no-mask>" + Leaf("ip", "10.0.0.1") + "</no-mask>";
    return "<" + name + MaybeOperation(10) + ">" + content + "</" + name + ">";
  }
  std::string RandomEntry() {
    std::string match;
    if (Chance(40)) match += Leaf("vlan", Pick({"1", "7", "4094", "4095"}));
    if (Chance(20)) match += Leaf("dscp", Pick({"ef", "12", "64"}));
    if (Chance(20)) match += Leaf("tos", Pick({"1", "255"}));
    if (Chance(20)) match += Leaf("source-mac-address", "02:00:00:00:00:01");
    if (Chance(20)) match += Leaf("source-mac-address-mask", "ff:ff:ff:00:00:00");
    if (Chance(30)) match += Address("source-ipv4-address");
    std::string action;
    if (Chance(50))
      action += "<packet-handling" + MaybeOperation(10) + ">" + Leaf(Pick({"deny", "permit"}), "") +
                "</packet-handling>";
    if (Chance(20)) action += "<set>" + Leaf("pcp", Pick({"0", "7", "8"})) + "</set>";
    const std::string operation = MaybeOperation(25);
    return "<access-list-entry" + operation + "><ace-priority>" + std::to_string(Number(0, 5)) +
           "</ace-priority><match" + MaybeOperation(10) + ">" + match + "</match><action" +
           MaybeOperation(10) + ">" + action + "</action></access-list-entry>";
  }
  std::string RandomProfile() {
    const std::string type = Pick({"l2", "l3"});
    const std::string container = "acl-priority-" + Pick({type, type, type, type, "l2", "l3"});
    const std::string name = Pick({"a", "b", "c", "d"});
    std::string content = "<acl-type>" + type + "</acl-type><acl-name>" + name + "</acl-name>";
    if (Chance(85)) {
      content +=
          "<" + container + ">" + Leaf("priority", Chance(95) ? "5" : "6") + "</" + container + ">";
    }
    return "<access-list" + MaybeOperation(30) + ">" + content +
           Several(3, [&] { return RandomEntry(); }) + "</access-list>";
  }
  std::string RandomInterface() {
    const std::string name = Pick({"eth0", "eth1", "eth2"});
    std::set<std::string> bound;
    std::string content;
    for (int n = Number(0, 2); n > 0; --n) {
      const std::string profile = Pick({"a", "b", "c", "d"});
      if (bound.insert(profile).second) content += Bind(profile, Chance(40) ? "remove" : "");
    }
    return "<interface" + MaybeOperation(25) + "><interface-name>" + name + "</interface-name>" +
           content + "</interface>";
  }

  std::mt19937 random_;
};

// The configuration as the reference sees it: profile to priority, by type and name, and bindings.
struct Facts {
  std::map<std::pair<std::string, std::string>, std::string> priority_of;
  std::vector<std::string> bound;
};

void Gather(const lyd_node* first, Facts* facts) {
  for (; first != nullptr; first = first->next) {
    const std::string name = LYD_NAME(first);
    if (name == "ingress" && first->schema->nodetype == LYS_LEAFLIST)
      facts->bound.push_back(TextOf(first));
    if (name == "access-list" && first->schema->nodetype == LYS_LIST) {
      std::string& priority =
          facts->priority_of[{ChildText(first, "acl-type"), ChildText(first, "acl-name")}];
      const lyd_node* child;
      LY_LIST_FOR(lyd_child(first), child) {
        const std::string below = ChildText(child, "priority");
        if (!below.empty()) priority = below;
      }
    }
    Gather(lyd_child(first), facts);
  }
}

bool FactsAllow(const lyd_node* before, const lyd_node* after) {
  Facts old_facts, facts;
  Gather(before, &old_facts);
  Gather(after, &facts);
  std::set<std::string> names;
  for (const auto& [key, priority] : facts.priority_of) {
    if (!names.insert(key.second).second) return false;
    const auto old = old_facts.priority_of.find(key);
    if (old != old_facts.priority_of.end() && old->second != priority) return false;
  }
  for (const std::string& profile : facts.bound) {
    if (names.count(profile) == 0) return false;
  }
  return true;
}

// What the whole configuration would be after the edit; false when it must be refused.
bool ReferenceEdit(const ly_ctx* context, const lyd_node* running, const lyd_node* edit,
                   const EditOptions& options, Tree* result) {
  if (!CheckEdit(context, edit).empty()) return false;
  *result = CopyTree(running);
  if (!ApplyEdit(context, edit, options.default_operation, result).empty()) return false;
  bool valid = false;
  {
    TreeBuilder builder(result);
    valid = lyd_validate_all(builder, context, LYD_VALIDATE_NO_STATE, nullptr) == LY_SUCCESS;
  }
  Normalize(context, result);
  return valid && FactsAllow(running, result->get());
}

// Follows the commits by applying their differences to a copy of its own.
class Follower : public CommitObserver {
 public:
  explicit Follower(const lyd_node* running) : copy_(CopyTree(running)) {}
  void OnCommit(const lyd_node* diff) override {
    TreeBuilder builder(&copy_);
    EXPECT_EQ(LY_SUCCESS, lyd_diff_apply_all(builder, diff));
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
  auto datastore = OpenDatastore();
  Follower follower(datastore->Running());
  datastore->AddObserver(&follower);
  EditMaker maker(GetParam());
  int accepted = 0;
  const int rounds = 3000;
  for (int round = 0; round < rounds; ++round) {
    const std::string xml = maker.Make();
    const EditOptions options = maker.Options();
    const Tree edit = ParseEdit(datastore->Context(), xml);
    Tree expected;
    const bool accept =
        ReferenceEdit(datastore->Context(), datastore->Running(), edit.get(), options, &expected);
    const std::string before = Snapshot(datastore->Running());
    const uint64_t id = datastore->TransactionId();
    const DatastoreErrors errors = datastore->Edit(edit.get(), options, Origin{"tester", 1});
    const std::string place = "seed " + std::to_string(GetParam()) + " round " +
                              std::to_string(round) + "\n" + xml + "\n" + ToText(errors);
    ASSERT_EQ(accept, errors.empty()) << place << "before\n" << before;
    const std::string after = Snapshot(datastore->Running());
    ASSERT_EQ(accept ? Snapshot(expected.get()) : before, after) << place << "before\n" << before;
    ASSERT_EQ(after, Snapshot(follower.copy())) << place;
    ASSERT_EQ(after != before, datastore->TransactionId() != id) << place;
    if (accept) ++accepted;
  }
  // The edits must be such that both outcomes are well covered.
  EXPECT_GT(accepted, rounds / 8);
  EXPECT_LT(accepted, rounds * 7 / 8);
  EXPECT_GT(follower.commits(), rounds / 10);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PropertyTest, testing::Values(1u, 20u, 300u, 4000u));

}  // namespace
}  // namespace host
