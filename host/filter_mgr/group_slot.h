// The two filter groups by their place in the evaluation of a frame: L2 before L3.
#ifndef HOST_FILTER_MGR_GROUP_SLOT_H_
#define HOST_FILTER_MGR_GROUP_SLOT_H_

#include <array>
#include <cstddef>

#include "platform/filters_common/filters_types.h"

namespace host {

enum GroupSlot : size_t { kL2 = 0, kL3 = 1 };
constexpr size_t kGroupSlots = 2;
constexpr std::array<GroupSlot, kGroupSlots> kSlots = {kL2, kL3};

// The place of a group of a valid type.
inline GroupSlot SlotOf(FiltersCommon::filtersGroupType_t type) {
  return type == FiltersCommon::FILTERS_GROUP_TYPE_L2 ? kL2 : kL3;
}

// "L2" or "L3", for messages.
inline const char* SlotName(GroupSlot slot) { return slot == kL2 ? "L2" : "L3"; }

}  // namespace host

#endif  // HOST_FILTER_MGR_GROUP_SLOT_H_
