// Small operations on conditions: see acl.h.
#include "host/standard/acl.h"

#include <algorithm>

namespace host::standard {
namespace {

constexpr int kWidths[kFieldCount] = {48, 48, 16, 12, 3, 8, 32, 32, 8, 16};

bool AnyOf(const Conditions& conditions, std::initializer_list<Field> fields) {
  return std::any_of(fields.begin(), fields.end(),
                     [&](Field field) { return !conditions[field].empty(); });
}

}  // namespace

uint64_t FullMask(Field field) { return (uint64_t{1} << kWidths[field]) - 1; }

std::vector<Value> Intersect(const std::vector<Value>& a, const std::vector<Value>& b) {
  std::vector<Value> both;
  for (const Value& x : a) {
    for (const Value& y : b) {
      if (((x.value ^ y.value) & x.mask & y.mask) != 0) continue;
      both.push_back({(x.value & x.mask) | (y.value & y.mask), x.mask | y.mask});
    }
  }
  return both;
}

bool AskForIpv4(const Conditions& conditions) {
  return AnyOf(conditions, {kTos, kSourceIpv4, kDestinationIpv4, kIpProtocol});
}

bool AskForEthernet(const Conditions& conditions) {
  return AnyOf(conditions, {kDestinationMac, kSourceMac, kEthertype, kVlan, kPcp});
}

bool AskForNothing(const Conditions& conditions) {
  return std::all_of(conditions.begin(), conditions.end(),
                     [](const std::vector<Value>& values) { return values.empty(); });
}

}  // namespace host::standard
