// The edits of a commit: see config_edits.h.
#include "host/netconf/notifications/config_edits.h"

#include <limits>

#include "host/cdb/diff.h"

namespace host {
namespace {

const char* EditNameOf(DiffOperation operation) {
  switch (operation) {
    case DiffOperation::kCreate:
      return "create";
    case DiffOperation::kDelete:
      return "delete";
    case DiffOperation::kReplace:
      return "replace";
    default:
      return "merge";
  }
}

class Collector {
 public:
  // Below nodes that are in `depth` lists, what changes is a merge into them.
  Collector(size_t most, size_t depth) : most_(most), depth_(depth) {}

  // False when there are too many.
  bool Collect(const lyd_node* first, size_t lists) {
    for (const lyd_node* node = first; node != nullptr; node = node->next) {
      if (IsKey(node)) continue;
      const DiffOperation operation = DiffOperationOf(node, DiffOperation::kNone);
      const size_t within = lists + (node->schema->nodetype == LYS_LIST ? 1 : 0);
      if (operation == DiffOperation::kNone && within < depth_) {
        if (!Collect(lyd_child(node), within)) return false;
        continue;
      }
      if (edits_.size() == most_) return false;
      edits_.push_back({PathOf(node), EditNameOf(operation)});
    }
    return true;
  }
  std::vector<ConfigEdit> Take() { return std::move(edits_); }

 private:
  const size_t most_, depth_;
  std::vector<ConfigEdit> edits_;
};

}  // namespace

ConfigEdits EditsOf(const lyd_node* diff, size_t most) {
  ConfigEdits result;
  for (const size_t depth : {std::numeric_limits<size_t>::max(), size_t{1}, size_t{0}}) {
    Collector collector(most, depth);
    result.combined = depth <= 1;
    if (!collector.Collect(diff, 0)) continue;
    result.edits = collector.Take();
    break;
  }
  return result;
}

}  // namespace host
