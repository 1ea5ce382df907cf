// From access lists to profiles: see profiles.h.
#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "host/standard/profiles.h"

namespace host::standard {
namespace {

constexpr uint32_t kHighest = 65535;  // of priorities
constexpr uint32_t kStep = 10;        // between entries, where there is room
constexpr size_t kLongestName = 64, kLongestText = 255;

// The characters of profiles' and of interfaces' names (yang/acl-app-types.yang).
bool MayBeInName(char c, bool slash) {
  static constexpr char kExcluded[] = "\"'/[]{}\\`";
  const bool printable = c > ' ' && c < '\x7f';
  if (slash && c == '/') return true;
  return printable && std::char_traits<char>::find(kExcluded, sizeof(kExcluded) - 1, c) == nullptr;
}

bool IsInterfaceName(const std::string& name) {
  return !name.empty() && name.size() <= kLongestName &&
         std::all_of(name.begin(), name.end(), [](char c) { return MayBeInName(c, true); });
}

// A line of text, at most `most` bytes, cut between characters.
std::string OneLine(std::string text, size_t most = kLongestText) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
  }
  if (text.size() <= most) return text;
  while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0) == 0x80) --most;
  return text.substr(0, most);
}

std::string Tagged(const char* tag, const std::string& name, const std::string& text) {
  return "[" + std::string(tag) + " " + name + "]" + (text.empty() ? "" : " " + text);
}

// The single-valued forms that a value of a field takes in ours.
std::vector<Value> FormsOf(Field field, const Value& value) {
  if (field != kTos || value.mask == kDscpMask || value.mask == FullMask(kTos)) return {value};
  std::vector<Value> forms;  // of ECN alone
  for (uint64_t dscp = 0; dscp < 64; ++dscp) {
    forms.push_back({dscp << 2 | (value.value & kEcnMask), FullMask(kTos)});
  }
  return forms;
}

using Matches = std::array<std::optional<Value>, kFieldCount>;

// All combinations of the values that the conditions allow; nothing when they are more than `most`.
std::optional<std::vector<Matches>> Combinations(const Conditions& conditions, size_t most) {
  std::vector<Matches> all(1);
  for (size_t field = 0; field < kFieldCount; ++field) {
    std::vector<Value> forms;
    for (const Value& value : conditions[field]) {
      for (const Value& form : FormsOf(static_cast<Field>(field), value)) {
        forms.push_back(form);
      }
    }
    if (forms.empty()) continue;
    if (all.size() * forms.size() > most) return std::nullopt;
    std::vector<Matches> next;
    next.reserve(all.size() * forms.size());
    for (const Matches& matches : all) {
      for (const Value& form : forms) next.emplace_back(matches)[field] = form;
    }
    all = std::move(next);
  }
  return all;
}

// What becomes of the entries of one list.
struct Part {
  const Ace* ace;
  std::vector<Matches> matches;
};

class ToProfilesConverter {
 public:
  ToProfilesConverter(const AccessLists& lists, const ImportOptions& options, Report* report)
      : lists_(lists), options_(options), report_(report) {}

  Profiles Convert() {
    for (const Problem& problem : lists_.problems) Judge(problem);
    for (const Acl& acl : lists_.acls) ConvertAcl(acl);
    for (const Attachment& attachment : lists_.attachments) Bind(attachment);
    return std::move(profiles_);
  }

 private:
  void Add(Outcome outcome, std::string path, std::string meaning, std::string done,
           bool loud = false) {
    report_->Add({std::move(path), std::move(meaning), outcome, std::move(done), loud});
  }

  // A problem of the document or of a list as a whole. Whether the rest may go on without it.
  bool Judge(const Problem& problem) {
    const bool skip = options_.allowance.skip_entries;
    Add(skip ? Outcome::kLeftOut : Outcome::kRefused, problem.path, problem.meaning,
        skip ? "left out" : "there is nothing like it", skip);
    return skip;
  }

  void ConvertAcl(const Acl& acl) {
    for (const Problem& problem : acl.problems) {
      if (!Judge(problem)) continue;
      skipped_.insert(acl.name);
      return;
    }
    std::vector<Part> parts;
    for (const Ace& ace : acl.aces) {
      if (&ace != &acl.aces.back() || !EndsAsProfiles(acl)) ConvertAce(ace, &parts);
    }
    Ace end;
    AddEnd(acl, &end, &parts);
    Profile profile;
    profile.l3 = acl.l3.value_or(acl.kind != Kind::kEthernet);
    profile.priority = PriorityOf(acl);
    profile.name = NameFor(acl);
    profile.description = OneLine(
        profile.name == acl.name ? acl.description : Tagged("acl", acl.name, acl.description));
    if (!Number(acl, parts, &profile)) return;
    l3_of_[acl.name] = profile.l3;
    profiles_.profiles.push_back(std::move(profile));
  }

  // Whether the last entry stands for the end of a profile, which passes what is left.
  static bool EndsAsProfiles(const Acl& acl) {
    return !acl.aces.empty() && acl.aces.back().is_end &&
           acl.aces.back().handling == Handling::kPermit && acl.aces.back().problems.empty();
  }

  void ConvertAce(const Ace& ace, std::vector<Part>* parts) {
    if (!ace.problems.empty() && !MayConvert(ace)) return;
    if (ace.matches_nothing) {
      Add(Outcome::kExact, ace.path, "conditions that no packet meets", "no entry");
      return;
    }
    auto matches = Combinations(ace.conditions, options_.most_entries);
    if (!matches) {
      Skip(ace, {ace.path, "conditions that take more than " +
                               std::to_string(options_.most_entries) + " entries"});
      return;
    }
    if (matches->size() > 1) {
      Add(Outcome::kExact, ace.path, "alternatives in one entry",
          std::to_string(matches->size()) + " entries");
    }
    parts->push_back({&ace, std::move(*matches)});
  }

  // Whether the entry may stay, without what it cannot have.
  bool MayConvert(const Ace& ace) {
    // What an entry is there for cannot be dropped.
    if (options_.allowance.drop_conditions && ace.handling != Handling::kNone) {
      for (const Problem& problem : ace.problems) {
        const bool wider = problem.is_condition;
        const char* done = !wider ? "left out"
                           : ace.handling == Handling::kDeny
                               ? "left out: the entry drops more than it says"
                               : "left out: the entry passes more than it says";
        Add(Outcome::kLeftOut, problem.path, problem.meaning, done,
            wider && ace.handling == Handling::kPermit);
      }
      return true;
    }
    for (const Problem& problem : ace.problems) Skip(ace, problem);
    return false;
  }

  void Skip(const Ace& ace, const Problem& problem) {
    const bool deny = ace.handling == Handling::kDeny;
    if (!options_.allowance.skip_entries) {
      const char* why = !problem.is_condition ? "there is nothing like it"
                        : deny                ? "the entry would drop more without it"
                                              : "the entry would pass more without it";
      return Add(Outcome::kRefused, problem.path, problem.meaning, why);
    }
    Add(Outcome::kLeftOut, problem.path, problem.meaning,
        deny ? "the whole entry is left out: what it dropped is decided by the entries behind it, "
               "and may pass"
             : "the whole entry is left out: what it passed is decided by the entries behind it",
        deny);
  }

  // The end of the list as an entry, unless the last entry has all that comes so far.
  void AddEnd(const Acl& acl, Ace* end, std::vector<Part>* parts) {
    if (EndsAsProfiles(acl)) return;
    if (acl.kind == Kind::kIpv4) end->conditions[kDestinationIpv4] = {{0, 0}};
    const auto all = [&](const Ace& ace) {
      if (AskForNothing(ace.conditions)) return true;
      Conditions rest = ace.conditions;
      rest[kDestinationIpv4].clear();
      const auto& destination = ace.conditions[kDestinationIpv4];
      return acl.kind == Kind::kIpv4 && AskForNothing(rest) && destination.size() == 1 &&
             destination[0].mask == 0;
    };
    const std::string path = acl.path + "/aces";
    if (!parts->empty() && all(*parts->back().ace)) return;
    if (options_.end == End::kPermit) {
      return Add(Outcome::kExact, path, "the end of the list passes what is left",
                 "no entry: that is the end of a profile");
    }
    end->handling = Handling::kDeny;
    end->description = "[end]";
    Add(Outcome::kExact, path,
        acl.kind == Kind::kIpv4 ? "the end of the list drops IPv4 packets that are left"
                                : "the end of the list drops what is left",
        "an entry of its own");
    parts->push_back({end, *Combinations(end->conditions, 1)});
  }

  uint16_t PriorityOf(const Acl& acl) {
    if (acl.priority) return *acl.priority;
    const uint32_t given = std::min(options_.first_priority + 10 * given_priorities_++, kHighest);
    return static_cast<uint16_t>(given);
  }

  std::string NameFor(const Acl& acl) {
    std::string name;
    for (const char c : acl.name) name += MayBeInName(c, false) ? c : '_';
    if (name.empty()) name = "acl";
    name.resize(std::min(name.size(), kLongestName));
    const std::string plain = name;
    for (int i = 2; !names_.insert(name).second; ++i) {
      const std::string suffix = "-" + std::to_string(i);
      name = plain.substr(0, kLongestName - suffix.size()) + suffix;
    }
    if (name != acl.name) {
      Add(Outcome::kExact, acl.path, "the name \"" + acl.name + "\"", "the profile " + name);
    }
    name_of_[acl.name] = name;
    return name;
  }

  // Gives the entries their numbers: those of the document where it has ours, or where its own fit;
  // else with room between them.
  bool Number(const Acl& acl, const std::vector<Part>& parts, Profile* profile) {
    size_t count = 0;
    bool own = true, numbered = true;
    uint64_t next_free = 0;
    for (const Part& part : parts) {
      count += part.matches.size();
      const std::optional<uint32_t> at = part.ace->ace_priority
                                             ? std::optional<uint32_t>(*part.ace->ace_priority)
                                             : part.ace->number;
      const bool fits = at && *at >= next_free && *at + part.matches.size() - 1 <= kHighest;
      own = own && part.ace->ace_priority && fits;
      // The end of the list has no number, and a place at the end.
      const bool at_end = &part == &parts.back() && !at && next_free <= kHighest;
      numbered = numbered && (at_end || fits);
      if (at) next_free = *at + part.matches.size();
    }
    if (count > kHighest + 1) {
      Add(Outcome::kRefused, acl.path, "a list of " + std::to_string(count) + " entries",
          "a profile has at most 65536");
      return false;
    }
    const bool keep = own || numbered;
    const uint32_t step =
        count == 0 ? kStep : std::min<uint32_t>(kStep, kHighest / static_cast<uint32_t>(count));
    uint32_t number = step;
    if (step <= 1) number = 0;
    profile->entries.reserve(count);
    for (const Part& part : parts) {
      const Ace& ace = *part.ace;
      if (keep && ace.ace_priority) number = *ace.ace_priority;
      if (keep && !ace.ace_priority && ace.number) number = *ace.number;
      if (keep && !ace.ace_priority && !ace.number) number = EndNumber(profile->entries);
      for (size_t i = 0; i < part.matches.size(); ++i) {
        AddEntry(part, i, number, keep, profile);
        number += keep ? 1 : std::max<uint32_t>(step, 1);
      }
    }
    return true;
  }

  // A number behind all others, round where there is room.
  static uint32_t EndNumber(const std::vector<ProfileEntry>& entries) {
    if (entries.empty()) return kStep;
    const uint32_t last = entries.back().ace_priority;
    const uint32_t next = (last / kStep + 1) * kStep;
    return next <= kHighest ? next : last + 1;
  }

  void AddEntry(const Part& part, size_t index, uint32_t number, bool keeps_number,
                Profile* profile) {
    const Ace& ace = *part.ace;
    ProfileEntry& entry = profile->entries.emplace_back();
    entry.ace_priority = static_cast<uint16_t>(number);
    entry.matches = part.matches[index];
    entry.handling = ace.handling;
    entry.set_pcp = ace.set_pcp;
    const bool one_of_many = part.matches.size() > 1;
    const std::string which = one_of_many ? " (" + std::to_string(index + 1) + " of " +
                                                std::to_string(part.matches.size()) + ")"
                                          : "";
    std::string text = ace.description;
    if (ace.number && (!keeps_number || one_of_many)) {
      text = Tagged("seq", std::to_string(*ace.number) + which, text);
    } else if (!ace.ace_priority && !ace.name.empty() && !ace.number) {
      text = Tagged("ace", ace.name + which, text);
    }
    entry.description = OneLine(text);
    if (text.size() > kLongestText) {
      Add(Outcome::kExact, ace.path, "a description of more than 255 bytes", "cut at its end");
    }
  }

  void Bind(const Attachment& attachment) {
    if (attachment.acls.empty()) return;
    if (!IsInterfaceName(attachment.interface)) {
      Judge({attachment.path, "the interface's name \"" + attachment.interface + "\"", true});
      return;
    }
    // An interface may be attached to several times.
    const auto [known, first] = has_group_.try_emplace(attachment.interface);
    std::array<bool, 2>& has_group = known->second;
    for (size_t i = 0; i < attachment.acls.size(); ++i) {
      const std::string& acl = attachment.acls[i];
      const auto name = name_of_.find(acl);
      if (name == name_of_.end()) {
        if (skipped_.count(acl) == 0)
          Judge({attachment.paths[i], "a list that is not there", true});
        continue;
      }
      bool* other = &has_group[l3_of_[acl] ? 1 : 0];
      if (*other && !(first && OwnOrder(attachment))) {
        Judge({attachment.paths[i],
               "a second list about the same frames: how the lists of one interface join is not "
               "defined",
               true});
        continue;
      }
      *other = true;
      profiles_.bindings[attachment.interface].push_back(name->second);
    }
  }

  // Whether all lists of the interface were profiles of ours, whose order is defined.
  bool OwnOrder(const Attachment& attachment) const {
    return std::all_of(attachment.acls.begin(), attachment.acls.end(), [this](const auto& name) {
      return std::any_of(lists_.acls.begin(), lists_.acls.end(), [&](const Acl& acl) {
        return acl.name == name && acl.priority && EndsAsProfiles(acl);
      });
    });
  }

  const AccessLists& lists_;
  const ImportOptions& options_;
  Report* report_;
  Profiles profiles_;
  std::set<std::string> names_, skipped_;
  std::map<std::string, std::string> name_of_;
  std::map<std::string, bool> l3_of_;
  std::map<std::string, std::array<bool, 2>> has_group_;  // by interface: L2, L3
  uint32_t given_priorities_ = 0;
};

}  // namespace

Profiles ToProfiles(const AccessLists& lists, const ImportOptions& options, Report* report) {
  return ToProfilesConverter(lists, options, report).Convert();
}

}  // namespace host::standard
