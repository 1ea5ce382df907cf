// From a filter group to rules per port.
//
// The compiler is a pure function: it knows nothing of what the kernel holds. For every port that
// the group's entries name it gives the rules in evaluation order (entries by ascending priority).
// An entry becomes one rule; an entry that sets the PCP of tagged and untagged frames becomes two,
// as an untagged frame has nothing to write; an entry that no frame can match becomes none. For
// the packet filter an authentication header of IPv6 is no extension header but what the packet
// carries; so an entry that asks for a destination port, and nothing of IPv4, becomes three rules:
// two look for TCP and UDP behind such a header.
//
// What the fields mean is every back end's contract (backend.h).
//
// An entry's tests are a conjunction, so their order is free: the rarest comes first, as most rules
// are left at their first test, and those for the IP protocol and IPv4 last, as neighbours often
// share them (see Guard). The link layer's fields are packed into one test of up to 16 bytes.
//
// A stage that replaces runs of similar rules by a dispatch over one field would stand behind this
// one: it would take a port's rules and give fewer of them, with an outcome that looks the chunk
// up in a map.
#ifndef HOST_FILTER_MGR_NFTABLES_PLAN_COMPILER_H_
#define HOST_FILTER_MGR_NFTABLES_PLAN_COMPILER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/filter_mgr/nftables/plan/rule.h"
#include "host/filter_mgr/port_names.h"
#include "host/filter_mgr/sent_group.h"

namespace host {

// An entry as it applies to one port: its rules are the next `rule_count` ones of the port.
struct PortEntry {
  const void* identity;  // of the entry's content
  unsigned short id;
  uint8_t rule_count;
};

struct PortRules {
  std::vector<PortEntry> entries;
  std::vector<RulePtr> rules;
};

struct CompiledGroup {
  explicit CompiledGroup(const SentGroup& group) : source(group) {}

  SentGroup source;  // keeps the identities of the entries' content valid
  std::map<std::string, PortRules> ports;
};

struct CompilerOptions {
  PortNames names;
  bool can_set_pcp = true;
};

// Why an entry cannot be enforced.
struct CompileError {
  unsigned short entry = 0;
  std::string reason;
};

// Compiles `group`. An entry without ports is refused. Rules of entries that `previous` (may be
// null) holds unchanged are taken from there. No value, and the reason in `error`, when an entry
// cannot be enforced exactly.
std::optional<CompiledGroup> CompileGroup(const SentGroup& group, const CompiledGroup* previous,
                                          const CompilerOptions& options, CompileError* error);

// The rules of one entry, ports aside; at most six. No value, with the reason, when the entry
// cannot be enforced exactly.
std::optional<std::vector<RulePtr>> CompileEntry(const FiltersCommon::FiltersEntry& entry,
                                                 bool can_set_pcp, std::string* reason);

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_PLAN_COMPILER_H_
