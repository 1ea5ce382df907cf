// Confirmed commits: see confirmed_commit.h.
#include "host/netconf/confirmed_commit.h"

#include <utility>

#include "host/runtime/middleware.h"

namespace host {
namespace {

// Brings running to what `draft` is.
DatastoreErrors Restore(Datastore& datastore, const Draft& draft, const Origin& origin) {
  const Tree changes = draft.Changes();
  if (changes == nullptr) return {};
  const EditOptions options{DefaultOperation::kNone, TestOption::kSet};
  DatastoreErrors errors = datastore.Edit(changes.get(), options, origin);
  if (errors.empty()) return {};
  // What two commits did may be refused in one, such as a profile that was deleted and created with
  // another priority. Then the way back is by two commits as well.
  Log(LogLevel::kWarning, "netconf: going back in one commit is refused (%s), trying two",
      errors.front().message.c_str());
  const EditOptions replace{DefaultOperation::kReplace, TestOption::kSet};
  errors = datastore.Edit(nullptr, replace, origin);
  return errors.empty() ? datastore.Edit(draft.Content(), replace, origin) : errors;
}

}  // namespace

bool ConfirmedCommit::BelongsTo(uint32_t session, const std::string& persist_id) const {
  return persist_.empty() ? session == session_ && persist_id.empty() : persist_id == persist_;
}

void ConfirmedCommit::Begin(std::unique_ptr<Draft> checkpoint, std::chrono::seconds timeout,
                            const Origin& origin, const std::string& persist) {
  if (!ongoing()) checkpoint_ = std::move(checkpoint);
  origin_ = origin;
  persist_ = persist;
  session_ = persist.empty() ? origin.session_id : 0;
  timer_ = loop_.After(timeout, [this] { Cancel("it was not confirmed in time"); });
}

void ConfirmedCommit::Confirm() {
  timer_.reset();
  checkpoint_.reset();
  session_ = 0;
  persist_.clear();
}

DatastoreErrors ConfirmedCommit::Cancel(const std::string& why) {
  const std::unique_ptr<Draft> checkpoint = std::move(checkpoint_);
  Confirm();
  DatastoreErrors errors = Restore(datastore_, *checkpoint, origin_);
  if (errors.empty()) {
    Log(LogLevel::kWarning, "netconf: the confirmed commit of %s is taken back: %s",
        origin_.user.c_str(), why.c_str());
  } else {
    Log(LogLevel::kError, "netconf: the confirmed commit of %s cannot be taken back: %s: %s",
        origin_.user.c_str(), errors.front().path.c_str(), errors.front().message.c_str());
  }
  return errors;
}

void ConfirmedCommit::OnSessionEnd(uint32_t session) {
  if (ongoing() && session_ == session && session != 0) Cancel("its session ended");
}

}  // namespace host
