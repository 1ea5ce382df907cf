#include "host/filter_mgr/nftables/kernel/codec.h"

#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace host {
namespace {

// All data goes through the first register of 16 bytes.
constexpr uint32_t kRegister = NFT_REG_1;

// The tag control information behind the outer TPID (IEEE 802.1Q). The kernel takes a frame's
// outer tag out of its bytes before the hook; it puts reads and writes of these offsets right, the
// writes only where they cover the field whole. So the PCP is set by reading and writing both
// bytes. On an untagged frame the same write would hit the payload.
constexpr uint32_t kTciOffset = 14, kTciLength = 2;
constexpr uint8_t kPcpShiftInByte = 5, kKeepBits = 0x1f;

// The kernel's fast path for aligned loads of 1, 2 and 4 bytes takes the bytes of a later fragment
// for a header. So a byte more is read than is compared.
uint32_t LoadLength(Source source, uint32_t compared) {
  const bool transport =
      source == Source::kTransport || source == Source::kIpv6Tcp || source == Source::kIpv6Udp;
  return transport ? compared + 1 : compared;
}

constexpr struct {
  Source source;
  uint32_t base;
} kPayloadBases[] = {
    {Source::kLink, NFT_PAYLOAD_LL_HEADER},
    {Source::kNetwork, NFT_PAYLOAD_NETWORK_HEADER},
    {Source::kTransport, NFT_PAYLOAD_TRANSPORT_HEADER},
};
// Headers that the kernel finds by their number, behind whatever extension headers there are.
constexpr struct {
  Source source;
  uint8_t protocol;
} kIpv6Headers[] = {
    {Source::kIpv6Tcp, IPPROTO_TCP},
    {Source::kIpv6Udp, IPPROTO_UDP},
};
constexpr struct {
  Source source;
  uint32_t key;
  uint8_t length;
} kMetaKeys[] = {
    {Source::kEtherType, NFT_META_PROTOCOL, 2},
    {Source::kL4Protocol, NFT_META_L4PROTO, 1},
};

// What ends a group's evaluation (names.h).
uint32_t PermitOf(GroupSlot slot) {
  return slot == kL2 ? static_cast<uint32_t>(NFT_RETURN) : NF_ACCEPT;
}

class Encoder {
 public:
  explicit Encoder(nftnl_rule* out) : out_(out) {}

  void AddTest(const FieldTest& test) {
    Load(test);
    if (test.set != ValueSet::kNone) {
      nftnl_expr* lookup = Add("lookup");
      nftnl_expr_set_u32(lookup, NFTNL_EXPR_LOOKUP_SREG, kRegister);
      nftnl_expr_set_str(lookup, NFTNL_EXPR_LOOKUP_SET, FixedSetOf(test.set).name);
      return;
    }
    if (!test.IsExact()) Mask(test.mask.data(), FieldTest::Bytes{}.data(), test.length);
    nftnl_expr* cmp = Add("cmp");
    nftnl_expr_set_u32(cmp, NFTNL_EXPR_CMP_SREG, kRegister);
    nftnl_expr_set_u32(cmp, NFTNL_EXPR_CMP_OP, NFT_CMP_EQ);
    nftnl_expr_set(cmp, NFTNL_EXPR_CMP_DATA, test.value.data(), test.length);
  }

  void AddCounter(const Hits& hits) {
    nftnl_expr* counter = Add("counter");
    nftnl_expr_set_u64(counter, NFTNL_EXPR_CTR_PACKETS, hits.packets);
    nftnl_expr_set_u64(counter, NFTNL_EXPR_CTR_BYTES, hits.bytes);
  }

  void AddTagPcp(uint8_t pcp) {
    LoadPayload(NFT_PAYLOAD_LL_HEADER, kTciOffset, kTciLength);
    const uint8_t mask[kTciLength] = {kKeepBits, 0xff};
    const uint8_t set[kTciLength] = {static_cast<uint8_t>(pcp << kPcpShiftInByte), 0};
    Mask(mask, set, kTciLength);
    nftnl_expr* store = Add("payload");
    nftnl_expr_set_u32(store, NFTNL_EXPR_PAYLOAD_SREG, kRegister);
    nftnl_expr_set_u32(store, NFTNL_EXPR_PAYLOAD_BASE, NFT_PAYLOAD_LL_HEADER);
    nftnl_expr_set_u32(store, NFTNL_EXPR_PAYLOAD_OFFSET, kTciOffset);
    nftnl_expr_set_u32(store, NFTNL_EXPR_PAYLOAD_LEN, kTciLength);
    nftnl_expr_set_u32(store, NFTNL_EXPR_PAYLOAD_CSUM_TYPE, NFT_PAYLOAD_CSUM_NONE);
    nftnl_expr_set_u32(store, NFTNL_EXPR_PAYLOAD_CSUM_OFFSET, 0);
  }

  void AddQueue(uint32_t priority) {
    nftnl_expr* value = Add("immediate");
    nftnl_expr_set_u32(value, NFTNL_EXPR_IMM_DREG, kRegister);
    nftnl_expr_set(value, NFTNL_EXPR_IMM_DATA, &priority, sizeof(priority));
    nftnl_expr* store = Add("meta");
    nftnl_expr_set_u32(store, NFTNL_EXPR_META_SREG, kRegister);
    nftnl_expr_set_u32(store, NFTNL_EXPR_META_KEY, NFT_META_PRIORITY);
  }

  void AddVerdict(uint32_t verdict, const std::string& chain) {
    nftnl_expr* immediate = Add("immediate");
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_DREG, NFT_REG_VERDICT);
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_VERDICT, verdict);
    if (!chain.empty()) nftnl_expr_set_str(immediate, NFTNL_EXPR_IMM_CHAIN, chain.c_str());
  }

 private:
  // The rule takes ownership of the expression. (Allocation fails only for an unknown name.)
  nftnl_expr* Add(const char* name) {
    nftnl_expr* expr = nftnl_expr_alloc(name);
    nftnl_rule_add_expr(out_, expr);
    return expr;
  }

  void Load(const FieldTest& test) {
    for (const auto& payload : kPayloadBases) {
      if (payload.source != test.source) continue;
      LoadPayload(payload.base, test.offset, LoadLength(test.source, test.length));
    }
    for (const auto& header : kIpv6Headers) {
      if (header.source != test.source) continue;
      nftnl_expr* load = Add("exthdr");
      nftnl_expr_set_u32(load, NFTNL_EXPR_EXTHDR_DREG, kRegister);
      nftnl_expr_set_u8(load, NFTNL_EXPR_EXTHDR_TYPE, header.protocol);
      nftnl_expr_set_u32(load, NFTNL_EXPR_EXTHDR_OFFSET, test.offset);
      nftnl_expr_set_u32(load, NFTNL_EXPR_EXTHDR_LEN, LoadLength(test.source, test.length));
    }
    for (const auto& meta : kMetaKeys) {
      if (meta.source != test.source) continue;
      nftnl_expr* load = Add("meta");
      nftnl_expr_set_u32(load, NFTNL_EXPR_META_DREG, kRegister);
      nftnl_expr_set_u32(load, NFTNL_EXPR_META_KEY, meta.key);
    }
  }

  void LoadPayload(uint32_t base, uint32_t offset, uint32_t length) {
    nftnl_expr* load = Add("payload");
    nftnl_expr_set_u32(load, NFTNL_EXPR_PAYLOAD_DREG, kRegister);
    nftnl_expr_set_u32(load, NFTNL_EXPR_PAYLOAD_BASE, base);
    nftnl_expr_set_u32(load, NFTNL_EXPR_PAYLOAD_OFFSET, offset);
    nftnl_expr_set_u32(load, NFTNL_EXPR_PAYLOAD_LEN, length);
  }

  void Mask(const uint8_t* mask, const uint8_t* set, uint32_t length) {
    nftnl_expr* bitwise = Add("bitwise");
    nftnl_expr_set_u32(bitwise, NFTNL_EXPR_BITWISE_SREG, kRegister);
    nftnl_expr_set_u32(bitwise, NFTNL_EXPR_BITWISE_DREG, kRegister);
    nftnl_expr_set_u32(bitwise, NFTNL_EXPR_BITWISE_LEN, length);
    nftnl_expr_set(bitwise, NFTNL_EXPR_BITWISE_MASK, mask, length);
    nftnl_expr_set(bitwise, NFTNL_EXPR_BITWISE_XOR, set, length);
  }

  nftnl_rule* out_;
};

}  // namespace

void EncodeRule(const Rule& rule, const Guard& guard, GroupSlot slot, const Hits& hits,
                nftnl_rule* out) {
  Encoder encoder(out);
  const size_t own = rule.tests.size() - guard.size();
  for (size_t i = 0; i < own; ++i) encoder.AddTest(rule.tests[i]);
  const Outcome& outcome = rule.outcome;
  if (outcome.counted) encoder.AddCounter(hits);
  if (outcome.tag_pcp) encoder.AddTagPcp(*outcome.tag_pcp);
  if (outcome.queue) encoder.AddQueue(*outcome.queue);
  switch (outcome.verdict) {
    case Verdict::kAccept:
      return encoder.AddVerdict(PermitOf(slot), "");
    case Verdict::kDrop:
      return encoder.AddVerdict(NF_DROP, "");
    case Verdict::kJump:
      return encoder.AddVerdict(static_cast<uint32_t>(NFT_JUMP), ChunkName(slot, outcome.chunk));
    case Verdict::kGoto:
      return encoder.AddVerdict(static_cast<uint32_t>(NFT_GOTO), ChunkName(slot, outcome.chunk));
  }
}

void EncodeJump(const std::string& chain, nftnl_rule* out) {
  Encoder(out).AddVerdict(static_cast<uint32_t>(NFT_JUMP), chain);
}

namespace {

// Reads a rule's expressions one after the other. Whatever the encoder does not write makes the
// rule foreign.
class Decoder {
 public:
  Decoder(const nftnl_rule* in, GroupSlot slot)
      : slot_(slot), iterator_(nftnl_expr_iter_create(in)) {
    Next();
  }
  ~Decoder() { nftnl_expr_iter_destroy(iterator_); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  bool Read(Rule* rule, Hits* hits) {
    while (expr_ != nullptr && (Is("payload") || Is("meta") || Is("exthdr"))) {
      FieldTest test;
      if (!ReadTest(&test)) return false;
      rule->tests.push_back(test);
    }
    Outcome& outcome = rule->outcome;
    outcome.counted = Is("counter");
    if (outcome.counted) {
      hits->packets = nftnl_expr_get_u64(expr_, NFTNL_EXPR_CTR_PACKETS);
      hits->bytes = nftnl_expr_get_u64(expr_, NFTNL_EXPR_CTR_BYTES);
      Next();
    }
    if (Is("payload") && !ReadTagPcp(&outcome)) return false;
    if (Is("immediate") && !IsVerdict() && !ReadQueue(&outcome)) return false;
    return ReadVerdict(&outcome) && expr_ == nullptr;
  }

 private:
  void Next() { expr_ = nftnl_expr_iter_next(iterator_); }
  bool Is(const char* name) const {
    return expr_ != nullptr && strcmp(nftnl_expr_get_str(expr_, NFTNL_EXPR_NAME), name) == 0;
  }
  uint32_t Get(uint16_t attribute) const { return nftnl_expr_get_u32(expr_, attribute); }
  bool Has(uint16_t attribute, uint32_t value) const {
    return nftnl_expr_is_set(expr_, attribute) && Get(attribute) == value;
  }
  // Copies the attribute's `length` bytes; false if it is of another length.
  bool GetBytes(uint16_t attribute, uint8_t* bytes, uint32_t length) const {
    uint32_t size = 0;
    const void* data = nftnl_expr_get(expr_, attribute, &size);
    if (data == nullptr || size != length) return false;
    memcpy(bytes, data, length);
    return true;
  }

  bool ReadTest(FieldTest* test) {
    if (!ReadLoad(test)) return false;
    Next();
    if (Is("lookup")) {
      if (!Has(NFTNL_EXPR_LOOKUP_SREG, kRegister) || Get(NFTNL_EXPR_LOOKUP_FLAGS) != 0 ||
          nftnl_expr_is_set(expr_, NFTNL_EXPR_LOOKUP_DREG)) {
        return false;
      }
      const std::string name = nftnl_expr_get_str(expr_, NFTNL_EXPR_LOOKUP_SET);
      for (const FixedSet& set : FixedSets()) {
        if (name == set.name) test->set = set.id;
      }
      Next();
      return test->set != ValueSet::kNone;
    }
    std::fill_n(test->mask.begin(), test->length, uint8_t{0xff});
    uint8_t set_bits[FieldTest::kMaxLength] = {};
    if (Is("bitwise")) {
      if (!ReadMask(test->mask.data(), set_bits, test->length)) return false;
      if (std::any_of(set_bits, set_bits + test->length, [](uint8_t b) { return b != 0; })) {
        return false;
      }
    }
    if (!Is("cmp") || !Has(NFTNL_EXPR_CMP_SREG, kRegister) || !Has(NFTNL_EXPR_CMP_OP, NFT_CMP_EQ) ||
        !GetBytes(NFTNL_EXPR_CMP_DATA, test->value.data(), test->length)) {
      return false;
    }
    Next();
    return true;
  }

  bool ReadLoad(FieldTest* test) const {
    if (Is("meta")) {
      if (!Has(NFTNL_EXPR_META_DREG, kRegister)) return false;
      for (const auto& meta : kMetaKeys) {
        if (!Has(NFTNL_EXPR_META_KEY, meta.key)) continue;
        test->source = meta.source;
        test->length = meta.length;
        return true;
      }
      return false;
    }
    if (Is("exthdr")) return ReadIpv6Load(test);
    if (!Has(NFTNL_EXPR_PAYLOAD_DREG, kRegister)) return false;
    const uint32_t offset = Get(NFTNL_EXPR_PAYLOAD_OFFSET), length = Get(NFTNL_EXPR_PAYLOAD_LEN);
    for (const auto& payload : kPayloadBases) {
      if (!Has(NFTNL_EXPR_PAYLOAD_BASE, payload.base)) continue;
      const uint32_t extra = LoadLength(payload.source, 0);
      if (offset > 255 || length <= extra || length > FieldTest::kMaxLength) return false;
      test->source = payload.source;
      test->offset = static_cast<uint8_t>(offset);
      test->length = static_cast<uint8_t>(length - extra);
      return true;
    }
    return false;
  }

  bool ReadIpv6Load(FieldTest* test) const {
    const uint32_t offset = Get(NFTNL_EXPR_EXTHDR_OFFSET), length = Get(NFTNL_EXPR_EXTHDR_LEN);
    if (!Has(NFTNL_EXPR_EXTHDR_DREG, kRegister) || Get(NFTNL_EXPR_EXTHDR_OP) != 0 ||
        Get(NFTNL_EXPR_EXTHDR_FLAGS) != 0 || offset > 255 || length > FieldTest::kMaxLength) {
      return false;
    }
    for (const auto& header : kIpv6Headers) {
      if (nftnl_expr_get_u8(expr_, NFTNL_EXPR_EXTHDR_TYPE) != header.protocol) continue;
      test->source = header.source;
      test->offset = static_cast<uint8_t>(offset);
      test->length = static_cast<uint8_t>(length - LoadLength(header.source, 0));
      return length > LoadLength(header.source, 0);
    }
    return false;
  }

  bool ReadMask(uint8_t* mask, uint8_t* set, uint32_t length) {
    const bool ok = Is("bitwise") && Has(NFTNL_EXPR_BITWISE_SREG, kRegister) &&
                    Has(NFTNL_EXPR_BITWISE_DREG, kRegister) &&
                    Has(NFTNL_EXPR_BITWISE_LEN, length) &&
                    Get(NFTNL_EXPR_BITWISE_OP) == NFT_BITWISE_BOOL &&
                    GetBytes(NFTNL_EXPR_BITWISE_MASK, mask, length) &&
                    GetBytes(NFTNL_EXPR_BITWISE_XOR, set, length);
    Next();
    return ok;
  }

  bool ReadTagPcp(Outcome* outcome) {
    const auto covers_tci = [this] {
      return Is("payload") && Has(NFTNL_EXPR_PAYLOAD_BASE, NFT_PAYLOAD_LL_HEADER) &&
             Has(NFTNL_EXPR_PAYLOAD_OFFSET, kTciOffset) && Has(NFTNL_EXPR_PAYLOAD_LEN, kTciLength);
    };
    if (!covers_tci() || !Has(NFTNL_EXPR_PAYLOAD_DREG, kRegister)) return false;
    Next();
    uint8_t mask[kTciLength], set[kTciLength];
    if (!ReadMask(mask, set, kTciLength)) return false;
    if (mask[0] != kKeepBits || mask[1] != 0xff || (set[0] & kKeepBits) != 0 || set[1] != 0) {
      return false;
    }
    if (!covers_tci() || !Has(NFTNL_EXPR_PAYLOAD_SREG, kRegister) ||
        Get(NFTNL_EXPR_PAYLOAD_CSUM_TYPE) != NFT_PAYLOAD_CSUM_NONE) {
      return false;
    }
    outcome->tag_pcp = static_cast<uint8_t>(set[0] >> kPcpShiftInByte);
    Next();
    return true;
  }

  bool ReadQueue(Outcome* outcome) {
    uint32_t priority = 0;
    if (!Has(NFTNL_EXPR_IMM_DREG, kRegister) ||
        !GetBytes(NFTNL_EXPR_IMM_DATA, reinterpret_cast<uint8_t*>(&priority), sizeof(priority)) ||
        priority > 7) {
      return false;
    }
    Next();
    if (!Is("meta") || !Has(NFTNL_EXPR_META_SREG, kRegister) ||
        !Has(NFTNL_EXPR_META_KEY, NFT_META_PRIORITY)) {
      return false;
    }
    outcome->queue = static_cast<uint8_t>(priority);
    Next();
    return true;
  }

  bool IsVerdict() const { return Has(NFTNL_EXPR_IMM_DREG, NFT_REG_VERDICT); }

  bool ReadVerdict(Outcome* outcome) {
    if (!Is("immediate") || !IsVerdict()) return false;
    const auto verdict = static_cast<int32_t>(Get(NFTNL_EXPR_IMM_VERDICT));
    if (verdict == NFT_JUMP || verdict == NFT_GOTO) {
      const auto chunk = ParseChunkName(nftnl_expr_get_str(expr_, NFTNL_EXPR_IMM_CHAIN));
      if (!chunk || chunk->first != slot_) return false;
      outcome->verdict = verdict == NFT_JUMP ? Verdict::kJump : Verdict::kGoto;
      outcome->chunk = chunk->second;
    } else if (verdict == NF_DROP) {
      outcome->verdict = Verdict::kDrop;
    } else if (static_cast<uint32_t>(verdict) == PermitOf(slot_)) {
      outcome->verdict = Verdict::kAccept;
    } else {
      return false;
    }
    Next();
    return true;
  }

  GroupSlot slot_;
  nftnl_expr_iter* iterator_;
  nftnl_expr* expr_ = nullptr;
};

}  // namespace

Rule DecodeRule(const nftnl_rule* in, const Guard& guard, GroupSlot slot, Hits* hits) {
  Rule rule;
  if (Decoder(in, slot).Read(&rule, hits)) {
    rule.tests.insert(rule.tests.end(), guard.begin(), guard.end());
    return rule;
  }
  Rule foreign;
  foreign.foreign = true;
  return foreign;
}

std::string DecodeJump(const nftnl_rule* in) {
  nftnl_expr_iter* iterator = nftnl_expr_iter_create(in);
  const nftnl_expr* expr = nftnl_expr_iter_next(iterator);
  std::string chain;
  if (expr != nullptr && nftnl_expr_iter_next(iterator) == nullptr &&
      strcmp(nftnl_expr_get_str(expr, NFTNL_EXPR_NAME), "immediate") == 0 &&
      static_cast<int32_t>(nftnl_expr_get_u32(expr, NFTNL_EXPR_IMM_VERDICT)) == NFT_JUMP) {
    chain = nftnl_expr_get_str(expr, NFTNL_EXPR_IMM_CHAIN);
  }
  nftnl_expr_iter_destroy(iterator);
  return chain;
}

Hits CounterOf(const nftnl_rule* rule) {
  Hits hits;
  nftnl_expr_iter* iterator = nftnl_expr_iter_create(rule);
  while (nftnl_expr* expr = nftnl_expr_iter_next(iterator)) {
    if (strcmp(nftnl_expr_get_str(expr, NFTNL_EXPR_NAME), "counter") != 0) continue;
    hits.packets = nftnl_expr_get_u64(expr, NFTNL_EXPR_CTR_PACKETS);
    hits.bytes = nftnl_expr_get_u64(expr, NFTNL_EXPR_CTR_BYTES);
  }
  nftnl_expr_iter_destroy(iterator);
  return hits;
}

}  // namespace host
