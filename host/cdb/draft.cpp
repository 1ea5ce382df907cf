// A configuration beside running: see draft.h.
#include "host/cdb/draft.h"

#include <libyang/libyang.h>

#include <new>

#include "host/cdb/diff.h"
#include "host/cdb/edit/edit.h"
#include "host/cdb/tree_pages.h"

namespace host {
namespace {

void Check(LY_ERR result) {
  if (result != LY_SUCCESS) throw std::bad_alloc();
}

// Copies the nodes of `tree` that `mask` has as well below `parent` (null: at the top of `*first`).
void CopyMasked(const lyd_node* tree, const lyd_node* mask, lyd_node* parent, lyd_node** first) {
  for (; mask != nullptr; mask = mask->next) {
    const lyd_node* node = IsKey(mask) ? nullptr : FindSame(tree, mask);
    if (node == nullptr) continue;
    lyd_node* copy = nullptr;
    Check(lyd_dup_single(node, reinterpret_cast<lyd_node_inner*>(parent), LYD_DUP_NO_META, &copy));
    if (parent == nullptr) Check(lyd_insert_sibling(*first, copy, first));
    CopyMasked(lyd_child(node), lyd_child(mask), copy, first);
  }
}

Tree Masked(const lyd_node* tree, const lyd_node* mask) {
  Tree result;
  TreeBuilder builder(&result);
  CopyMasked(tree, mask, nullptr, builder);
  return result;
}

void AddToMask(const lyd_node* diff, Tree* mask) {
  TreeBuilder builder(mask);
  if (diff != nullptr) Check(lyd_merge_siblings(builder, diff, 0));
}

// Turns a difference into the edit that makes it: yang:operation becomes nc:operation. What is
// created merges as well as it would be created, for it is not there yet.
void MakeEdit(lyd_node* first, DiffOperation inherited) {
  for (lyd_node* node = first; node != nullptr; node = node->next) {
    const DiffOperation operation = DiffOperationOf(node, inherited);
    lyd_free_meta_siblings(node->meta);
    const bool merge = operation == DiffOperation::kCreate || operation == DiffOperation::kReplace;
    if (operation != inherited && operation != DiffOperation::kNone) {
      Check(lyd_new_meta(LYD_CTX(node), node, nullptr, "ietf-netconf:operation",
                         merge ? "merge" : "remove", 0, nullptr));
    }
    MakeEdit(lyd_child_no_keys(node), operation);
  }
}

}  // namespace

Draft::Draft(Datastore& datastore)
    : datastore_(datastore), content_(std::make_shared<Tree>(CopyTree(datastore.Running()))) {
  datastore_.AddObserver(this);
}

Draft::~Draft() { datastore_.RemoveObserver(this); }

DatastoreErrors Draft::Edit(const lyd_node* edit, const EditOptions& options) {
  const ly_ctx* context = datastore_.Context();
  DatastoreErrors errors = CheckEdit(context, edit);
  if (!errors.empty()) return errors;
  Tree before = CopyTouched(content_->get(), edit, options.default_operation);
  Normalize(context, &before);
  Tree after = CopyTree(before.get());
  errors = ApplyEdit(context, edit, options.default_operation, &after);
  if (!errors.empty()) return errors;
  Normalize(context, &after);
  const Tree diff = Difference(context, before.get(), after.get());
  if (options.test_option != TestOption::kSet) errors = Test(diff.get());
  if (!errors.empty() || diff == nullptr || options.test_option == TestOption::kTestOnly) {
    return errors;
  }
  DetachTouched(content_->get(), diff.get());
  Check(ApplyDifference(diff.get(), content_.get()) ? LY_SUCCESS : LY_EINT);
  DetachParted(content_->get(), diff.get());
  Touch(diff.get());
  return {};
}

DatastoreErrors Draft::Test(const lyd_node* diff) const {
  Tree mask = CopyTree(mask_.get());
  AddToMask(diff, &mask);
  const Tree changes = ChangesWith(diff, mask.get());
  if (changes == nullptr) return {};
  return datastore_.Edit(changes.get(), {DefaultOperation::kNone, TestOption::kTestOnly}, {});
}

Tree Draft::ChangesWith(const lyd_node* diff, const lyd_node* mask) const {
  const Tree running = Masked(datastore_.Running(), mask);
  Tree wanted = Masked(content_->get(), mask);
  Check(ApplyDifference(diff, &wanted) ? LY_SUCCESS : LY_EINT);
  Tree changes = Difference(datastore_.Context(), running.get(), wanted.get());
  if (changes != nullptr) MakeEdit(changes.get(), DiffOperation::kNone);
  return changes;
}

void Draft::Touch(const lyd_node* diff) { AddToMask(diff, &mask_); }

}  // namespace host
