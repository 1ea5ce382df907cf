// Rule sets as operators write them, of any size, for benchmarks of the search.
//
// The method is ClassBench's (D. Taylor, J. Turner, "ClassBench: A Packet Classification
// Benchmark", IEEE/ACM Transactions on Networking 15(3), 2007): rules are drawn from the joint
// distribution of prefix lengths, protocols and ports of a seed, and addresses share leading bits
// with earlier ones, so that prefixes nest. The fields are this system's: the destination port is
// exact or any, there is no source port, and there are sets that match the link layer.
//
// `acl` has the prefix lengths of the published seed acl1, rounded, with further port values. The
// figures of firewalls and IP chains are estimates of these families (wildcards for one side and
// few lengths there, all lengths for both addresses here), not those of a published seed.
#ifndef BENCH_RULE_SETS_H_
#define BENCH_RULE_SETS_H_

#include <cstdint>
#include <vector>

#include "host/classifier/rule.h"

namespace bench {

enum class Family { kAcl, kFirewall, kIpChain, kLink };
constexpr Family kFamilies[] = {Family::kAcl, Family::kFirewall, Family::kIpChain, Family::kLink};
const char* NameOf(Family family);

// `count` rules, no two with the same match. The same for the same arguments.
std::vector<host::classifier::Rule> MakeRules(Family family, size_t count, uint64_t seed);

// Keys of frames that meet the rules: most are made to match one of them, some (one in ten) are
// not.
std::vector<cls_key> MakeKeys(const std::vector<host::classifier::Rule>& rules, size_t count,
                              uint64_t seed);

}  // namespace bench

#endif  // BENCH_RULE_SETS_H_
