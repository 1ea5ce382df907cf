// From profiles to access lists: see profiles.h.
#include <algorithm>
#include <cstdint>
#include <map>
#include <numeric>
#include <tuple>
#include <utility>

#include "host/standard/ace_builder.h"
#include "host/standard/list_outline.h"
#include "host/standard/profiles.h"
#include "host/standard/tags.h"

namespace host::standard {
namespace {

constexpr uint64_t kLowestEthertype = 1536;  // lower numbers are lengths (IEEE 802.3)

constexpr uint8_t kTcp = 6, kUdp = 17;

// A port of a protocol that has none.
bool MatchesNothing(const ProfileEntry& entry) {
  const std::optional<Value>& protocol = entry.matches[kIpProtocol];
  return entry.matches[kDestinationPort] && protocol && protocol->value != kTcp &&
         protocol->value != kUdp;
}

class ToListsConverter {
 public:
  ToListsConverter(const Profiles& profiles, const ExportOptions& options, Report* report)
      : profiles_(profiles),
        options_(options),
        openconfig_(options.to == Standard::kOpenConfig),
        standard_only_(options.standard_only || openconfig_),
        report_(report) {}

  AccessLists Convert() {
    const std::vector<Profile>& profiles = profiles_.profiles;
    std::vector<ListOutline> outlines;
    outlines.reserve(profiles.size());
    for (const Profile& profile : profiles) {
      ListOutline& outline = outlines.emplace_back(options_);
      for (const ProfileEntry& entry : profile.entries) outline.See(entry);
    }
    const std::vector<std::string> names = NamesOf(outlines);
    for (size_t i = 0; i < profiles.size(); ++i) {
      place_of_[profiles[i].name] = i;
      ConvertProfile(profiles[i], names[i], &outlines[i]);
    }
    for (const auto& [interface, bound] : profiles_.bindings) Attach(interface, bound);
    return std::move(lists_);
  }

 private:
  // Names of the lists, given out in the order of the running configuration, whatever that of the
  // profiles at hand is. OpenConfig's sets are called by their types as well.
  std::vector<std::string> NamesOf(const std::vector<ListOutline>& outlines) const {
    const std::vector<Profile>& profiles = profiles_.profiles;
    const TaggedNames none(ListTags(options_.to), LongestName(options_.to));
    std::vector<TaggedNames> names(openconfig_ ? 3 : 1, none);  // by kind
    const auto names_for = [&](size_t i) -> TaggedNames& {
      const Kind kind = std::min(outlines[i].KindFor(profiles[i].l3), Kind::kMixed);
      return names[openconfig_ ? static_cast<size_t>(kind) : 0];
    };
    std::vector<size_t> order(profiles.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&profiles](size_t a, size_t b) {
      return std::tie(profiles[a].l3, profiles[a].name) <
             std::tie(profiles[b].l3, profiles[b].name);
    });
    for (const size_t i : order) names_for(i).See(profiles[i].description);
    std::vector<std::string> result(profiles.size());
    for (const size_t i : order) result[i] = names_for(i).Next(profiles[i].name);
    return result;
  }

  void ConvertProfile(const Profile& profile, const std::string& name, ListOutline* outline) {
    const Kind kind = outline->KindFor(profile.l3);
    Acl& acl = lists_.acls.emplace_back(AclOf(profile, openconfig_ ? profile.name : name, kind));
    if (openconfig_) acl.set_name = name;
    acl.path = EntryPath("/config/access-list/acl-profile/ingress", "access-list", "acl-name",
                         profile.name);
    acl.aces.reserve(profile.entries.size() + 1);
    lost_numbers_ = 0;
    const bool numbered = openconfig_ && HasNumbers(profile, acl.path);
    for (const ProfileEntry& entry : profile.entries) {
      const bool last = &entry == &profile.entries.back();
      ConvertEntry(entry, outline->Convert(entry, last), numbered, outline, &acl);
    }
    AddEnd(profile, outline, &acl);
    if (standard_only_) LoseOwn(profile, name, &acl);
  }

  // What a profile has of its own, and a list of the standard has not.
  void LoseOwn(const Profile& profile, const std::string& name, Acl* acl) {
    acl->priority.reset();
    acl->l3.reset();
    acl->profile_name.clear();
    Note(acl->path, "the priority " + std::to_string(profile.priority), "left out");
    if (lost_numbers_ > 0) {
      Note(acl->path, "the priorities of entries with names, " + std::to_string(lost_numbers_),
           "left out: the entries keep their order");
    }
    if (name != profile.name) Note(acl->path, "the profile's name", "the list " + name);
    for (const char* tag : ListTags(options_.to)) {
      const std::optional<Tag> found = TagIn(profile.description, tag);
      if (found && found->name == name) acl->description = found->text;
    }
    if (!openconfig_) LoseText(acl->path, acl->description);
    if (profile.l3 != (acl->kind == Kind::kEthernet)) return;
    Lose(acl->path,
         profile.l3 ? "the L3 group, without an entry about IPv4"
                    : "the L2 group, with entries about IP",
         {"left out: the list becomes one of the other group", false});
  }

  void LoseText(const std::string& path, const std::string& text) {
    if (!text.empty()) Note(path, "the description \"" + text + "\"", "left out");
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
      // The end is behind all others, whatever its number is.
      if (IsListEnd(entry, &entry == &profile.entries.back())) continue;
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

  void ConvertEntry(const ProfileEntry& entry, Ace ace, bool numbered, ListOutline* outline,
                    Acl* acl) {
    ace.path =
        acl->path + "/access-list-entry[ace-priority='" + std::to_string(entry.ace_priority) + "']";
    if (!standard_only_) {
      acl->aces.push_back(std::move(ace));
      return;
    }
    ace.ace_priority.reset();
    if (MatchesNothing(entry)) {
      report_->Add({ace.path, "a port of a protocol that has none: no frame matches",
                    Outcome::kExact, "no entry", false});
      LoseText(ace.path, entry.description);
      return;
    }
    if (!MakeStandard(entry, &ace)) return;
    LoseTexts(entry, numbered, &ace);
    AddForPort(std::move(ace), outline, acl);
  }

  // What people wrote about an entry of the standard, as far as it has a place there.
  void LoseTexts(const ProfileEntry& entry, bool numbered, Ace* ace) {
    if (openconfig_) {
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
  void AddForPort(Ace ace, ListOutline* outline, Acl* acl) {
    if (openconfig_ || ace.conditions[kDestinationPort].empty() ||
        !ace.conditions[kIpProtocol].empty()) {
      acl->aces.push_back(std::move(ace));
      return;
    }
    const bool ipv4 = AskForIpv4(ace.conditions);
    for (const uint8_t protocol : {kTcp, kUdp}) {
      Ace part = ace;
      part.name = outline->TakeName(ace.name + (protocol == kTcp ? " tcp" : " udp"));
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
    if (openconfig_) {
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
    ace->widened = !lost.empty();
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
  void AddEnd(const Profile& profile, ListOutline* outline, Acl* acl) {
    const std::optional<uint32_t> last = acl->aces.empty() ? std::nullopt : acl->aces.back().number;
    if (standard_only_ && !profile.entries.empty()) {
      // Behind an entry that has all that comes, there is no end.
      Ace* end = acl->aces.empty() ? nullptr : &acl->aces.back();
      if (end != nullptr && IsListEnd(profile.entries.back(), true) && IsEnd(*end, *acl)) {
        if (acl->aces.size() > 1) end->number = EndNumber(acl->aces[acl->aces.size() - 2].number);
        return;
      }
      if (end != nullptr && AskForNothing(end->conditions)) return;
    }
    Ace& end = acl->aces.emplace_back(outline->End(acl->kind));
    end.path = acl->path;
    end.number = EndNumber(last);
    if (!standard_only_) return;
    end.is_end = false;
    report_->Add({acl->path, "what no entry matches passes", Outcome::kExact,
                  "an entry of its own at the end of the list", false});
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
  const bool openconfig_;
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
