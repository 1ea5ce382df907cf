// A configuration of its own beside running: the candidate.
//
// A draft starts as a copy of running. It keeps a mask of every node in which the two may differ by
// now: what was edited here, and what was committed there. So the difference costs what has
// changed, not what is configured.
#ifndef HOST_CDB_DRAFT_H_
#define HOST_CDB_DRAFT_H_

#include <memory>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"

namespace host {

class Draft : private CommitObserver {
 public:
  // `datastore` must outlive the draft.
  explicit Draft(Datastore& datastore);
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;
  ~Draft() override;

  // First top-level node. Valid until the next edit.
  const lyd_node* Content() const { return content_->get(); }
  // Keeps the content alive beyond the draft's end, for those who read it in pages.
  std::shared_ptr<const void> Holder() const { return content_; }

  // Applies an edit. What a draft holds need not be valid before it is committed (RFC 7950 section
  // 8.3.3); with another test option than kSet it is validated as a commit of it would be, and left
  // as it is when that is refused (RFC 6241 section 8.6.4.1).
  DatastoreErrors Edit(const lyd_node* edit, const EditOptions& options);

  // The edit that makes running what the draft is, to be applied with DefaultOperation::kNone; null
  // when there is no difference.
  Tree Changes() const { return ChangesWith(nullptr, mask_.get()); }

 private:
  void OnCommit(const lyd_node* diff, const CommitInfo&) override { Touch(diff); }
  void Touch(const lyd_node* diff);
  // Changes() as they will be when `diff` (may be null) is applied. `mask` has the nodes of both.
  Tree ChangesWith(const lyd_node* diff, const lyd_node* mask) const;
  DatastoreErrors Test(const lyd_node* diff) const;

  Datastore& datastore_;
  const std::shared_ptr<Tree> content_;
  Tree mask_;
};

}  // namespace host

#endif  // HOST_CDB_DRAFT_H_
