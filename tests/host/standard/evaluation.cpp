#include "tests/host/standard/evaluation.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

namespace host::standard {
namespace {

using nlohmann::ordered_json;
using Fields = FrameFields;
using Condition = std::function<bool(const Fields&)>;

constexpr uint32_t kAddresses[] = {0x0a010203, 0x0a010303, 0xc0a80001};
constexpr uint16_t kTypes[] = {0x8100, 0x0800, 0x88a8, 0x86dd, 0x0806};
constexpr uint8_t kToses[] = {0x00, 0xb8, 0xb9}, kProtocols[] = {6, 17, 1, 132};
constexpr uint16_t kPorts[] = {22, 80, 65535}, kVids[] = {5, 100};

template <class T, size_t size>
T Pick(const T (&pool)[size], std::mt19937* random) {
  return pool[(*random)() % size];
}

uint64_t Number(const ether_addr& mac) {
  uint64_t number = 0;
  for (const uint8_t byte : mac.ether_addr_octet) number = number << 8 | byte;
  return number;
}

// What the standards say of their statements, as code over the fields of a frame.
Condition Mac(ether_addr Fields::*field, uint64_t mac, uint64_t mask = 0xffffffffffff) {
  return [=](const Fields& frame) { return ((Number(frame.*field) ^ mac) & mask) == 0; };
}
Condition Type(uint16_t type) {
  return [=](const Fields& frame) { return frame.after_source == type; };
}
Condition Vlans(uint16_t low, uint16_t high) {
  return [=](const Fields& frame) {
    return frame.vlan() && *frame.vlan() >= low && *frame.vlan() <= high;
  };
}
Condition Ip(std::optional<uint32_t> Fields::*field, uint32_t address, uint32_t mask) {
  return [=](const Fields& frame) {
    return frame.*field && ((*(frame.*field) ^ address) & mask) == 0;
  };
}
Condition Protocol(uint8_t protocol) {
  return [=](const Fields& frame) { return frame.protocol == protocol; };
}
Condition Tos(uint8_t value, uint8_t mask) {
  return [=](const Fields& frame) { return frame.tos && (*frame.tos & mask) == value; };
}
// Of TCP or UDP over any version of IP, where there is no `protocol` of IPv4.
Condition Ports(uint16_t low, uint16_t high, std::optional<uint8_t> protocol = std::nullopt) {
  return [=](const Fields& frame) {
    return (!protocol || frame.protocol == *protocol) && frame.destination_port &&
           *frame.destination_port >= low && *frame.destination_port <= high;
  };
}
Condition Or(const Condition& a, const Condition& b) {
  return [=](const Fields& frame) { return a(frame) || b(frame); };
}
Condition Except(const Condition& a, const Condition& b) {
  return [=](const Fields& frame) { return a(frame) && !b(frame); };
}

// A statement, as a patch of an entry: of those of a layer with one slot an entry has one.
struct Known {
  enum Layer { kL2, kIpv4, kPorts } layer;
  const char* slot;
  const char* json;
  Condition holds;
};

const std::vector<Known>& Rfc8519Statements() {
  static const std::vector<Known> kStatements = {
      {Known::kL2, "", R"({"eth": {"source-mac-address": "02:00:00:00:00:01"}})",
       Mac(&Fields::source, 0x020000000001)},
      {Known::kL2, "", R"({"eth": {"destination-mac-address": "02:00:00:00:00:11",
                                   "destination-mac-address-mask": "ff:00:ff:00:ff:0f"}})",
       Mac(&Fields::destination, 0x020000000011, 0xff00ff00ff0f)},
      {Known::kL2, "", R"({"eth": {"ethertype": 33024}})", Type(0x8100)},
      {Known::kL2, "", R"({"eth": {"ethertype": "ipv4"}})", Type(0x0800)},
      {Known::kL2, "", R"({"ietf-acl-enh:vlan-filter": {"operator": "eq", "vlan": [5]}})",
       Vlans(5, 5)},
      {Known::kL2, "", R"({"ietf-acl-enh:vlan-filter": {"lower-vlan": 98, "upper-vlan": 101}})",
       Vlans(98, 101)},
      {Known::kIpv4, "s", R"({"ipv4": {"source-ipv4-network": "10.1.2.0/24"}})",
       Ip(&Fields::source_ip, 0x0a010200, 0xffffff00)},
      {Known::kIpv4, "s", R"({"ipv4": {"source-ipv4-network": "10.1.2.3/0"}})",
       Ip(&Fields::source_ip, 0, 0)},
      {Known::kIpv4, "d", R"({"ipv4": {"destination-ipv4-network": "10.0.0.0/8"}})",
       Ip(&Fields::destination_ip, 0x0a000000, 0xff000000)},
      {Known::kIpv4, "d", R"({"ipv4": {"destination-ipv4-network": "192.168.0.1/32"}})",
       Ip(&Fields::destination_ip, 0xc0a80001, ~0u)},
      {Known::kIpv4, "p", R"({"ipv4": {"protocol": 6}})", Protocol(6)},
      {Known::kIpv4, "p", R"({"ipv4": {"protocol": 132}})", Protocol(132)},
      {Known::kIpv4, "t", R"({"ipv4": {"dscp": 46}})", Tos(0xb8, 0xfc)},
      {Known::kIpv4, "e", R"({"ipv4": {"ecn": 1}})", Tos(1, 3)},
      {Known::kPorts, "", R"({"tcp": {"destination-port": {"port": 80}}})", Ports(80, 80, 6)},
      {Known::kPorts, "", R"({"tcp": {"destination-port": {"operator": "lte", "port": 23}}})",
       Ports(0, 23, 6)},
      {Known::kPorts, "", R"({"udp": {"destination-port": {"operator": "gte", "port": 65530}}})",
       Ports(65530, 65535, 17)},
      {Known::kPorts, "", R"({"udp": {"destination-port": {"lower-port": 75, "upper-port": 80}}})",
       Ports(75, 80, 17)}};
  return kStatements;
}

const std::vector<Known>& OpenConfigStatements() {
  static const std::vector<Known> kStatements = {
      {Known::kL2, "", R"({"l2": {"config": {"source-mac": "02:00:00:00:00:01"}}})",
       Mac(&Fields::source, 0x020000000001)},
      {Known::kL2, "", R"({"l2": {"config": {"destination-mac": "02:00:00:00:00:11",
                                             "destination-mac-mask": "ff:00:ff:00:ff:0f"}}})",
       Mac(&Fields::destination, 0x020000000011, 0xff00ff00ff0f)},
      {Known::kL2, "",
       R"({"l2": {"config": {"ethertype": "openconfig-packet-match-types:ETHERTYPE_ARP"}}})",
       Type(0x0806)},
      {Known::kL2, "", R"({"l2": {"config": {"ethertype": 2048}}})", Type(0x0800)},
      {Known::kIpv4, "s", R"({"ipv4": {"config": {"source-address": "10.1.2.0/24"}}})",
       Ip(&Fields::source_ip, 0x0a010200, 0xffffff00)},
      {Known::kIpv4, "d", R"({"ipv4": {"config": {"destination-address-prefix-set": "a"}}})",
       Except(Or(Ip(&Fields::destination_ip, 0x0a010000, 0xffff0000),
                 Ip(&Fields::destination_ip, 0xc0a80001, ~0u)),
              Ip(&Fields::destination_ip, 0x0a010303, ~0u))},
      {Known::kIpv4, "p",
       R"({"ipv4": {"config": {"protocol": "openconfig-packet-match-types:IP_TCP"}}})",
       Protocol(6)},
      {Known::kIpv4, "p", R"({"ipv4": {"config": {"protocol": 17}}})", Protocol(17)},
      {Known::kIpv4, "t", R"({"ipv4": {"config": {"dscp": 46}}})", Tos(0xb8, 0xfc)},
      {Known::kIpv4, "t", R"({"ipv4": {"config": {"dscp-set": [46, 0]}}})",
       Or(Tos(0xb8, 0xfc), Tos(0, 0xfc))},
      {Known::kPorts, "", R"({"transport": {"config": {"destination-port": 80}}})", Ports(80, 80)},
      {Known::kPorts, "", R"({"transport": {"config": {"destination-port": "20..25"}}})",
       Ports(20, 25)},
      {Known::kPorts, "", R"({"transport": {"config": {"destination-port-set": "p"}}})",
       Except(Or(Ports(20, 90), Ports(65535, 65535)), Ports(22, 22))},
      {Known::kPorts, "", R"({"transport": {"config": {"destination-port": "ANY"}}})",
       [](const Fields& /*frame*/) { return true; }}};
  return kStatements;
}

bool IsIpv4(const Fields& frame) { return frame.destination_ip.has_value(); }

// An entry while it is made.
struct Making {
  std::mt19937* random;
  ordered_json json = ordered_json::object();
  std::vector<Condition> conditions = {};

  // Whether `number` of a layer's statements, as far as they go together, were taken.
  bool Take(const std::vector<Known>& all, Known::Layer layer, unsigned int number) {
    std::string slots = "-";
    for (unsigned int i = 0; i < number; ++i) {
      const Known& known = all[(*random)() % all.size()];
      if (known.layer != layer) {
        --i;
      } else if (slots.find(known.slot) == std::string::npos || slots == "-") {
        slots += known.slot;
        json.merge_patch(ordered_json::parse(known.json));
        conditions.push_back(known.holds);
      }
    }
    return number > 0;
  }
};

struct KnownEntry {
  std::vector<Condition> conditions;
  bool passes;
};

// The first entry all of whose conditions hold decides; else the end of the list does.
std::function<bool(const Fields&)> Evaluation(std::map<uint32_t, KnownEntry> entries,
                                              bool ipv4_only, bool end_passes) {
  return [entries = std::move(entries), ipv4_only, end_passes](const Fields& frame) {
    if (ipv4_only && !IsIpv4(frame)) return true;  // the list is not about it
    for (const auto& [number, entry] : entries) {
      if (std::all_of(entry.conditions.begin(), entry.conditions.end(),
                      [&](const Condition& holds) { return holds(frame); })) {
        return entry.passes;
      }
    }
    return end_passes;
  };
}

}  // namespace

KnownLists RandomRfc8519(std::mt19937* random) {
  static constexpr const char* kListTypes[] = {"eth-acl-type", "ipv4-acl-type",
                                               "mixed-eth-ipv4-acl-type", ""};
  const size_t type = (*random)() % std::size(kListTypes);
  const bool ipv4_only = type == 1;
  std::map<uint32_t, KnownEntry> entries;
  ordered_json json = ordered_json::parse(R"({"ietf-access-control-list:acls": {
      "acl": [{"name": "list"}], "attachment-points": {"interface": [{"interface-id": "eth0",
      "ingress": {"acl-sets": {"acl-set": [{"name": "list"}]}}}]}}})");
  ordered_json& list = json["ietf-access-control-list:acls"]["acl"][0];
  if (type != 3) list["type"] = std::string("ietf-access-control-list:") + kListTypes[type];
  for (uint32_t i = 0, count = 1 + (*random)() % 8; i < count; ++i) {
    const auto die = [random](unsigned int sides) { return (*random)() % sides; };
    Making making{random};
    const std::vector<Known>& all = Rfc8519Statements();
    making.Take(all, Known::kL2, ipv4_only ? 0 : die(2));
    const bool ipv4 = making.Take(all, Known::kIpv4, type == 0 ? 0 : die(3));
    if (ipv4 || ipv4_only || type == 2) making.Take(all, Known::kPorts, die(2));
    entries[i] = {making.conditions, die(2) == 0};
    list["aces"]["ace"].push_back(
        {{"name", "entry " + std::to_string(i)},
         {"matches", making.json},
         {"actions", {{"forwarding", entries[i].passes ? "accept" : "drop"}}}});
  }
  return {json.dump(), Evaluation(std::move(entries), ipv4_only, false)};
}

KnownLists RandomOpenConfig(bool end_passes, std::mt19937* random) {
  const char* const type = Pick({"ACL_L2", "ACL_IPV4", "ACL_MIXED"}, random);
  const bool l2_only = type[4] == 'L', ipv4_only = type[4] == 'I';
  ordered_json json = ordered_json::parse(R"({"openconfig-defined-sets:defined-sets": {
    "ipv4-prefix-sets": {"ipv4-prefix-set": [{"name": "a", "config": {
      "prefix": ["10.1.0.0/16", "192.168.0.1/32"], "exclude-prefix": ["10.1.3.3/32"]}}]},
    "port-sets": {"port-set": [{"name": "p", "config": {
      "port": ["20..90", 65535], "exclude-port": [22]}}]}},
    "openconfig-acl:acl": {"interfaces": {"interface": [{"id": "eth0", "ingress-acl-sets": {
      "ingress-acl-set": [{"set-name": "list"}]}}]}, "acl-sets": {"acl-set": [{"name": "list"}]}}})");
  ordered_json& acl = json["openconfig-acl:acl"];
  ordered_json& list = acl["acl-sets"]["acl-set"][0];
  list["type"] = type;
  acl["interfaces"]["interface"][0]["ingress-acl-sets"]["ingress-acl-set"][0]["type"] = type;
  std::map<uint32_t, KnownEntry> entries;  // applied in the order of their numbers
  for (uint32_t i = 0, count = 1 + (*random)() % 6; i < count; ++i) {
    const auto die = [random](unsigned int sides) { return (*random)() % sides; };
    Making making{random};
    const std::vector<Known>& all = OpenConfigStatements();
    making.Take(all, Known::kL2, ipv4_only ? 0 : die(2));
    making.Take(all, Known::kIpv4, l2_only ? 0 : die(3));
    making.Take(all, Known::kPorts, l2_only ? 0 : die(2));
    const uint32_t number = die(100000);
    const auto [entry, is_new] =
        entries.try_emplace(number, KnownEntry{making.conditions, die(2) == 0});
    if (!is_new) continue;
    making.json["sequence-id"] = number;
    making.json["actions"]["config"]["forwarding-action"] =
        entry->second.passes ? "ACCEPT" : "DROP";
    list["acl-entries"]["acl-entry"].push_back(std::move(making.json));
  }
  return {json.dump(), Evaluation(std::move(entries), ipv4_only, end_passes)};
}

namespace {

// The objects of a document, those within others included.
void FindObjects(ordered_json* json, std::vector<ordered_json*>* objects) {
  if (json->is_object()) objects->push_back(json);
  if (!json->is_structured()) return;
  for (ordered_json& value : *json) FindObjects(&value, objects);
}

}  // namespace

Damage DamageOf(const std::string& json, std::mt19937* random) {
  ordered_json document = ordered_json::parse(json);
  std::vector<ordered_json*> objects;
  FindObjects(&document, &objects);
  ordered_json& object = *objects[(*random)() % objects.size()];
  const unsigned int kind = object.empty() ? 0 : (*random)() % 6;
  if (kind == 5) {  // another model's namesake, in front
    auto member = object.begin();
    std::advance(member, (*random)() % object.size());
    const std::string& key = member.key();
    ordered_json longer = {{"v:" + key.substr(key.find(':') + 1), ordered_json::array({1})}};
    longer.insert(object.begin(), object.end());
    object = longer;
    return {document.dump(), true};
  }
  if (kind < 2) {
    object[kind == 0 ? "v:x" : "@"] = ordered_json::parse(kind == 0 ? "1" : R"({"v:x": 1})");
    return {document.dump(), kind == 0};
  }
  auto member = object.begin();
  std::advance(member, (*random)() % object.size());
  ordered_json& value = *member;
  if (kind == 2) {
    ordered_json& one = value.is_array() ? value[0] : value;
    one = one.is_structured() ? ordered_json("text") : ordered_json::parse(R"({"v:x": 1})");
  } else if (kind == 3 && !value.is_array()) {
    value = (*random)() % 2 == 0 ? ordered_json::array() : ordered_json::array({value, value});
  } else {
    const ordered_json copy = value;
    object[member.key() + "%"] = copy;
  }
  std::string text = document.dump();
  text.erase(std::remove(text.begin(), text.end(), '%'), text.end());
  return {text, false};
}

namespace {

bool Holds(size_t field, const Value& value, const Fields& frame) {
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

bool Matches(const ProfileEntry& entry, const Fields& frame) {
  for (size_t field = 0; field < kFieldCount; ++field) {
    if (entry.matches[field] && !Holds(field, *entry.matches[field], frame)) return false;
  }
  return true;
}

}  // namespace

bool Passes(const Profiles& profiles, const Fields& frame) {
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
                                           "[acl profile-1]",
                                           "[acl web/in] guests",
                                           "[seq 70000] \"quoted\" <b>"};
  Profiles profiles;
  profiles.bindings["eth1"];
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
