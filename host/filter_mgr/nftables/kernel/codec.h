// Rules as the kernel's packet filter expresses them, both ways.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_CODEC_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_CODEC_H_

#include <string>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/nftables/kernel/names.h"
#include "host/filter_mgr/nftables/plan/rule.h"

struct nftnl_rule;

namespace host {

// Appends the expressions of `rule` to `out`, but for the tests of `guard`, which its tests end
// with. `slot` is the group that it is of, `hits` what the counter starts with.
void EncodeRule(const Rule& rule, const Guard& guard, GroupSlot slot, const Hits& hits,
                nftnl_rule* out);

// The rule that EncodeRule() would have written as `in`; a rule marked foreign when there is none.
// The counter's value goes to `hits`.
Rule DecodeRule(const nftnl_rule* in, const Guard& guard, GroupSlot slot, Hits* hits);

// A rule that does nothing but jump to `chain`; and the chain that such a rule jumps to, empty for
// another one.
void EncodeJump(const std::string& chain, nftnl_rule* out);
std::string DecodeJump(const nftnl_rule* in);

// The value of the rule's counter.
Hits CounterOf(const nftnl_rule* rule);

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_CODEC_H_
