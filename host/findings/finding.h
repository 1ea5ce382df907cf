// What is found in a configuration: it is valid, but does not do what somebody may expect of it.
#ifndef HOST_FINDINGS_FINDING_H_
#define HOST_FINDINGS_FINDING_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace host::findings {

enum class Kind : uint8_t {
  kAbsentInterface,   // profiles are bound to an interface that the system does not have
  kNoFrame,           // an entry that no frame can match
  kContradictsCover,  // an entry that never decides, as earlier ones take all of its frames: they
                      // do something else, or some of them do
  kRedundant,         // the same, and they all do what the entry does
  kNoAction,          // an entry without an action, which permits
  kIpv6Passes,        // a port with L3 entries that deny, none of which says anything of IPv6
  kBeyondTables,      // a port whose entries the packet filter's tables cannot hold
};
constexpr Kind kAllKinds[] = {Kind::kAbsentInterface, Kind::kNoFrame,  Kind::kContradictsCover,
                              Kind::kRedundant,       Kind::kNoAction, Kind::kIpv6Passes,
                              Kind::kBeyondTables};
// The kind's name where programs read it, such as "no-frame".
const char* NameOf(Kind kind);

struct EntryName {
  std::string profile;
  uint16_t ace_priority = 0;
};

struct Finding {
  Kind kind;
  // Interfaces that it is about; null: every one that the profile is bound to, now or later.
  std::shared_ptr<const std::vector<std::string>> interfaces;
  std::optional<EntryName> entry;
  std::vector<EntryName> cover;  // kContradictsCover, kRedundant: the earlier entries
  std::string text;              // for people: what it is, in a sentence without the names above
};

struct Findings {
  // By kind, in the order above; of each kind, what is so wherever a profile is bound, by profile
  // and entry, and then the rest by interface. The first of each kind.
  std::vector<Finding> list;
  std::map<Kind, size_t> count;  // how many there are, also of those that are not in the list
  bool complete = true;          // false: a bound of effort was reached before the end
};

}  // namespace host::findings

#endif  // HOST_FINDINGS_FINDING_H_
