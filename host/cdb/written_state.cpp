// Written state: see written_state.h.
#include "host/cdb/written_state.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>

#include "host/cdb/schema/schema.h"

namespace host {
namespace {

// Whether `node` has the keys, of those that its schema has.
bool HasKeys(const lyd_node* node, const WrittenState::Keys& keys) {
  if (keys.empty()) return true;
  const lyd_node* key = node->schema->nodetype == LYS_LEAFLIST ? node : lyd_child(node);
  for (const std::string& text : keys) {
    if (text != TextOf(key)) return false;
    key = key->next;
  }
  return true;
}

}  // namespace

const lyd_node* WrittenState::Shown() {
  if (!is_tidy_) {
    FreeDeleted();
    for (lyd_node* top = tree_.get(); top != nullptr; top = top->next) SortLists(top);
    is_tidy_ = true;
    most_kept_ = 2 * places_.size() + kSpare;
    ++generation_;
    ++losses_;
  }
  return tree_.get();
}

bool WrittenState::IsThere(const lyd_node* node) {
  const Place* const place = PlaceOf(node);
  if (place == nullptr) return true;
  const lyd_node* const parent = lyd_parent(node);
  return place->created >= (parent != nullptr ? PlaceOf(parent)->created : 1);
}

const lyd_node* WrittenState::Find(const lyd_node* parent, const lysc_node* schema,
                                   const Keys& keys) const {
  if (lysc_is_key(schema)) return FindBySchema(lyd_child(parent), schema);
  const Place* const place = PlaceOf(parent, schema, keys);
  return place != nullptr && IsThere(place->node) ? place->node : nullptr;
}

size_t WrittenState::HashOf(const lyd_node* parent, const lysc_node* schema, const Keys& keys) {
  constexpr size_t kMixing = 0x9e3779b97f4a7c15;
  size_t hash = std::hash<const void*>()(parent) * kMixing ^ std::hash<const void*>()(schema);
  for (const std::string& key : keys) hash = hash * kMixing + std::hash<std::string>()(key);
  return hash;
}

WrittenState::Place* WrittenState::PlaceOf(const lyd_node* parent, const lysc_node* schema,
                                           const Keys& keys) const {
  const auto [begin, end] = places_.equal_range(HashOf(parent, schema, keys));
  for (auto at = begin; at != end; ++at) {
    const lyd_node* const node = at->second.node;
    if (lyd_parent(node) == parent && node->schema == schema && HasKeys(node, keys))
      return PlaceOf(node);
  }
  return nullptr;
}

const lyd_node* WrittenState::Create(const lyd_node* parent, const lysc_node* schema,
                                     const Keys& keys, const char* value, std::string* error) {
  Place* place = PlaceOf(parent, schema, keys);
  if (place != nullptr) {
    if (schema->nodetype == LYS_LEAF && !Change(place->node, value, error)) return nullptr;
    is_tidy_ = false;
  } else {
    lyd_node* const made = Make(parent, schema, keys, value, error);
    if (made == nullptr) return nullptr;
    place = &places_.emplace(HashOf(parent, schema, keys), Place{made, 0})->second;
    made->priv = place;
  }
  place->created = ++generation_;
  return place->node;
}

// A node that is not kept; null with the reason in `error` when the schema refuses it.
lyd_node* WrittenState::Make(const lyd_node* parent, const lysc_node* schema, const Keys& keys,
                             const char* value, std::string* error) {
  ly_err_clean(const_cast<ly_ctx*>(context_), nullptr);
  auto* above = const_cast<lyd_node*>(parent);
  lyd_node* made = nullptr;
  LY_ERR result = LY_EINVAL;
  if (schema->nodetype == LYS_CONTAINER) {
    result = lyd_new_inner(above, schema->module, schema->name, 0, &made);
  } else if (schema->nodetype == LYS_LIST) {
    std::string predicates;
    if (!AppendPredicates(schema, keys, &predicates)) {
      *error = "a key has both kinds of quotes";
      return nullptr;
    }
    result = lyd_new_list2(above, schema->module, schema->name, predicates.c_str(), 0, &made);
  } else {
    const char* const text = schema->nodetype == LYS_LEAFLIST ? keys[0].c_str() : value;
    result = lyd_new_term(above, schema->module, schema->name, text, 0, &made);
  }
  if (!Succeeded(result, error)) return nullptr;
  if (parent == nullptr) {
    TreeBuilder first(&tree_);
    if (lyd_insert_sibling(*first, made, first) != LY_SUCCESS) throw std::bad_alloc();
  }
  return made;
}

bool WrittenState::Change(const lyd_node* leaf, const char* value, std::string* error) {
  // Most of what is written after each commit says what is there, and to parse it would take
  // longer.
  if (value == nullptr || std::strcmp(TextOf(leaf), value) == 0) return true;
  ly_err_clean(const_cast<ly_ctx*>(context_), nullptr);
  const LY_ERR result = lyd_change_term(const_cast<lyd_node*>(leaf), value);
  const bool same = result == LY_EEXIST || result == LY_ENOT;
  if (!same && !Succeeded(result, error)) return false;
  ++generation_;
  return true;
}

// Whether that is a success; the reason in `error` otherwise.
bool WrittenState::Succeeded(LY_ERR result, std::string* error) const {
  if (result == LY_SUCCESS) return true;
  DatastoreErrors errors;
  TakeErrors(context_, nullptr, &errors);
  *error = errors.empty() ? "it cannot be written" : errors.front().message;
  return false;
}

bool WrittenState::Delete(const lyd_node* node) {
  Place* const place = PlaceOf(node);
  if (place == nullptr) return false;
  for (const lyd_node* at = node; at != nullptr; at = lyd_parent(at)) {
    if (!IsThere(at)) return false;
  }
  if (places_.size() > most_kept_) Shown();
  place->created = 0;
  is_tidy_ = false;
  ++generation_;
  ++losses_;
  return true;
}

void WrittenState::FreeDeleted() {
  const auto is_there = [](const lyd_node* node) {
    while (node != nullptr && IsThere(node)) node = lyd_parent(node);
    return node == nullptr;
  };
  // The marks of nodes above are needed to the end.
  std::vector<Places::iterator> gone;
  std::vector<lyd_node*> tops;
  for (auto at = places_.begin(); at != places_.end(); ++at) {
    lyd_node* const node = at->second.node;
    if (is_there(node)) continue;
    gone.push_back(at);
    if (is_there(lyd_parent(node))) tops.push_back(node);
  }
  for (const auto& at : gone) places_.erase(at);
  TreeBuilder first(&tree_);
  for (lyd_node* const node : tops) FreeNode(node, first);
}

// Puts all lists below `parent` in the order in which their entries were created.
void WrittenState::SortLists(lyd_node* parent) {
  const auto is_earlier = [](const lyd_node* a, const lyd_node* b) {
    return PlaceOf(a)->created < PlaceOf(b)->created;
  };
  std::vector<lyd_node*> entries;
  for (lyd_node *node = lyd_child_no_keys(parent), *next = nullptr; node != nullptr; node = next) {
    next = node->next;
    SortLists(node);
    if ((node->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) == 0) continue;
    entries.push_back(node);
    if (next != nullptr && next->schema == node->schema) continue;
    if (!std::is_sorted(entries.begin(), entries.end(), is_earlier)) {
      std::sort(entries.begin(), entries.end(), is_earlier);
      for (lyd_node* const entry : entries) lyd_unlink_tree(entry);
      for (lyd_node* const entry : entries) {
        if (lyd_insert_child(parent, entry) != LY_SUCCESS) throw std::bad_alloc();
      }
    }
    entries.clear();
  }
}

}  // namespace host
