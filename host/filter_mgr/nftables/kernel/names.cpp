#include "host/filter_mgr/nftables/kernel/names.h"

#include <net/if.h>

#include <algorithm>
#include <cstring>

namespace host {
namespace {

constexpr char kTablePrefix[] = "acl-app/";
constexpr const char* kGroupChains[kGroupSlots] = {"l2", "l3"};

}  // namespace

const char* GroupChainName(GroupSlot slot) { return kGroupChains[slot]; }

std::string TableName(const std::string& port) { return kTablePrefix + port; }

std::optional<std::string> PortOfTable(const std::string& table) {
  constexpr size_t kLength = sizeof(kTablePrefix) - 1;
  if (table.size() <= kLength || table.compare(0, kLength, kTablePrefix) != 0) return std::nullopt;
  return table.substr(kLength);
}

std::string ChunkName(GroupSlot slot, uint32_t number) {
  return std::string(kGroupChains[slot]) + "-" + std::to_string(number);
}

std::optional<std::pair<GroupSlot, uint32_t>> ParseChunkName(const std::string& name) {
  for (const GroupSlot slot : {kL2, kL3}) {
    const size_t prefix = strlen(kGroupChains[slot]) + 1;
    if (name.compare(0, prefix, std::string(kGroupChains[slot]) + "-") != 0) continue;
    const std::string digits = name.substr(prefix);
    if (digits.empty() || digits.size() > 9 ||
        digits.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    const auto number = static_cast<uint32_t>(std::stoul(digits));
    if (ChunkName(slot, number) == name) return std::make_pair(slot, number);
  }
  return std::nullopt;
}

const std::array<FixedSet, 2>& FixedSets() {
  constexpr uint32_t kEtherType = 10, kInetProtocol = 12;  // nft's numbers of data types
  static const std::array<FixedSet, 2> kSets{{
      {ValueSet::kTpids, "tpids", 2, kEtherType, {{0x81, 0x00}, {0x88, 0xa8}}},
      {ValueSet::kPortCarriers, "port-carriers", 1, kInetProtocol, {{6}, {17}}},
  }};
  return kSets;
}

const FixedSet& FixedSetOf(ValueSet id) { return FixedSets()[id == ValueSet::kTpids ? 0 : 1]; }

bool IsInterfaceName(const std::string& name) {
  // As the kernel's dev_valid_name().
  return !name.empty() && name.size() < IFNAMSIZ && name != "." && name != ".." &&
         std::none_of(name.begin(), name.end(),
                      [](unsigned char c) { return c == '/' || c == ':' || isspace(c) != 0; });
}

}  // namespace host
