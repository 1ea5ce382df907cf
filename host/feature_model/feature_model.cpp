// One card, whose only figure of interest is a setting of the daemon.
#include "platform/feature_model/feature_model.h"

#include "host/runtime/settings.h"

namespace {

constexpr fm_slot_t kLocalSlot = {1, 1};

}  // namespace

int fm_init() { return 0; }

int fm_local_slot(fm_slot_t* slot) {
  *slot = kLocalSlot;
  return 0;
}

int fm_scalar_card_filter_mgr_pre_ingress_max_entries_per_group(const fm_slot_t* slot,
                                                                unsigned int* value) {
  if (slot->chassis != kLocalSlot.chassis || slot->slot != kLocalSlot.slot) {
    return -1;
  }
  *value = host::ProcessSettings().filter_capacity;
  return 0;
}
