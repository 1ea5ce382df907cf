// What a difference does to that which joins units.
#include "host/cdb/config_changes.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace host {
namespace {

bool Is(const lyd_node* node, const char* name) { return strcmp(LYD_NAME(node), name) == 0; }

class Collector {
 public:
  ConfigChanges Collect(const lyd_node* diff, DiffOperation inherited) {
    for (; diff != nullptr; diff = diff->next) {
      if (strcmp(diff->schema->module->name, "acl-app") == 0) Visit(diff, inherited);
    }
    return std::move(changes_);
  }

 private:
  void Visit(const lyd_node* node, DiffOperation inherited) {
    const DiffOperation operation = DiffOperationOf(node, inherited);
    if (node->schema->nodetype == LYS_LEAFLIST && Is(node, "ingress")) {
      if (operation == DiffOperation::kNone) return;
      changes_.bindings.push_back(
          {node, operation, ChildText(lyd_parent(node), "interface-name"), TextOf(node)});
    } else if (node->schema->nodetype == LYS_LIST && Is(node, "access-list")) {
      VisitProfile(node, operation);
    } else {
      const lyd_node* child;
      LY_LIST_FOR(lyd_child(node), child) Visit(child, operation);
    }
  }

  void VisitProfile(const lyd_node* node, DiffOperation operation) {
    const bool stays = operation == DiffOperation::kNone;
    ProfileChange profile = {node, operation, "", "", 0, {}, {}};
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(node), child) {
      if (child->schema->nodetype == LYS_LIST) {
        const DiffOperation entry = DiffOperationOf(child, operation);
        if (entry == DiffOperation::kCreate) profile.added.push_back(AcePriorityOf(child));
        if (entry == DiffOperation::kDelete) profile.removed.push_back(AcePriorityOf(child));
      } else if (const lyd_node* priority = PriorityIn(child)) {
        profile.priority = std::atoi(TextOf(priority));
        if (stays) changes_.priorities.push_back(priority);
      }
    }
    if (stays && profile.added.empty() && profile.removed.empty()) return;
    std::sort(profile.added.begin(), profile.added.end());
    std::sort(profile.removed.begin(), profile.removed.end());
    profile.type = ChildText(node, "acl-type");
    profile.name = ChildText(node, "acl-name");
    changes_.profiles.push_back(std::move(profile));
  }

  // The schema has it in the range of 16 bits. It is the key, so it is the first child.
  static uint16_t AcePriorityOf(const lyd_node* entry) {
    return static_cast<uint16_t>(std::atoi(TextOf(lyd_child(entry))));
  }

  static const lyd_node* PriorityIn(const lyd_node* container) {
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(container), child) {
      if (Is(child, "priority")) return child;
    }
    return nullptr;
  }

  ConfigChanges changes_;
};

}  // namespace

ConfigChanges ChangesOfDifference(const lyd_node* diff) {
  return Collector().Collect(diff, DiffOperation::kNone);
}

ConfigChanges ChangesOfWhole(const lyd_node* tree) {
  return Collector().Collect(tree, DiffOperation::kCreate);
}

}  // namespace host
