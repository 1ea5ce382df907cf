// The form in which entries become packet filter rules: what a frame is tested for, and what is
// done with it. It is the common ground of the compiler, which makes rules from entries, of the
// difference, which compares them with what the kernel holds, and of the codec, which writes them
// to the kernel and reads them back.
//
// Rules are immutable and shared. Two rules are the same when their tests, in order, and their
// outcomes are.
#ifndef HOST_FILTER_MGR_NFTABLES_PLAN_RULE_H_
#define HOST_FILTER_MGR_NFTABLES_PLAN_RULE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace host {

// Where a test's bytes come from.
enum class Source : uint8_t {
  kLink,        // from the destination MAC address, with the outer tag where it was on the wire
  kNetwork,     // from the first byte behind the EtherType; behind one tag at most
  kTransport,   // from the header behind the IP header and the extension headers of IPv6 up to an
                // authentication header, in a first fragment only
  kIpv6Tcp,     // from the TCP header behind all extension headers of IPv6, likewise
  kIpv6Udp,     // from the UDP header there
  kEtherType,   // 2 bytes: the EtherType behind one tag at most
  kL4Protocol,  // 1 byte: the protocol of that header, for a packet that fits into its frame
};

// Fixed sets of values that no mask can express, held in every table.
enum class ValueSet : uint8_t {
  kNone,
  kTpids,        // TPIDs of a tag: 0x8100 and 0x88a8
  kPortCarriers  // IP protocols that have ports: TCP and UDP
};

// One condition. Either the masked bytes equal `value`, or (with a set) they are one of its values.
struct FieldTest {
  static constexpr size_t kMaxLength = 16;
  using Bytes = std::array<uint8_t, kMaxLength>;

  Source source = Source::kLink;
  ValueSet set = ValueSet::kNone;
  uint8_t offset = 0;  // bytes from the source's start
  uint8_t length = 0;  // bytes
  Bytes mask{};        // set bits are compared; zero beyond `length`, and for a set
  Bytes value{};       // zero where `mask` is

  bool operator==(const FieldTest& other) const;
  // Whether all bits are compared with one value.
  bool IsExact() const;
};

enum class Verdict : uint8_t {
  kAccept,  // ends the group's evaluation
  kDrop,    // final
  kJump,    // evaluation goes on in a chunk of rules and comes back if none of them matches
  kGoto,    // evaluation goes on in a chunk of rules, and comes back to behind the last jump
};

struct Outcome {
  Verdict verdict = Verdict::kAccept;
  bool counted = true;             // whether matches are counted
  uint32_t chunk = 0;              // number of the chunk that kJump or kGoto goes to
  std::optional<uint8_t> tag_pcp;  // PCP written into the outer tag; needs a test for kTpids
  std::optional<uint8_t> queue;    // priority given to the packet

  bool operator==(const Outcome& other) const;
};

struct Rule {
  std::vector<FieldTest> tests;  // all must hold
  Outcome outcome;
  // Read from the kernel, and nothing that this back end writes. SameRule() says no for it, even
  // where it is compared with itself, so that whoever compares replaces it.
  bool foreign = false;
};

using RulePtr = std::shared_ptr<const Rule>;

bool SameRule(const Rule& a, const Rule& b);
// Equal for rules that are the same.
size_t HashRule(const Rule& rule);

// Tests that all rules of a chunk end with. They are made once, before the jump to the chunk.
using Guard = std::vector<FieldTest>;

// Whether the test can be part of a guard: it asks for an EtherType or an IP protocol.
bool CanGuard(const FieldTest& test);
// The longest guard that a chunk of this rule alone can have.
Guard GuardOf(const Rule& rule);
// Whether the rule may stand in a chunk with that guard.
bool FitsGuard(const Rule& rule, const Guard& guard);

// A rule that jumps to a chunk.
RulePtr JumpTo(uint32_t chunk, const Guard& guard);
// The rule that leads to a chunk for good.
RulePtr GoTo(uint32_t chunk);

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_PLAN_RULE_H_
