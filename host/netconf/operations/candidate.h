// The candidate datastore (RFC 6241 section 8.3), shared by all sessions.
//
// As long as nobody has edited it the candidate is running itself and costs nothing.
#ifndef HOST_NETCONF_OPERATIONS_CANDIDATE_H_
#define HOST_NETCONF_OPERATIONS_CANDIDATE_H_

#include <memory>

#include "host/cdb/datastore.h"
#include "host/cdb/draft.h"

namespace host {

class Candidate {
 public:
  // `datastore` must outlive the candidate.
  explicit Candidate(Datastore& datastore) : datastore_(datastore) {}

  // True when it was edited since it was last the same as running.
  bool modified() const { return draft_ != nullptr; }
  const lyd_node* Content() const;
  // Keeps Content() alive while it is read in pages; null where running does that.
  std::shared_ptr<const void> Holder() const { return modified() ? draft_->Holder() : nullptr; }

  // Who edited it last, where modified() is true. The session may have ended.
  const Origin& editor() const { return editor_; }

  // See Draft::Edit().
  DatastoreErrors Edit(const lyd_node* edit, const EditOptions& options, const Origin& origin);
  // Would it be accepted as running?
  DatastoreErrors Validate() const;
  // Makes running the same as the candidate. When that is refused both stay as they are.
  DatastoreErrors Commit(const Origin& origin);
  // Makes the candidate the same as running.
  void Discard() { draft_.reset(); }

 private:
  Datastore& datastore_;
  std::unique_ptr<Draft> draft_;
  Origin editor_;
};

}  // namespace host

#endif  // HOST_NETCONF_OPERATIONS_CANDIDATE_H_
