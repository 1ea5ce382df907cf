// What lists are called and of which types they are: see survey.h.
#include "host/netconf/view/survey.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace host {

using standard::Acl;

Acl ListOf(standard::Profile profile) {
  standard::Report report;  // with our own module, lists say all that there is
  return std::move(standard::ToAccessLists({{std::move(profile)}, {}}, {}, &report).acls.front());
}

std::string UniqueIn(std::set<std::string>* names, const std::string& wanted,
                     const std::string& instead) {
  constexpr size_t kLongest = 64;  // of lists and of entries
  std::string name = wanted;
  for (int i = 2; !names->insert(name).second; ++i) {
    const std::string number = " " + std::to_string(i);
    const std::string& stem = wanted.size() + number.size() > kLongest ? instead : wanted;
    size_t cut = std::min(stem.size(), kLongest - number.size());
    while (cut > 0 && cut < stem.size() && (stem[cut] & 0xc0) == 0x80) --cut;  // whole characters
    name = stem.substr(0, cut) + number;
  }
  return name;
}

void Survey::OnProfile(const standard::Profile& profile) {
  places_[profile.name] = listed_.size();
  listed_.emplace_back().profile = profile;
  entries_.clear();
}

void Survey::OnDescription(std::string text) {
  listed_.back().profile.description = std::move(text);
}

void Survey::OnPriority(uint16_t priority) { listed_.back().profile.priority = priority; }

void Survey::OnEntry(standard::ProfileEntry entry) {
  constexpr size_t kMost = 64;
  // What follows the last one decides what that is.
  if (entries_.size() > kMost) {
    standard::ProfileEntry last = std::move(entries_.back());
    entries_.pop_back();
    Judge();
    entries_.push_back(std::move(last));
  }
  entries_.push_back(std::move(entry));
}

// The types of parts are in an order in which that of the whole is the widest of them.
void Survey::Judge() {
  ListedProfile& listed = listed_.back();
  standard::Profile part = listed.profile;
  part.entries = std::exchange(entries_, {});
  const bool first = listed.name.empty();
  const Acl list = ListOf(std::move(part));
  listed.kind = first ? list.kind : std::max(listed.kind, list.kind);
  if (first) listed.name = UniqueIn(&names_, list.name, listed.profile.name);
  for (const standard::Ace& ace : list.aces) {
    const std::string number = std::to_string(ace.ace_priority.value_or(0));
    if (!ace.ace_priority || ace.name == number) continue;
    listed.ace_names[*ace.ace_priority] = UniqueIn(&listed.taken, ace.name, number);
  }
}

void Survey::OnProfileEnd() {
  if (!entries_.empty() || listed_.back().name.empty()) Judge();
}

void Survey::OnInterface(std::string name, std::vector<std::string> profiles) {
  BoundProfiles& bound = bindings_.emplace_back();
  bound.interface = std::move(name);
  for (const std::string& profile : profiles) {
    const auto place = places_.find(profile);
    if (place != places_.end()) bound.profiles.push_back(place->second);
  }
  std::sort(bound.profiles.begin(), bound.profiles.end(), [this](size_t a, size_t b) {
    const auto order = [this](size_t place) {
      const standard::Profile& known = listed_[place].profile;
      return std::tuple(known.l3, known.priority, place);
    };
    return order(a) < order(b);
  });
}

}  // namespace host
