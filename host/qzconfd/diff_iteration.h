// Iteration of a commit's difference for one subscription.
//
// The nodes strictly below the subscription's path are delivered from the top down, over the new
// running data:
//  - deletions come before everything else among siblings, so that what replaces a node comes
//    after the node is gone; a container without presence that has deletions in it counts as one.
//    Otherwise siblings come in the order of the schema, list entries in that of their keys;
//  - a list entry comes before its content, a deleted one without it. Keys are not delivered;
//  - a container without presence always exists: it is delivered as modified, whatever happened.
#ifndef HOST_QZCONFD_DIFF_ITERATION_H_
#define HOST_QZCONFD_DIFF_ITERATION_H_

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "host/cdb/calls/cdb_path.h"
#include "host/cdb/diff.h"
#include "host/cdb/schema/cdb_schema.h"
#include "platform/qzconfd/qzconfd.h"

namespace host {

class DiffIteration {
 public:
  // `path` is the subscription's path as steps of containers, a list or container at the end.
  DiffIteration(const CdbSchema* schema, PathSteps path);

  // Whether `diff` has anything below the path.
  bool Touched(const lyd_node* diff) const;
  // The changes for which the callback asked not to go on below (ITER_CONTINUE, ITER_STOP): a
  // handler does so where it could not take them.
  struct NotTaken {
    size_t count = 0;
    std::string first;  // path of the first
  };
  // Calls `callback` for what `diff` has below the path.
  NotTaken Run(const lyd_node* diff, const qzconfd::DiffIterator& callback);

 private:
  struct Change {
    const CdbNode* node;
    const lyd_node* data;
    DiffOperation operation;
    bool deletes;
    Values keys;  // of list entries and leaf-list elements
  };
  using Changes = std::vector<Change>;

  Changes ChangesAtPath(const lyd_node* diff) const;
  void Add(const lyd_node* data, DiffOperation inherited, Changes* changes) const;
  bool Deliver(Changes changes);
  bool DeliverOne(const Change& change);
  confd_iter_ret Call(const Change& change);

  const CdbSchema* schema_;
  PathSteps path_;
  const qzconfd::DiffIterator* callback_ = nullptr;
  NotTaken not_taken_;
  // The path of the node that is being delivered, top down: a tag or keys each. Not owned values.
  std::vector<std::vector<confd_value_t>> elements_;
};

}  // namespace host

#endif  // HOST_QZCONFD_DIFF_ITERATION_H_
