// What joins the configuration's units.
#include "host/cdb/config_index.h"

#include <algorithm>
#include <iterator>
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

int64_t CountOf(const ConfigIndex::Profile& profile) {
  return static_cast<int64_t>(profile.entries->size());
}

// Takes entries out and puts others in; all are in ascending order.
void Exchange(const AcePriorities& out, const AcePriorities& in,
              std::shared_ptr<AcePriorities>* entries) {
  AcePriorities kept, result;
  const AcePriorities& old = **entries;
  if (out.size() + in.size() == 1 && entries->use_count() == 1) {  // the usual commit
    AcePriorities& list = **entries;
    if (in.empty()) {
      list.erase(std::lower_bound(list.begin(), list.end(), out.front()));
    } else {
      list.insert(std::lower_bound(list.begin(), list.end(), in.front()), in.front());
    }
    return;
  }
  kept.reserve(old.size());
  std::set_difference(old.begin(), old.end(), out.begin(), out.end(), std::back_inserter(kept));
  result.reserve(kept.size() + in.size());
  std::merge(kept.begin(), kept.end(), in.begin(), in.end(), std::back_inserter(result));
  *entries = std::make_shared<AcePriorities>(std::move(result));
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
  const AcePriorities& in = forward ? change.added : change.removed;
  const AcePriorities& out = forward ? change.removed : change.added;
  if (change.operation == DiffOperation::kNone) {
    Exchange(out, in, &profiles_[change.name][change.type].entries);
  } else if ((change.operation == DiffOperation::kCreate) == forward) {
    profiles_[change.name][change.type] = {change.priority, std::make_shared<AcePriorities>(in)};
  } else {
    ByType& named = profiles_[change.name];
    named.erase(change.type);
    if (named.empty()) profiles_.erase(change.name);
  }
  const int64_t more = static_cast<int64_t>(in.size()) - static_cast<int64_t>(out.size());
  needs_[change.type] += more * static_cast<int64_t>(InterfacesOf(change.name).size());
}

void ConfigIndex::ChangeBinding(const BindingChange& change, bool forward) {
  const bool comes = (change.operation == DiffOperation::kCreate) == forward;
  Relate(&interfaces_of_, change.profile, change.interface, comes);
  Relate(&profiles_of_, change.interface, change.profile, comes);
  for (const auto& [type, profile] : ProfilesNamed(change.profile))
    needs_[type] += comes ? CountOf(profile) : -CountOf(profile);
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

// The order of the merge: interfaces by name, then profiles by priority. Of two profiles with one
// priority the first by name counts, as there.
std::shared_ptr<const GroupOrigins> ConfigIndex::OriginsOf(const std::string& type) const {
  auto origins = std::make_shared<GroupOrigins>();
  for (const auto& [interface, names] : profiles_of_) {
    std::map<int, std::pair<const std::string*, const ByType*>> ordered;
    for (const std::string& name : names) {
      const ByType& named = ProfilesNamed(name);
      if (!named.empty()) ordered.try_emplace(named.begin()->second.priority, &name, &named);
    }
    for (const auto& [priority, profile] : ordered) {
      const auto of_type = profile.second->find(type);
      if (of_type == profile.second->end()) continue;
      origins->Append(interface, *profile.first, of_type->second.entries);
    }
  }
  return origins;
}

std::vector<ConfigIndex::Binding> ConfigIndex::CostliestBindings(const std::string& type,
                                                                 size_t most) const {
  std::vector<Binding> bindings;
  for (const auto& [name, interfaces] : interfaces_of_) {
    const ByType& named = ProfilesNamed(name);
    const auto profile = named.find(type);
    if (profile == named.end()) continue;
    for (const std::string& interface : interfaces)
      bindings.push_back({interface, name, CountOf(profile->second)});
  }
  const size_t kept = std::min(most, bindings.size());
  std::partial_sort(bindings.begin(), bindings.begin() + static_cast<ptrdiff_t>(kept),
                    bindings.end(),
                    [](const Binding& a, const Binding& b) { return a.entries > b.entries; });
  bindings.resize(kept);
  return bindings;
}

}  // namespace host
