// The configuration as a tree: see config_tree.h.
#include "tools/aclctl/config_tree.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace aclctl {
namespace {

// The container `name` below `parent`, made where it is missing.
lyd_node* Container(lyd_node* parent, const char* name) {
  lyd_node* node = ChildNamed(parent, name);
  if (node == nullptr) lyd_new_inner(parent, nullptr, name, 0, &node);
  return node;
}

}  // namespace

std::vector<lyd_node*> ChildrenNamed(const lyd_node* parent, const char* name) {
  std::vector<lyd_node*> found;
  lyd_node* child;
  LY_LIST_FOR(lyd_child(parent), child) {
    if (std::strcmp(LYD_NAME(child), name) == 0) found.push_back(child);
  }
  return found;
}

lyd_node* ChildNamed(const lyd_node* parent, const char* name) {
  lyd_node* child;
  LY_LIST_FOR(lyd_child(parent), child) {
    if (std::strcmp(LYD_NAME(child), name) == 0) return child;
  }
  return nullptr;
}

void RemoveChildren(lyd_node* parent, const char* name) {
  for (lyd_node* child : ChildrenNamed(parent, name)) lyd_free_tree(child);
}

ConfigTree::ConfigTree(const ly_ctx* context, host::Tree tree)
    : context_(context), tree_(std::move(tree)) {
  if (tree_ == nullptr) {
    lyd_node* root = nullptr;
    lyd_new_inner(nullptr, ly_ctx_get_module_implemented(context, "acl-app"), "config", 0, &root);
    tree_.reset(root);
  }
  access_list_ = Container(tree_.get(), "access-list");
  ingress_ = Container(Container(access_list_, "acl-profile"), "ingress");
}

ConfigTree ConfigTree::Copy() const { return {context_, host::CopyTree(tree_.get())}; }

lyd_node* ConfigTree::FindProfile(const std::string& name) const {
  for (lyd_node* profile : Profiles()) {
    if (name == host::ChildText(profile, "acl-name")) return profile;
  }
  return nullptr;
}

std::vector<lyd_node*> ConfigTree::Profiles() const {
  return ChildrenNamed(ingress_, "access-list");
}

lyd_node* ConfigTree::AddProfile(const std::string& type, const std::string& name) {
  lyd_node* profile = nullptr;
  lyd_new_list(ingress_, nullptr, "access-list", 0, &profile, type.c_str(), name.c_str());
  return profile;
}

lyd_node* ConfigTree::FindInterface(const std::string& name) const {
  for (lyd_node* interface : Interfaces()) {
    if (name == host::ChildText(interface, "interface-name")) return interface;
  }
  return nullptr;
}

std::vector<lyd_node*> ConfigTree::Interfaces() const {
  return ChildrenNamed(access_list_, "interface");
}

lyd_node* ConfigTree::AddInterface(const std::string& name) {
  lyd_node* interface = nullptr;
  lyd_new_list(access_list_, nullptr, "interface", 0, &interface, name.c_str());
  return interface;
}

lyd_node* FindEntry(const lyd_node* profile, const std::string& priority) {
  const lysc_node* schema =
      lys_find_child(profile->schema, profile->schema->module, "access-list-entry", 0, 0, 0);
  const std::string key = "[ace-priority='" + priority + "']";
  lyd_node* entry = nullptr;
  lyd_find_sibling_val(lyd_child(profile), schema, key.c_str(), 0, &entry);
  return entry;
}

std::vector<lyd_node*> EntriesOf(const lyd_node* profile) {
  std::vector<std::pair<long, lyd_node*>> sorted;
  for (lyd_node* entry : ChildrenNamed(profile, "access-list-entry")) {
    sorted.emplace_back(std::strtol(host::ChildText(entry, "ace-priority").c_str(), nullptr, 10),
                        entry);
  }
  std::sort(sorted.begin(), sorted.end());
  std::vector<lyd_node*> entries;
  entries.reserve(sorted.size());
  for (const auto& [priority, entry] : sorted) entries.push_back(entry);
  return entries;
}

std::string TypeOf(const lyd_node* profile) { return host::ChildText(profile, "acl-type"); }

std::string PriorityOf(const lyd_node* profile) {
  const lyd_node* priority = ChildNamed(profile, ("acl-priority-" + TypeOf(profile)).c_str());
  return priority == nullptr ? "" : host::ChildText(priority, "priority");
}

}  // namespace aclctl
