// A configuration beside running: see draft.h.
#include "host/netconf/draft.h"

#include <libyang/libyang.h>

#include <new>

#include "host/cdb/diff.h"
#include "host/cdb/edit.h"
#include "host/netconf/tree_pages.h"

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
  if (!errors.empty() || options.test_option == TestOption::kTestOnly) return errors;
  Normalize(context, &after);
  const Tree diff = Difference(context, before.get(), after.get());
  if (diff == nullptr) return {};
  DetachTouched(content_->get(), diff.get());
  Check(ApplyDifference(diff.get(), content_.get()) ? LY_SUCCESS : LY_EINT);
  DetachParted(content_->get(), diff.get());
  Touch(diff.get());
  return {};
}

Tree Draft::Changes() const {
  const Tree running = Masked(datastore_.Running(), mask_.get());
  const Tree wanted = Masked(content_->get(), mask_.get());
  Tree diff = Difference(datastore_.Context(), running.get(), wanted.get());
  if (diff != nullptr) MakeEdit(diff.get(), DiffOperation::kNone);
  return diff;
}

void Draft::Touch(const lyd_node* diff) {
  TreeBuilder builder(&mask_);
  Check(lyd_merge_siblings(builder, diff, 0));
}

}  // namespace host
