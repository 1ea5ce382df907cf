// The configuration, or a part of it, as a tree of libyang's: finding and making its parts.
#ifndef TOOLS_ACLCTL_CONFIG_TREE_H_
#define TOOLS_ACLCTL_CONFIG_TREE_H_

#include <string>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace aclctl {

// A tree that always has the containers around profiles and interfaces.
class ConfigTree {
 public:
  // Takes over `tree` (null: an empty configuration), data of the module acl-app of `context`.
  ConfigTree(const ly_ctx* context, host::Tree tree);

  const lyd_node* root() const { return tree_.get(); }
  const ly_ctx* context() const { return context_; }
  ConfigTree Copy() const;

  // A profile by its name; null when there is none.
  lyd_node* FindProfile(const std::string& name) const;
  std::vector<lyd_node*> Profiles() const;
  // Makes a profile, which must not exist. `type` must be one of the schema's.
  lyd_node* AddProfile(const std::string& type, const std::string& name);

  lyd_node* FindInterface(const std::string& name) const;
  std::vector<lyd_node*> Interfaces() const;
  lyd_node* AddInterface(const std::string& name);

 private:
  const ly_ctx* context_;
  host::Tree tree_;
  lyd_node* ingress_ = nullptr;      // what profiles are in
  lyd_node* access_list_ = nullptr;  // what interfaces are in
};

// An entry of a profile by its ace-priority; null when there is none. `priority` is a number as the
// schema has it.
lyd_node* FindEntry(const lyd_node* profile, const std::string& priority);
// All of them, the lowest ace-priority first.
std::vector<lyd_node*> EntriesOf(const lyd_node* profile);

// The list entries, leaf-list elements or other children `name` of `parent`, in their order.
std::vector<lyd_node*> ChildrenNamed(const lyd_node* parent, const char* name);
// The first of them, or null.
lyd_node* ChildNamed(const lyd_node* parent, const char* name);
// Frees all of them.
void RemoveChildren(lyd_node* parent, const char* name);

// "l2" or "l3", and the priority: empty when it has none yet.
std::string TypeOf(const lyd_node* profile);
std::string PriorityOf(const lyd_node* profile);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_CONFIG_TREE_H_
