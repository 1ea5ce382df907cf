// From an entry of a filter group to the classifier's rule over the frame key.
#ifndef HOST_FILTER_MGR_EBPF_ENTRY_RULE_H_
#define HOST_FILTER_MGR_EBPF_ENTRY_RULE_H_

#include <optional>
#include <string>

#include "host/classifier/rule.h"
#include "platform/filters_common/filters_entry.h"

namespace host {

constexpr int kPcpShift = 13;  // of the PCP in a TCI (IEEE 802.1Q)

// The rule that matches what the entry's matches do, ingress ports aside, and does what its actions
// say; without a counter. An entry that no frame can match becomes a rule that no key can match.
// No value, and why in `reason`, when the entry cannot be enforced exactly.
std::optional<classifier::Rule> RuleOfEntry(const FiltersCommon::FiltersEntry& entry,
                                            std::string* reason);

// Whether the rules match the same frames and do the same.
bool SameEffect(const classifier::Rule& a, const classifier::Rule& b);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_ENTRY_RULE_H_
