// The matches that an entry of a filter group can hold. A match is an immutable value; what it
// compares is the field's standard meaning unless stated otherwise. Numbers are in host byte order,
// addresses in network byte order.
#ifndef PLATFORM_FILTERS_COMMON_MATCHES_H_
#define PLATFORM_FILTERS_COMMON_MATCHES_H_

#include <net/ethernet.h>
#include <netinet/in.h>

#include <list>
#include <optional>

#include "platform/filters_common/counted_ptr.h"
#include "platform/filters_common/filters_types.h"
#include "platform/limid/limid.h"

namespace FiltersCommon {

class Match {
 public:
  virtual ~Match() = default;
  virtual filtersMatch_t kind() const = 0;
  // Whether the value fits the field.
  virtual bool inRange() const { return true; }

 protected:
  Match() = default;
  Match(const Match&) = default;
  Match& operator=(const Match&) = default;
};

// A match of kind `Kind` on one number of at most `Max`. `Tag` tells apart classes of one kind.
template <filtersMatch_t Kind, class T, unsigned int Max, int Tag = 0>
class NumberMatch : public Match {
 public:
  static constexpr filtersMatch_t kKind = Kind;
  explicit NumberMatch(T value) : value_(value) {}
  filtersMatch_t kind() const override { return Kind; }
  bool inRange() const override { return value_ <= Max; }
  T value() const { return value_; }

 private:
  T value_;
};

// A match on an address with an optional mask, whose meaning the final class states.
template <filtersMatch_t Kind, class Address>
class AddressMatch : public Match {
 public:
  static constexpr filtersMatch_t kKind = Kind;
  explicit AddressMatch(const Address& address) : address_(address) {}
  AddressMatch(const Address& address, const Address& mask) : address_(address), mask_(mask) {}
  filtersMatch_t kind() const override { return Kind; }
  const Address& address() const { return address_; }
  const std::optional<Address>& mask() const { return mask_; }

 private:
  Address address_;
  std::optional<Address> mask_;
};

// MAC addresses: bits that are set in the mask are not compared.
using MatchDstMac = AddressMatch<FILTERS_MATCH_DST_MAC, ether_addr>;
using MatchSrcMac = AddressMatch<FILTERS_MATCH_SRC_MAC, ether_addr>;

// IPv4 addresses: the mask is a netmask, bits that are set in it are compared.
using MatchSrcIPv4 = AddressMatch<FILTERS_MATCH_SRC_IPV4, in_addr>;
using MatchDstIPv4 = AddressMatch<FILTERS_MATCH_DST_IPV4, in_addr>;

// The outer tag's VLAN id and priority.
using MatchExternalVlanId = NumberMatch<FILTERS_MATCH_EXTERNAL_VLAN_ID, unsigned short, 4095>;
using MatchPcp = NumberMatch<FILTERS_MATCH_PCP, unsigned char, 7>;
// The 16 bits that follow the source MAC address: the outer TPID of a tagged frame, the EtherType
// of an untagged one.
using MatchTPID = NumberMatch<FILTERS_MATCH_TPID, unsigned short, 0xffff>;
// The upper six bits of the ToS byte, and the whole byte; an entry holds one of the two.
using MatchDSCP = NumberMatch<FILTERS_MATCH_TOS, unsigned char, 63, 1>;
using MatchToS = NumberMatch<FILTERS_MATCH_TOS, unsigned char, 255, 2>;
using MatchIpProtocol = NumberMatch<FILTERS_MATCH_IP_PROTOCOL, unsigned char, 255>;
// TCP or UDP only.
using MatchDstL4Port = NumberMatch<FILTERS_MATCH_DST_L4_PORT, unsigned short, 0xffff>;

// The ports through which a frame may enter. Copies share the list.
class MatchIngressPorts : public Match {
 public:
  static constexpr filtersMatch_t kKind = FILTERS_MATCH_INGRESS_PORTS;
  explicit MatchIngressPorts(const std::list<limid_t>& ports);
  filtersMatch_t kind() const override { return kKind; }
  const std::list<limid_t>& ports() const;

 private:
  friend class FiltersEntry;
  // The list, which all copies share, and a match of it for those who ask an entry for one: so
  // entries, of which there are very many, hold a pointer and no match.
  struct Shared;
  struct Uncounted {};
  MatchIngressPorts(Uncounted, const Shared* shared);

  CountedPtr<const Shared> shared_;
};

struct MatchIngressPorts::Shared : std::list<limid_t> {
  explicit Shared(const std::list<limid_t>& ports)
      : std::list<limid_t>(ports), match(Uncounted(), this) {}
  ~Shared() { match.shared_.Forget(); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  MatchIngressPorts match;  // owns nothing: it is a part of what it names
};

inline MatchIngressPorts::MatchIngressPorts(const std::list<limid_t>& ports)
    : shared_(CountedPtr<const Shared>::Make(ports)) {}
inline MatchIngressPorts::MatchIngressPorts(Uncounted, const Shared* shared)
    : shared_(CountedPtr<const Shared>::Uncounted(shared)) {}
inline const std::list<limid_t>& MatchIngressPorts::ports() const { return *shared_; }

}  // namespace FiltersCommon

#endif  // PLATFORM_FILTERS_COMMON_MATCHES_H_
