// How often tests of random rounds go round.
#ifndef TESTS_RANDOM_ROUNDS_H_
#define TESTS_RANDOM_ROUNDS_H_

namespace host {

// So many as are asked for; an eighth of them under sanitizers, where each costs ten times as much.
constexpr int RandomRounds(int count) {
#ifdef ACL_SANITIZED
  return count / 8;
#else
  return count;
#endif
}

}  // namespace host

#endif  // TESTS_RANDOM_ROUNDS_H_
