// Confirmed commits: see confirmed_commit.h.
#include "host/netconf/operations/confirmed_commit.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cinttypes>
#include <optional>

#include "host/runtime/date_and_time.h"
#include "host/runtime/middleware.h"
#include "host/xml/xml_writer.h"

namespace host {
namespace {

constexpr std::chrono::seconds kRetryDelay{10};

// Since 1970.
int64_t MicrosecondsOf(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
}

}  // namespace

void ConfirmedCommit::Recover() {
  if (datastore_.Checkpoint() == 0 || !datastore_.Doubt().reasons.empty()) return;
  const std::optional<CommitInfo> commit = datastore_.CommitOf(datastore_.Checkpoint() + 1);
  if (commit.has_value()) user_ = commit->origin.user;
  const DatastoreErrors errors = GoBack("the daemon ended before it was confirmed");
  if (!errors.empty()) {
    Log(LogLevel::kError, "netconf: a commit that was not confirmed cannot be taken back: %s",
        errors.front().message.c_str());
  } else {
    Tell({ConfirmedCommitStep::kCancel, user_});
  }
  // What cannot be taken back now stays: a later start must not undo what came after it.
  Forget();
}

bool ConfirmedCommit::BelongsTo(uint32_t session, const std::string& persist_id) const {
  return persist_.empty() ? session == session_ && persist_id.empty() : persist_id == persist_;
}

DatastoreErrors ConfirmedCommit::Prepare() {
  return ongoing_ ? DatastoreErrors() : datastore_.SetCheckpoint();
}

void ConfirmedCommit::Begin(std::chrono::seconds timeout, const Origin& origin,
                            const std::string& persist) {
  const ConfirmedCommitStep::What what =
      ongoing_ ? ConfirmedCommitStep::kExtend : ConfirmedCommitStep::kStart;
  if (!ongoing_ || !persist.empty()) persist_ = persist;
  ongoing_ = true;
  user_ = origin.user;
  session_ = persist_.empty() ? origin.session_id : 0;
  commit_ = datastore_.TransactionId();
  until_ = std::chrono::system_clock::now() + timeout;
  Tell({what, origin.user, origin.session_id, static_cast<uint32_t>(timeout.count())});
  timer_ = loop_.After(timeout, [this] {
    End("it was not confirmed in time", {ConfirmedCommitStep::kTimeout, ""});
  });
  if (timer_ == nullptr) End("there is no timer for it", {ConfirmedCommitStep::kTimeout, ""});
}

DatastoreErrors ConfirmedCommit::Confirm(const Origin& by) {
  const bool ongoing = ongoing_;
  DatastoreErrors errors = Clear();
  if (ongoing && errors.empty()) Tell({ConfirmedCommitStep::kComplete, by.user, by.session_id});
  return errors;
}

DatastoreErrors ConfirmedCommit::Clear() {
  DatastoreErrors errors = datastore_.ClearCheckpoint();
  if (!errors.empty()) return errors;
  timer_.reset();
  ongoing_ = gone_back_ = false;
  session_ = 0;
  user_.clear();
  persist_.clear();
  return {};
}

void ConfirmedCommit::Forget() {
  const DatastoreErrors errors = Clear();
  if (errors.empty()) return;
  Log(LogLevel::kError, "netconf: %s", errors.front().message.c_str());
  timer_ = loop_.After(kRetryDelay, [this] { Forget(); });
}

DatastoreErrors ConfirmedCommit::Cancel(const std::string& why, const Origin& by) {
  return End(why, {ConfirmedCommitStep::kCancel, by.user, by.session_id});
}

// Goes back, and tells of it as `step`.
DatastoreErrors ConfirmedCommit::End(const std::string& why, const ConfirmedCommitStep& step) {
  DatastoreErrors errors;
  if (!gone_back_) errors = GoBack(why);
  gone_back_ = errors.empty();
  if (gone_back_) errors = Clear();
  if (errors.empty()) {
    Tell(step);
    return {};
  }
  Log(LogLevel::kError, "netconf: the confirmed commit of %s cannot be taken back yet: %s",
      user_.c_str(), errors.front().message.c_str());
  timer_ = loop_.After(kRetryDelay, [this, why, step] { End(why, step); });
  return errors;
}

DatastoreErrors ConfirmedCommit::GoBack(const std::string& why) {
  const uint64_t base = datastore_.Checkpoint();
  const uint64_t last = datastore_.TransactionId();
  const Origin origin{user_, 0, "back to commit " + std::to_string(base) + ": " + why};
  DatastoreErrors errors = datastore_.Rollback(base, origin);
  // What several commits did may be refused in one, such as a profile that was deleted and made
  // anew with another priority. Each of them can be undone by itself.
  if (!errors.empty()) {
    errors.clear();
    for (uint64_t id = last; errors.empty() && id > base; --id) {
      errors = datastore_.Rollback(id - 1, origin);
    }
  }
  if (!errors.empty()) return errors;
  Log(LogLevel::kWarning,
      "netconf: back to commit %" PRIu64 ", the confirmed commit of %s is taken back: %s", base,
      user_.c_str(), why.c_str());
  return {};
}

int64_t ConfirmedCommit::Remaining() const {
  const auto remaining =
      std::chrono::duration_cast<std::chrono::seconds>(until_ - std::chrono::system_clock::now());
  return std::max<int64_t>(remaining.count(), 0);
}

Tree ConfirmedCommit::State(const ly_ctx* context) const {
  if (!ongoing_) return nullptr;
  XmlWriter xml("urn:acl-app:commits");
  xml.Open("confirmed-commit");
  xml.Leaf("commit", commit_);
  xml.Leaf("base", datastore_.Checkpoint());
  xml.Leaf("user", user_);
  if (session_ != 0) xml.Leaf("session-id", uint64_t{session_});
  xml.Leaf("until", DateAndTime(MicrosecondsOf(until_), 0));
  xml.Leaf("remaining", static_cast<uint64_t>(Remaining()));
  xml.Close("confirmed-commit");
  lyd_node* tree = nullptr;
  if (lyd_parse_data_mem(context, xml.Take().c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0,
                         &tree) != LY_SUCCESS) {
    Log(LogLevel::kError, "netconf: the confirmed commit cannot be shown: %s", ly_errmsg(context));
    ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
  }
  return Tree(tree);
}

void ConfirmedCommit::OnSessionEnd(uint32_t session) {
  if (ongoing_ && session_ == session && session != 0) {
    Cancel("its session ended", {user_, session});
  }
}

void ConfirmedCommit::Tell(const ConfirmedCommitStep& step) const {
  if (events_ != nullptr) events_->Publish(step);
}

}  // namespace host
