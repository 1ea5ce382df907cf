// From profiles to access lists: see profiles.h.
#include <algorithm>
#include <set>
#include <utility>

#include "host/standard/ace_builder.h"
#include "host/standard/profiles.h"

namespace host::standard {
namespace {

// Name of the entry that stands for a profile's end.
constexpr char kEndName[] = "end";
constexpr uint64_t kLowestEthertype = 1536;  // lower numbers are lengths (IEEE 802.3)

// What "[tag NAME] TEXT" says; nothing where the text is no such one.
struct Tag {
  std::string name;
  std::string text;
};

std::optional<Tag> TagIn(const std::string& description, const std::string& tag) {
  const std::string start = "[" + tag + " ";
  if (description.compare(0, start.size(), start) != 0) return std::nullopt;
  // The name of an entry is all there is; a bracket within it is its own.
  size_t end = tag == "ace" ? description.rfind(']') : description.find(']');
  if (end == std::string::npos || end == start.size()) return std::nullopt;
  Tag found{description.substr(start.size(), end - start.size()), ""};
  if (end + 2 <= description.size()) found.text = description.substr(end + 2);
  return found;
}

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
    for (const Profile& profile : profiles_.profiles) ConvertProfile(profile);
    for (const auto& [interface, names] : profiles_.bindings) Attach(interface, names);
    return std::move(lists_);
  }

 private:
  void ConvertProfile(const Profile& profile) {
    Acl& acl = lists_.acls.emplace_back();
    acl.path = EntryPath("/config/access-list/acl-profile/ingress", "access-list", "acl-name",
                         profile.name);
    const std::optional<Tag> tag = TagIn(profile.description, "acl");
    acl.name = UniqueName(tag ? tag->name : profile.name, &list_names_);
    acl.description = profile.description;
    if (acl.name.size() > 64) acl.name = profile.name;
    name_of_[profile.name] = &acl - lists_.acls.data();
    acl.kind = KindOf(profile);
    acl.aces.reserve(profile.entries.size() + 1);
    std::set<std::string> names;
    for (const ProfileEntry& entry : profile.entries) ConvertEntry(profile, entry, &names, &acl);
    AddEnd(profile, &names, &acl);
    Number(profile, &acl);
    if (!standard_only_) {
      acl.priority = profile.priority;
      acl.l3 = profile.l3;
    } else if (profile.l3 == (acl.kind == Kind::kEthernet)) {
      Lose(acl.path,
           profile.l3 ? "the L3 group, without an entry about IPv4"
                      : "the L2 group, with entries about IP",
           false);
    }
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

  void ConvertEntry(const Profile& profile, const ProfileEntry& entry, std::set<std::string>* names,
                    Acl* acl) {
    Ace ace;
    ace.path =
        acl->path + "/access-list-entry[ace-priority='" + std::to_string(entry.ace_priority) + "']";
    ace.conditions = ConditionsOf(entry);
    ace.handling = entry.handling;
    ace.set_pcp = entry.set_pcp;
    ace.number = entry.ace_priority;
    ace.name = std::to_string(entry.ace_priority);
    ace.description = entry.description;
    if (const auto tag = TagIn(entry.description, "ace")) ace.name = tag->name;
    if (const auto tag = TagIn(entry.description, "seq")) {
      const std::optional<uint32_t> number = NumberOf(tag->name, 0xffffffff);
      if (number) ace.number = *number;
      if (number) ace.description = tag->text;
    }
    // The end of a list that was read says itself what it is.
    const bool list_end = entry.description == "[end]" && &entry == &profile.entries.back();
    ace.name = UniqueName(list_end ? "implicit deny" : ace.name, names);
    if (ace.name.size() > 64) ace.name = UniqueName(std::to_string(entry.ace_priority), names);
    if (!standard_only_) {
      ace.ace_priority = entry.ace_priority;
      ace.description = entry.description;
    } else if (!MakeStandard(entry, &ace)) {
      return;
    }
    if (standard_only_ && options_.to != Standard::kOpenConfig &&
        !ace.conditions[kDestinationPort].empty()) {
      AddForPort(std::move(ace), names, acl);
    } else {
      acl->aces.push_back(std::move(ace));
    }
  }

  // RFC 8519 has ports of TCP and of UDP, each by itself.
  void AddForPort(Ace ace, std::set<std::string>* names, Acl* acl) {
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
      part.name = UniqueName(ace.name + (protocol == kTcp ? " tcp" : " udp"), names);
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
    if (ace->set_pcp && entry.handling != Handling::kDeny) {
      lost.emplace_back("setting the PCP");
    }
    ace->set_pcp.reset();
    if (lost.empty()) return true;
    const Allowance& allowed = options_.allowance;
    const bool drop = allowed.drop_conditions;
    for (const std::string& what : lost) {
      Lose(ace->path, what, drop && entry.handling != Handling::kDeny,
           drop ? "left out of the entry, which decides about more than it did" : nullptr);
    }
    return drop || !allowed.skip_entries;
  }

  static bool HasOtherL2(const Ace& ace) {
    return !ace.conditions[kDestinationMac].empty() || !ace.conditions[kSourceMac].empty() ||
           !ace.conditions[kEthertype].empty();
  }

  void Lose(const std::string& path, const std::string& what, bool loud,
            const char* done = nullptr) {
    const Allowance& allowed = options_.allowance;
    const bool out = done != nullptr || allowed.skip_entries;
    if (done == nullptr) done = out ? "left out" : "the standard has nothing like it";
    report_->Add({path, what, out ? Outcome::kLeftOut : Outcome::kRefused, done,
                  out && (loud || !allowed.drop_conditions)});
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
  void AddEnd(const Profile& profile, std::set<std::string>* names, Acl* acl) {
    if (standard_only_ && !profile.entries.empty()) {
      // Behind an entry that has all that comes, there is no end.
      const Ace* last = acl->aces.empty() ? nullptr : &acl->aces.back();
      if (last != nullptr && AskForNothing(last->conditions)) return;
      if (last != nullptr && profile.entries.back().description == "[end]" && IsEnd(*last, *acl)) {
        acl->aces.back().number.reset();  // behind all others, whatever theirs are
        return;
      }
    }
    Ace end;
    end.path = acl->path;
    end.name = UniqueName(kEndName, names);
    end.handling = Handling::kPermit;
    end.is_end = !standard_only_;
    if (acl->kind == Kind::kIpv4) end.conditions[kDestinationIpv4] = {{0, 0}};
    acl->aces.push_back(std::move(end));
    if (standard_only_) {
      report_->Add({acl->path, "what no entry matches passes", Outcome::kExact,
                    "an entry of its own at the end of the list", false});
    }
  }

  // Entries keep the numbers that they came with as long as these say their order.
  static void Number(const Profile& profile, Acl* acl) {
    bool ascending = true;
    std::optional<uint32_t> last;
    for (const Ace& ace : acl->aces) {
      if (!ace.number) continue;
      ascending = ascending && (!last || *ace.number > *last);
      last = ace.number;
    }
    // Behind the last one there has to be room for the end.
    if (last.value_or(0) > UINT32_MAX - 10) ascending = false;
    if (!ascending) {
      std::map<std::string, uint32_t> own;
      for (const ProfileEntry& entry : profile.entries) {
        own[EntryPathOf(*acl, entry)] = entry.ace_priority;
      }
      for (Ace& ace : acl->aces) {
        if (ace.number) ace.number = own[ace.path];
        if (ace.number) last = ace.number;
      }
    }
    Ace* end = acl->aces.empty() ? nullptr : &acl->aces.back();
    if (end != nullptr && !end->number) end->number = (last.value_or(0) / 10 + 1) * 10;
  }

  static std::string EntryPathOf(const Acl& acl, const ProfileEntry& entry) {
    return acl.path + "/access-list-entry[ace-priority='" + std::to_string(entry.ace_priority) +
           "']";
  }

  static std::string UniqueName(const std::string& wanted, std::set<std::string>* names) {
    std::string name = wanted;
    for (int i = 2; !names->insert(name).second; ++i) name = wanted + " " + std::to_string(i);
    return name;
  }

  void Attach(const std::string& interface, const std::vector<std::string>& names) {
    Attachment& attachment = lists_.attachments.emplace_back();
    attachment.interface = interface;
    attachment.path =
        EntryPath("/config/access-list", "interface", "interface-name", interface) + "/ingress";
    std::vector<const Profile*> bound;
    for (const std::string& name : names) {
      const size_t before = bound.size();
      for (const Profile& profile : profiles_.profiles) {
        if (profile.name == name) bound.push_back(&profile);
      }
      if (bound.size() == before) {
        Lose(attachment.path, "a binding to the profile " + name + ", which is not there", true);
      }
    }
    std::sort(bound.begin(), bound.end(), [](const Profile* a, const Profile* b) {
      return a->l3 != b->l3 ? b->l3 : a->priority < b->priority;
    });
    bool has_group[2] = {};
    for (const Profile* profile : bound) {
      bool* other = &has_group[profile->l3 ? 1 : 0];
      if (*other && standard_only_) {
        Lose(attachment.path, "a second profile of one group, " + profile->name, true);
        continue;
      }
      *other = true;
      attachment.acls.push_back(lists_.acls[static_cast<size_t>(name_of_[profile->name])].name);
    }
  }

  const Profiles& profiles_;
  const ExportOptions& options_;
  const bool standard_only_;
  Report* report_;
  AccessLists lists_;
  std::set<std::string> list_names_;
  std::map<std::string, std::ptrdiff_t> name_of_;  // places in lists_
};

}  // namespace

AccessLists ToAccessLists(const Profiles& profiles, const ExportOptions& options, Report* report) {
  return ToListsConverter(profiles, options, report).Convert();
}

}  // namespace host::standard
