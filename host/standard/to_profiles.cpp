// From access lists to profiles: see profiles.h.
#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "host/standard/descriptions.h"
#include "host/standard/profiles.h"
#include "host/standard/tags.h"

namespace host::standard {
namespace {

constexpr uint32_t kHighest = 65535;  // of priorities
constexpr uint32_t kStep = 10;        // between entries, where there is room
constexpr size_t kLongestName = 64;

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

// The combinations of the values that conditions allow, one by one: the last field changes first.
class Combinations {
 public:
  explicit Combinations(const Conditions& conditions) {
    for (size_t field = 0; field < kFieldCount; ++field) {
      forms_[field] = FormsOf(static_cast<Field>(field), conditions[field]);
    }
  }
  std::array<std::optional<Value>, kFieldCount> At(size_t index) const {
    std::array<std::optional<Value>, kFieldCount> matches;
    for (size_t field = kFieldCount; field-- > 0;) {
      const std::vector<Value>& forms = forms_[field];
      if (forms.empty()) continue;
      matches[field] = forms[index % forms.size()];
      index /= forms.size();
    }
    return matches;
  }

 private:
  std::array<std::vector<Value>, kFieldCount> forms_;
};

// An entry of a list and how many it becomes.
struct Part {
  const Ace* ace;
  size_t count;
};

class ToProfilesConverter {
 public:
  ToProfilesConverter(const AccessLists& lists, const ImportOptions& options, Report* report)
      : lists_(lists), options_(options), report_(report) {}

  Profiles Convert() {
    for (const Note& note : lists_.notes) {
      Add(Outcome::kNoted, note.path, note.meaning, note.done);
    }
    for (const Problem& problem : lists_.problems) {
      Judge(problem, "left out: what it dropped may pass");
    }
    for (const Acl& acl : lists_.acls) ConvertAcl(acl);
    KeepOwnNames(origins_, &profiles_, report_);
    for (const Attachment& attachment : lists_.attachments) Bind(attachment);
    return std::move(profiles_);
  }

 private:
  void Add(Outcome outcome, std::string path, std::string meaning, std::string done,
           bool loud = false) {
    report_->Add({std::move(path), std::move(meaning), outcome, std::move(done), loud});
  }

  // A problem of something as a whole, with what is done where that may be left out.
  void Judge(const Problem& problem, const char* left_out) {
    const bool skip = options_.allowance.skip_entries;
    const char* why = problem.whole ? "what is meant is in doubt" : "there is nothing like it";
    Add(skip ? Outcome::kLeftOut : Outcome::kRefused, problem.path, problem.meaning,
        skip ? left_out : why, skip);
  }

  void ConvertAcl(const Acl& acl) {
    for (const Problem& problem : acl.problems) {
      Judge(problem, "the whole list is left out: what it dropped may pass");
    }
    if (!acl.problems.empty()) {
      skipped_.insert(acl.name);
      return;
    }
    std::vector<Part> parts;
    for (const Ace& ace : acl.aces) {
      if (&ace != &acl.aces.back() || !EndsAsProfiles(acl)) {
        ConvertAce(ace, &parts);
      } else if (!ace.description.empty() || ace.ace_priority) {
        Add(Outcome::kNoted, ace.path, "a text or a number of the end of the profile", "left out");
      }
    }
    Ace end;
    AddEnd(acl, &end, &parts);
    Profile profile;
    profile.l3 = acl.l3.value_or(acl.kind != Kind::kEthernet);
    profile.priority = PriorityOf(acl);
    profile.name = NameFor(acl);
    const bool known = profile.name == acl.name || profile.name == acl.profile_name;
    const std::string text = StartOf(acl.description);
    const std::string tagged = !acl.set_name.empty() ? Tagged("set", StartOf(acl.set_name), text)
                               : known               ? text
                                                     : Tagged("acl", StartOf(acl.name), text);
    profile.description = Describe(tagged, acl.path, report_);
    if (!Number(acl, parts, &profile)) return;
    l3_of_[acl.name] = profile.l3;
    if (acl.priority && EndsAsProfiles(acl)) ours_.insert(acl.name);
    profiles_.profiles.push_back(std::move(profile));
    ProfileOrigin& origin = origins_.emplace_back(ProfileOrigin{&acl, {}, EndsAsProfiles(acl)});
    for (const Part& part : parts) {
      origin.aces.insert(origin.aces.end(), part.count, part.ace == &end ? nullptr : part.ace);
    }
  }

  // Whether the last entry stands for the end of a profile, which passes what is left.
  static bool EndsAsProfiles(const Acl& acl) {
    if (acl.aces.empty()) return false;
    const Ace& last = acl.aces.back();
    return last.is_end && last.handling == Handling::kPermit && !last.set_pcp &&
           last.problems.empty() && HasAll(acl, last);
  }

  // Whether the entry has all packets that come so far.
  static bool HasAll(const Acl& acl, const Ace& ace) {
    if (ace.matches_nothing) return false;
    if (AskForNothing(ace.conditions)) return true;
    Conditions rest = ace.conditions;
    rest[kDestinationIpv4].clear();
    const auto& destination = ace.conditions[kDestinationIpv4];
    return acl.kind == Kind::kIpv4 && AskForNothing(rest) && destination.size() == 1 &&
           destination[0].mask == 0;
  }

  void ConvertAce(const Ace& ace, std::vector<Part>* parts) {
    if (!ace.problems.empty() && !MayConvert(ace)) return;
    if (ace.matches_nothing) {
      Add(Outcome::kExact, ace.path, "conditions that no packet meets", "no entry");
      return;
    }
    if (ace.is_end) {
      Add(Outcome::kNoted, ace.path, "an end of a profile with conditions, or in another place",
          "an entry like others");
    }
    const size_t count = AlternativesOf(ace.conditions);
    if (count > options_.most_entries) {
      Skip(ace, {ace.path, "conditions that take more than " +
                               std::to_string(options_.most_entries) + " entries"});
      return;
    }
    if (count > 1) {
      Add(Outcome::kExact, ace.path, "alternatives in one entry",
          std::to_string(count) + " entries");
    }
    parts->push_back({&ace, count});
  }

  // Whether the entry may stay, without what it cannot have.
  bool MayConvert(const Ace& ace) {
    // What an entry is there for cannot be dropped.
    const bool whole = std::any_of(ace.problems.begin(), ace.problems.end(),
                                   [](const Problem& problem) { return problem.whole; });
    if (options_.allowance.drop_conditions && !whole && ace.handling != Handling::kNone) {
      for (const Problem& problem : ace.problems) {
        const Loss loss = problem.is_condition ? LossOfCondition(ace.handling == Handling::kDeny)
                                               : Loss{"left out", false};
        Add(Outcome::kLeftOut, problem.path, problem.meaning, loss.done, loss.loud);
      }
      return true;
    }
    for (const Problem& problem : ace.problems) Skip(ace, problem);
    return false;
  }

  void Skip(const Ace& ace, const Problem& problem) {
    // What an entry does that has no action known here may be to drop.
    const bool deny =
        ace.handling == Handling::kDeny || (ace.handling == Handling::kNone && !ace.set_pcp);
    if (!options_.allowance.skip_entries) {
      const char* why = problem.whole           ? "the entry would mean something else without it"
                        : !problem.is_condition ? "there is nothing like it"
                        : deny                  ? "the entry would drop more without it"
                                                : "the entry would pass more without it";
      return Add(Outcome::kRefused, problem.path, problem.meaning, why);
    }
    const Loss loss = LossOfEntry(deny);
    Add(Outcome::kLeftOut, problem.path, problem.meaning, loss.done, loss.loud);
  }

  // The end of the list as an entry, unless the last entry has all that comes so far.
  void AddEnd(const Acl& acl, Ace* end, std::vector<Part>* parts) {
    if (EndsAsProfiles(acl)) return;
    if (acl.kind == Kind::kIpv4) end->conditions[kDestinationIpv4] = {{0, 0}};
    const std::string path = acl.path + "/aces";
    if (!parts->empty() && HasAll(acl, *parts->back().ace)) return;
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
    parts->push_back({end, 1});
  }

  uint16_t PriorityOf(const Acl& acl) {
    if (acl.priority) return *acl.priority;
    const uint32_t given = std::min(options_.first_priority + 10 * given_priorities_++, kHighest);
    return static_cast<uint16_t>(given);
  }

  std::string NameFor(const Acl& acl) {
    const std::string& wanted = acl.profile_name.empty() ? acl.name : acl.profile_name;
    std::string plain;
    for (const char c : wanted) plain += MayBeInName(c, false) ? c : '_';
    std::string name = names_.Take(plain.empty() ? "acl" : plain);
    if (name != wanted) {
      Add(Outcome::kExact, acl.path, "the name \"" + wanted + "\"", "the profile " + name);
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
      count += part.count;
      const std::optional<uint32_t> at = part.ace->ace_priority
                                             ? std::optional<uint32_t>(*part.ace->ace_priority)
                                             : part.ace->number;
      const bool fits = at && *at >= next_free && *at + part.count - 1 <= kHighest;
      own = own && part.ace->ace_priority && fits;
      // The end of the list has no number, and a place at the end.
      const bool at_end =
          &part == &parts.back() && !at && next_free + kStep + part.count - 1 <= kHighest;
      numbered = numbered && (at_end || fits);
      if (at) next_free = *at + part.count;
    }
    if (count > kHighest + 1) {
      Add(Outcome::kRefused, acl.path, "a list of " + std::to_string(count) + " entries",
          "a profile has at most 65536");
      return false;
    }
    entries_ += count;
    if (entries_ > kMostEntries) {
      Add(Outcome::kRefused, acl.path, "entries of which there are " + std::to_string(entries_),
          "a conversion has at most " + std::to_string(kMostEntries));
      return false;
    }
    const bool keep = own || numbered;
    if (!keep) TellNumbers(acl, parts);
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
      const Combinations combinations(ace.conditions);
      for (size_t i = 0; i < part.count; ++i) {
        AddEntry(part, i, number, keep, profile);
        profile->entries.back().matches = combinations.At(i);
        number += keep ? 1 : std::max<uint32_t>(step, 1);
      }
    }
    return true;
  }

  // That the entries get other numbers than they had.
  void TellNumbers(const Acl& acl, const std::vector<Part>& parts) {
    const auto any = [&parts](const auto& has) {
      return std::any_of(parts.begin(), parts.end(),
                         [&](const Part& part) { return has(*part.ace); });
    };
    if (any([](const Ace& ace) { return ace.ace_priority.has_value(); })) {
      Add(Outcome::kNoted, acl.path, "numbers that are not those of the order, or leave no room",
          "numbered anew, in the order of the entries");
    } else if (any([](const Ace& ace) { return ace.number.has_value(); })) {
      Add(Outcome::kExact, acl.path, "sequence ids that are too high, or leave no room",
          "numbered anew: they are in the descriptions");
    }
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
    entry.handling = ace.handling;
    entry.set_pcp = ace.set_pcp;
    const bool one_of_many = part.count > 1;
    const std::string which =
        one_of_many ? " (" + std::to_string(index + 1) + " of " + std::to_string(part.count) + ")"
                    : "";
    std::string text = StartOf(ace.description);
    if (ace.number && (!keeps_number || one_of_many)) {
      text = Tagged("seq", std::to_string(*ace.number) + which, text);
    } else if ((!ace.ace_priority || one_of_many) && !ace.name.empty() && !ace.number) {
      text = Tagged("ace", StartOf(ace.name) + which, text);
    }
    // The last one's number is the longest.
    entry.description = Describe(text, ace.path, index + 1 == part.count ? report_ : nullptr);
  }

  void Bind(const Attachment& attachment) {
    constexpr char kLeftOut[] = "the binding is left out: what its list dropped here may pass";
    if (!IsInterfaceName(attachment.interface)) {
      Judge({attachment.path, "the interface's name \"" + attachment.interface + "\"", true},
            "the interface is left out: what its lists dropped there may pass");
      return;
    }
    // An interface may be attached to several times.
    const auto [known, first] = has_group_.try_emplace(attachment.interface);
    std::array<bool, 2>& has_group = known->second;
    // The order of profiles of ours is defined.
    const bool own_order =
        first && std::all_of(attachment.acls.begin(), attachment.acls.end(),
                             [this](const auto& name) { return ours_.count(name) > 0; });
    std::vector<std::string>& bound = profiles_.bindings[attachment.interface];
    for (size_t i = 0; i < attachment.acls.size(); ++i) {
      const std::string& acl = attachment.acls[i];
      const auto name = name_of_.find(acl);
      if (skipped_.count(acl) > 0) {
        Judge({attachment.paths[i], "the list " + acl + ", which cannot be kept", true}, kLeftOut);
      } else if (name == name_of_.end()) {
        Judge({attachment.paths[i], "a list that is not there", true}, kLeftOut);
      } else if (bool* other = &has_group[l3_of_[acl] ? 1 : 0]; *other && !own_order) {
        Judge({attachment.paths[i],
               "a second list about the same frames: how the lists of one interface join is not "
               "defined",
               true},
              kLeftOut);
      } else {
        *other = true;
        bound.push_back(name->second);
      }
    }
  }

  const AccessLists& lists_;
  const ImportOptions& options_;
  Report* report_;
  Profiles profiles_;
  UniqueNames names_{"-", kLongestName};
  std::set<std::string> skipped_, ours_;  // lists that are left out, that were profiles of ours
  size_t entries_ = 0;                    // of all profiles
  std::vector<ProfileOrigin> origins_;    // by profile
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
