// Frame keys as a configuration may meet them, made from its rules. The same for the same rules.
#ifndef HOST_CLASSIFIER_SAMPLE_KEYS_H_
#define HOST_CLASSIFIER_SAMPLE_KEYS_H_

#include <cstdint>
#include <vector>

#include "host/classifier/rule.h"

namespace host::classifier {

// The match of a rule, where it stands.
struct SampledMatch {
  const cls_key* value;
  const cls_key* mask;
};

// `count` keys. Each agrees with some rule in the bits which that compares; the others are, by
// turns, those of another rule, and random. `match_of` gives the match of each of the `rules`, by
// its number; those alone are asked for that a key is made from.
template <class MatchOf>
std::vector<cls_key> SampleKeys(size_t rules, const MatchOf& match_of, size_t count) {
  std::vector<cls_key> keys;
  if (rules == 0) return keys;
  uint64_t state = 0x2545f4914f6cdd1dULL;
  const auto random = [&state] {  // xorshift64*
    state ^= state >> 12;
    state ^= state << 25;
    state ^= state >> 27;
    return state * 0x2545f4914f6cdd1dULL;
  };
  const auto pick = [&]() -> SampledMatch { return match_of((random() >> 20) % rules); };
  for (size_t i = 0; i < count; ++i) {
    const SampledMatch rule = pick();
    const SampledMatch other = pick();
    cls_key key{};
    for (size_t word = 0; word < 4; ++word) {
      const uint64_t rest = i % 2 == 0 ? other.value->word[word] : random();
      key.word[word] = rule.value->word[word] | (rest & ~rule.mask->word[word]);
    }
    keys.push_back(key);
  }
  return keys;
}

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_SAMPLE_KEYS_H_
