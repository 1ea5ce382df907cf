// Whether an entry has a match or an action of a kind. The core asks the filter library for these
// two in this place alone: of what it uses there, they are what another library may call otherwise.
#ifndef MODEL_ENTRY_LOOKUP_H_
#define MODEL_ENTRY_LOOKUP_H_

#include "platform/filters_common/filters_entry.h"

namespace acl_app {

inline bool HasMatch(const FiltersCommon::FiltersEntry& entry, FiltersCommon::filtersMatch_t kind) {
  return entry.findMatch(kind) != nullptr;
}

inline bool HasAction(const FiltersCommon::FiltersEntry& entry,
                      FiltersCommon::filtersAction_t kind) {
  return entry.findAction(kind) != nullptr;
}

}  // namespace acl_app

#endif  // MODEL_ENTRY_LOOKUP_H_
