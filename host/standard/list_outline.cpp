// How a profile becomes a list: see list_outline.h.
#include "host/standard/list_outline.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "host/standard/characters.h"

namespace host::standard {
namespace {

// Names of entries that stand for the end of a list and for that of a profile.
constexpr char kListEnd[] = "implicit deny", kProfileEnd[] = "end";

template <size_t count>
bool ComparesAny(const ProfileEntry& entry, const Field (&fields)[count]) {
  return std::any_of(std::begin(fields), std::end(fields),
                     [&entry](Field field) { return entry.matches[field].has_value(); });
}

// With our own module an entry has its number beside its name.
std::vector<const char*> TagsOfEntries(const ExportOptions& options) {
  if (options.standard_only || options.to == Standard::kOpenConfig) return {"ace", "seq"};
  return {"ace"};
}

}  // namespace

void TaggedNames::See(const std::string& description) {
  const size_t place = seen_++;
  for (const char* tag : tags_) {
    const std::optional<Tag> found = TagIn(description, tag);
    if (!found || CharactersIn(found->name) > longest_) continue;
    tagged_.emplace_back(place, names_.Take(found->name));
    return;
  }
}

std::string TaggedNames::Next(const std::string& own) {
  const size_t place = named_++;
  if (next_tagged_ == tagged_.size() || tagged_[next_tagged_].first != place) {
    return names_.Take(own);
  }
  return std::move(tagged_[next_tagged_++].second);
}

size_t LongestName(Standard to) { return to == Standard::kOpenConfig ? SIZE_MAX : 64; }

std::vector<const char*> ListTags(Standard to) {
  if (to == Standard::kOpenConfig) return {"set", "acl"};
  return {"acl"};
}

ListOutline::ListOutline(const ExportOptions& options)
    : names_(TagsOfEntries(options), LongestName(options.to)) {}

void ListOutline::See(const ProfileEntry& entry) {
  names_.See(entry.description);
  const bool ipv4 = ComparesAny(entry, kIpv4Fields);
  const bool port = entry.matches[kDestinationPort].has_value();
  all_ipv4_ = all_ipv4_ && ipv4;
  any_ethernet_ = any_ethernet_ || ComparesAny(entry, kEthernetFields);
  any_ip_ = any_ip_ || ipv4 || port;
  any_version_ = any_version_ || (port && !ipv4);
}

Kind ListOutline::KindFor(bool l3) const {
  if (!any_ip_ && !l3) return Kind::kEthernet;
  if (l3 && all_ipv4_ && !any_ethernet_) return Kind::kIpv4;
  return any_version_ ? Kind::kAny : Kind::kMixed;
}

Ace ListOutline::Convert(const ProfileEntry& entry, bool last) {
  Ace ace;
  ace.name = names_.Next(IsListEnd(entry, last) ? kListEnd : std::to_string(entry.ace_priority));
  ace.description = entry.description;
  ace.handling = entry.handling;
  ace.set_pcp = entry.set_pcp;
  for (size_t field = 0; field < kFieldCount; ++field) {
    if (entry.matches[field]) ace.conditions[field].push_back(*entry.matches[field]);
  }
  ace.number = entry.ace_priority;
  ace.ace_priority = entry.ace_priority;
  return ace;
}

Ace ListOutline::End(Kind kind) {
  Ace end;
  end.name = names_.Take(kProfileEnd);
  end.handling = Handling::kPermit;
  end.is_end = true;
  if (kind == Kind::kIpv4) end.conditions[kDestinationIpv4] = {{0, 0}};
  return end;
}

bool IsListEnd(const ProfileEntry& entry, bool last) {
  return last && entry.description == "[end]";
}

Acl AclOf(const Profile& profile, const std::string& name, Kind kind) {
  Acl acl;
  acl.name = name;
  acl.description = profile.description;
  acl.kind = kind;
  acl.priority = profile.priority;
  acl.l3 = profile.l3;
  if (name != profile.name) acl.profile_name = profile.name;
  return acl;
}

}  // namespace host::standard
