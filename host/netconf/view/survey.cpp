// What lists are called and of which kinds they are: see survey.h.
#include "host/netconf/view/survey.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace host {

void Survey::OnProfile(const standard::Profile& profile) {
  places_[profile.name] = listed_.size();
  listed_.push_back({profile, standard::ListOutline(options_), {}, {}});
}

void Survey::OnDescription(std::string text) {
  listed_.back().profile.description = std::move(text);
}

void Survey::OnPriority(uint16_t priority) { listed_.back().profile.priority = priority; }

void Survey::OnEntry(standard::ProfileEntry entry) { listed_.back().outline.See(entry); }

void Survey::OnProfileEnd() { names_.See(listed_.back().profile.description); }

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
