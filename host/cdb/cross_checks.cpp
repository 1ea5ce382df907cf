// The constraints that join units.
#include "host/cdb/cross_checks.h"

#include <cstring>
#include <utility>
#include <vector>

#include "host/cdb/diff.h"
#include "host/cdb/yang_tree.h"

namespace host {
namespace {

// A profile or a binding that a difference adds or takes away, or a priority that it changes.
struct Change {
  const lyd_node* node;  // the profile's entry, the binding's element, the priority's leaf
  DiffOperation operation;
};

struct Changes {
  std::vector<Change> profiles;
  std::vector<Change> bindings;
  std::vector<const lyd_node*> priorities;
};

bool Is(const lyd_node* node, const char* name) { return strcmp(LYD_NAME(node), name) == 0; }

void CollectBelow(const lyd_node* parent, DiffOperation operation, Changes* changes);

void Collect(const lyd_node* node, DiffOperation inherited, Changes* changes) {
  const DiffOperation operation = DiffOperationOf(node, inherited);
  const bool is_list = node->schema->nodetype == LYS_LIST;
  if (node->schema->nodetype == LYS_LEAFLIST && Is(node, "ingress")) {
    if (operation != DiffOperation::kNone) changes->bindings.push_back({node, operation});
  } else if (is_list && Is(node, "access-list")) {
    if (operation != DiffOperation::kNone) {
      changes->profiles.push_back({node, operation});
    } else {
      CollectBelow(node, operation, changes);
    }
  } else if (Is(node, "priority")) {
    if (operation != DiffOperation::kNone) changes->priorities.push_back(node);
  } else if (!(is_list && Is(node, "access-list-entry"))) {
    CollectBelow(node, operation, changes);
  }
}

void CollectBelow(const lyd_node* parent, DiffOperation operation, Changes* changes) {
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(parent), child) Collect(child, operation, changes);
}

Changes ChangesOf(const lyd_node* diff, DiffOperation inherited) {
  Changes changes;
  for (; diff != nullptr; diff = diff->next) {
    if (strcmp(diff->schema->module->name, "acl-app") == 0) Collect(diff, inherited, &changes);
  }
  return changes;
}

std::string ProfileOf(const Change& profile) { return ChildText(profile.node, "acl-name"); }
std::string TypeOf(const Change& profile) { return ChildText(profile.node, "acl-type"); }
std::string InterfaceOf(const Change& binding) {
  return ChildText(lyd_parent(binding.node), "interface-name");
}

using Index = std::map<std::string, std::set<std::string>>;

void Update(Index* index, const std::string& key, const std::string& value,
            DiffOperation operation) {
  if (operation == DiffOperation::kCreate) {
    (*index)[key].insert(value);
    return;
  }
  const auto found = index->find(key);
  if (found == index->end()) return;
  found->second.erase(value);
  if (found->second.empty()) index->erase(found);
}

// The index entries of the names that `changes` touches, as they will be.
Index Touched(const Index& index, const Changes& changes) {
  Index touched;
  const auto take = [&](const std::string& name) {
    const auto found = index.find(name);
    if (found != index.end()) touched.insert(*found);
  };
  for (const Change& profile : changes.profiles) take(ProfileOf(profile));
  for (const Change& binding : changes.bindings) take(TextOf(binding.node));
  return touched;
}

void Fail(DatastoreErrors* errors, const char* tag, const char* app_tag, const lyd_node* node,
          std::string message) {
  DatastoreError error;
  error.tag = tag;
  error.app_tag = app_tag;
  error.path = PathOf(node);
  error.message = std::move(message);
  errors->push_back(std::move(error));
}

DatastoreErrors CheckChanges(const Changes& changes, const Index& types_now,
                             const Index& interfaces_now) {
  DatastoreErrors errors;
  for (const lyd_node* priority : changes.priorities) {
    Fail(&errors, "operation-failed", "", priority,
         "the priority of an existing profile cannot change: delete the profile in one commit and "
         "create it in the next");
  }
  Index types = Touched(types_now, changes);
  for (const Change& profile : changes.profiles)
    Update(&types, ProfileOf(profile), TypeOf(profile), profile.operation);
  Index interfaces = Touched(interfaces_now, changes);
  for (const Change& binding : changes.bindings)
    Update(&interfaces, TextOf(binding.node), InterfaceOf(binding), binding.operation);

  for (const Change& profile : changes.profiles) {
    const std::string name = ProfileOf(profile);
    const size_t count = types.count(name) != 0 ? types[name].size() : 0;
    if (profile.operation == DiffOperation::kCreate && count > 1) {
      Fail(&errors, "operation-failed", "data-not-unique", profile.node,
           "a profile named \"" + name +
               "\" exists with the other type; names are unique across both");
    }
    const auto bound = interfaces.find(name);
    if (profile.operation == DiffOperation::kDelete && count == 0 && bound != interfaces.end()) {
      Fail(&errors, "in-use", "", profile.node,
           "the profile \"" + name + "\" is bound to the interface \"" + *bound->second.begin() +
               "\": remove the binding first or in the same commit");
    }
  }
  for (const Change& binding : changes.bindings) {
    const std::string name = TextOf(binding.node);
    if (binding.operation == DiffOperation::kCreate && types.count(name) == 0) {
      Fail(&errors, "data-missing", "instance-required", binding.node,
           "there is no profile \"" + name + "\" to bind to the interface \"" +
               InterfaceOf(binding) + "\"");
    }
  }
  return errors;
}

void ApplyChanges(const Changes& changes, Index* types, Index* interfaces) {
  for (const Change& profile : changes.profiles)
    Update(types, ProfileOf(profile), TypeOf(profile), profile.operation);
  for (const Change& binding : changes.bindings)
    Update(interfaces, TextOf(binding.node), InterfaceOf(binding), binding.operation);
}

}  // namespace

DatastoreErrors CrossChecks::Check(const lyd_node* diff) const {
  return CheckChanges(ChangesOf(diff, DiffOperation::kNone), types_of_, interfaces_of_);
}

void CrossChecks::Apply(const lyd_node* diff) {
  ApplyChanges(ChangesOf(diff, DiffOperation::kNone), &types_of_, &interfaces_of_);
}

DatastoreErrors CrossChecks::CheckWhole(const lyd_node* tree) const {
  return CheckChanges(ChangesOf(tree, DiffOperation::kCreate), types_of_, interfaces_of_);
}

void CrossChecks::ApplyWhole(const lyd_node* tree) {
  ApplyChanges(ChangesOf(tree, DiffOperation::kCreate), &types_of_, &interfaces_of_);
}

}  // namespace host
