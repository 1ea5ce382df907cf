// The operational state.
#include "host/cdb/operational_store.h"

#include <cstring>
#include <new>
#include <utility>

#include "host/cdb/schema/schema.h"

namespace host {
namespace {

// Joins the pieces of `provider` in `*state`.
void Join(const StateProviders::Entry& provider, const ly_ctx* context, Tree* state,
          DatastoreErrors* errors) {
  constexpr int kMost = 32;  // of a millisecond or two each
  const std::string name = "/" + provider.module + ":" + provider.top_node;
  const auto pieces = provider.open();
  for (int count = 0; Tree piece{pieces->Next(context)}; ++count) {
    if (count == kMost) {
      errors->push_back({"resource-denied", "", name,
                         "it is too large to be searched as a whole while everybody else waits; a "
                         "subtree filter, or a location path of names whose predicates compare a "
                         "child with a value, is read in parts",
                         "", ""});
      return;
    }
    TreeBuilder first(state);
    if (lyd_merge_siblings(first, piece.release(), LYD_MERGE_DESTRUCT) == LY_SUCCESS) continue;
    errors->push_back({"operation-failed", "", name, "its parts cannot be joined", "", ""});
    return;
  }
  if (!pieces->failed()) return;
  errors->push_back(
      {"operation-failed", "", name, "it cannot be shown; the daemon's log says why", "", ""});
}

}  // namespace

std::unique_ptr<OperationalStore> OperationalStore::Create(const ly_ctx* context) {
  return std::unique_ptr<OperationalStore>(new OperationalStore(context));
}

const lyd_node* OperationalStore::Create(const lyd_node* parent, const lysc_node* schema,
                                         const char* content, std::string* error) {
  ly_err_clean(const_cast<ly_ctx*>(context_), nullptr);
  auto* above = const_cast<lyd_node*>(parent);
  lyd_node* made = nullptr;
  LY_ERR result = LY_EINVAL;
  if ((schema->nodetype & LYS_CONTAINER) != 0) {
    result = lyd_new_inner(above, schema->module, schema->name, 0, &made);
  } else if ((schema->nodetype & LYS_LIST) != 0) {
    result = lyd_new_list2(above, schema->module, schema->name, content, 0, &made);
  } else {
    result = lyd_new_term(above, schema->module, schema->name, content, 0, &made);
  }
  if (result == LY_SUCCESS && parent == nullptr) {
    lyd_node* first = written_.release();
    result = lyd_insert_sibling(first, made, &first);
    written_.reset(first);
  }
  if (!Succeeded(result, error)) return nullptr;
  ++generation_;
  return made;
}

bool OperationalStore::Change(const lyd_node* leaf, const char* value, std::string* error) {
  // Most of what is written after each commit says what is there, and to parse it would take
  // longer.
  if ((leaf->flags & LYD_DEFAULT) == 0 && std::strcmp(lyd_get_value(leaf), value) == 0) return true;
  ly_err_clean(const_cast<ly_ctx*>(context_), nullptr);
  const LY_ERR result = lyd_change_term(const_cast<lyd_node*>(leaf), value);
  const bool same = result == LY_EEXIST || result == LY_ENOT;
  if (!same && !Succeeded(result, error)) return false;
  ++generation_;
  return true;
}

// Whether that is a success; the reason in `error` otherwise.
bool OperationalStore::Succeeded(LY_ERR result, std::string* error) const {
  if (result == LY_SUCCESS) return true;
  DatastoreErrors errors;
  TakeErrors(context_, nullptr, &errors);
  *error = errors.empty() ? "it cannot be written" : errors.front().message;
  return false;
}

bool OperationalStore::Delete(const lyd_node* node) {
  const lyd_node* top = node;
  while (lyd_parent(top) != nullptr) top = lyd_parent(top);
  const lyd_node* known = written_.get();
  while (known != nullptr && known != top) known = known->next;
  if (known == nullptr) return false;
  auto* doomed = const_cast<lyd_node*>(node);
  lyd_node* first = written_.release();
  if (first == doomed) first = first->next;
  lyd_free_tree(doomed);
  written_.reset(first);
  ++generation_;
  ++losses_;
  return true;
}

Tree OperationalStore::Read(const Wanted& wanted, DatastoreErrors* errors) const {
  lyd_node* first = nullptr;
  const auto add = [&first](lyd_node* node) {
    if (node != nullptr && lyd_insert_sibling(first, node, &first) != LY_SUCCESS)
      throw std::bad_alloc();
  };
  for (const lyd_node* node = written_.get(); node != nullptr; node = node->next) {
    if (!wanted(node->schema->module->name, node->schema->name)) continue;
    lyd_node* copy = nullptr;
    if (lyd_dup_single(node, nullptr, LYD_DUP_RECURSIVE, &copy) != LY_SUCCESS)
      throw std::bad_alloc();
    add(copy);
  }
  if (providers_ != nullptr) {
    for (const StateProviders::Entry& provider : providers_->entries()) {
      if (!wanted(provider.module, provider.top_node)) continue;
      if (provider.build != nullptr) {
        add(provider.build(context_));
        continue;
      }
      Tree state;
      Join(provider, context_, &state, errors);
      add(state.release());
    }
  }
  Tree all(first);
  if (!errors->empty()) all.reset();
  return all;
}

}  // namespace host
