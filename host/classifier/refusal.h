// Why the classifier refuses a change.
#ifndef HOST_CLASSIFIER_REFUSAL_H_
#define HOST_CLASSIFIER_REFUSAL_H_

#include <cstdint>
#include <string>

#include "host/classifier/layout.h"

namespace host::classifier {

struct Refusal {
  enum Kind {
    kNoRoom,      // `array` cannot hold `wanted` elements
    kTooComplex,  // `wanted` entries fit into no table, see the limits in classifier.h
  };
  Kind kind = kNoRoom;
  cls_array array = CLS_ENTRIES;  // of kNoRoom
  uint64_t wanted = 0;
  std::string text;  // for people, with the numbers
  int error = 0;     // of kNoRoom: why memory was not given, a negative errno; 0 at a limit
};

// The array can hold no more than `room`, and `wanted` are needed; or it could not be made to hold
// them, by `error` of Memory::Grow().
Refusal NoRoom(cls_array array, uint64_t room, uint64_t wanted, int error);

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_REFUSAL_H_
