// The actions that an entry of a filter group can hold.
#ifndef PLATFORM_FILTERS_COMMON_ACTIONS_H_
#define PLATFORM_FILTERS_COMMON_ACTIONS_H_

#include "platform/filters_common/filters_types.h"

namespace FiltersCommon {

class Action {
 public:
  virtual ~Action() = default;
  virtual filtersAction_t kind() const = 0;
  // Whether the action's value fits its field.
  virtual bool inRange() const { return true; }

 protected:
  Action() = default;
  Action(const Action&) = default;
  Action& operator=(const Action&) = default;
};

// Lets the frame through and ends the group's evaluation.
class ActionPermit : public Action {
 public:
  static constexpr filtersAction_t kKind = FILTERS_ACTION_PERMIT;
  filtersAction_t kind() const override { return kKind; }
};

// Drops the frame. An entry that also holds other actions drops.
class ActionDeny : public Action {
 public:
  static constexpr filtersAction_t kKind = FILTERS_ACTION_DENY;
  filtersAction_t kind() const override { return kKind; }
};

// Sets the PCP of a tagged frame and the packet's queue, and ends the group's evaluation like
// permit.
class ActionSetPcpAndQueue : public Action {
 public:
  static constexpr filtersAction_t kKind = FILTERS_ACTION_SET_PCP_AND_QUEUE;
  explicit ActionSetPcpAndQueue(unsigned char pcp) : pcp_(pcp) {}
  filtersAction_t kind() const override { return kKind; }
  bool inRange() const override { return pcp_ <= 7; }
  unsigned char pcp() const { return pcp_; }

 private:
  unsigned char pcp_;
};

}  // namespace FiltersCommon

#endif  // PLATFORM_FILTERS_COMMON_ACTIONS_H_
