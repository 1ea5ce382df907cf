// The definition of a match, as plain as can be: the first of a list of rules that fits. What the
// classifier finds is compared with this.
#ifndef HOST_CLASSIFIER_LINEAR_MATCHER_H_
#define HOST_CLASSIFIER_LINEAR_MATCHER_H_

#include <vector>

#include "host/classifier/rule.h"

namespace host::classifier {

inline bool Matches(const Rule& rule, const cls_key& key) {
  return (key & rule.mask) == rule.value;
}

// The rule that decides for `key`, null when none does.
inline const Rule* FirstMatch(const std::vector<Rule>& rules, const cls_key& key) {
  for (const Rule& rule : rules) {
    if (Matches(rule, key)) return &rule;
  }
  return nullptr;
}

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_LINEAR_MATCHER_H_
