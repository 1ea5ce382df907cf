// What the classifier is given: a rule over the frame key.
#ifndef HOST_CLASSIFIER_RULE_H_
#define HOST_CLASSIFIER_RULE_H_

#include <cstddef>
#include <cstdint>

#include "host/classifier/layout.h"

// In the key's own namespace, so that the standard library finds them.
inline bool operator==(const cls_key& a, const cls_key& b) {
  return a.word[0] == b.word[0] && a.word[1] == b.word[1] && a.word[2] == b.word[2] &&
         a.word[3] == b.word[3];
}
inline bool operator!=(const cls_key& a, const cls_key& b) { return !(a == b); }

inline cls_key operator&(const cls_key& a, const cls_key& b) {
  return {
      {a.word[0] & b.word[0], a.word[1] & b.word[1], a.word[2] & b.word[2], a.word[3] & b.word[3]}};
}

namespace host::classifier {

// Matches the keys that agree with `value` in the bits of `mask`. `value` has no other bits.
struct Rule {
  cls_key value{};
  cls_key mask{};
  uint8_t action = CLS_PERMIT;
  uint8_t pcp = 0;       // of CLS_SET_PCP
  uint32_t counter = 0;  // carried along
  uint64_t cookie = 0;   // carried along
};

// Whether `mask` has all bits of `coarse`.
inline bool Covers(const cls_key& coarse, const cls_key& mask) { return (coarse & mask) == coarse; }

inline uint64_t Hash(const cls_key& key) {
  return cls_hash(key.word[0], key.word[1], key.word[2], key.word[3]);
}

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_RULE_H_
