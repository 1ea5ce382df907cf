// The candidate datastore: see candidate.h.
#include "host/netconf/operations/candidate.h"

namespace host {

const lyd_node* Candidate::Content() const {
  return draft_ != nullptr ? draft_->Content() : datastore_.Running();
}

DatastoreErrors Candidate::Edit(const lyd_node* edit, const EditOptions& options,
                                const Origin& origin) {
  const bool was_modified = modified();
  if (!was_modified) draft_ = std::make_unique<Draft>(datastore_);
  DatastoreErrors errors = draft_->Edit(edit, options);
  // An edit without effect, such as one that is only to be tested, leaves the candidate unmodified.
  if (!was_modified && (!errors.empty() || draft_->Changes() == nullptr)) draft_.reset();
  if (errors.empty() && options.test_option != TestOption::kTestOnly) editor_ = origin;
  return errors;
}

DatastoreErrors Candidate::Validate() const {
  const Tree changes = modified() ? draft_->Changes() : nullptr;
  if (changes == nullptr) return {};
  return datastore_.Edit(changes.get(), {DefaultOperation::kNone, TestOption::kTestOnly}, {});
}

DatastoreErrors Candidate::Commit(const Origin& origin) {
  const Tree changes = modified() ? draft_->Changes() : nullptr;
  if (changes != nullptr) {
    DatastoreErrors errors =
        datastore_.Edit(changes.get(), {DefaultOperation::kNone, TestOption::kSet}, origin);
    if (!errors.empty()) return errors;
  }
  Discard();
  return {};
}

}  // namespace host
