// The state directory, and whether it is what was left there.
#include "host/cdb/storage/state_directory.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "host/runtime/log.h"

namespace host {
namespace {

constexpr char kLogEnding[] = "-wal";  // of SQLite's log

DatastoreErrors Refusal(const std::string& message) {
  DatastoreError error;
  error.tag = "operation-failed";
  error.message = message;
  return {error};
}

// Size of a file, none when there is no file.
std::optional<off_t> SizeOf(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) return std::nullopt;
  return info.st_size;
}

std::string Commits(uint64_t first, uint64_t last) {
  if (first == last) return "commit " + std::to_string(first) + " was";
  return "commits " + std::to_string(first) + " to " + std::to_string(last) + " were";
}

// "20261122T014512.123456", UTC.
std::string FileTime(int64_t time_us) {
  const time_t seconds = time_us / 1000000;
  tm broken_down{};
  gmtime_r(&seconds, &broken_down);
  std::array<char, 32> text{};
  strftime(text.data(), text.size(), "%Y%m%dT%H%M%S.", &broken_down);
  return text.data() + std::to_string(1000000 + time_us % 1000000).substr(1);
}

}  // namespace

std::unique_ptr<StateDirectory> StateDirectory::Open(const DatastoreOptions& options,
                                                     DatastoreErrors* errors) {
  std::unique_ptr<StateDirectory> state(new StateDirectory(options));
  *errors = state->Examine(options.filters_in_force);
  if (!errors->empty()) return nullptr;
  return state;
}

StateDirectory::StateDirectory(const DatastoreOptions& options)
    : directory_(options.state_directory),
      path_(directory_ + "/configuration.db"),
      history_(options.history),
      mark_(directory_ + "/configuration.mark"),
      watch_({path_, path_ + kLogEnding, mark_.path()}) {}

DatastoreErrors StateDirectory::Examine(size_t filters_in_force) {
  std::optional<CommitMark::Content> mark;
  bool mark_damaged = false;
  std::string why;
  if (!mark_.Read(&mark, &mark_damaged, &why)) return Refusal(why);
  if (mark.has_value()) doubt_.acknowledged = mark->commit;
  const std::optional<off_t> size = SizeOf(path_);
  const bool has_commits = mark_damaged || (mark.has_value() && mark->commit != 0);
  // SQLite would delete the log of an empty database.
  if (size.value_or(0) == 0 && (has_commits || SizeOf(path_ + kLogEnding).value_or(0) != 0)) {
    doubt_.reasons.push_back(path_ + (size.has_value() ? " is empty" : " is missing") +
                             (has_commits ? "" : ", although its log is there"));
    if (has_commits) CompareWithMark(mark, mark_damaged, false);
    doubt_.sound = false;
    return {};
  }
  StorageProblem problem;
  bool begin = !has_commits;
  storage_ = Storage::Open(path_, history_, &begin, &problem);
  if (storage_ == nullptr) {
    if (!problem.damaged)
      return Refusal("cannot use the configuration database " + path_ + ": " + problem.why);
    doubt_.reasons.push_back(path_ + ": " + problem.why);
    doubt_.sound = false;
    return {};
  }
  for (const std::string& flaw : storage_->Flaws()) doubt_.reasons.push_back(path_ + ": " + flaw);
  set_aside_ = !storage_->Flaws().empty();
  doubt_.sound = storage_->UnitsSound();
  doubt_.found = storage_->LastId();
  CompareWithMark(mark, mark_damaged, begin);
  if (doubt_.reasons.empty() && doubt_.found == 0 && filters_in_force != 0) {
    doubt_.reasons.push_back("nothing was ever committed in " + directory_ +
                             ", although filters of an earlier run are in force on " +
                             std::to_string(filters_in_force) +
                             (filters_in_force == 1 ? " port" : " ports"));
  }
  return doubt_.reasons.empty() ? Begin(mark) : DatastoreErrors();
}

// What the mark says against the database, which may be missing.
void StateDirectory::CompareWithMark(const std::optional<CommitMark::Content>& mark,
                                     bool mark_damaged, bool converted) {
  const uint64_t last = doubt_.found;
  if (mark_damaged) {
    doubt_.reasons.push_back(mark_.path() + " is damaged: commits after " + std::to_string(last) +
                             " may be missing");
  } else if (!mark.has_value()) {
    if (last == 0 || converted) return;
    doubt_.reasons.push_back(mark_.path() + " is missing: commits after " + std::to_string(last) +
                             " may be, too");
  } else if (storage_ != nullptr && mark->database != storage_->Database()) {
    doubt_.reasons.push_back(path_ + " is another database than " + mark_.path() + " is of");
  } else if (mark->commit > last) {
    doubt_.reasons.push_back(Commits(last + 1, mark->commit) +
                             " acknowledged, but cannot be found in " + path_);
  }
}

// Takes the state for what it is.
DatastoreErrors StateDirectory::Begin(const std::optional<CommitMark::Content>& mark) {
  const uint64_t last = storage_->LastId();
  std::string why;
  if (!mark.has_value()) {
    if (!mark_.Create({storage_->Database(), last}, &why)) return Refusal(why);
  } else if (mark->commit < last) {
    if (mark->commit + 1 < last) {
      Log(LogLevel::kWarning, "%s was behind: it had commit %" PRIu64 " of %" PRIu64,
          mark_.path().c_str(), mark->commit, last);
    }
    Advance(last);
  }
  storage_->Trust();
  watch_.Note();
  return {};
}

StateDoubt StateDirectory::Doubt() const {
  if (!doubt_.reasons.empty()) return doubt_;
  const std::string changed = watch_.WhatChanged();
  if (changed.empty()) return {};
  const uint64_t last = storage_->LastId();
  return {{changed + " while the daemon runs"}, last, last, true};
}

void StateDirectory::DoubtContent(const DatastoreErrors& errors) {
  const size_t most = std::min<size_t>(errors.size(), 10);
  for (size_t i = 0; i < most; ++i) {
    doubt_.reasons.push_back(errors[i].message +
                             (errors[i].path.empty() ? "" : " at " + errors[i].path));
  }
  doubt_.acknowledged = LastId();
  doubt_.found = 0;
  doubt_.sound = false;
  set_aside_ = true;
}

uint64_t StateDirectory::LastId() const {
  return std::max(doubt_.acknowledged, storage_ != nullptr ? storage_->LastId() : 0);
}

// Why nothing can be written now.
DatastoreErrors StateDirectory::Refuse() const {
  const StateDoubt doubt = Doubt();
  if (doubt.reasons.empty()) return {};
  return Refusal("the stored configuration is in doubt: " + doubt.reasons.front() +
                 "; nothing can be changed before that is settled (\"aclctl show status\" tells "
                 "more, \"aclctl recover\" settles it)");
}

DatastoreErrors StateDirectory::Write(const CommitInfo& info, const lyd_node* diff,
                                      const lyd_node* after) {
  DatastoreErrors errors = Refuse();
  if (!errors.empty()) return errors;
  errors = storage_->Write(info, diff, after);
  if (errors.empty()) Advance(info.id);
  watch_.Note();
  return errors;
}

DatastoreErrors StateDirectory::SetCheckpoint(uint64_t id) {
  DatastoreErrors errors = Refuse();
  if (!errors.empty()) return errors;
  errors = storage_->SetCheckpoint(id);
  watch_.Note();
  return errors;
}

// The commit stands without it: a mark that is behind says less, and nothing that is wrong.
void StateDirectory::Advance(uint64_t id) {
  std::string why;
  if (!mark_.Advance(id, &why))
    Log(LogLevel::kError, "commit %" PRIu64 " is stored, but not noted: %s", id, why.c_str());
}

DatastoreErrors StateDirectory::Recover(const CommitInfo& info, const lyd_node* diff,
                                        const lyd_node* whole, const lyd_node* after) {
  const bool anew = set_aside_ || storage_ == nullptr || !watch_.WhatChanged().empty();
  DatastoreErrors errors;
  if (anew) errors = BeginAnew(info.time_us);
  // Whatever waits to be taken back, the operator's word stands for.
  if (errors.empty() && storage_->Checkpoint() != 0) errors = storage_->SetCheckpoint(0);
  if (errors.empty()) errors = storage_->Write(info, anew ? whole : diff, after);
  std::string why;
  if (errors.empty() && !mark_.Create({storage_->Database(), info.id}, &why)) {
    set_aside_ = true;  // has a commit that is not to be
    errors = Refusal(why);
  }
  if (!errors.empty()) return errors;
  set_aside_ = false;
  doubt_ = {};
  storage_->Trust();
  watch_.Note();
  return {};
}

// Renames what is there, and begins a new database.
DatastoreErrors StateDirectory::BeginAnew(int64_t time_us) {
  if (storage_ != nullptr) {
    doubt_ = Doubt();
    doubt_.acknowledged = LastId();
    storage_->Distrust();
    storage_.reset();
  }
  set_aside_ = true;
  const std::string aside = path_ + ".set-aside-" + FileTime(time_us);
  for (const char* ending : {"", kLogEnding}) {
    if (rename((path_ + ending).c_str(), (aside + ending).c_str()) != 0 && errno != ENOENT)
      return Refusal(path_ + ending + " cannot be renamed: " + std::strerror(errno));
  }
  bool begin = true;
  StorageProblem problem;
  storage_ = Storage::Open(path_, history_, &begin, &problem);
  if (storage_ != nullptr) return {};
  return Refusal("cannot use the configuration database " + path_ + ": " + problem.why);
}

}  // namespace host
