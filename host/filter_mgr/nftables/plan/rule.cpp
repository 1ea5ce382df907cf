#include "host/filter_mgr/nftables/plan/rule.h"

#include <algorithm>
#include <string_view>

namespace host {
namespace {

std::string_view View(const FieldTest::Bytes& bytes, size_t length) {
  return {reinterpret_cast<const char*>(bytes.data()), length};
}

size_t Mix(size_t hash, size_t value) {
  return (hash ^ value) * 0x9e3779b97f4a7c15u + (hash >> 29);
}

}  // namespace

bool FieldTest::operator==(const FieldTest& other) const {
  return source == other.source && set == other.set && offset == other.offset &&
         length == other.length && mask == other.mask && value == other.value;
}

bool FieldTest::IsExact() const {
  return set == ValueSet::kNone && std::all_of(mask.begin(), mask.begin() + length,
                                               [](uint8_t byte) { return byte == 0xff; });
}

bool Outcome::operator==(const Outcome& other) const {
  return verdict == other.verdict && counted == other.counted && chunk == other.chunk &&
         tag_pcp == other.tag_pcp && queue == other.queue;
}

bool SameRule(const Rule& a, const Rule& b) {
  if (a.foreign || b.foreign) return false;
  return &a == &b || (a.outcome == b.outcome && a.tests == b.tests);
}

size_t HashRule(const Rule& rule) {
  size_t hash = Mix(static_cast<size_t>(rule.outcome.verdict), rule.outcome.chunk);
  hash = Mix(hash, rule.outcome.tag_pcp.value_or(8));
  for (const FieldTest& test : rule.tests) {
    hash = Mix(hash, static_cast<size_t>(test.source) << 16 | test.offset << 8 | test.length);
    hash = Mix(hash, std::hash<std::string_view>()(View(test.mask, test.length)));
    hash = Mix(hash, std::hash<std::string_view>()(View(test.value, test.length)));
  }
  return hash;
}

bool CanGuard(const FieldTest& test) {
  constexpr uint8_t kProtocol = 9;  // RFC 791
  return test.IsExact() &&
         (test.source == Source::kEtherType ||
          (test.source == Source::kNetwork && test.offset == kProtocol && test.length == 1));
}

Guard GuardOf(const Rule& rule) {
  auto first = rule.tests.end();
  while (first != rule.tests.begin() && CanGuard(*(first - 1))) --first;
  return {first, rule.tests.end()};
}

bool FitsGuard(const Rule& rule, const Guard& guard) {
  return rule.tests.size() >= guard.size() &&
         std::equal(guard.rbegin(), guard.rend(), rule.tests.rbegin());
}

namespace {

RulePtr LeadTo(Verdict how, uint32_t chunk, const Guard& guard) {
  auto rule = std::make_shared<Rule>();
  rule->tests = guard;
  rule->outcome.verdict = how;
  rule->outcome.counted = false;
  rule->outcome.chunk = chunk;
  return rule;
}

}  // namespace

RulePtr JumpTo(uint32_t chunk, const Guard& guard) { return LeadTo(Verdict::kJump, chunk, guard); }

RulePtr GoTo(uint32_t chunk) { return LeadTo(Verdict::kGoto, chunk, {}); }

}  // namespace host
