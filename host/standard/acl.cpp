// Small operations on conditions: see acl.h.
#include "host/standard/acl.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

namespace host::standard {
namespace {

constexpr int kWidths[] = {48, 48, 16, 12, 3, 8, 32, 32, 8, 16};
static_assert(std::size(kWidths) == kFieldCount);

constexpr uint64_t kDscps = 64;

template <size_t count>
bool AnyOf(const Conditions& conditions, const Field (&fields)[count]) {
  return std::any_of(std::begin(fields), std::end(fields),
                     [&](Field field) { return !conditions[field].empty(); });
}

// The mask that all of both have: then what they have in common takes no comparison of each with
// each.
std::optional<uint64_t> CommonMask(const std::vector<Value>& a, const std::vector<Value>& b) {
  if (a.empty() || b.empty()) return std::nullopt;
  const uint64_t mask = a.front().mask;
  const auto has = [mask](const Value& value) { return value.mask == mask; };
  if (!std::all_of(a.begin(), a.end(), has) || !std::all_of(b.begin(), b.end(), has)) {
    return std::nullopt;
  }
  return mask;
}

}  // namespace

uint64_t FullMask(Field field) { return (uint64_t{1} << kWidths[field]) - 1; }

std::vector<Value> Intersect(const std::vector<Value>& a, const std::vector<Value>& b) {
  std::vector<Value> both;
  if (const std::optional<uint64_t> mask = CommonMask(a, b)) {
    std::unordered_set<uint64_t> known;
    for (const Value& y : b) known.insert(y.value & *mask);
    std::copy_if(a.begin(), a.end(), std::back_inserter(both),
                 [&](const Value& x) { return known.count(x.value & *mask) > 0; });
    return both;
  }
  for (const Value& x : a) {
    for (const Value& y : b) {
      if (((x.value ^ y.value) & x.mask & y.mask) != 0) continue;
      both.push_back({(x.value & x.mask) | (y.value & y.mask), x.mask | y.mask});
    }
  }
  return both;
}

std::vector<Value> FormsOf(Field field, const std::vector<Value>& values) {
  std::vector<Value> forms;
  for (const Value& value : values) {
    if (field != kTos || value.mask == kDscpMask || value.mask == FullMask(kTos)) {
      forms.push_back(value);
      continue;
    }
    for (uint64_t dscp = 0; dscp < kDscps; ++dscp) {
      forms.push_back({dscp << 2 | (value.value & kEcnMask), FullMask(kTos)});
    }
  }
  return forms;
}

size_t AlternativesOf(const Conditions& conditions) {
  size_t count = 1;
  for (size_t field = 0; field < kFieldCount; ++field) {
    size_t forms = 0;
    for (const Value& value : conditions[field]) {
      const bool ecn_alone =
          field == kTos && value.mask != kDscpMask && value.mask != FullMask(kTos);
      forms += ecn_alone ? kDscps : 1;
    }
    if (forms > 1 && count > SIZE_MAX / forms) return SIZE_MAX;
    count *= std::max<size_t>(forms, 1);
  }
  return count;
}

bool AskForIpv4(const Conditions& conditions) { return AnyOf(conditions, kIpv4Fields); }

bool AskForEthernet(const Conditions& conditions) { return AnyOf(conditions, kEthernetFields); }

bool AskForNothing(const Conditions& conditions) {
  return std::all_of(conditions.begin(), conditions.end(),
                     [](const std::vector<Value>& values) { return values.empty(); });
}

}  // namespace host::standard
