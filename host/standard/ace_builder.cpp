// Values and conditions: see ace_builder.h.
#include "host/standard/ace_builder.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <utility>

#include "host/runtime/log_text.h"

namespace host::standard {
namespace {

// The whole of `text` as a number in `base`.
std::optional<uint64_t> Parse(std::string_view text, int base) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

std::optional<uint32_t> NumberOf(const std::string& text, uint32_t most) {
  const std::optional<uint64_t> number = Parse(text, 10);
  if (!number || *number > most) return std::nullopt;
  return static_cast<uint32_t>(*number);
}

std::optional<Value> PrefixOf(const std::string& text) {
  const size_t slash = text.find('/');
  in_addr address{};
  // A zero byte would hide what is behind it.
  if (text.find('\0') != std::string::npos) return std::nullopt;
  if (inet_pton(AF_INET, text.substr(0, slash).c_str(), &address) != 1) return std::nullopt;
  uint32_t length = 32;
  if (slash != std::string::npos) {
    const std::string digits = text.substr(slash + 1);
    const std::optional<uint32_t> given = NumberOf(digits, 32);
    if (!given || (digits[0] == '0' && digits.size() > 1)) return std::nullopt;
    length = *given;
  }
  const uint64_t mask = length == 0 ? 0 : 0xffffffffu << (32 - length) & 0xffffffffu;
  return Value{ntohl(address.s_addr), mask};
}

std::optional<uint64_t> MacOf(const std::string& text) {
  if (text.size() != 17) return std::nullopt;
  uint64_t address = 0;
  for (size_t i = 0; i < 6; ++i) {
    const std::optional<uint64_t> byte = Parse(std::string_view(text).substr(3 * i, 2), 16);
    if (!byte || (i > 0 && text[3 * i - 1] != ':' && text[3 * i - 1] != '-')) return std::nullopt;
    address = address << 8 | *byte;
  }
  return address;
}

std::vector<Value> Distinct(std::vector<Value> values) {
  std::set<std::pair<uint64_t, uint64_t>> known;
  const auto repeats = [&](const Value& value) {
    return !known.emplace(value.value & value.mask, value.mask).second;
  };
  values.erase(std::remove_if(values.begin(), values.end(), repeats), values.end());
  return values;
}

Ranges Union(Ranges ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& a, const Range& b) { return a.low < b.low; });
  Ranges all;
  for (const Range& range : ranges) {
    if (!all.empty() && range.low <= all.back().high + 1) {
      all.back().high = std::max(all.back().high, range.high);
    } else {
      all.push_back(range);
    }
  }
  return all;
}

Ranges Difference(const Ranges& all, const Ranges& without) {
  Ranges rest;
  auto hole = without.begin();
  for (Range range : all) {
    while (hole != without.end() && hole->high < range.low) ++hole;
    // The last hole within the range may go on in the next one.
    for (auto next = hole; next != without.end() && next->low <= range.high; ++next) {
      hole = next;
      if (next->low > range.low) rest.push_back({range.low, next->low - 1});
      range.low = next->high + 1;
      if (range.low > range.high) break;
    }
    if (range.low <= range.high) rest.push_back(range);
  }
  return rest;
}

uint64_t CountOf(const Ranges& ranges) {
  uint64_t count = 0;
  for (const Range& range : ranges) count += range.high - range.low + 1;
  return count;
}

std::vector<Value> PrefixesOf(const Ranges& addresses) {
  std::vector<Value> prefixes;
  for (Range range : addresses) {
    while (range.low <= range.high) {
      // The largest block that begins there, and is not beyond the end.
      uint64_t size = 1;
      while (size < (uint64_t{1} << 32) && range.low % (2 * size) == 0 &&
             range.low + 2 * size - 1 <= range.high) {
        size *= 2;
      }
      prefixes.push_back({range.low, 0xffffffff & ~(size - 1)});
      range.low += size;
    }
  }
  return prefixes;
}

std::optional<Ranges> RangesOf(std::string_view op, uint32_t number, uint32_t most) {
  if (op == "eq" || op.empty()) return Ranges{{number, number}};
  if (op == "lte") return Ranges{{0, number}};
  if (op == "gte") return Ranges{{number, most}};
  if (op == "neq") return Difference({{0, most}}, {{number, number}});
  return std::nullopt;
}

void AceBuilder::And(Field field, std::vector<Value> values) {
  std::vector<Value>& known = ace_->conditions[field];
  if (known.empty()) {
    known = std::move(values);
  } else {
    known = Intersect(known, values);
  }
  if (known.empty()) ace_->matches_nothing = true;
}

void AceBuilder::AndRanges(Field field, const Ranges& ranges, const std::string& path,
                           const std::string& meaning) {
  const uint64_t count = CountOf(ranges);
  if (count > most_values_) return RefuseCount(path, meaning, count);
  std::vector<Value> values;
  for (const Range& range : ranges) {
    for (uint64_t number = range.low; number <= range.high; ++number) {
      values.push_back({number, FullMask(field)});
    }
  }
  And(field, std::move(values));
}

void AceBuilder::AndSet(Field field, const std::vector<Value>& values, const std::string& path,
                        const std::string& meaning) {
  if (values.size() > most_values_) return RefuseCount(path, meaning, values.size());
  And(field, values);
}

void AceBuilder::RefuseCount(const std::string& path, const std::string& meaning, uint64_t count) {
  Refuse(path, meaning + " is " + std::to_string(count) + " values, and more than " +
                   std::to_string(most_values_) + " entries for one are too many");
}

void AceBuilder::Refuse(const std::string& path, const std::string& meaning, bool is_condition) {
  ace_->problems.push_back({path, meaning, is_condition});
}

void AceBuilder::RefuseWhole(const std::string& path, const std::string& meaning) {
  ace_->problems.push_back({path, meaning, true, true});
}

std::string EntryPath(const std::string& parent, std::string_view list, std::string_view key,
                      const std::string& value) {
  const char quote = value.find('\'') == std::string::npos ? '\'' : '"';
  std::string path = parent + "/";
  path.append(list).append("[").append(key).append("=");
  return path + quote + CutText(value, kMaxOutsideText) + quote + "]";
}

}  // namespace host::standard
