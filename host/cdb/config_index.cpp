// What joins the configuration's units.
#include "host/cdb/config_index.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

template <typename Value>
const Value& At(const std::map<std::string, Value>& map, const std::string& key) {
  static const Value none;
  const auto found = map.find(key);
  return found != map.end() ? found->second : none;
}

void Relate(std::map<std::string, ConfigIndex::Names>* relation, const std::string& from,
            const std::string& to, bool add) {
  if (add) {
    (*relation)[from].insert(to);
    return;
  }
  const auto found = relation->find(from);
  if (found == relation->end()) return;
  found->second.erase(to);
  if (found->second.empty()) relation->erase(found);
}

}  // namespace

void ConfigIndex::Apply(const ConfigChanges& changes) { Change(changes, true); }
void ConfigIndex::Revert(const ConfigChanges& changes) { Change(changes, false); }

// Each step keeps needs_ equal to the sum over the bindings, so their order does not matter.
void ConfigIndex::Change(const ConfigChanges& changes, bool forward) {
  for (const ProfileChange& profile : changes.profiles) ChangeProfile(profile, forward);
  for (const BindingChange& binding : changes.bindings) ChangeBinding(binding, forward);
}

void ConfigIndex::ChangeProfile(const ProfileChange& change, bool forward) {
  const bool stays = change.operation == DiffOperation::kNone;
  const bool comes = (change.operation == DiffOperation::kCreate) == forward;
  int64_t added = change.entries;
  if (stays) {
    if (!forward) added = -added;
    profiles_[change.name][change.type].entries += added;
  } else if (comes) {
    profiles_[change.name][change.type] = {change.priority, change.entries};
  } else {
    added = -added;
    ByType& named = profiles_[change.name];
    named.erase(change.type);
    if (named.empty()) profiles_.erase(change.name);
  }
  needs_[change.type] += added * static_cast<int64_t>(InterfacesOf(change.name).size());
}

void ConfigIndex::ChangeBinding(const BindingChange& change, bool forward) {
  const bool comes = (change.operation == DiffOperation::kCreate) == forward;
  Relate(&interfaces_of_, change.profile, change.interface, comes);
  Relate(&profiles_of_, change.interface, change.profile, comes);
  for (const auto& [type, profile] : ProfilesNamed(change.profile))
    needs_[type] += comes ? profile.entries : -profile.entries;
}

const ConfigIndex::ByType& ConfigIndex::ProfilesNamed(const std::string& name) const {
  return At(profiles_, name);
}
const ConfigIndex::Names& ConfigIndex::InterfacesOf(const std::string& profile) const {
  return At(interfaces_of_, profile);
}
const ConfigIndex::Names& ConfigIndex::ProfilesOf(const std::string& interface) const {
  return At(profiles_of_, interface);
}

std::vector<ConfigIndex::Binding> ConfigIndex::CostliestBindings(const std::string& type,
                                                                 size_t most) const {
  std::vector<Binding> bindings;
  for (const auto& [name, interfaces] : interfaces_of_) {
    const ByType& named = ProfilesNamed(name);
    const auto profile = named.find(type);
    if (profile == named.end()) continue;
    for (const std::string& interface : interfaces)
      bindings.push_back({interface, name, profile->second.entries});
  }
  const size_t kept = std::min(most, bindings.size());
  std::partial_sort(bindings.begin(), bindings.begin() + static_cast<ptrdiff_t>(kept),
                    bindings.end(),
                    [](const Binding& a, const Binding& b) { return a.entries > b.entries; });
  bindings.resize(kept);
  return bindings;
}

}  // namespace host
