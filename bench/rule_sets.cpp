#include "bench/rule_sets.h"

#include <random>
#include <unordered_set>

namespace bench {
namespace {

using host::classifier::Rule;
using Random = std::mt19937_64;

// Lengths of the source and destination prefixes of `weight` rules in a thousand.
struct Lengths {
  uint8_t source, destination;
  uint16_t weight;
};

// After the seed acl1, rounded: its pairs for rules without (first) and with ports, by their
// shares.
constexpr Lengths kAcl[] = {
    {0, 0, 2},    {0, 8, 2},    {8, 0, 2},     {0, 13, 1},  {23, 0, 1},   {23, 4, 1},
    {23, 15, 1},  {23, 16, 16}, {23, 24, 1},   {23, 26, 4}, {30, 22, 17}, {31, 22, 9},
    {23, 31, 10}, {32, 22, 60}, {23, 32, 50},  {31, 24, 2}, {32, 24, 34}, {30, 32, 6},
    {31, 32, 38}, {32, 31, 22}, {32, 32, 721},
};

constexpr Lengths kFirewall[] = {
    {0, 0, 40},   {0, 32, 190}, {32, 0, 110}, {0, 24, 90},   {24, 0, 60},
    {0, 16, 40},  {16, 0, 30},  {0, 28, 20},  {32, 32, 150}, {24, 32, 60},
    {32, 24, 50}, {24, 24, 60}, {16, 32, 30}, {16, 16, 20},  {8, 32, 10},
    {0, 27, 10},  {0, 30, 10},  {28, 32, 10}, {0, 8, 5},     {8, 0, 5},
};

// Destination ports of acl1 and other well-known ones, drawn with falling shares.
constexpr uint16_t kPorts[] = {1521, 80,   443,  53,   1526, 1221, 25,   1433, 22,   1525,
                               135,  1712, 1711, 1704, 1708, 5555, 1705, 6000, 20,   21,
                               1724, 1717, 1707, 1733, 1706, 5540, 5541, 1734, 1489, 1490,
                               5632, 5631, 6789, 1715, 2121, 6790, 123,  161,  389,  3306};

bool Chance(Random& random, double share) {
  return std::uniform_real_distribution<double>(0, 1)(random) < share;
}

template <size_t N>
Lengths Draw(const Lengths (&table)[N], Random& random) {
  int sum = 0;
  for (const Lengths& row : table) sum += row.weight;
  int at = std::uniform_int_distribution<int>(0, sum - 1)(random);
  const Lengths* row = table;
  while (at >= row->weight) at -= row++->weight;
  return *row;
}

// The lengths of IP chains: most pairs are of some tens, which differ from set to set.
class IpChainLengths {
 public:
  explicit IpChainLengths(Random& random) {
    for (Lengths& pair : pairs_) pair = {Length(random), Length(random), 0};
  }
  Lengths operator()(Random& random) const {
    if (Chance(random, 0.3)) return {32, 32, 0};
    const double place = std::uniform_real_distribution<double>(0, 1)(random);
    return pairs_[static_cast<size_t>(place * place * kPairs)];
  }

 private:
  static constexpr size_t kPairs = 90;

  static uint8_t Length(Random& random) {
    constexpr uint8_t kCommon[] = {0, 8, 16, 16, 24, 24, 24, 32, 32, 32};
    if (Chance(random, 0.5)) return kCommon[random() % sizeof(kCommon)];
    return static_cast<uint8_t>(17 + random() % 16);
  }

  Lengths pairs_[kPairs];
};

uint32_t Prefix(int length) { return length == 0 ? 0 : ~0U << (32 - length); }

// Addresses that share some leading bits with one that was drawn before.
class Addresses {
 public:
  uint32_t Draw(Random& random) {
    auto address = static_cast<uint32_t>(random());
    if (!drawn_.empty() && !Chance(random, 0.02)) {
      const uint32_t shared = Prefix(8 + static_cast<int>(random() % 23));
      address = (drawn_[random() % drawn_.size()] & shared) | (address & ~shared);
    }
    if (drawn_.size() < 4096) drawn_.push_back(address);
    return address;
  }

 private:
  std::vector<uint32_t> drawn_;
};

class Generator {
 public:
  Generator(Family family, uint64_t seed) : family_(family), random_(seed), chains_(random_) {}

  Rule Next() {
    Rule rule;
    if (family_ == Family::kLink) {
      Link(&rule);
    } else {
      Network(&rule);
    }
    rule.action = Chance(random_, 0.5) ? CLS_DENY : CLS_PERMIT;
    for (int i = 0; i < 4; ++i) rule.value.word[i] &= rule.mask.word[i];
    return rule;
  }

 private:
  void Network(Rule* rule) {
    const Lengths lengths = family_ == Family::kAcl        ? Draw(kAcl, random_)
                            : family_ == Family::kFirewall ? Draw(kFirewall, random_)
                                                           : chains_(random_);
    rule->mask.word[2] = uint64_t{Prefix(lengths.source)} << 32 | Prefix(lengths.destination);
    rule->value.word[2] = uint64_t{sources_.Draw(random_)} << 32 | destinations_.Draw(random_);
    // Shares of TCP, UDP, ICMP, and of rules with a port among the first two.
    const bool acl = family_ == Family::kAcl;
    const double tcp = acl ? 0.873 : 0.55;
    const double udp = tcp + (acl ? 0.011 : 0.25);
    const double icmp = udp + (acl ? 0.031 : 0.05);
    const double place = std::uniform_real_distribution<double>(0, 1)(random_);
    uint64_t value = CLS_HAS_IPV4;
    uint64_t mask = CLS_HAS_IPV4;
    if (place < icmp) {
      mask |= 0xff000000;
      value |= place < tcp ? 6U << 24 : place < udp ? 17U << 24 : 1U << 24;
    }
    const bool any = lengths.source == 0 && lengths.destination == 0;
    if (place < udp && (any || Chance(random_, acl ? 0.65 : 0.55))) {
      mask |= CLS_HAS_PORT | 0xffff;
      value |= CLS_HAS_PORT | (any ? random_() % 65536 : Port());
    }
    rule->mask.word[3] = mask;
    rule->value.word[3] = value;
  }

  uint16_t Port() {
    const double place = std::uniform_real_distribution<double>(0, 1)(random_);
    return kPorts[static_cast<size_t>(place * place * (sizeof(kPorts) / sizeof(*kPorts)))];
  }

  // Stations by their addresses or their vendors, with and without a VLAN, some with an EtherType.
  void Link(Rule* rule) {
    constexpr uint64_t kFull = ~0ULL << 16;
    constexpr uint64_t kVendor = ~0ULL << 40;
    const auto address = [this] { return (random_() % 500 << 40) | (random_() % 65536 << 16); };
    const uint64_t kind = random_() % 10;
    rule->mask.word[0] = kind < 5 ? kFull : kind == 5 ? kVendor : 0;
    rule->mask.word[1] = kind > 6 || kind == 0 ? kFull : kind == 6 ? kVendor : 0;
    rule->value.word[0] = address() | (random_() % 2 == 0 ? 0x8100 : 0x88a8);
    rule->value.word[1] = address() | random_() % 4096;
    if (Chance(random_, 0.6)) {
      rule->mask.word[1] |= 0xfff;
      rule->mask.word[3] |= CLS_HAS_TAG;
    }
    if (Chance(random_, 0.1)) rule->mask.word[0] |= 0xffff;
    rule->value.word[3] = CLS_HAS_TAG;
  }

  Family family_;
  Random random_;
  IpChainLengths chains_;
  Addresses sources_;
  Addresses destinations_;
};

}  // namespace

const char* NameOf(Family family) {
  constexpr const char* kNames[] = {"acl", "fw", "ipc", "l2"};
  return kNames[static_cast<int>(family)];
}

std::vector<Rule> MakeRules(Family family, size_t count, uint64_t seed) {
  Generator generator(family, seed);
  std::unordered_set<uint64_t> seen;
  std::vector<Rule> rules;
  while (rules.size() < count) {
    Rule rule = generator.Next();
    const uint64_t match =
        host::classifier::Hash(rule.value) * 3 + host::classifier::Hash(rule.mask);
    if (!seen.insert(match).second) continue;
    rule.cookie = rules.size();
    rules.push_back(rule);
  }
  return rules;
}

std::vector<cls_key> MakeKeys(const std::vector<Rule>& rules, size_t count, uint64_t seed) {
  Random random(seed);
  std::vector<cls_key> keys;
  for (size_t i = 0; i < count; ++i) {
    const Rule& rule = rules[random() % rules.size()];
    cls_key key{};
    for (int word = 0; word < 4; ++word) {
      // What the rule leaves open is another rule's, as frames come from the same network.
      const uint64_t other = rules[random() % rules.size()].value.word[word];
      const uint64_t mask = i % 10 == 0 ? 0 : rule.mask.word[word];
      key.word[word] = (rule.value.word[word] & mask) | (other & ~mask);
    }
    keys.push_back(key);
  }
  return keys;
}

}  // namespace bench
