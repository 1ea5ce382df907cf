// From profiles to access lists: see profiles.h.
#include <algorithm>
#include <cstdint>
#include <map>
#include <utility>

#include "host/standard/ace_builder.h"
#include "host/standard/profiles.h"
#include "host/standard/tags.h"

namespace host::standard {
namespace {

// Name of the entry that stands for a profile's end.
constexpr char kEndName[] = "end";
constexpr uint64_t kLowestEthertype = 1536;  // lower numbers are lengths (IEEE 802.3)

Conditions ConditionsOf(const ProfileEntry& entry) {
  Conditions conditions;
  for (size_t field = 0; field < kFieldCount; ++field) {
    if (entry.matches[field]) conditions[field].push_back(*entry.matches[field]);
  }
  return conditions;
}

class ToListsConverter {
 public:
  ToListsConverter(const Profiles& profiles, const ExportOptions& options, Report* report)
      : profiles_(profiles),
        options_(options),
        standard_only_(options.standard_only || options.to == Standard::kOpenConfig),
        report_(report) {}

  AccessLists Convert() {
    const std::vector<std::string> names = NamesOf<Profile>(
        profiles_.profiles, {"acl"}, [](const Profile& profile) { return profile.name; });
    for (size_t i = 0; i < names.size(); ++i) {
      place_of_[profiles_.profiles[i].name] = i;
      ConvertProfile(profiles_.profiles[i], names[i]);
    }
    for (const auto& [interface, names] : profiles_.bindings) Attach(interface, names);
    return std::move(lists_);
  }

 private:
  // Names for what is in `all`: what one of the tags in its description says, or `own`. Those that
  // a tag says are given out first, to be what they were.
  template <class Item, class Own>
  std::vector<std::string> NamesOf(const std::vector<Item>& all,
                                   std::initializer_list<const char*> tags, const Own& own,
                                   UniqueNames* given = nullptr) {
    UniqueNames names = MakeNames();
    if (given == nullptr) given = &names;
    std::vector<std::string> result(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
      for (const char* tag : tags) {
        const std::optional<Tag> found = TagIn(all[i].description, tag);
        if (result[i].empty() && found && found->name.size() <= LongestName())
          result[i] = given->Take(found->name);
      }
    }
    for (size_t i = 0; i < all.size(); ++i) {
      if (result[i].empty()) result[i] = given->Take(own(all[i]));
    }
    return result;
  }

  size_t LongestName() const { return options_.to == Standard::kOpenConfig ? SIZE_MAX : 64; }
  UniqueNames MakeNames() const { return {" ", LongestName()}; }

  void ConvertProfile(const Profile& profile, const std::string& name) {
    Acl& acl = lists_.acls.emplace_back();
    acl.path = EntryPath("/config/access-list/acl-profile/ingress", "access-list", "acl-name",
                         profile.name);
    acl.name = name;
    acl.description = profile.description;
    acl.kind = KindOf(profile);
    acl.aces.reserve(profile.entries.size() + 1);
    UniqueNames names = MakeNames();
    lost_numbers_ = 0;
    const std::vector<std::string> ace_names = NamesOf<ProfileEntry>(
        // With our own module an entry has its number beside its name.
        profile.entries, {"ace", standard_only_ ? "seq" : "ace"},
        [&profile](const ProfileEntry& entry) {
          // The end of a list that was read says itself what it is.
          return IsListEnd(entry, profile) ? "implicit deny" : std::to_string(entry.ace_priority);
        },
        &names);
    const bool numbered = options_.to == Standard::kOpenConfig && HasNumbers(profile, acl.path);
    for (size_t i = 0; i < profile.entries.size(); ++i) {
      ConvertEntry(profile.entries[i], ace_names[i], numbered, &names, &acl);
    }
    AddEnd(profile, &names, &acl);
    if (!standard_only_) {
      acl.priority = profile.priority;
      acl.l3 = profile.l3;
      if (name != profile.name) acl.profile_name = profile.name;
    } else {
      LoseOwn(profile, &acl);
    }
  }

  static bool IsListEnd(const ProfileEntry& entry, const Profile& profile) {
    return entry.description == "[end]" && &entry == &profile.entries.back();
  }

  // What a profile has of its own, and a list of the standard has not.
  void LoseOwn(const Profile& profile, Acl* acl) {
    Note(acl->path, "the priority " + std::to_string(profile.priority), "left out");
    if (lost_numbers_ > 0) {
      Note(acl->path, "the priorities of entries with names, " + std::to_string(lost_numbers_),
           "left out: the entries keep their order");
    }
    const std::optional<Tag> tag = TagIn(profile.description, "acl");
    const bool named = tag && tag->name == acl->name;
    if (acl->name != profile.name) {
      Note(acl->path, "the profile's name", "the list " + acl->name);
    }
    if (named) acl->description = tag->text;
    if (options_.to != Standard::kOpenConfig) LoseText(acl->path, acl->description);
    if (profile.l3 != (acl->kind == Kind::kEthernet)) return;
    Lose(acl->path,
         profile.l3 ? "the L3 group, without an entry about IPv4"
                    : "the L2 group, with entries about IP",
         {"left out: the list becomes one of the other group", false});
  }

  void LoseText(const std::string& path, const std::string& text) {
    if (!text.empty()) Note(path, "the description \"" + text + "\"", "left out");
  }

  // The narrowest kind that has all of the profile's entries.
  Kind KindOf(const Profile& profile) const {
    bool all_ipv4 = true, any_ethernet = false, any_ip = false, any_version = false;
    for (const ProfileEntry& entry : profile.entries) {
      const Conditions conditions = ConditionsOf(entry);
      const bool ipv4 = AskForIpv4(conditions);
      const bool port = !conditions[kDestinationPort].empty();
      all_ipv4 = all_ipv4 && ipv4;
      any_ethernet = any_ethernet || AskForEthernet(conditions);
      any_ip = any_ip || ipv4 || port;
      any_version = any_version || (port && !ipv4);
    }
    if (!any_ip && !profile.l3) return Kind::kEthernet;
    if (profile.l3 && all_ipv4 && !any_ethernet) return Kind::kIpv4;
    return any_version ? Kind::kAny : Kind::kMixed;
  }

  // The number that a description says the entry had.
  static std::optional<uint32_t> NumberIn(const std::string& description) {
    const std::optional<Tag> tag = TagIn(description, "seq");
    return tag ? NumberOf(tag->name, UINT32_MAX) : std::nullopt;
  }

  // Whether the numbers that entries came with, and the others', still say their order.
  bool HasNumbers(const Profile& profile, const std::string& path) {
    uint64_t next = 0;
    bool ascending = true, any = false;
    for (const ProfileEntry& entry : profile.entries) {
      if (IsListEnd(entry, profile)) continue;  // it is behind all others, whatever theirs are
      const std::optional<uint32_t> number = NumberIn(entry.description);
      any = any || number;
      const uint32_t at = number.value_or(entry.ace_priority);
      ascending = ascending && at >= next;
      next = uint64_t{at} + 1;
    }
    // Behind the last one there has to be room for the end.
    ascending = ascending && next <= UINT32_MAX - 10;
    if (any && !ascending) {
      Note(path, "sequence ids in descriptions that are not in the order of the entries",
           "the entries' own numbers");
    }
    return ascending;
  }

  void ConvertEntry(const ProfileEntry& entry, const std::string& name, bool numbered,
                    UniqueNames* names, Acl* acl) {
    Ace ace;
    ace.path =
        acl->path + "/access-list-entry[ace-priority='" + std::to_string(entry.ace_priority) + "']";
    ace.conditions = ConditionsOf(entry);
    ace.handling = entry.handling;
    ace.set_pcp = entry.set_pcp;
    ace.number = entry.ace_priority;
    ace.name = name;
    ace.description = entry.description;
    if (!standard_only_) {
      ace.ace_priority = entry.ace_priority;
    } else if (MakeStandard(entry, &ace)) {
      LoseTexts(entry, numbered, &ace);
    } else {
      return;
    }
    if (standard_only_ && options_.to != Standard::kOpenConfig &&
        !ace.conditions[kDestinationPort].empty()) {
      AddForPort(std::move(ace), names, acl);
    } else {
      acl->aces.push_back(std::move(ace));
    }
  }

  // What people wrote about an entry of the standard, as far as it has a place there.
  void LoseTexts(const ProfileEntry& entry, bool numbered, Ace* ace) {
    if (options_.to == Standard::kOpenConfig) {
      const std::optional<uint32_t> number = NumberIn(entry.description);
      if (!numbered || !number) return;
      ace->number = number;
      ace->description = TagIn(entry.description, "seq")->text;
      return;
    }
    for (const char* tag : {"ace", "seq"}) {
      const std::optional<Tag> found = TagIn(entry.description, tag);
      if (!found || found->name != ace->name) continue;
      ++lost_numbers_;
      return LoseText(ace->path, found->text);
    }
    if (ace->description != "[end]") LoseText(ace->path, ace->description);
  }

  // RFC 8519 has ports of TCP and of UDP, each by itself.
  void AddForPort(Ace ace, UniqueNames* names, Acl* acl) {
    constexpr uint8_t kTcp = 6, kUdp = 17;
    const std::vector<Value>& protocols = ace.conditions[kIpProtocol];
    if (!protocols.empty()) {
      if (protocols[0].value == kTcp || protocols[0].value == kUdp) {
        acl->aces.push_back(std::move(ace));
        return;
      }
      report_->Add({ace.path, "a port of a protocol that has none: no frame matches",
                    Outcome::kExact, "no entry", false});
      return;
    }
    const bool ipv4 = AskForIpv4(ace.conditions);
    for (const uint8_t protocol : {kTcp, kUdp}) {
      Ace part = ace;
      part.name = names->Take(ace.name + (protocol == kTcp ? " tcp" : " udp"));
      if (ipv4) {
        part.conditions[kIpProtocol] = {{protocol, FullMask(kIpProtocol)}};
      } else {
        part.transport = protocol;
      }
      acl->aces.push_back(std::move(part));
    }
    report_->Add({ace.path, "a port of TCP or UDP", Outcome::kExact, "an entry for each", false});
  }

  // Leaves out of an entry what only acl-app-standard has. False: the entry goes as a whole.
  bool MakeStandard(const ProfileEntry& entry, Ace* ace) {
    std::vector<std::string> lost;
    const auto lose = [&](Field field, const char* what) {
      if (ace->conditions[field].empty()) return;
      lost.emplace_back(what);
      ace->conditions[field].clear();
    };
    if (options_.to != Standard::kRfc9899 || HasOtherL2(*ace)) lose(kVlan, "a VLAN");
    lose(kPcp, "a PCP");
    if (options_.to == Standard::kOpenConfig) {
      const auto& matches = entry.matches;
      if (matches[kTos] && matches[kTos]->mask != kDscpMask) {
        lose(kTos, "the lower bits of the type of service");
      }
      if (matches[kEthertype] && matches[kEthertype]->value < kLowestEthertype) {
        lose(kEthertype, "a length in place of an EtherType");
      }
      if (matches[kIpProtocol] && matches[kIpProtocol]->value == 255) {
        lose(kIpProtocol, "the IP protocol 255");
      }
    }
    const bool denies = entry.handling == Handling::kDeny;
    if (entry.handling == Handling::kNone) {
      report_->Add({ace->path, "an entry without an action", Outcome::kExact,
                    "one that accepts, which is what becomes of its frames", false});
    }
    if (ace->set_pcp && denies) {
      Note(ace->path, "setting the PCP of what is dropped", "left out");
    } else if (ace->set_pcp) {
      LosePart(ace->path, "setting the PCP", {"left out: the PCP stays as it is", false}, denies);
    }
    for (const std::string& what : lost) {
      LosePart(ace->path, what, LossOfCondition(denies), denies);
    }
    const bool whole = lost.empty() && (denies || !ace->set_pcp);
    ace->set_pcp.reset();
    return whole || options_.allowance.drop_conditions || !options_.allowance.skip_entries;
  }

  // A part of an entry without which the entry may stay, if that is allowed.
  void LosePart(const std::string& path, const std::string& what, const Loss& loss, bool denies) {
    const Allowance& allowed = options_.allowance;
    if (allowed.drop_conditions) {
      report_->Add({path, what, Outcome::kLeftOut, loss.done, loss.loud});
    } else {
      Lose(path, what, LossOfEntry(denies));
    }
  }

  static bool HasOtherL2(const Ace& ace) {
    return !ace.conditions[kDestinationMac].empty() || !ace.conditions[kSourceMac].empty() ||
           !ace.conditions[kEthertype].empty();
  }

  void Note(const std::string& path, std::string what, std::string done) {
    report_->Add({path, std::move(what), Outcome::kNoted, std::move(done), false});
  }

  // What cannot be kept, with what leaving it out means.
  void Lose(const std::string& path, const std::string& what, const Loss& loss) {
    const bool out = options_.allowance.skip_entries;
    report_->Add({path, what, out ? Outcome::kLeftOut : Outcome::kRefused,
                  out ? loss.done : "the standard has nothing like it", out && loss.loud});
  }

  // Whether the entry denies all that the list is about.
  static bool IsEnd(const Ace& ace, const Acl& acl) {
    Conditions rest = ace.conditions;
    const bool all_ipv4 = acl.kind == Kind::kIpv4 && rest[kDestinationIpv4].size() == 1 &&
                          rest[kDestinationIpv4][0].mask == 0;
    if (all_ipv4) rest[kDestinationIpv4].clear();
    return ace.handling == Handling::kDeny && AskForNothing(rest);
  }

  // What no entry of a profile matches passes; what no entry of a list matches does not.
  void AddEnd(const Profile& profile, UniqueNames* names, Acl* acl) {
    const std::optional<uint32_t> last = acl->aces.empty() ? std::nullopt : acl->aces.back().number;
    if (standard_only_ && !profile.entries.empty()) {
      // Behind an entry that has all that comes, there is no end.
      Ace* end = acl->aces.empty() ? nullptr : &acl->aces.back();
      if (end != nullptr && IsListEnd(profile.entries.back(), profile) && IsEnd(*end, *acl)) {
        if (acl->aces.size() > 1) end->number = EndNumber(acl->aces[acl->aces.size() - 2].number);
        return;
      }
      if (end != nullptr && AskForNothing(end->conditions)) return;
    }
    Ace end;
    end.path = acl->path;
    end.name = names->Take(kEndName);
    end.number = EndNumber(last);
    end.handling = Handling::kPermit;
    end.is_end = !standard_only_;
    if (acl->kind == Kind::kIpv4) end.conditions[kDestinationIpv4] = {{0, 0}};
    acl->aces.push_back(std::move(end));
    if (standard_only_) {
      report_->Add({acl->path, "what no entry matches passes", Outcome::kExact,
                    "an entry of its own at the end of the list", false});
    }
  }

  // A round number behind the last one.
  static uint32_t EndNumber(std::optional<uint32_t> last) {
    return (last.value_or(0) / 10 + 1) * 10;
  }

  void Attach(const std::string& interface, const std::vector<std::string>& names) {
    Attachment& attachment = lists_.attachments.emplace_back();
    attachment.interface = interface;
    attachment.path =
        EntryPath("/config/access-list", "interface", "interface-name", interface) + "/ingress";
    std::vector<const Profile*> bound;
    for (const std::string& name : names) {
      const auto place = place_of_.find(name);
      if (place == place_of_.end()) {
        Lose(attachment.path, "a binding to the profile " + name + ", which is not there",
             {"left out", false});
      } else {
        bound.push_back(&profiles_.profiles[place->second]);
      }
    }
    std::sort(bound.begin(), bound.end(), [](const Profile* a, const Profile* b) {
      return a->l3 != b->l3 ? b->l3 : a->priority < b->priority;
    });
    bool has_group[2] = {};
    for (const Profile* profile : bound) {
      bool* other = &has_group[profile->l3 ? 1 : 0];
      if (*other && standard_only_) {
        Lose(attachment.path, "a second profile of one group, " + profile->name,
             {"the binding is left out: what the profile dropped here may pass", true});
        continue;
      }
      *other = true;
      attachment.acls.push_back(lists_.acls[place_of_[profile->name]].name);
    }
  }

  const Profiles& profiles_;
  const ExportOptions& options_;
  const bool standard_only_;
  Report* report_;
  AccessLists lists_;
  size_t lost_numbers_ = 0;                 // of the profile at hand
  std::map<std::string, size_t> place_of_;  // of a profile and its list, by the profile's name
};

}  // namespace

AccessLists ToAccessLists(const Profiles& profiles, const ExportOptions& options, Report* report) {
  return ToListsConverter(profiles, options, report).Convert();
}

}  // namespace host::standard
