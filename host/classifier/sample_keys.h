// Frame keys as a configuration may meet them, made from its rules. The same for the same rules.
#ifndef HOST_CLASSIFIER_SAMPLE_KEYS_H_
#define HOST_CLASSIFIER_SAMPLE_KEYS_H_

#include <cstdint>
#include <vector>

#include "host/classifier/table_plan.h"

namespace host::classifier {

// `count` keys. Each agrees with some rule in the bits which that compares; the others are, by
// turns, those of another rule, and random.
inline std::vector<cls_key> SampleKeys(const std::vector<cls_key>& masks,
                                       const std::vector<PlanRule>& rules, size_t count) {
  std::vector<cls_key> keys;
  if (rules.empty()) return keys;
  uint64_t state = 0x2545f4914f6cdd1dULL;
  const auto random = [&state] {  // xorshift64*
    state ^= state >> 12;
    state ^= state << 25;
    state ^= state >> 27;
    return state * 0x2545f4914f6cdd1dULL;
  };
  const auto pick = [&]() -> const PlanRule& { return rules[(random() >> 20) % rules.size()]; };
  for (size_t i = 0; i < count; ++i) {
    const PlanRule& rule = pick();
    const PlanRule& other = pick();
    cls_key key{};
    for (size_t word = 0; word < 4; ++word) {
      const uint64_t mask = masks[rule.mask].word[word];
      const uint64_t rest = i % 2 == 0 ? other.value->word[word] : random();
      key.word[word] = rule.value->word[word] | (rest & ~mask);
    }
    keys.push_back(key);
  }
  return keys;
}

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_SAMPLE_KEYS_H_
