// Conversion of configured values into matches.
#include <arpa/inet.h>

#include <cstring>
#include <ios>
#include <sstream>

#include "model/acl_cache.h"
#include "model/value_check.h"

namespace acl_app {
namespace {

using FiltersCommon::FiltersEntry;

const char kSource[] = "filter";  // under which wrong values are reported

template <class Match>
aclErr_t Set(FiltersEntry& entry, const Match& match) {
  return entry.setMatch(match) == 0 ? ACL_OK : ACL_ERR_FILTERS;
}

// The first six bytes of a binary value; the schema guarantees them.
ether_addr MacOf(const confd_value_t& value) {
  ether_addr mac;
  std::memcpy(mac.ether_addr_octet, value.val.buf.ptr, sizeof(mac.ether_addr_octet));
  return mac;
}

// The library is told which bits not to compare, the configuration says which to compare.
ether_addr Complement(ether_addr mask) {
  for (uint8_t& octet : mask.ether_addr_octet) octet = static_cast<uint8_t>(~octet);
  return mask;
}

template <class Match>
aclErr_t SetMac(FiltersEntry& entry, const confd_value_t* value1, const confd_value_t* value2) {
  const ether_addr address = MacOf(*value1);
  if (value2 == nullptr) return Set(entry, Match(address));
  return Set(entry, Match(address, Complement(MacOf(*value2))));
}

template <class Match>
aclErr_t SetIpv4(const AclCache& cache, FiltersEntry& entry, const confd_value_t& value) {
  if (value.type != C_IPV4 && value.type != C_IPV4_AND_PLEN) return ACL_ERR_INVALID_VALUE;
  in_addr address;
  cache.GetIpv4Addr(value, address);
  in_addr mask;
  if (cache.GetIpv4Mask(value, mask) != ACL_OK) return Set(entry, Match(address));
  return Set(entry, Match(address, mask));
}

// An 8-bit number, by its name in the schema or as such.
uint8_t EnumOrUint8(const confd_value_t& value) {
  return value.type == C_ENUM_VALUE ? static_cast<uint8_t>(value.val.enumvalue) : value.val.u8;
}

// Netmasks as text, by prefix length.
std::map<int, std::string> NetmaskTexts() {
  std::map<int, std::string> masks;
  for (int length = 0; length <= 32; ++length) {
    const in_addr mask = {htonl(length == 0 ? 0 : ~uint32_t{0} << (32 - length))};
    char text[INET_ADDRSTRLEN];
    masks[length] = inet_ntop(AF_INET, &mask, text, sizeof(text));
  }
  return masks;
}

}  // namespace

const std::map<int, std::string> AclCache::ipv4_mask_map_ = NetmaskTexts();

aclErr_t AclCache::GetIpv4Addr(const confd_value_t& value, in_addr& out) const {
  if (value.type == C_IPV4) {
    out = value.val.ip;
  } else if (value.type == C_IPV4_AND_PLEN) {
    out = value.val.ipv4prefix.ip;
  } else {
    return ACL_ERR_INVALID_VALUE;
  }
  return ACL_OK;
}

aclErr_t AclCache::GetIpv4Mask(const confd_value_t& value, in_addr& out) const {
  if (value.type != C_IPV4_AND_PLEN) return ACL_ERR_INVALID_VALUE;
  out.s_addr = 0;
  inet_pton(AF_INET, ipv4_mask_map_.at(value.val.ipv4prefix.len).c_str(), &out);
  return ACL_OK;
}

aclErr_t AclCache::CreateMatchDstMac(EntryPtr entry, const confd_value_t* value1,
                                     const confd_value_t* value2) {
  ACL_ASSERT_VALUE_TYPE(value1, C_BINARY, kSource);
  if (value2 != nullptr) ACL_ASSERT_VALUE_TYPE(value2, C_BINARY, kSource);
  return SetMac<FiltersCommon::MatchDstMac>(*entry, value1, value2);
}

aclErr_t AclCache::CreateMatchSrcMac(EntryPtr entry, const confd_value_t* value1,
                                     const confd_value_t* value2) {
  ACL_ASSERT_VALUE_TYPE(value1, C_BINARY, kSource);
  if (value2 != nullptr) ACL_ASSERT_VALUE_TYPE(value2, C_BINARY, kSource);
  return SetMac<FiltersCommon::MatchSrcMac>(*entry, value1, value2);
}

aclErr_t AclCache::CreateMatchExternalVlanId(EntryPtr entry, const confd_value_t* value1) {
  ACL_ASSERT_VALUE_TYPE(value1, C_UINT16, kSource);
  return Set(*entry, FiltersCommon::MatchExternalVlanId(value1->val.u16));
}

aclErr_t AclCache::CreateMatchTpid(EntryPtr entry, const confd_value_t* value1) {
  uint16_t tpid = 0;
  if (value1->type == C_ENUM_VALUE) {
    tpid = static_cast<uint16_t>(value1->val.enumvalue);
  } else {
    ACL_ASSERT_VALUE_TYPE(value1, C_BUF, kSource);
    // What is no number counts as 0; what is too large, as the largest.
    std::istringstream text(reinterpret_cast<const char*>(value1->val.buf.ptr));
    text >> std::hex >> tpid;
  }
  return Set(*entry, FiltersCommon::MatchTPID(tpid));
}

aclErr_t AclCache::CreateMatchPcp(EntryPtr entry, const confd_value_t* value1) {
  ACL_ASSERT_VALUE_TYPE(value1, C_UINT8, kSource);
  return Set(*entry, FiltersCommon::MatchPcp(value1->val.u8));
}

aclErr_t AclCache::CreateMatchDscp(EntryPtr entry, const confd_value_t* value1) {
  if (value1->type != C_ENUM_VALUE) ACL_ASSERT_VALUE_TYPE(value1, C_UINT8, kSource);
  return Set(*entry, FiltersCommon::MatchDSCP(EnumOrUint8(*value1)));
}

aclErr_t AclCache::CreateMatchToS(EntryPtr entry, const confd_value_t* value1) {
  ACL_ASSERT_VALUE_TYPE(value1, C_UINT8, kSource);
  return Set(*entry, FiltersCommon::MatchToS(value1->val.u8));
}

aclErr_t AclCache::CreateMatchSrcIpv4(EntryPtr entry, const confd_value_t* value1) {
  return SetIpv4<FiltersCommon::MatchSrcIPv4>(*this, *entry, *value1);
}

aclErr_t AclCache::CreateMatchDstIpv4(EntryPtr entry, const confd_value_t* value1) {
  return SetIpv4<FiltersCommon::MatchDstIPv4>(*this, *entry, *value1);
}

aclErr_t AclCache::CreateMatchIpProtocol(EntryPtr entry, const confd_value_t* value1) {
  if (value1->type != C_ENUM_VALUE) ACL_ASSERT_VALUE_TYPE(value1, C_UINT8, kSource);
  return Set(*entry, FiltersCommon::MatchIpProtocol(EnumOrUint8(*value1)));
}

aclErr_t AclCache::CreateMatchDestinationPort(EntryPtr entry, const confd_value_t* value1) {
  uint16_t port;
  if (value1->type == C_ENUM_VALUE) {
    port = static_cast<uint16_t>(value1->val.enumvalue);
  } else {
    ACL_ASSERT_VALUE_TYPE(value1, C_UINT16, kSource);
    port = value1->val.u16;
  }
  return Set(*entry, FiltersCommon::MatchDstL4Port(port));
}

}  // namespace acl_app
