// The datastore: loading, commits by small trees, observers.
#include "host/cdb/datastore.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <new>
#include <utility>

#include "host/cdb/cross_checks.h"
#include "host/cdb/diff.h"
#include "host/cdb/edit/edit.h"
#include "host/cdb/load.h"
#include "host/cdb/operational_store.h"
#include "host/cdb/schema/schema.h"
#include "host/cdb/schema/yang_tree.h"
#include "host/cdb/storage/state_directory.h"
#include "host/cdb/validation.h"
#include "host/runtime/date_and_time.h"
#include "host/runtime/memory.h"

namespace host {
namespace {

// A change of running that failed half way has no way back but a restart from what is persistent.
[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "datastore: %s\n", what);
  std::abort();
}

DatastoreErrors Refusal(const char* tag, const std::string& message) {
  DatastoreError error;
  error.tag = tag;
  error.message = message;
  return {error};
}

class LibyangDatastore : public Datastore {
 public:
  LibyangDatastore(ContextPtr context, std::optional<uint32_t> group_capacity)
      : context_(std::move(context)),
        capacity_(group_capacity),
        checks_(group_capacity),
        validator_(context_.get()),
        operational_(OperationalStore::Create(context_.get())) {
    Normalize(context_.get(), &running_);
  }

  // Takes what is stored, or begins with the start-up file where nothing ever was.
  DatastoreErrors Start(const DatastoreOptions& options) {
    DatastoreErrors errors;
    if (!options.state_directory.empty()) {
      state_ = StateDirectory::Open(options, &errors);
      if (state_ == nullptr) return errors;
    }
    if (state_ != nullptr && state_->LastId() != 0) {
      LoadStored();
    } else if (!options.startup_file.empty() && Doubt().reasons.empty()) {
      errors = LoadStartup(options.startup_file);
    }
    GiveBackMemory();
    return errors;
  }

  const ly_ctx* Context() const override { return context_.get(); }
  const lyd_node* Running() const override { return running_.get(); }
  uint64_t TransactionId() const override { return transaction_id_; }
  OperationalStore& Operational() override { return *operational_; }

  DatastoreErrors Edit(const lyd_node* edit, const EditOptions& options,
                       const Origin& origin) override {
    return Edit(edit, nullptr, options, origin);
  }

  DatastoreErrors EditFrom(Tree edit, const EditOptions& options, const Origin& origin) override {
    return Edit(edit.get(), &edit, options, origin);
  }

  EditPreview Preview(const lyd_node* edit, const EditOptions& options) override {
    EditPreview preview;
    preview.now = checks_.needs();
    Tree before, after;
    preview.errors = Apply(edit, nullptr, options, &before, &after);
    if (preview.errors.empty()) preview.errors = ValidateEdit(&after);
    if (!preview.errors.empty()) return preview;
    preview.difference = Difference(context_.get(), before.get(), after.get());
    preview.errors = checks_.Check(preview.difference.get(), true, &preview.then);
    return preview;
  }

  const GroupNeeds& Needs() const override { return checks_.needs(); }
  std::optional<uint32_t> GroupCapacity() const override { return capacity_; }
  std::shared_ptr<const GroupOrigins> OriginsOf(const std::string& type) const override {
    return checks_.OriginsOf(type);
  }

  std::vector<CommitInfo> History(size_t most) const override {
    return storage() != nullptr ? storage()->History(most) : std::vector<CommitInfo>();
  }

  std::optional<CommitInfo> CommitOf(uint64_t id) const override {
    return storage() != nullptr ? storage()->CommitOf(id) : std::nullopt;
  }

  lyd_node* DifferenceOf(uint64_t id, DatastoreErrors* errors) const override {
    const std::optional<std::string> text =
        storage() != nullptr ? storage()->DifferenceOf(id) : std::nullopt;
    if (!text.has_value()) {
      *errors = Refusal("invalid-value", "the history has no commit " + std::to_string(id));
      return nullptr;
    }
    if (text->empty()) return nullptr;
    lyd_node* diff = nullptr;
    if (lyd_parse_data_mem(context_.get(), text->c_str(), LYD_XML,
                           LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &diff) != LY_SUCCESS) {
      lyd_free_all(diff);
      TakeErrors(context_.get(), nullptr, errors);
      return nullptr;
    }
    return diff;
  }

  DatastoreErrors Rollback(uint64_t id, const Origin& origin) override {
    Tree before;
    Reverses reverses;
    DatastoreErrors errors = ReversesAfter(id, &reverses, &before);
    if (!errors.empty()) return errors;
    Tree after = CopyTree(before.get());
    errors = Undo(&reverses, id, &after);
    if (!errors.empty()) return errors;
    Origin rollback = origin;
    if (rollback.comment.empty()) rollback.comment = "rollback to " + std::to_string(id);
    errors = ValidateEdit(&after);
    if (!errors.empty()) return errors;
    // The way back to a checkpoint is kept open: what is stored is taken, too, whatever it needs.
    const bool way_back = origin.session_id == 0 && Checkpoint() != 0 && id >= Checkpoint();
    return Commit(before.get(), std::move(after), TestOption::kTestThenSet, rollback, !way_back);
  }

  Tree DifferenceBetween(uint64_t from, uint64_t to, DatastoreErrors* errors) override {
    const auto [earlier, later] = std::minmax(from, to);
    Tree content;
    Reverses reverses;
    *errors = ReversesAfter(earlier, &reverses, &content);
    if (errors->empty() && later > transaction_id_) *errors = NoCommit(later);
    if (errors->empty()) *errors = Undo(&reverses, later, &content);
    Tree then = CopyTree(content.get());
    if (errors->empty()) *errors = Undo(&reverses, earlier, &then);
    if (!errors->empty()) return nullptr;
    if (from > to) then.swap(content);
    return Difference(context_.get(), then.get(), content.get());
  }

  DatastoreErrors SetCheckpoint() override {
    if (state_ == nullptr)
      return Refusal("operation-failed", "there is no state directory to note the way back in");
    return state_->SetCheckpoint(transaction_id_);
  }
  DatastoreErrors ClearCheckpoint() override {
    return Checkpoint() == 0 ? DatastoreErrors() : state_->SetCheckpoint(0);
  }
  uint64_t Checkpoint() const override {
    return storage() != nullptr ? storage()->Checkpoint() : 0;
  }

  StateDoubt Doubt() const override { return state_ != nullptr ? state_->Doubt() : StateDoubt(); }

  DatastoreErrors Recover(const Recovery& recovery, const Origin& origin) override {
    const StateDoubt doubt = Doubt();
    if (doubt.reasons.empty())
      return Refusal("operation-failed", "the stored configuration is not in doubt");
    const bool accept = recovery.accept != 0;
    if (accept && recovery.accept != doubt.found) {
      return Refusal("invalid-value", doubt.found == 0
                                          ? "no configuration could be read that could be accepted"
                                          : "what was found is the configuration of commit " +
                                                std::to_string(doubt.found));
    }
    Tree before, after, diff;
    DatastoreErrors errors;
    if (!accept) {
      EditOptions replace;
      replace.default_operation = DefaultOperation::kReplace;
      errors = Apply(recovery.config, nullptr, replace, &before, &after);
      if (errors.empty()) errors = Validate(&after);
      if (!errors.empty()) return errors;
      diff = Difference(context_.get(), before.get(), after.get());
      errors = checks_.Check(diff.get(), true);
      if (!errors.empty()) return errors;
    }
    const lyd_node* const now = accept ? running_.get() : after.get();
    Tree nothing;
    Normalize(context_.get(), &nothing);
    const Tree whole = Difference(context_.get(), nothing.get(), now);
    CommitInfo info{std::max(state_->LastId(), transaction_id_) + 1, NowMicroseconds(), origin,
                    CountChanges(diff.get())};
    info.origin.comment = accept ? "recovery: commit " + std::to_string(doubt.found) + " accepted"
                                 : "recovery: replaced";
    errors = state_->Recover(info, diff.get(), whole.get(), now);
    if (errors.empty()) Adopt(diff.get(), info, &CommitObserver::OnRecovery);
    return errors;
  }

  void AddObserver(CommitObserver* observer) override { observers_.push_back(observer); }
  void RemoveObserver(CommitObserver* observer) override {
    observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
  }

 private:
  // What the database has; nothing when that cannot be used.
  void LoadStored() {
    transaction_id_ = state_->LastId();
    if (state_->storage() == nullptr) return;
    Tree tree;
    DatastoreErrors errors = state_->storage()->Load(context_.get(), &tree);
    // What was written is as it was when it was validated, unless that is in doubt.
    if (errors.empty()) errors = Doubt().reasons.empty() ? ValidateEdit(&tree) : Validate(&tree);
    if (errors.empty()) errors = checks_.Load(tree.get());
    if (errors.empty()) {
      running_ = std::move(tree);
      transaction_id_ = std::max<uint64_t>(state_->storage()->LastId(), 1);
      return;
    }
    checks_ = CrossChecks(capacity_);
    state_->DoubtContent(InFile("the stored configuration", std::move(errors)));
  }

  DatastoreErrors LoadStartup(const std::string& path) {
    Tree tree;
    DatastoreErrors errors = LoadConfiguration(context_.get(), path, &tree);
    if (!errors.empty()) return errors;
    const Origin origin{"startup", 0, "read from " + path};
    errors = Validate(&tree);
    if (errors.empty())
      errors = Commit(running_.get(), std::move(tree), TestOption::kTestThenSet, origin);
    return errors.empty() ? errors : InFile(path, std::move(errors));
  }

  // `donor` (may be null) owns the edit, which is then taken apart and freed.
  DatastoreErrors Edit(const lyd_node* edit, Tree* donor, const EditOptions& options,
                       const Origin& origin) {
    Tree before, after;
    DatastoreErrors errors = Apply(edit, donor, options, &before, &after);
    if (errors.empty()) errors = ValidateEdit(&after);
    if (!errors.empty()) return errors;
    return Commit(before.get(), std::move(after), options.test_option, origin);
  }

  // Finds the part of running that the edit touches, and that part after it.
  DatastoreErrors Apply(const lyd_node* edit, Tree* donor, const EditOptions& options, Tree* before,
                        Tree* after) {
    ly_err_clean(context_.get(), nullptr);
    DatastoreErrors errors = CheckEdit(context_.get(), edit);
    if (!errors.empty()) return errors;
    *before = CopyTouched(running_.get(), edit, options.default_operation);
    Normalize(context_.get(), before);
    *after = CopyTree(before->get());
    if (donor == nullptr) return ApplyEdit(context_.get(), edit, options.default_operation, after);
    return ApplyEditFrom(context_.get(), std::move(*donor), options.default_operation, after);
  }

  // Brings the part `before` of running to `after`, which is valid by itself.
  DatastoreErrors Commit(const lyd_node* before, Tree after, TestOption test, const Origin& origin,
                         bool with_capacity = true) {
    const SharedDifference diff(context_.get(), before, after.get());
    DatastoreErrors errors = checks_.Check(diff.get(), with_capacity);
    if (!errors.empty() || diff.get() == nullptr || test == TestOption::kTestOnly) return errors;
    const CommitInfo info{transaction_id_ + 1, NowMicroseconds(), origin, CountChanges(diff.get())};
    if (state_ != nullptr) {
      errors = state_->Write(info, diff.get(), after.get());
      if (!errors.empty()) return errors;
    }
    Adopt(diff.get(), info, &CommitObserver::OnCommit, &after);
    return {};
  }

  // Changes running, by a commit that is persistent, and tells. `after` (may be null) is the part
  // of running after it, of which nothing is left then.
  void Adopt(const lyd_node* diff, const CommitInfo& info,
             void (CommitObserver::*tell)(const lyd_node*, const CommitInfo&),
             Tree* after = nullptr) {
    const std::vector<CommitObserver*> observers = observers_;
    if (diff != nullptr) {
      checks_.Apply(diff);
      for (CommitObserver* observer : observers) observer->BeforeCommit(diff);
      if (!ApplyDifference(diff, &running_, after)) Die("cannot apply a commit to running");
      if (after != nullptr) after->reset();
    }
    transaction_id_ = info.id;
    for (CommitObserver* observer : observers) (observer->*tell)(diff, info);
  }

  Storage* storage() const { return state_ != nullptr ? state_->storage() : nullptr; }

  // The difference that takes the commit `id` back.
  Tree ReverseOf(uint64_t id, DatastoreErrors* errors) const {
    const Tree diff(DifferenceOf(id, errors));
    lyd_node* raw = nullptr;
    if (diff != nullptr && lyd_diff_reverse_all(diff.get(), &raw) != LY_SUCCESS)
      *errors = Refusal("operation-failed", "commit " + std::to_string(id) + " cannot be undone");
    return Tree(raw);
  }

  // What takes commits back, the latest first.
  using Reverses = std::deque<std::pair<uint64_t, Tree>>;

  static DatastoreErrors NoCommit(uint64_t id) {
    return Refusal("invalid-value", "there is no commit " + std::to_string(id));
  }

  // Reads what takes the commits after `id` back, and copies the part of running that they touched.
  DatastoreErrors ReversesAfter(uint64_t id, Reverses* reverses, Tree* part) const {
    if (id == 0 || id > transaction_id_) return NoCommit(id);
    Tree touched;
    for (uint64_t next = transaction_id_; next > id; --next) {
      DatastoreErrors errors;
      Tree reverse = ReverseOf(next, &errors);
      if (!errors.empty()) return errors;
      if (reverse == nullptr) continue;
      TreeBuilder builder(&touched);
      if (lyd_merge_siblings(builder, reverse.get(), 0) != LY_SUCCESS) throw std::bad_alloc();
      reverses->emplace_back(next, std::move(reverse));
    }
    *part = CopyTouched(running_.get(), touched.get(), DefaultOperation::kNone);
    Normalize(context_.get(), part);
    return {};
  }

  // Makes `part` what it was after the commit `id`, and uses up the reverses that this takes.
  static DatastoreErrors Undo(Reverses* reverses, uint64_t id, Tree* part) {
    while (!reverses->empty() && reverses->front().first > id) {
      if (!ApplyDifference(reverses->front().second.get(), part))
        return Refusal("operation-failed",
                       "the commits after " + std::to_string(id) + " cannot be undone");
      reverses->pop_front();
    }
    return {};
  }

  // Validates a tree of which nothing is known.
  DatastoreErrors Validate(Tree* tree) {
    bool valid = false;
    {
      TreeBuilder builder(tree);
      valid =
          lyd_validate_all(builder, context_.get(), LYD_VALIDATE_NO_STATE, nullptr) == LY_SUCCESS;
    }
    return Validated(valid, tree);
  }

  // Validates what an edit has made of a valid tree.
  DatastoreErrors ValidateEdit(Tree* tree) { return Validated(validator_.Validate(tree), tree); }

  DatastoreErrors Validated(bool valid, Tree* tree) {
    DatastoreErrors errors;
    if (!valid) TakeErrors(context_.get(), tree->get(), &errors);
    Normalize(context_.get(), tree);
    return errors;
  }

  ContextPtr context_;
  const std::optional<uint32_t> capacity_;
  Tree running_;
  CrossChecks checks_;
  EditValidator validator_;
  std::unique_ptr<StateDirectory> state_;  // null: nothing is kept
  std::unique_ptr<OperationalStore> operational_;
  uint64_t transaction_id_ = 1;
  std::vector<CommitObserver*> observers_;
};

}  // namespace

std::unique_ptr<Datastore> Datastore::Open(const DatastoreOptions& options,
                                           DatastoreErrors* errors) {
  ContextPtr context = LoadSchema(options.yang_directory, errors);
  if (context == nullptr) return nullptr;
  auto datastore = std::make_unique<LibyangDatastore>(std::move(context), options.group_capacity);
  DatastoreErrors reasons = datastore->Start(options);
  if (reasons.empty()) return datastore;
  errors->insert(errors->end(), reasons.begin(), reasons.end());
  return nullptr;
}

}  // namespace host
