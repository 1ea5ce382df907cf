// The datastore: loading, commits by small trees, observers.
#include "host/cdb/datastore.h"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "host/cdb/cross_checks.h"
#include "host/cdb/diff.h"
#include "host/cdb/edit.h"
#include "host/cdb/load.h"
#include "host/cdb/operational_store.h"
#include "host/cdb/schema.h"
#include "host/cdb/yang_tree.h"

namespace host {
namespace {

// A change of running that failed half way has no way back but a restart from what is persistent.
[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "datastore: %s\n", what);
  std::abort();
}

class LibyangDatastore : public Datastore {
 public:
  explicit LibyangDatastore(ContextPtr context)
      : context_(std::move(context)), operational_(OperationalStore::Create(context_.get())) {
    Normalize(context_.get(), &running_);
  }

  DatastoreErrors LoadStartup(const std::string& path) {
    Tree tree;
    DatastoreErrors errors = LoadConfiguration(context_.get(), path, &tree);
    if (!errors.empty()) return errors;
    errors = checks_.CheckWhole(tree.get());
    if (!errors.empty()) return InFile(path, std::move(errors));
    checks_.ApplyWhole(tree.get());
    running_ = std::move(tree);
    malloc_trim(0);
    return {};
  }

  const ly_ctx* Context() const override { return context_.get(); }
  const lyd_node* Running() const override { return running_.get(); }
  uint64_t TransactionId() const override { return transaction_id_; }
  OperationalStore& Operational() override { return *operational_; }

  DatastoreErrors Edit(const lyd_node* edit, const EditOptions& options,
                       const Origin& origin) override {
    ly_err_clean(context_.get(), nullptr);
    DatastoreErrors errors = CheckEdit(context_.get(), edit);
    if (!errors.empty()) return errors;
    Tree before = CopyTouched(running_.get(), edit, options.default_operation);
    Normalize(context_.get(), &before);
    Tree after = CopyTree(before.get());
    errors = ApplyEdit(context_.get(), edit, options.default_operation, &after);
    if (!errors.empty()) return errors;
    return Commit(before.get(), std::move(after), options.test_option, origin);
  }

  void AddObserver(CommitObserver* observer) override { observers_.push_back(observer); }
  void RemoveObserver(CommitObserver* observer) override {
    observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
  }

 private:
  // Brings the part `before` of running to `after`.
  DatastoreErrors Commit(const lyd_node* before, Tree after, TestOption test, const Origin&) {
    DatastoreErrors errors = Validate(&after);
    if (!errors.empty()) return errors;
    const Tree diff = Difference(context_.get(), before, after.get());
    errors = checks_.Check(diff.get());
    if (!errors.empty() || diff == nullptr || test == TestOption::kTestOnly) return errors;
    after.reset();
    ApplyToRunning(diff.get());
    ++transaction_id_;
    const std::vector<CommitObserver*> observers = observers_;
    for (CommitObserver* observer : observers) observer->OnCommit(diff.get());
    return {};
  }

  DatastoreErrors Validate(Tree* tree) {
    DatastoreErrors errors;
    bool valid = false;
    {
      TreeBuilder builder(tree);
      valid =
          lyd_validate_all(builder, context_.get(), LYD_VALIDATE_NO_STATE, nullptr) == LY_SUCCESS;
    }
    if (!valid) TakeErrors(context_.get(), tree->get(), &errors);
    Normalize(context_.get(), tree);
    return errors;
  }

  void ApplyToRunning(const lyd_node* diff) {
    checks_.Apply(diff);
    if (!ApplyDifference(diff, &running_)) Die("cannot apply a commit to running");
  }

  ContextPtr context_;
  Tree running_;
  CrossChecks checks_;
  std::unique_ptr<OperationalStore> operational_;
  uint64_t transaction_id_ = 1;
  std::vector<CommitObserver*> observers_;
};

}  // namespace

std::unique_ptr<Datastore> Datastore::Open(const DatastoreOptions& options,
                                           DatastoreErrors* errors) {
  ContextPtr context = LoadSchema(options.yang_directory, errors);
  if (context == nullptr) return nullptr;
  auto datastore = std::make_unique<LibyangDatastore>(std::move(context));
  if (!options.startup_file.empty()) {
    DatastoreErrors reasons = datastore->LoadStartup(options.startup_file);
    errors->insert(errors->end(), reasons.begin(), reasons.end());
    if (!reasons.empty()) return nullptr;
  }
  return datastore;
}

}  // namespace host
