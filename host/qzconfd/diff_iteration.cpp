// Iteration of a commit's difference.
#include "host/qzconfd/diff_iteration.h"

#include <algorithm>
#include <utility>

#include "host/runtime/watchdog.h"
#include "yang_tags.h"

namespace host {
namespace {

confd_value_t TagValue(const CdbNode& node) {
  confd_value_t value{};
  value.type = C_XMLTAG;
  value.val.xmltag = {node.tag, static_cast<uint32_t>(yang_tags::kNamespace)};
  return value;
}

// Whether `data` goes, or is a container without presence in which something does.
bool Deletes(const lyd_node* data, DiffOperation operation) {
  if (!IsPlainContainer(data->schema)) return operation == DiffOperation::kDelete;
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(data), child) {
    if (Deletes(child, DiffOperationOf(child, operation))) return true;
  }
  return false;
}

confd_iter_op OperationOf(const CdbNode& node, DiffOperation operation) {
  if (IsPlainContainer(node.schema)) return MOP_MODIFIED;
  switch (operation) {
    case DiffOperation::kDelete:
      return MOP_DELETED;
    case DiffOperation::kNone:
      return MOP_MODIFIED;
    default:
      return node.is(LYS_LEAF) && node.kind != ValueKind::kEmpty ? MOP_VALUE_SET : MOP_CREATED;
  }
}

}  // namespace

DiffIteration::DiffIteration(const CdbSchema* schema, PathSteps path)
    : schema_(schema), path_(std::move(path)) {}

bool DiffIteration::Touched(const lyd_node* diff) const { return !ChangesAtPath(diff).empty(); }

DiffIteration::NotTaken DiffIteration::Run(const lyd_node* diff,
                                           const qzconfd::DiffIterator& callback) {
  callback_ = &callback;
  not_taken_ = {};
  elements_.clear();
  // The tag of a list at the path's end comes with each of its entries.
  for (const PathStep& step : path_) {
    if (!step.node->is(LYS_LIST)) elements_.push_back({TagValue(*step.node)});
  }
  Deliver(ChangesAtPath(diff));
  return std::move(not_taken_);
}

DiffIteration::Changes DiffIteration::ChangesAtPath(const lyd_node* diff) const {
  Changes changes;
  const lyd_node* siblings = diff;
  DiffOperation operation = DiffOperation::kNone;
  for (const PathStep& step : path_) {
    if (step.node->is(LYS_LIST)) {
      for (; siblings != nullptr; siblings = siblings->next) {
        if (siblings->schema == step.node->schema) Add(siblings, operation, &changes);
      }
      return changes;
    }
    const lyd_node* match = FindBySchema(siblings, step.node->schema);
    if (match == nullptr) return changes;
    operation = DiffOperationOf(match, operation);
    siblings = lyd_child(match);
  }
  for (; siblings != nullptr; siblings = siblings->next) Add(siblings, operation, &changes);
  return changes;
}

void DiffIteration::Add(const lyd_node* data, DiffOperation inherited, Changes* changes) const {
  const CdbNode* node = schema_->Find(data->schema);
  if (node == nullptr || node->is_key()) return;
  const DiffOperation operation = DiffOperationOf(data, inherited);
  if (operation == DiffOperation::kNone && !node->is(LYD_NODE_INNER)) return;
  Values keys;
  if (node->is(LYS_LIST | LYS_LEAFLIST)) keys = KeysOf(*node, data);
  changes->push_back({node, data, operation, Deletes(data, operation), std::move(keys)});
}

// Delivers siblings in order; false when the callback has ended the iteration.
bool DiffIteration::Deliver(Changes changes) {
  std::stable_sort(changes.begin(), changes.end(), [](const Change& a, const Change& b) {
    if (a.deletes != b.deletes) return a.deletes;
    if (a.node != b.node) return a.node->order < b.node->order;
    return std::lexicographical_compare(a.keys.all().begin(), a.keys.all().end(),
                                        b.keys.all().begin(), b.keys.all().end(), Less);
  });
  for (const Change& change : changes) {
    elements_.push_back({TagValue(*change.node)});
    const bool keyed = change.node->is(LYS_LIST | LYS_LEAFLIST);
    if (keyed) elements_.push_back(change.keys.all());
    const bool go_on = DeliverOne(change);
    elements_.resize(elements_.size() - (keyed ? 2 : 1));
    if (!go_on) return false;
  }
  return true;
}

bool DiffIteration::DeliverOne(const Change& change) {
  const confd_iter_ret result = Call(change);
  FeedWatchdog();
  if (result != ITER_RECURSE && not_taken_.count++ == 0) not_taken_.first = PathOf(change.data);
  if (result == ITER_STOP) return false;
  const bool gone = change.node->is(LYS_LIST) && change.operation == DiffOperation::kDelete;
  if (result != ITER_RECURSE || gone || !change.node->is(LYD_NODE_INNER)) return true;
  Changes below;
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(change.data), child) Add(child, change.operation, &below);
  return Deliver(std::move(below));
}

confd_iter_ret DiffIteration::Call(const Change& change) {
  confd_hkeypath_t keypath;
  keypath.len = 0;
  for (auto element = elements_.rbegin(); element != elements_.rend(); ++element) {
    confd_value_t* values = keypath.v[keypath.len++];
    std::copy(element->begin(), element->end(), values);
    values[element->size()].type = C_NOEXISTS;
  }
  keypath.v[keypath.len][0].type = C_NOEXISTS;
  const confd_iter_op operation = OperationOf(*change.node, change.operation);
  confd_value_t value{};
  const bool has_value =
      operation == MOP_VALUE_SET && ToValue(*change.node, TextOf(change.data), &value);
  const confd_iter_ret result =
      (*callback_)(&keypath, operation, nullptr, has_value ? &value : nullptr);
  if (has_value) confd_free_value(&value);
  return result;
}

}  // namespace host
