// The operational state.
#include "host/cdb/operational_store.h"

#include <new>
#include <utility>

#include "host/cdb/schema/schema.h"

namespace host {

std::unique_ptr<OperationalStore> OperationalStore::Create(const ly_ctx* context) {
  return std::unique_ptr<OperationalStore>(new OperationalStore(context));
}

bool OperationalStore::Set(const std::string& path, const char* value, std::string* error) {
  ly_err_clean(const_cast<ly_ctx*>(context_), nullptr);
  const lysc_node* schema = lys_find_path(context_, nullptr, path.c_str(), 0);
  ly_err_clean(const_cast<ly_ctx*>(context_), nullptr);
  if (schema != nullptr && (schema->flags & LYS_CONFIG_R) == 0) {
    *error = path + " is configuration, only state can be written";
    return false;
  }
  lyd_node* made = nullptr;
  const LY_ERR result =
      lyd_new_path(written_.get(), context_, path.c_str(), value, LYD_NEW_PATH_UPDATE, &made);
  if (result != LY_SUCCESS) {
    DatastoreErrors errors;
    TakeErrors(context_, nullptr, &errors);
    *error = errors.empty() ? "cannot write " + path : errors.front().message;
    return false;
  }
  if (written_ == nullptr) {
    while (lyd_parent(made) != nullptr) made = lyd_parent(made);
    written_.reset(made);
  } else {
    // libyang may have put a new top-level node before the others.
    written_.reset(lyd_first_sibling(written_.release()));
  }
  ++generation_;
  return true;
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
  return true;
}

Tree OperationalStore::Read(const Wanted& wanted) const {
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
      if (wanted(provider.module, provider.top_node)) add(provider.build(context_));
    }
  }
  return Tree(first);
}

}  // namespace host
