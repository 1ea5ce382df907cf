#include "tests/host/standard/evaluation.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

namespace host::standard {
namespace {

using nlohmann::ordered_json;
using Condition = std::function<bool(const FrameFields&)>;

constexpr uint32_t kAddresses[] = {0x0a010203, 0x0a010303, 0xc0a80001};
constexpr uint16_t kTypes[] = {0x8100, 0x0800, 0x88a8, 0x86dd, 0x0806};
constexpr uint8_t kToses[] = {0x00, 0xb8, 0xb9}, kProtocols[] = {6, 17, 1, 132};
constexpr uint16_t kPorts[] = {22, 80, 65535}, kVids[] = {5, 100};

template <class T, size_t size>
T Pick(const T (&pool)[size], std::mt19937* random) {
  return pool[(*random)() % size];
}

std::string Dotted(uint32_t address) {
  return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 255) + "." +
         std::to_string(address >> 8 & 255) + "." + std::to_string(address & 255);
}

uint64_t Number(const ether_addr& mac) {
  uint64_t number = 0;
  for (const uint8_t byte : mac.ether_addr_octet) number = number << 8 | byte;
  return number;
}

std::string Colons(uint64_t mac) {
  char text[18];
  std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x",
                static_cast<int>(mac >> 40 & 255), static_cast<int>(mac >> 32 & 255),
                static_cast<int>(mac >> 24 & 255), static_cast<int>(mac >> 16 & 255),
                static_cast<int>(mac >> 8 & 255), static_cast<int>(mac & 255));
  return text;
}

// An entry while it is made.
struct Making {
  std::mt19937* random;
  ordered_json matches = ordered_json::object();
  std::vector<Condition> conditions = {};
};

void MakeMac(Making* making, const char* name, ether_addr FrameFields::*field) {
  const uint64_t mac = 0x020000000000 | Pick({0x01, 0x02, 0x11}, making->random);
  uint64_t mask = 0xffffffffffff;
  making->matches["eth"][name] = Colons(mac);
  if ((*making->random)() % 2 == 0) {
    mask = 0xff00ff00ff0f;
    making->matches["eth"][std::string(name) + "-mask"] = Colons(mask);
  }
  making->conditions.emplace_back(
      [=](const FrameFields& frame) { return ((Number(frame.*field) ^ mac) & mask) == 0; });
}

void MakeEthernet(Making* making) {
  switch ((*making->random)() % 3) {
    case 0:
      return MakeMac(making, "destination-mac-address", &FrameFields::destination);
    case 1:
      return MakeMac(making, "source-mac-address", &FrameFields::source);
    default: {
      const uint16_t type = Pick(kTypes, making->random);
      making->matches["eth"]["ethertype"] = type;
      making->conditions.emplace_back(
          [=](const FrameFields& frame) { return frame.after_source == type; });
    }
  }
}

void MakeVlans(Making* making) {
  const uint16_t low = Pick(kVids, making->random), high = low + (*making->random)() % 4;
  ordered_json& filter = making->matches["ietf-acl-enh:vlan-filter"];
  if (high > low) {
    filter = {{"lower-vlan", low}, {"upper-vlan", high}};
  } else {
    filter = {{"operator", "eq"}, {"vlan", {low}}};
  }
  making->conditions.emplace_back([=](const FrameFields& frame) {
    return frame.vlan() && *frame.vlan() >= low && *frame.vlan() <= high;
  });
}

void MakeAddress(Making* making, const char* side, std::optional<uint32_t> FrameFields::*field) {
  const uint32_t address = Pick(kAddresses, making->random);
  const int length = Pick({0, 8, 16, 24, 32}, making->random);
  const uint32_t mask = length == 0 ? 0 : ~0u << (32 - length);
  making->matches["ipv4"][std::string(side) + "-ipv4-network"] =
      Dotted(address) + "/" + std::to_string(length);
  making->conditions.emplace_back([=](const FrameFields& frame) {
    return frame.*field && ((*(frame.*field) ^ address) & mask) == 0;
  });
}

// One of five statements.
void MakeIpv4(Making* making, unsigned int which) {
  std::mt19937* random = making->random;
  switch (which % 5) {
    case 0:
      return MakeAddress(making, "source", &FrameFields::source_ip);
    case 1:
      return MakeAddress(making, "destination", &FrameFields::destination_ip);
    case 2: {
      const uint8_t protocol = Pick(kProtocols, random);
      making->matches["ipv4"]["protocol"] = protocol;
      return making->conditions.push_back(
          [=](const FrameFields& frame) { return frame.protocol == protocol; });
    }
    case 3: {
      const uint8_t tos = Pick(kToses, random);
      making->matches["ipv4"]["dscp"] = tos >> 2;
      return making->conditions.push_back(
          [=](const FrameFields& frame) { return frame.tos && *frame.tos >> 2 == tos >> 2; });
    }
    default: {
      const uint8_t ecn = (*random)() % 2;
      making->matches["ipv4"]["ecn"] = ecn;
      making->conditions.emplace_back(
          [=](const FrameFields& frame) { return frame.tos && (*frame.tos & 3) == ecn; });
    }
  }
}

// A destination port of TCP or UDP over IPv4.
void MakePort(Making* making) {
  std::mt19937* random = making->random;
  const bool tcp = (*random)() % 2 == 0;
  const uint16_t port = Pick(kPorts, random);
  ordered_json& json = making->matches[tcp ? "tcp" : "udp"]["destination-port"];
  uint16_t low = port, high = port;
  switch ((*random)() % 4) {
    case 0:
      json = {{"port", port}};
      break;
    case 1:
      low = port - 10;
      json = {{"lower-port", low}, {"upper-port", port}};
      break;
    case 2:
      low = 65530;
      high = 65535;
      json = {{"operator", "gte"}, {"port", low}};
      break;
    default:
      low = 0;
      high = 23;
      json = {{"operator", "lte"}, {"port", high}};
  }
  making->conditions.emplace_back([=](const FrameFields& frame) {
    return frame.protocol == (tcp ? 6 : 17) && frame.destination_port &&
           *frame.destination_port >= low && *frame.destination_port <= high;
  });
}

bool IsIpv4(const FrameFields& frame) { return frame.destination_ip.has_value(); }

struct KnownEntry {
  std::vector<Condition> conditions;
  bool passes;
};

}  // namespace

KnownLists RandomRfc8519(std::mt19937* random) {
  static constexpr const char* kListTypes[] = {"eth-acl-type", "ipv4-acl-type",
                                               "mixed-eth-ipv4-acl-type", ""};
  const size_t type = (*random)() % std::size(kListTypes);
  const bool ipv4_only = type == 1;
  const auto entries = std::make_shared<std::vector<KnownEntry>>();
  ordered_json aces = ordered_json::array();
  for (size_t i = 0, count = 1 + (*random)() % 8; i < count; ++i) {
    Making making{random};
    // An entry has either an Ethernet header or VLANs.
    const unsigned int l2 = ipv4_only ? 0 : (*random)() % 3;
    if (l2 == 1) MakeEthernet(&making);
    if (l2 == 2) MakeVlans(&making);
    const bool ipv4 = type != 0 && (*random)() % 2 == 0;
    const unsigned int which = (*random)() % 5;
    if (ipv4) MakeIpv4(&making, which);
    if (ipv4 && (*random)() % 2 == 0) MakeIpv4(&making, which + 1 + (*random)() % 4);
    const bool has_ports = ipv4 || ipv4_only || type == 2;
    if (has_ports && (*random)() % 2 == 0) MakePort(&making);
    const bool passes = (*random)() % 2 == 0;
    entries->push_back({making.conditions, passes});
    aces.push_back({{"name", "entry " + std::to_string(i)},
                    {"matches", making.matches},
                    {"actions", {{"forwarding", passes ? "accept" : "drop"}}}});
  }
  ordered_json list = {{"name", "list"}, {"aces", {{"ace", aces}}}};
  if (type != 3) list["type"] = std::string("ietf-access-control-list:") + kListTypes[type];
  const ordered_json points = {
      {"interface",
       {{{"interface-id", "eth0"},
         {"ingress", {{"acl-sets", {{"acl-set", {{{"name", "list"}}}}}}}}}}}};
  KnownLists known;
  known.json = ordered_json{{"ietf-access-control-list:acls",
                             {{"acl", {list}}, {"attachment-points", points}}}}
                   .dump();
  known.passes = [entries, ipv4_only](const FrameFields& frame) {
    if (ipv4_only && !IsIpv4(frame)) return true;  // the list is not about it
    for (const KnownEntry& entry : *entries) {
      if (std::all_of(entry.conditions.begin(), entry.conditions.end(),
                      [&](const Condition& holds) { return holds(frame); })) {
        return entry.passes;
      }
    }
    return false;  // the implicit end
  };
  return known;
}

namespace {

bool Holds(size_t field, const Value& value, const FrameFields& frame) {
  const std::optional<uint64_t> fields[kFieldCount] = {Number(frame.destination),
                                                       Number(frame.source),
                                                       frame.after_source,
                                                       frame.vlan(),
                                                       frame.pcp(),
                                                       frame.tos,
                                                       frame.source_ip,
                                                       frame.destination_ip,
                                                       frame.protocol,
                                                       frame.destination_port};
  return fields[field] && ((*fields[field] ^ value.value) & value.mask) == 0;
}

bool Matches(const ProfileEntry& entry, const FrameFields& frame) {
  for (size_t field = 0; field < kFieldCount; ++field) {
    if (entry.matches[field] && !Holds(field, *entry.matches[field], frame)) return false;
  }
  return true;
}

}  // namespace

bool Passes(const Profiles& profiles, const FrameFields& frame) {
  const auto bound = profiles.bindings.find("eth0");
  if (bound == profiles.bindings.end()) return true;
  for (const bool l3 : {false, true}) {
    std::vector<const Profile*> group;
    for (const Profile& profile : profiles.profiles) {
      const auto& names = bound->second;
      const bool is_bound = std::find(names.begin(), names.end(), profile.name) != names.end();
      if (is_bound && profile.l3 == l3) group.push_back(&profile);
    }
    std::sort(group.begin(), group.end(),
              [](const Profile* a, const Profile* b) { return a->priority < b->priority; });
    bool decided = false;
    for (const Profile* profile : group) {
      const auto decider =
          std::find_if(profile->entries.begin(), profile->entries.end(),
                       [&](const ProfileEntry& entry) { return Matches(entry, frame); });
      if (decided || decider == profile->entries.end()) continue;
      if (decider->handling == Handling::kDeny) return false;
      decided = true;
    }
  }
  return true;
}

Profiles RandomProfiles(std::mt19937* random) {
  static constexpr const char* kTexts[] = {"acl-app: it",
                                           "acl:x",
                                           "",
                                           "",
                                           "ticket 4711",
                                           "[ace web & mail]",
                                           "[seq 70000] \"quoted\" <b>"};
  Profiles profiles;
  for (int p = 0, count = 1 + static_cast<int>((*random)() % 3); p < count; ++p) {
    Profile profile;
    profile.name = "profile-" + std::to_string(p);
    profile.l3 = (*random)() % 2 == 0;
    profile.priority = static_cast<uint16_t>((*random)() % 6000 * 10 + p);
    profile.description = Pick(kTexts, random);
    uint32_t number = (*random)() % 100;
    for (size_t i = (*random)() % 8; i > 0; --i, number += 1 + (*random)() % 50) {
      ProfileEntry entry;
      entry.ace_priority = static_cast<uint16_t>(number);
      entry.description = Pick(kTexts, random);
      entry.handling = Pick({Handling::kNone, Handling::kPermit, Handling::kDeny}, random);
      if ((*random)() % 5 == 0) entry.set_pcp = static_cast<uint8_t>((*random)() % 8);
      const uint64_t values[kFieldCount] = {0x020000000001,           0x02000000ff11,
                                            Pick(kTypes, random),     Pick(kVids, random),
                                            (*random)() % 8,          (*random)() % 256,
                                            Pick(kAddresses, random), Pick(kAddresses, random),
                                            Pick(kProtocols, random), Pick(kPorts, random)};
      for (size_t field = 0; field < kFieldCount; ++field) {
        if ((*random)() % 4 != 0) continue;
        Value value{values[field], FullMask(static_cast<Field>(field))};
        if (field <= kSourceMac && (*random)() % 2 == 0) value.mask = 0xffff0000ff00;
        if (field == kTos && (*random)() % 2 == 0) value = {value.value & kDscpMask, kDscpMask};
        if ((field == kSourceIpv4 || field == kDestinationIpv4) && (*random)() % 2 == 0) {
          value.mask = Pick({0x0ull, 0xff000000ull, 0xffffff80ull}, random);
        }
        entry.matches[field] = value;
      }
      profile.entries.push_back(entry);
    }
    if ((*random)() % 3 != 0) profiles.bindings["eth0"].push_back(profile.name);
    profiles.profiles.push_back(std::move(profile));
  }
  return profiles;
}

}  // namespace host::standard
