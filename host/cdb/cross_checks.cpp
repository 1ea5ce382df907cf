// The constraints that join units.
#include "host/cdb/cross_checks.h"

#include <cctype>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace host {
namespace {

constexpr size_t kNamedBindings = 3;  // of those that cost most, in a message

std::string Quoted(const std::string& name) { return '"' + name + '"'; }

void Fail(DatastoreErrors* errors, const char* tag, const char* app_tag, const lyd_node* node,
          std::string message) {
  if (errors->size() > kMaxErrors) return;
  DatastoreError error;
  error.tag = tag;
  error.app_tag = app_tag;
  if (node != nullptr) error.path = PathOf(node);
  error.message = std::move(message);
  errors->push_back(std::move(error));
}

// Value of a leaf before the difference, "" when that is not noted.
std::string OldValue(const lyd_node* leaf) {
  const lyd_meta* old = lyd_find_meta(leaf->meta, nullptr, "yang:orig-value");
  return old != nullptr ? lyd_get_meta_value(old) : "";
}

// Looks at what `changes` touches in `index`, which has them already.
class ChangeChecker {
 public:
  ChangeChecker(const ConfigChanges& changes, const ConfigIndex& index)
      : changes_(changes), index_(index) {}

  DatastoreErrors Check() {
    for (const lyd_node* priority : changes_.priorities) CheckPriority(priority);
    for (const ProfileChange& profile : changes_.profiles) CheckProfile(profile);
    for (const BindingChange& binding : changes_.bindings) CheckBinding(binding);
    for (const std::string& interface : interfaces_) CheckInterface(interface);
    return std::move(errors_);
  }

 private:
  void CheckPriority(const lyd_node* priority) {
    const lyd_node* profile = lyd_parent(lyd_parent(priority));
    Fail(&errors_, "operation-failed", "", priority,
         "the priority of the profile " + Quoted(ChildText(profile, "acl-name")) +
             " cannot change from " + OldValue(priority) + " to " + TextOf(priority) +
             ": delete the profile in one commit and create it in the next");
  }

  void CheckProfile(const ProfileChange& profile) {
    const ConfigIndex::ByType& named = index_.ProfilesNamed(profile.name);
    const ConfigIndex::Names& bound_by = index_.InterfacesOf(profile.name);
    if (profile.operation == DiffOperation::kCreate) {
      if (named.size() > 1) {
        Fail(&errors_, "operation-failed", "data-not-unique", profile.node,
             "a profile named " + Quoted(profile.name) +
                 " exists with the other type; names are unique across both");
      }
      // Bindings of the name may have been there: it had the other type until now.
      interfaces_.insert(bound_by.begin(), bound_by.end());
      created_[profile.name] = profile.node;
    }
    if (profile.operation == DiffOperation::kDelete && named.empty() && !bound_by.empty()) {
      Fail(&errors_, "in-use", "", profile.node,
           "the profile " + Quoted(profile.name) + " is bound to the interface " +
               Quoted(*bound_by.begin()) + ": remove the binding first or in the same commit");
    }
  }

  void CheckBinding(const BindingChange& binding) {
    if (binding.operation != DiffOperation::kCreate) return;
    if (index_.ProfilesNamed(binding.profile).empty()) {
      Fail(&errors_, "data-missing", "instance-required", binding.node,
           "there is no profile " + Quoted(binding.profile) + " to bind to the interface " +
               Quoted(binding.interface));
    }
    interfaces_.insert(binding.interface);
    bound_[{binding.interface, binding.profile}] = binding.node;
  }

  void CheckInterface(const std::string& interface) {
    std::map<int, std::string> by_priority;
    for (const std::string& name : index_.ProfilesOf(interface)) {
      for (const auto& [type, profile] : index_.ProfilesNamed(name)) {
        const auto [other, is_first] = by_priority.try_emplace(profile.priority, name);
        if (is_first || other->second == name) continue;
        Fail(&errors_, "operation-failed", "data-not-unique",
             NodeAtFault(interface, name, other->second),
             "the profiles " + Quoted(other->second) + " and " + Quoted(name) +
                 " of the interface " + Quoted(interface) + " have the same priority " +
                 std::to_string(profile.priority) + "; it must differ, between L2 and L3 as well");
      }
    }
  }

  // What the changes have of the two profiles on the interface.
  const lyd_node* NodeAtFault(const std::string& interface, const std::string& one,
                              const std::string& other) const {
    for (const std::string& name : {one, other}) {
      const auto bound = bound_.find({interface, name});
      if (bound != bound_.end()) return bound->second;
    }
    for (const std::string& name : {one, other}) {
      const auto created = created_.find(name);
      if (created != created_.end()) return created->second;
    }
    return nullptr;
  }

  const ConfigChanges& changes_;
  const ConfigIndex& index_;
  std::set<std::string> interfaces_;  // where a binding, or what it stands for, is new
  std::map<std::pair<std::string, std::string>, const lyd_node*> bound_;  // new bindings
  std::map<std::string, const lyd_node*> created_;                        // new profiles
  DatastoreErrors errors_;
};

}  // namespace

DatastoreErrors CrossChecks::Check(const lyd_node* diff, bool with_capacity, GroupNeeds* then) {
  const ConfigChanges changes = ChangesOfDifference(diff);
  const GroupNeeds before = index_.needs();
  index_.Apply(changes);
  DatastoreErrors errors = ChangeChecker(changes, index_).Check();
  if (then != nullptr) *then = index_.needs();
  if (with_capacity) {
    const DatastoreErrors capacity = CheckCapacity(before);
    errors.insert(errors.end(), capacity.begin(), capacity.end());
  }
  index_.Revert(changes);
  return errors;
}

DatastoreErrors CrossChecks::Load(const lyd_node* tree) {
  const ConfigChanges changes = ChangesOfWhole(tree);
  index_.Apply(changes);
  return ChangeChecker(changes, index_).Check();
}

// A group that is too full already, since the capacity was lowered, may be brought down in steps:
// only what makes it fuller is refused.
DatastoreErrors CrossChecks::CheckCapacity(const GroupNeeds& before) const {
  DatastoreErrors errors;
  if (!capacity_.has_value()) return errors;
  for (const auto& [type, need] : index_.needs()) {
    if (need <= *capacity_ || need <= before.at(type)) continue;
    std::string group;
    for (const char c : type) group += static_cast<char>(std::toupper(c));
    std::string message = "the " + group + " group would need " + std::to_string(need) +
                          " entries, and has room for " + std::to_string(*capacity_) +
                          "; most are needed by";
    const char* separator = " ";
    for (const auto& binding : index_.CostliestBindings(type, kNamedBindings)) {
      message += separator + Quoted(binding.profile) + " on " + Quoted(binding.interface) + " (" +
                 std::to_string(binding.entries) + ")";
      separator = ", ";
    }
    Fail(&errors, "resource-denied", "filter-capacity", nullptr, std::move(message));
  }
  return errors;
}

}  // namespace host
