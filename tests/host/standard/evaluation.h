// What lists and profiles do to frames. The lists are made here together with what RFC 8519 and the
// modules of OpenConfig say of each of their statements, as code over the fields of a frame:
// nothing of it goes through a reader.
#ifndef TESTS_HOST_STANDARD_EVALUATION_H_
#define TESTS_HOST_STANDARD_EVALUATION_H_

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "host/filter_mgr/match/frame_fields.h"
#include "host/standard/profiles.h"

namespace host::standard {

// A list in JSON and the verdict of the standard about a frame: whether it passes.
struct KnownLists {
  std::string json;
  std::function<bool(const FrameFields& frame)> passes;
};

// One list of a random type, bound to "eth0", all of whose statements can be converted. OpenConfig
// leaves the end of a list to the element.
KnownLists RandomRfc8519(std::mt19937* random);
KnownLists RandomOpenConfig(bool end_passes, std::mt19937* random);

// A document with something wrong in a place by chance: a statement of another model, a statement
// twice, one that has another form than it should, an annotation.
struct Damage {
  std::string text;
  bool is_foreign;  // a statement of another model
};
Damage DamageOf(const std::string& json, std::mt19937* random);

// Whether the frame passes what is bound to "eth0".
bool Passes(const Profiles& profiles, const FrameFields& frame);

// Profiles with all that ours can have, some of which are bound.
Profiles RandomProfiles(std::mt19937* random);

}  // namespace host::standard

#endif  // TESTS_HOST_STANDARD_EVALUATION_H_
