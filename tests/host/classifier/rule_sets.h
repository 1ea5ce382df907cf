// Random rule sets of the kinds that tables find hardest.
#ifndef TESTS_HOST_CLASSIFIER_RULE_SETS_H_
#define TESTS_HOST_CLASSIFIER_RULE_SETS_H_

#include <random>

#include "host/classifier/rule.h"

namespace host::classifier {

enum class Kind { kMixed, kAnyMask, kNested, kOneWild, kEqual, kLink, kKinds };

inline Rule RandomRule(Kind kind, std::mt19937_64& random) {
  const auto bits = [&](int log2) { return random() & ((1ULL << log2) - 1); };
  const auto prefix = [](uint64_t length) { return length == 0 ? 0 : ~0U << (32 - length); };
  Rule rule;
  cls_key& mask = rule.mask;
  cls_key value{};
  for (auto& word : value.word) {  // few bits are set, so that values meet
    word = random();
    word &= random();
    word &= random();
  }
  switch (kind) {
    case Kind::kMixed:
      mask.word[2] = uint64_t{prefix(bits(2) * 8)} << 32 | prefix(32 - bits(3));
      mask.word[3] = bits(1) * 0xffff | bits(1) * 0xff000000 | CLS_HAS_IPV4;
      mask.word[1] = bits(4) == 0 ? 0xfff : 0;
      break;
    case Kind::kAnyMask:
      for (auto& word : mask.word) {
        word = random();
        word &= random();
      }
      break;
    case Kind::kNested:
      value.word[2] = 0x0a0a0a0a0b0b0b0bULL;
      mask.word[2] = uint64_t{prefix(bits(5))} << 32 | prefix(bits(5));
      break;
    case Kind::kOneWild:
      mask.word[2] = ~(0xffULL << 8 * bits(3));
      value.word[2] = bits(1) | bits(1) << 32;
      break;
    case Kind::kEqual:
      mask.word[3] = bits(1) * 0xffff;
      value.word[3] = bits(3);
      break;
    default:
      mask.word[0] = bits(1) * ~0xffffULL | bits(1) * 0xffff;
      mask.word[1] = bits(1) * 0xffffff0000000000ULL | bits(1) * 0xfff;
      value.word[0] = bits(3) << 16 | 0x8100;
      value.word[1] = bits(2) << 40 | bits(3);
      break;
  }
  rule.value = value & mask;
  rule.action = static_cast<uint8_t>(random() % 3);
  rule.cookie = random();
  return rule;
}

// A key that agrees with the rule in what it compares.
inline cls_key KeyFor(const Rule& rule, const Rule& other, std::mt19937_64& random) {
  cls_key key = rule.value;
  for (int i = 0; i < 4; ++i) {
    const uint64_t rest = random() % 2 == 0 ? other.value.word[i] : random();
    key.word[i] |= rest & ~rule.mask.word[i];
  }
  return key;
}

}  // namespace host::classifier

#endif  // TESTS_HOST_CLASSIFIER_RULE_SETS_H_
