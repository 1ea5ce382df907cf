// Resolution of paths.
#include "host/cdb/calls/cdb_path.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "host/cdb/schema/schema.h"

namespace host {
namespace {

bool IsEnd(std::string_view path, size_t at) {
  return at >= path.size() || path[at] == '/' || path[at] == '[';
}

// Reads a quoted key that starts at `*at`; false when it does not end before the path does.
bool ReadQuoted(std::string_view path, size_t* at, std::string* key) {
  size_t i = *at + 1;
  for (; i < path.size() && path[i] != '"'; ++i) {
    if (path[i] == '\\' && i + 1 < path.size()) ++i;
    key->push_back(path[i]);
  }
  *at = i + 1;
  return i < path.size();
}

// The one key of a list: all up to the brace that ends it.
bool ReadOneKey(std::string_view path, size_t* at, std::vector<std::string>* keys) {
  if (path[*at] == '"') {
    std::string key;
    size_t end = *at;
    if (ReadQuoted(path, &end, &key) && end < path.size() && path[end] == '}' &&
        IsEnd(path, end + 1)) {
      *at = end + 1;
      keys->push_back(key);
      return true;
    }
  }
  for (size_t end = *at; end < path.size(); ++end) {
    if (path[end] != '}' || !IsEnd(path, end + 1)) continue;
    keys->emplace_back(path.substr(*at, end - *at));
    *at = end + 1;
    return true;
  }
  return false;
}

bool ReadKeys(std::string_view path, size_t* at, size_t count, std::vector<std::string>* keys) {
  if (*at >= path.size()) return false;
  if (count == 1) return ReadOneKey(path, at, keys);
  size_t i = *at;
  while (i < path.size() && path[i] != '}') {
    if (path[i] == ' ') {
      ++i;
      continue;
    }
    std::string key;
    if (path[i] == '"') {
      if (!ReadQuoted(path, &i, &key)) return false;
    } else {
      while (i < path.size() && path[i] != ' ' && path[i] != '}') key.push_back(path[i++]);
    }
    keys->push_back(std::move(key));
  }
  *at = i + 1;
  return i < path.size();
}

const CdbNode& KeyNode(const CdbNode& node, size_t i) {
  return node.is(LYS_LEAFLIST) ? node : *node.children[i];
}

size_t KeyCount(const CdbNode& node) { return node.is(LYS_LEAFLIST) ? 1 : node.key_count; }

const lyd_node* FindEntry(const CdbNode& node, const std::vector<std::string>& keys,
                          const lyd_node* siblings) {
  if (siblings == nullptr) return nullptr;
  // Among few entries with one key it is found by its text, without reading that as a value.
  constexpr int kFewEntries = 4;
  const lyd_node* entry = node.is(LYS_LIST) && node.key_count == 1 ? siblings : nullptr;
  for (int looked = 0; entry != nullptr && looked < kFewEntries; entry = entry->next, ++looked) {
    if (entry->schema == node.schema && TextOf(lyd_child(entry)) == keys[0]) return entry;
  }
  lyd_node* match = nullptr;
  LY_ERR result = LY_EINVAL;
  if (node.is(LYS_LEAFLIST)) {
    result = lyd_find_sibling_val(siblings, node.schema, keys[0].c_str(), keys[0].size(), &match);
  } else {
    std::string predicates;
    if (!AppendPredicates(node.schema, keys, &predicates)) return nullptr;
    result =
        lyd_find_sibling_val(siblings, node.schema, predicates.c_str(), predicates.size(), &match);
  }
  return result == LY_SUCCESS ? match : nullptr;
}

// The node of `schema` among few siblings; lists may follow, so only the front is looked through.
const lyd_node* FindNode(const lyd_node* first, const lysc_node* schema) {
  constexpr int kFewSiblings = 8;
  int looked = 0;
  for (const lyd_node* node = first; node != nullptr; node = node->next) {
    if (node->schema == schema) return node;
    if (++looked == kFewSiblings) return FindBySchema(node, schema);
  }
  return nullptr;
}

// The siblings among which the node of step `i` is or would be.
const lyd_node* SiblingsAt(const PathSteps& steps, size_t i, const PathTree& tree) {
  if (i == 0) return tree.first;
  const lyd_node* parent = steps[i - 1].data;
  return parent != nullptr ? lyd_child(parent) : nullptr;
}

}  // namespace

const std::vector<const lyd_node*>& ListIndex::Entries(const CdbNode& list, const lyd_node* first,
                                                       bool written) {
  const auto [found, is_new] = entries_.try_emplace(Key{first, &list});
  std::vector<const lyd_node*>& entries = found->second;
  if (!is_new) return entries;
  struct Keyed {
    size_t from, to;  // of `keys`
    const lyd_node* node;
  };
  Values keys;
  std::vector<Keyed> keyed;
  for (const lyd_node* node = first; node != nullptr; node = node->next) {
    if (node->schema != list.schema || (written && !WrittenState::IsThere(node))) continue;
    const size_t from = keys.all().size();
    AddKeysOf(list, node, &keys);
    keyed.push_back({from, keys.all().size(), node});
  }
  const confd_value_t* const all = keys.all().data();
  std::sort(keyed.begin(), keyed.end(), [all](const Keyed& a, const Keyed& b) {
    return std::lexicographical_compare(all + a.from, all + a.to, all + b.from, all + b.to, Less);
  });
  entries.reserve(keyed.size());
  for (const Keyed& entry : keyed) entries.push_back(entry.node);
  return entries;
}

const PathSteps* PathResolver::Resolve(std::string_view path, const PathTree& tree,
                                       std::string* error) {
  const PathSteps* steps = Read(path, tree, error);
  if (steps != nullptr) Locate(steps->size(), tree);
  return steps;
}

const PathSteps* PathResolver::Read(std::string_view path, const PathTree& tree,
                                    std::string* error) {
  Follow(tree);
  if (goes_up_) steps_.clear();
  size_t at = KeepCommonSteps(path);
  const std::string_view tail = path.substr(at);
  Tail* known = TailOf(tail);
  const CdbNode* const from = steps_.empty() ? nullptr : steps_.back().node;
  goes_up_ = false;
  if (known != nullptr && known->from == from && known->text == tail) {
    for (const auto& [node, end] : known->nodes) {
      PathStep& step = steps_.emplace_back();
      step.node = node;
      step.end = at + end;
    }
    path_.assign(path);
    return &steps_;
  }
  goes_up_ = tail.find("..") != std::string_view::npos;
  if (goes_up_) {
    steps_.clear();
    located_ = at = 0;
  }
  if (goes_up_ || tail.find_first_of("[{") != std::string_view::npos) known = nullptr;
  const size_t kept = steps_.size();
  if (!Parse(path, at, tree, error)) {
    steps_.clear();
    path_.clear();
    return nullptr;
  }
  if (known != nullptr) {
    *known = {from, std::string(tail), {}};
    for (size_t i = kept; i < steps_.size(); ++i)
      known->nodes.emplace_back(steps_[i].node, steps_[i].end - at);
  }
  path_.assign(path);
  return &steps_;
}

PathResolver::Tail* PathResolver::TailOf(std::string_view tail) {
  constexpr int kPlaceBits = 8;
  if (steps_.empty() || tail.empty()) return nullptr;
  const PathStep& last = steps_.back();
  if (last.node->is(LYS_LIST) && !last.is_entry) return nullptr;  // only an entry has nodes within
  tails_.resize(size_t{1} << kPlaceBits);
  // The end tells most of them apart. The product's upper bits depend on all of it.
  constexpr uint64_t kMixing = 0x9e3779b97f4a7c15;
  uint64_t end = 0;
  const size_t count = std::min(tail.size(), sizeof(end));
  std::memcpy(&end, tail.data() + tail.size() - count, count);
  const uint64_t sum = end + tail.size() + reinterpret_cast<uintptr_t>(last.node);
  return &tails_[(sum * kMixing) >> (64 - kPlaceBits)];
}

namespace {

// How many bytes both begin with. Paths have a hundred in common: blocks first.
size_t CommonLength(std::string_view a, std::string_view b) {
  constexpr size_t kBlock = 16;
  const size_t most = std::min(a.size(), b.size());
  size_t common = 0;
  while (common + kBlock <= most && std::memcmp(&a[common], &b[common], kBlock) == 0) {
    common += kBlock;
  }
  while (common < most && a[common] == b[common]) ++common;
  return common;
}

}  // namespace

void PathResolver::Follow(const PathTree& tree) {
  if (generation_ == tree.generation) return;
  generation_ = tree.generation;
  if (std::exchange(losses_, tree.losses) != tree.losses) {
    steps_.clear();
    return;
  }
  // What was there still is; what was not may have come, and places in lists are others then.
  for (size_t i = 0; i < steps_.size(); ++i) {
    const bool by_position = steps_[i].is_entry && steps_[i].keys.empty();
    if (by_position) steps_.resize(i);
    if (by_position || steps_[i].data == nullptr) located_ = std::min(located_, i);
  }
}

// Drops the steps that `path` does not begin with; returns where parsing goes on.
size_t PathResolver::KeepCommonSteps(std::string_view path) {
  if (steps_.empty()) return located_ = 0;
  const size_t common = CommonLength(path, path_);
  const auto fits = [&](const PathStep& step) {
    if (step.end > common) return false;
    return step.end == path.size() || path[step.end] == '/';
  };
  while (!steps_.empty() && !fits(steps_.back())) steps_.pop_back();
  located_ = std::min(located_, steps_.size());
  return steps_.empty() ? 0 : steps_.back().end;
}

bool PathResolver::Parse(std::string_view path, size_t at, const PathTree& tree,
                         std::string* error) {
  while (at < path.size()) {
    if (path[at] == '/') {
      ++at;
      continue;
    }
    if (path[at] == '[') {
      if (!AddPosition(path, &at, tree, error)) return false;
      continue;
    }
    if (path[at] == '{') {
      ++at;
      if (!AddKeys(path, &at, error)) return false;
      steps_.back().end = at;
      continue;
    }
    size_t end = at;
    while (end < path.size() && path[end] != '/' && path[end] != '[' && path[end] != '{') ++end;
    const std::string_view name = path.substr(at, end - at);
    at = end;
    if (name == "..") {
      if (!steps_.empty()) steps_.pop_back();
      located_ = std::min(located_, steps_.size());
      continue;
    }
    if (!AddNode(name, error)) return false;
    steps_.back().end = at;
  }
  return true;
}

void PathResolver::Locate(size_t count, const PathTree& tree) {
  for (; located_ < count; ++located_) {
    PathStep& step = steps_[located_];
    if (tree.written != nullptr) {
      const lyd_node* parent = located_ > 0 ? steps_[located_ - 1].data : nullptr;
      const bool is_list = step.node->is(LYS_LIST | LYS_LEAFLIST) && !step.is_entry;
      const bool may_be = (located_ == 0 || parent != nullptr) && !is_list;
      step.data = may_be ? tree.written->Find(parent, step.node->schema, step.keys) : nullptr;
      continue;
    }
    const lyd_node* siblings = SiblingsAt(steps_, located_, tree);
    if (step.is_entry) {
      step.data = FindEntry(*step.node, step.keys, siblings);
    } else if (!step.node->is(LYS_LIST | LYS_LEAFLIST)) {
      step.data = FindNode(siblings, step.node->schema);
    }
  }
}

bool PathResolver::AddNode(std::string_view name, std::string* error) {
  const CdbNode* parent = steps_.empty() ? schema_->root() : steps_.back().node;
  const CdbNode* node = parent->Child(name);
  if (node == nullptr || (!steps_.empty() && parent->is(LYS_LIST) && !steps_.back().is_entry)) {
    *error = std::string(node == nullptr ? "there is no " : "an entry must be named before ") +
             std::string(name) +
             (node == nullptr ? " in " + (steps_.empty() ? "the schema" : parent->name) : "");
    return false;
  }
  PathStep step;
  step.node = node;
  steps_.push_back(std::move(step));
  return true;
}

bool PathResolver::AddKeys(std::string_view path, size_t* at, std::string* error) {
  if (steps_.empty() || steps_.back().is_entry ||
      !steps_.back().node->is(LYS_LIST | LYS_LEAFLIST)) {
    *error = "only an entry of a list has keys: " + std::string(path);
    return false;
  }
  PathStep& step = steps_.back();
  const size_t count = KeyCount(*step.node);
  if (!ReadKeys(path, at, count, &step.keys) || step.keys.size() != count) {
    *error = step.node->name + " has " + std::to_string(count) + " key(s): " + std::string(path);
    return false;
  }
  for (size_t i = 0; i < count; ++i) {
    if (!CheckKey(KeyNode(*step.node, i), &step.keys[i], error)) return false;
  }
  step.is_entry = true;
  return true;
}

// Makes a key's text the canonical one; false, with the reason in `why`, when it is none.
bool PathResolver::CheckKey(const CdbNode& node, std::string* key, std::string* why) {
  int32_t number = 0;
  const auto parsed = std::from_chars(key->data(), key->data() + key->size(), number);
  const bool is_number = parsed.ec == std::errc() && parsed.ptr == key->data() + key->size();
  for (const auto& [name, value] : node.enums) {
    if (name == *key) return true;
    if (is_number && value == number) {
      *key = name;
      return true;
    }
  }
  constexpr size_t kMostKept = 1024;
  std::unordered_set<std::string>& checked = checked_keys_[&node];
  if (checked.count(*key) != 0) return true;
  *why = WhyNotValue(node.schema, *key, key);
  if (!why->empty()) return false;
  if (checked.size() == kMostKept) checked.clear();
  checked.insert(*key);
  return true;
}

bool PathResolver::AddPosition(std::string_view path, size_t* at, const PathTree& tree,
                               std::string* error) {
  const char* begin = path.data() + *at + 1;
  const char* end = path.data() + path.size();
  size_t position = 0;
  const auto parsed = std::from_chars(begin, end, position);
  if (parsed.ec != std::errc() || parsed.ptr == end || *parsed.ptr != ']' || steps_.empty() ||
      steps_.back().is_entry || !steps_.back().node->is(LYS_LIST)) {
    *error = "not a position in a list: " + std::string(path);
    return false;
  }
  PathStep& step = steps_.back();
  Locate(steps_.size() - 1, tree);
  const std::vector<const lyd_node*>& entries =
      tree.index->Entries(*step.node, SiblingsOf(steps_, tree), tree.written != nullptr);
  if (position >= entries.size()) {
    *error = step.node->name + " has " + std::to_string(entries.size()) +
             " entries: " + std::string(path);
    return false;
  }
  step.data = entries[position];
  step.is_entry = true;
  located_ = steps_.size();
  *at = static_cast<size_t>(parsed.ptr + 1 - path.data());
  step.end = *at;
  return true;
}

const lyd_node* SiblingsOf(const PathSteps& steps, const PathTree& tree) {
  return SiblingsAt(steps, steps.size() - 1, tree);
}

const lyd_node* EntryFrom(const lyd_node* node, const CdbNode& list, const PathTree& tree) {
  for (; node != nullptr; node = node->next) {
    if (node->schema != list.schema) continue;
    if (tree.written == nullptr || WrittenState::IsThere(node)) return node;
  }
  return nullptr;
}

bool Exists(const PathSteps& steps, const PathTree& tree) {
  if (steps.empty() || steps.back().data != nullptr) return true;
  const CdbNode& node = *steps.back().node;
  if (node.is(LYS_LIST | LYS_LEAFLIST) && !steps.back().is_entry) {
    return EntryFrom(SiblingsOf(steps, tree), node, tree) != nullptr;
  }
  if (!IsPlainContainer(node.schema)) return false;
  const auto real = [](const PathStep& step) {
    return step.data != nullptr || IsPlainContainer(step.node->schema);
  };
  return std::all_of(steps.begin(), steps.end(), real);
}

bool ToDataPath(const PathSteps& steps, std::string* path) {
  for (const PathStep& step : steps) {
    *path += '/';
    if (&step == &steps.front()) *path += std::string(kAclModule) + ":";
    *path += step.node->name;
    if (!step.is_entry) continue;
    std::vector<std::string> keys = step.keys;
    if (keys.empty()) {
      const lyd_node* key = lyd_child(step.data);
      for (size_t i = 0; i < step.node->key_count; ++i, key = key->next)
        keys.emplace_back(TextOf(key));
    }
    if (!AppendPredicates(step.node->schema, keys, path)) return false;
  }
  return true;
}

}  // namespace host
