// The feature model: what the card that the process runs on can do.
#ifndef PLATFORM_FEATURE_MODEL_FEATURE_MODEL_H_
#define PLATFORM_FEATURE_MODEL_FEATURE_MODEL_H_

#include <cstdint>

extern "C" {

// Names one card. Filled by fm_local_slot(), only passed on.
typedef struct fm_slot {
  uint32_t chassis;
  uint32_t slot;
} fm_slot_t;

// Connects to the feature model; 0 on success. May be called again at any time.
int fm_init();
// Fills the slot of the card that the process runs on; 0 on success.
int fm_local_slot(fm_slot_t* slot);
// The highest number of entries that a pre-ingress filter group of the card holds; 0 on success,
// `*value` is left alone otherwise.
int fm_scalar_card_filter_mgr_pre_ingress_max_entries_per_group(const fm_slot_t* slot,
                                                                unsigned int* value);

}  // extern "C"

#endif  // PLATFORM_FEATURE_MODEL_FEATURE_MODEL_H_
