// Reading of differences.
#include "host/cdb/diff.h"

#include <cstring>

namespace host {

DiffOperation DiffOperationOf(const lyd_node* node, DiffOperation inherited) {
  for (const lyd_meta* meta = node->meta; meta != nullptr; meta = meta->next) {
    if (strcmp(meta->name, "operation") != 0 || strcmp(meta->annotation->module->name, "yang") != 0)
      continue;
    switch (lyd_get_meta_value(meta)[0]) {
      case 'c':
        return DiffOperation::kCreate;
      case 'd':
        return DiffOperation::kDelete;
      case 'r':
        return DiffOperation::kReplace;
      default:
        return DiffOperation::kNone;
    }
  }
  return inherited;
}

}  // namespace host
