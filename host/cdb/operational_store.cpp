// The operational state.
#include "host/cdb/operational_store.h"

#include <new>
#include <utility>

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

Tree OperationalStore::Read(const Wanted& wanted, DatastoreErrors* errors) {
  lyd_node* first = nullptr;
  const auto add = [&first](lyd_node* node) {
    if (node != nullptr && lyd_insert_sibling(first, node, &first) != LY_SUCCESS)
      throw std::bad_alloc();
  };
  for (const lyd_node* node = written_.Shown(); node != nullptr; node = node->next) {
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
