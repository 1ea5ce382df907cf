#include "host/filter_mgr/nftables/plan/compiler.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>

#include "host/filter_mgr/entry_order.h"
#include "host/filter_mgr/entry_text.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT: the classes of one library, used throughout

// Offsets of fields, in bytes from the start of their header.
constexpr uint8_t kDstMac = 0, kSrcMac = 6, kTpid = 12, kTci = 14, kLinkEnd = 16;  // IEEE 802.1Q
constexpr uint8_t kTos = 1, kProtocol = 9, kSrcIpv4 = 12, kDstIpv4 = 16;           // RFC 791
constexpr uint8_t kDstPort = 2;  // RFC 768, RFC 9293
constexpr uint16_t kEtherTypeIpv4 = 0x0800, kEtherTypeIpv6 = 0x86dd;
constexpr uint16_t kVidBits = 0x0fff;
constexpr int kPcpShift = 13;

bool IsTagTpid(uint16_t tpid) { return tpid == 0x8100 || tpid == 0x88a8; }

uint16_t Get16(const FieldTest::Bytes& bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

void Or16(FieldTest::Bytes& bytes, size_t at, unsigned int value) {
  bytes[at] |= value >> 8 & 0xff;
  bytes[at + 1] |= value & 0xff;
}

int SetBits(const FieldTest::Bytes& mask) {
  int count = 0;
  for (uint8_t byte : mask) count += __builtin_popcount(byte);
  return count;
}

// Gathers what an entry tests for.
class EntryTests {
 public:
  // False, with the reason in `reason`, for a match that is not known.
  bool Add(const Match& match, std::string* reason);
  // True when no frame can be like that.
  bool Contradictory() const {
    return (tag_fields_ && tpid_ && !IsTagTpid(*tpid_)) ||
           (port_ && protocol_ && *protocol_ != IPPROTO_TCP && *protocol_ != IPPROTO_UDP);
  }
  bool TaggedOnly() const { return tag_fields_ || (tpid_ && IsTagTpid(*tpid_)); }
  bool UntaggedOnly() const { return tpid_ && !IsTagTpid(*tpid_); }
  // Whether the port may stand behind an authentication header of IPv6.
  bool AskForIpv6Port() const { return port_ && !ipv4_; }
  // The tests in the order of evaluation; with `tagged`, for tagged frames only. `port_source` is
  // where the port is looked for.
  std::vector<FieldTest> Build(bool tagged, Source port_source) const;

 private:
  template <class M>
  void AddMac(const Match& match, uint8_t offset) {
    const auto& mac = static_cast<const M&>(match);
    for (int i = 0; i < ETH_ALEN; ++i) {
      const uint8_t ignored = mac.mask() ? mac.mask()->ether_addr_octet[i] : 0;
      link_mask_[offset + i] = static_cast<uint8_t>(~ignored);
      link_value_[offset + i] = mac.address().ether_addr_octet[i];
    }
  }
  template <class M>
  void AddIpv4(const Match& match, uint8_t offset) {
    const auto& ipv4 = static_cast<const M&>(match);
    const in_addr mask = ipv4.mask().value_or(in_addr{INADDR_BROADCAST});
    AddBytes(Source::kNetwork, offset, sizeof(mask), &ipv4.address(), &mask);
    ipv4_ = true;
  }
  void AddTag(unsigned int value, unsigned int mask) {
    Or16(link_value_, kTci, value);
    Or16(link_mask_, kTci, mask);
    tag_fields_ = true;
  }
  void AddByte(uint8_t offset, uint8_t value, uint8_t mask) {
    AddBytes(Source::kNetwork, offset, 1, &value, &mask);
    ipv4_ = true;
  }
  void AddBytes(Source source, uint8_t offset, uint8_t length, const void* value, const void* mask);
  void PackLink(std::vector<FieldTest>* tests) const;

  FieldTest::Bytes link_mask_{}, link_value_{};
  std::vector<FieldTest> upper_;  // tests above the link layer
  bool tag_fields_ = false, ipv4_ = false, port_ = false;
  std::optional<uint16_t> tpid_;
  std::optional<uint8_t> protocol_;
};

bool EntryTests::Add(const Match& match, std::string* reason) {
  switch (match.kind()) {
    case FILTERS_MATCH_DST_MAC:
      AddMac<MatchDstMac>(match, kDstMac);
      return true;
    case FILTERS_MATCH_SRC_MAC:
      AddMac<MatchSrcMac>(match, kSrcMac);
      return true;
    case FILTERS_MATCH_EXTERNAL_VLAN_ID:
      AddTag(static_cast<const MatchExternalVlanId&>(match).value(), kVidBits);
      return true;
    case FILTERS_MATCH_PCP:
      AddTag(static_cast<const MatchPcp&>(match).value() << kPcpShift, 7 << kPcpShift);
      return true;
    case FILTERS_MATCH_TPID:
      tpid_ = static_cast<const MatchTPID&>(match).value();
      Or16(link_value_, kTpid, *tpid_);
      Or16(link_mask_, kTpid, 0xffff);
      return true;
    case FILTERS_MATCH_SRC_IPV4:
      AddIpv4<MatchSrcIPv4>(match, kSrcIpv4);
      return true;
    case FILTERS_MATCH_DST_IPV4:
      AddIpv4<MatchDstIPv4>(match, kDstIpv4);
      return true;
    case FILTERS_MATCH_TOS:
      if (const auto* dscp = dynamic_cast<const MatchDSCP*>(&match)) {
        AddByte(kTos, static_cast<uint8_t>(dscp->value() << 2), 0xfc);
      } else {
        AddByte(kTos, static_cast<const MatchToS&>(match).value(), 0xff);
      }
      return true;
    case FILTERS_MATCH_IP_PROTOCOL:
      protocol_ = static_cast<const MatchIpProtocol&>(match).value();
      ipv4_ = true;
      return true;
    case FILTERS_MATCH_DST_L4_PORT: {
      FieldTest::Bytes port{}, mask{};
      Or16(port, 0, static_cast<const MatchDstL4Port&>(match).value());
      Or16(mask, 0, 0xffff);
      AddBytes(Source::kTransport, kDstPort, 2, port.data(), mask.data());
      port_ = true;
      return true;
    }
    default:
      *reason = "its match of kind " + std::to_string(match.kind()) + " is not known";
      return false;
  }
}

void EntryTests::AddBytes(Source source, uint8_t offset, uint8_t length, const void* value,
                          const void* mask) {
  FieldTest test;
  test.source = source;
  test.offset = offset;
  test.length = length;
  memcpy(test.value.data(), value, length);
  memcpy(test.mask.data(), mask, length);
  for (size_t i = 0; i < length; ++i) test.value[i] &= test.mask[i];
  // Also under a mask of no bits: the kernel then asks for the bytes to be there, as a match does.
  upper_.push_back(test);
}

// One test over the span of the link layer's compared bytes. It reads no byte outside that span:
// a frame may end right behind its EtherType.
void EntryTests::PackLink(std::vector<FieldTest>* tests) const {
  const auto compared = [](uint8_t byte) { return byte != 0; };
  const auto first = std::find_if(link_mask_.begin(), link_mask_.begin() + kLinkEnd, compared);
  if (first == link_mask_.end()) return;
  const auto last = std::find_if(link_mask_.rbegin(), link_mask_.rend(), compared).base();
  FieldTest test;
  test.source = Source::kLink;
  test.offset = static_cast<uint8_t>(first - link_mask_.begin());
  test.length = static_cast<uint8_t>(last - first);
  for (size_t i = 0; i < test.length; ++i) {
    test.mask[i] = link_mask_[test.offset + i];
    test.value[i] = link_value_[test.offset + i] & test.mask[i];
  }
  tests->push_back(test);
}

FieldTest MakeSetTest(Source source, uint8_t offset, uint8_t length, ValueSet set) {
  FieldTest test;
  test.source = source;
  test.offset = offset;
  test.length = length;
  test.set = set;
  return test;
}

// How rare frames are that pass the test: bits compared, less those of common values.
int Rarity(const FieldTest& test) {
  int bits = SetBits(test.mask);
  if (test.source == Source::kLink && test.offset <= kTpid && test.offset + test.length >= kTci &&
      Get16(test.mask, kTpid - test.offset) == 0xffff) {
    bits -= 15;
  }
  return bits;
}

FieldTest MakeExact(Source source, uint8_t offset, uint8_t length, unsigned int value) {
  FieldTest test = MakeSetTest(source, offset, length, ValueSet::kNone);
  for (size_t i = length; i-- > 0; value >>= 8) {
    test.value[i] = static_cast<uint8_t>(value);
    test.mask[i] = 0xff;
  }
  return test;
}

std::vector<FieldTest> EntryTests::Build(bool tagged, Source port_source) const {
  std::vector<FieldTest> tests = upper_;
  for (FieldTest& test : tests) {
    if (test.source == Source::kTransport) test.source = port_source;
  }
  PackLink(&tests);
  std::stable_sort(tests.begin(), tests.end(),
                   [](const FieldTest& a, const FieldTest& b) { return Rarity(a) > Rarity(b); });
  if ((tagged || tag_fields_) && !tpid_) {
    tests.push_back(MakeSetTest(Source::kLink, kTpid, 2, ValueSet::kTpids));
  }
  const bool behind_authentication = port_source != Source::kTransport;
  if (behind_authentication) {
    tests.push_back(MakeExact(Source::kL4Protocol, 0, 1, IPPROTO_AH));
    tests.push_back(MakeExact(Source::kEtherType, 0, 2, kEtherTypeIpv6));
  } else if (port_ && !protocol_) {
    tests.push_back(MakeSetTest(Source::kL4Protocol, 0, 1, ValueSet::kPortCarriers));
  }
  // These can become a guard, which takes them to be the last and in this order.
  if (protocol_) tests.push_back(MakeExact(Source::kNetwork, kProtocol, 1, *protocol_));
  if (ipv4_) tests.push_back(MakeExact(Source::kEtherType, 0, 2, kEtherTypeIpv4));
  return tests;
}

RulePtr MakeRule(std::vector<FieldTest> tests, const Outcome& outcome) {
  auto rule = std::make_shared<Rule>();
  rule->tests = std::move(tests);
  rule->outcome = outcome;
  return rule;
}

// Adds the rules that give the frames of the tests the outcome.
void AddRules(const EntryTests& tests, bool tagged, const Outcome& outcome,
              std::vector<RulePtr>* rules) {
  rules->push_back(MakeRule(tests.Build(tagged, Source::kTransport), outcome));
  if (!tests.AskForIpv6Port()) return;
  rules->push_back(MakeRule(tests.Build(tagged, Source::kIpv6Tcp), outcome));
  rules->push_back(MakeRule(tests.Build(tagged, Source::kIpv6Udp), outcome));
}

std::vector<RulePtr> RulesOf(const FiltersEntry& entry, const EntryTests& tests) {
  std::vector<RulePtr> rules;
  if (tests.Contradictory()) return rules;
  Outcome outcome;
  const bool deny = entry.findAction(FILTERS_ACTION_DENY) != nullptr;
  const auto* set_pcp = entry.getAction<ActionSetPcpAndQueue>();
  if (deny) outcome.verdict = Verdict::kDrop;
  if (deny || set_pcp == nullptr) {
    AddRules(tests, false, outcome, &rules);
    return rules;
  }
  outcome.queue = set_pcp->pcp();
  if (!tests.UntaggedOnly()) {
    Outcome writing = outcome;
    writing.tag_pcp = set_pcp->pcp();
    AddRules(tests, true, writing, &rules);
  }
  // Tagged frames do not get here: the rules before have decided them.
  if (!tests.TaggedOnly()) AddRules(tests, false, outcome, &rules);
  return rules;
}

}  // namespace

std::optional<std::vector<RulePtr>> CompileEntry(const FiltersEntry& entry, bool can_set_pcp,
                                                 std::string* reason) {
  EntryTests tests;
  for (const auto& match : entry.getMatches()) {
    if (!tests.Add(*match, reason)) return std::nullopt;
  }
  for (const auto& action : entry.getActions()) {
    if (action->kind() == FILTERS_ACTION_SET_PCP_AND_QUEUE && !can_set_pcp) {
      *reason = "it sets the PCP, which this kernel's packet filter was not seen to do right";
      return std::nullopt;
    }
  }
  return RulesOf(entry, tests);
}

namespace {

// Compiles a group entry by entry, each for every port that it names.
class GroupCompiler {
 public:
  GroupCompiler(const SentGroup& group, const CompiledGroup* previous,
                const CompilerOptions& options, CompileError* error)
      : previous_(previous), options_(options), error_(error), result_(group) {}

  std::optional<CompiledGroup> Compile() {
    for (const FiltersEntry* entry : EntriesInOrder(result_.source.content())) {
      if (!Add(*entry)) return std::nullopt;
    }
    return std::move(result_);
  }

 private:
  // A port under construction, with the place in the previous content that the next entry is
  // likely to be found at.
  struct Port {
    PortRules* now = nullptr;
    const PortRules* before = nullptr;
    size_t entry = 0, rule = 0;  // place in `before`
  };

  bool Add(const FiltersEntry& entry) {
    const auto* ingress =
        static_cast<const MatchIngressPorts*>(entry.findMatch(FILTERS_MATCH_INGRESS_PORTS));
    // All ports would be meant, of which nobody knows what they are to become.
    if (ingress == nullptr || ingress->ports().empty()) {
      return Refuse(entry, "it names no ingress port");
    }
    if (&ingress->ports() != last_list_ && !FindPorts(entry, ingress->ports())) return false;
    for (Port* port : last_ports_) {
      if (!AddTo(port, entry)) return false;
    }
    return true;
  }

  // Sets `last_ports_` to the ports of `list`, each once. Runs of entries share their list.
  bool FindPorts(const FiltersEntry& entry, const std::list<limid_t>& list) {
    last_ports_.clear();
    for (limid_t id : list) {
      const auto [it, is_new] = ports_.try_emplace(id);
      if (is_new && !Open(entry, id, &it->second)) return false;
      if (std::find(last_ports_.begin(), last_ports_.end(), &it->second) == last_ports_.end()) {
        last_ports_.push_back(&it->second);
      }
    }
    last_list_ = &list;
    return true;
  }

  bool Open(const FiltersEntry& entry, limid_t id, Port* port) {
    const std::string name = options_.names(id);
    if (name.empty()) {
      return Refuse(entry, "its ingress port " + std::to_string(id) + " is not known");
    }
    port->now = &result_.ports[name];
    if (previous_ == nullptr) return true;
    const auto it = previous_->ports.find(name);
    if (it == previous_->ports.end()) return true;
    port->before = &it->second;
    port->now->entries.reserve(it->second.entries.size() + 1);
    port->now->rules.reserve(it->second.rules.size() + 2);
    return true;
  }

  bool AddTo(Port* port, const FiltersEntry& entry) {
    PortRules& now = *port->now;
    if (Reuse(port, entry)) return true;
    std::string reason;
    auto rules = CompileEntry(entry, options_.can_set_pcp, &reason);
    if (!rules) return Refuse(entry, reason);
    now.entries.push_back(
        {entry.contentIdentity(), entry.getId(), static_cast<uint8_t>(rules->size())});
    now.rules.insert(now.rules.end(), rules->begin(), rules->end());
    return true;
  }

  // Takes the entry's rules from the previous content if they are found near the expected place:
  // entries before it may have been removed.
  bool Reuse(Port* port, const FiltersEntry& entry) {
    constexpr size_t kReach = 8;
    if (port->before == nullptr) return false;
    const auto& entries = port->before->entries;
    const size_t end = std::min(entries.size(), port->entry + kReach);
    size_t rule = port->rule;
    for (size_t i = port->entry; i < end; ++i) {
      const size_t count = entries[i].rule_count;
      if (entries[i].identity == entry.contentIdentity()) {
        const auto first = port->before->rules.begin() + static_cast<ptrdiff_t>(rule);
        port->now->entries.push_back({entries[i].identity, entry.getId(), entries[i].rule_count});
        port->now->rules.insert(port->now->rules.end(), first,
                                first + static_cast<ptrdiff_t>(count));
        port->entry = i + 1;
        port->rule = rule + count;
        return true;
      }
      rule += count;
    }
    return false;
  }

  bool Refuse(const FiltersEntry& entry, const std::string& reason) {
    error_->entry = entry.getId();
    error_->reason = reason + " (" + EntryText(entry) + ")";
    return false;
  }

  const CompiledGroup* previous_;
  const CompilerOptions& options_;
  CompileError* error_;
  CompiledGroup result_;
  std::map<limid_t, Port> ports_;
  const std::list<limid_t>* last_list_ = nullptr;
  std::vector<Port*> last_ports_;
};

}  // namespace

std::optional<CompiledGroup> CompileGroup(const SentGroup& group, const CompiledGroup* previous,
                                          const CompilerOptions& options, CompileError* error) {
  return GroupCompiler(group, previous, options, error).Compile();
}

}  // namespace host
