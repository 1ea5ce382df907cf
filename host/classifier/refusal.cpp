#include "host/classifier/refusal.h"

#include <cerrno>
#include <cstring>

#include "host/classifier/memory.h"

namespace host::classifier {

Refusal NoRoom(cls_array array, uint64_t room, uint64_t wanted, int error) {
  const std::string name = ArrayName(array);
  if (error == 0 || error == -E2BIG) {
    return {Refusal::kNoRoom, array, wanted,
            "the classifier has room for " + std::to_string(room) + " " + name + ", " +
                std::to_string(wanted) + " are needed"};
  }
  return {Refusal::kNoRoom, array, wanted,
          "there is no memory for " + std::to_string(wanted) + " " + name + ": " + strerror(-error),
          error};
}

}  // namespace host::classifier
