#include "tests/host/findings/random_configuration.h"

#include <arpa/inet.h>

#include <set>

namespace host::findings {
namespace {

using namespace FiltersCommon;  // NOLINT

void Append(Frame* frame, uint64_t number, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) frame->push_back(static_cast<uint8_t>(number >> 8 * i));
}

ether_addr Mac(uint64_t number) {
  ether_addr mac;
  for (int i = 0; i < 6; ++i) mac.ether_addr_octet[i] = static_cast<uint8_t>(number >> 8 * (5 - i));
  return mac;
}

template <class M>
void AddMac(Field field, std::mt19937& random, KnownEntry* entry) {
  const uint64_t value = 0x020000000000 | random() % 4;
  const uint64_t mask = random() % 3 == 0 ? ~uint64_t{0} : ~uint64_t{random() % 4};
  entry->filter.setMatch(M(Mac(value), Mac(~mask)));
  entry->matches.Compare(field, value, mask);
}

template <class M>
void AddIpv4(Field field, std::mt19937& random, KnownEntry* entry) {
  const auto value = static_cast<uint32_t>(0x0a000000 | random() % 4);
  const uint32_t masks[] = {0, ~3U, ~1U, ~0U};
  const uint32_t mask = masks[random() % 4];
  entry->filter.setMatch(M(in_addr{htonl(value)}, in_addr{htonl(mask)}));
  entry->matches.Compare(field, value, mask);
}

template <class M, class T>
void AddNumber(Field field, std::vector<T> pool, std::mt19937& random, KnownEntry* entry) {
  const T value = pool[random() % pool.size()];
  entry->filter.setMatch(M(value));
  entry->matches.Compare(field, value);
}

void AddField(int field, std::mt19937& random, KnownEntry* e) {
  using Types = std::vector<uint16_t>;
  switch (field) {
    case kDestinationMac:
      return AddMac<MatchDstMac>(kDestinationMac, random, e);
    case kSourceMac:
      return AddMac<MatchSrcMac>(kSourceMac, random, e);
    case kEthertype:
      return AddNumber<MatchTPID>(kEthertype, Types{0x0800, 0x86dd, 0x8100, 0x88a8, 0x0806}, random,
                                  e);
    case kVlan:
      return AddNumber<MatchExternalVlanId>(kVlan, Types{1, 2}, random, e);
    case kPcp:
      return AddNumber<MatchPcp>(kPcp, std::vector<uint8_t>{0, 1}, random, e);
    case kDscp:
    case kTos:
      if (random() % 3 == 0) return AddNumber<MatchDSCP>(kDscp, std::vector<uint8_t>{0}, random, e);
      return AddNumber<MatchToS>(kTos, std::vector<uint8_t>{0, 1, 2, 3}, random, e);
    case kSourceIpv4:
      return AddIpv4<MatchSrcIPv4>(kSourceIpv4, random, e);
    case kDestinationIpv4:
      return AddIpv4<MatchDstIPv4>(kDestinationIpv4, random, e);
    case kIpProtocol:
      return AddNumber<MatchIpProtocol>(kIpProtocol, std::vector<uint8_t>{6, 6, 17, 17, 1}, random,
                                        e);
    default:
      return AddNumber<MatchDstL4Port>(kDestinationPort, Types{80, 81}, random, e);
  }
}

// `eighths` of the fields are named.
KnownEntry DrawEntry(const std::set<int>& fields, unsigned int eighths, std::mt19937& random,
                     Entry* plain) {
  KnownEntry entry;
  for (const int field : fields) {
    if (random() % 8 < eighths) AddField(field, random, &entry);
  }
  plain->matches = entry.matches;
  plain->action = static_cast<Entry::Action>(random() % 4);
  entry.deny = plain->action == Entry::Action::kDeny;
  return entry;
}

}  // namespace

RandomConfiguration::RandomConfiguration(std::mt19937* random_source) {
  std::mt19937& random = *random_source;
  std::set<int> fields;  // those that are used, DSCP and ToS as one
  for (int i = 1 + static_cast<int>(random() % 3); i > 0; --i) {
    const int field = static_cast<int>(random() % kFieldCount);
    fields.insert(field == kDscp ? kTos : field);
  }
  const unsigned int eighths = random() % 2 == 0 ? 4 : 7;
  for (const char* name : {"a", "b", "c"}) {
    Profile& profile = configuration.profiles[name];
    profile.l3 = random() % 3 != 0;
    profile.priority = static_cast<int>(random() % 100) * 3 + (*name - 'a');
    for (unsigned int number = 0; number < random() % 12; ++number) {
      Entry plain;
      KnownEntry entry = DrawEntry(fields, eighths, random, &plain);
      entry.profile = name;
      entry.ace_priority = plain.ace_priority = static_cast<uint16_t>(number * 10);
      profile.entries.push_back(plain);
      entries[name].push_back(entry);
    }
  }
  configuration.interfaces["p1"] = {false, {"a", "b", "c"}};
  configuration.interfaces["p2"] = {random() % 2 == 0, {"b"}};
}

std::vector<KnownEntry> RandomConfiguration::EntriesOf(const std::string& interface,
                                                       bool l3) const {
  std::map<int, std::string> order;
  for (const std::string& name : configuration.interfaces.at(interface).profiles) {
    const Profile& profile = configuration.profiles.at(name);
    if (profile.l3 == l3) order[profile.priority] = name;
  }
  std::vector<KnownEntry> result;
  for (const auto& [priority, name] : order) {
    const auto of_profile = entries.find(name);
    if (of_profile == entries.end()) continue;
    result.insert(result.end(), of_profile->second.begin(), of_profile->second.end());
  }
  return result;
}

const std::vector<Shape>& AllShapes() {
  static const std::vector<Shape> shapes = [] {
    std::vector<Shape> all = {{0, false, Payload::kNothing}};
    for (int i = 0; i <= static_cast<int>(Payload::kIpv6Port); ++i) {
      const auto payload = static_cast<Payload>(i);
      for (const uint16_t tpid : {0x8100, 0x88a8}) {
        all.push_back({tpid, payload != Payload::kBare, payload});
      }
      const bool ipv6 = payload >= Payload::kIpv6;
      if (payload != Payload::kNothing) {
        all.push_back({static_cast<uint16_t>(ipv6 ? 0x86dd : 0x0800), false, payload});
      }
    }
    return all;
  }();
  return shapes;
}

Frame FrameOf(const Shape& shape, const cls_key& key) {
  const bool ipv6 = shape.payload >= Payload::kIpv6;
  const bool ipv4 = !ipv6 && shape.payload >= Payload::kToTos;
  Frame frame;
  Append(&frame, key.word[0] >> 16, 6);
  Append(&frame, key.word[1] >> 16, 6);
  Append(&frame, shape.type == 0 ? key.word[0] : shape.type, 2);
  if (shape.payload == Payload::kBare) return frame;
  if (shape.tagged) {
    Append(&frame, key.word[1], 2);
    Append(&frame, ipv6 ? 0x86dd : ipv4 ? 0x0800 : 0x9000, 2);
  }
  const size_t start = frame.size();
  const bool port = shape.payload == Payload::kTcp || shape.payload == Payload::kUdp;
  if (ipv4) {
    const uint64_t protocol = port ? (shape.payload == Payload::kTcp ? 6 : 17) : key.word[3] >> 24;
    Append(&frame, 0x45, 1);
    Append(&frame, key.word[3] >> 16, 1);
    Append(&frame, 28, 2);
    Append(&frame, port ? 0 : 8, 4);  // a later fragment has no port
    Append(&frame, 0x4000 | (protocol & 0xff), 2);
    Append(&frame, 0, 2);
    Append(&frame, key.word[2], 8);
  } else if (ipv6) {
    const uint64_t next = shape.payload == Payload::kIpv6Port ? 17 : 58;
    Append(&frame, uint64_t{0x60} << 56 | 8 << 16 | next << 8 | 64, 8);
    frame.resize(frame.size() + 32);
  }
  Append(&frame, 99 << 16 | (key.word[3] & 0xffff), 4);
  frame.resize(frame.size() + 46);
  if (shape.payload == Payload::kToTos) frame.resize(start + 2);
  if (shape.payload == Payload::kToProtocol) frame.resize(start + 10);
  if (shape.payload == Payload::kToSource) frame.resize(start + 16);
  return frame;
}

}  // namespace host::findings
