#include "host/classifier/memory.h"

#include <cerrno>
#include <cstring>

namespace host::classifier {
namespace {

struct Element {
  const char* name;
  size_t size;
};

constexpr Element kElements[CLS_ARRAYS] = {
    {"control words", sizeof(cls_control)},
    {"roots", sizeof(cls_root)},
    {"groups", sizeof(cls_group)},
    {"tables", sizeof(cls_table)},
    {"filters", sizeof(cls_filter)},
    {"slots", sizeof(cls_slots)},
    {"heads", sizeof(cls_head)},
    {"entries", sizeof(cls_entry)},
    {"masks", sizeof(cls_key)},
};

// The layout that programs are compiled with, whatever machine that is.
static_assert(sizeof(cls_control) == 64 && sizeof(cls_root) == 16 && sizeof(cls_group) == 256 &&
              sizeof(cls_table) == 64 && sizeof(cls_filter) == 16 && sizeof(cls_slots) == 64 &&
              sizeof(cls_head) == 16 && sizeof(cls_entry) == 72 - 8 && sizeof(cls_key) == 32);

}  // namespace

size_t ElementSize(cls_array array) { return kElements[array].size; }

const char* ArrayName(cls_array array) { return kElements[array].name; }

int HeapMemory::Grow(cls_array array, uint32_t capacity) {
  if (capacity > limit_) return -E2BIG;
  if (capacity <= areas_[array].capacity) return 0;
  std::vector<Line>& lines = lines_[array];
  lines.resize((capacity * ElementSize(array) + sizeof(Line) - 1) / sizeof(Line));
  areas_[array] = {lines.data(), capacity};
  return 0;
}

size_t HeapMemory::bytes() const {
  size_t sum = 0;
  for (const std::vector<Line>& lines : lines_) sum += lines.size() * sizeof(Line);
  return sum;
}

}  // namespace host::classifier
