// The normal form of configurations.
#include <map>
#include <new>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace host {
namespace {

class Normalizer {
 public:
  explicit Normalizer(lyd_node** first) : first_(first) {}

  void Strip() {
    lyd_node* next;
    lyd_node* node;
    LY_LIST_FOR_SAFE(*first_, next, node) {
      if (StripNode(node)) FreeNode(node, first_);
    }
  }

  // Adds the frame's missing containers to the children of `parent`, or to the module's top level.
  void Complete(lyd_node* parent, const lysc_module* module) {
    const lysc_node* schema = parent != nullptr ? parent->schema : nullptr;
    for (const lysc_node* frame : FramesIn(schema, module)) {
      lyd_node* node = FindBySchema(parent != nullptr ? lyd_child(parent) : *first_, frame);
      if (node == nullptr) node = Make(parent, frame);
      Complete(node, nullptr);
    }
    if (parent == nullptr || !HasListWithFrames(schema)) return;
    lyd_node* child;
    LY_LIST_FOR(lyd_child(parent), child) {
      if (child->schema->nodetype == LYS_LIST) Complete(child, nullptr);
    }
  }

 private:
  using Schemas = std::vector<const lysc_node*>;

  // True when the node itself is implicit or empty, and so has to go.
  bool StripNode(lyd_node* node) {
    if ((node->schema->nodetype & LYD_NODE_TERM) != 0) return (node->flags & LYD_DEFAULT) != 0;
    lyd_node* next;
    lyd_node* child;
    LY_LIST_FOR_SAFE(lyd_child(node), next, child) {
      if (StripNode(child)) lyd_free_tree(child);
    }
    if (IsPlainContainer(node->schema)) FlagAsLibyang(node);
    return lyd_child(node) == nullptr && IsPlainContainer(node->schema) && !IsFrame(node->schema);
  }

  // A container without presence counts as implicit, and is not printed, when all in it is. libyang
  // keeps that up when nodes come and go; so it must be so at the start, or what is printed would
  // depend on how the content was reached.
  static void FlagAsLibyang(lyd_node* container) {
    container->flags |= LYD_DEFAULT;
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(container), child) {
      if ((child->flags & LYD_DEFAULT) == 0)
        container->flags &= ~static_cast<uint32_t>(LYD_DEFAULT);
    }
  }

  const Schemas& FramesIn(const lysc_node* parent, const lysc_module* module) {
    const auto [found, is_new] = frames_.try_emplace({parent, module});
    if (!is_new) return found->second;
    const lysc_node* child = nullptr;
    while ((child = lys_getnext(child, parent, module, 0)) != nullptr) {
      if ((child->flags & LYS_CONFIG_R) == 0 && IsFrame(child)) found->second.push_back(child);
    }
    return found->second;
  }

  // Whether a list of the children has frames within, so that its entries must be looked at.
  bool HasListWithFrames(const lysc_node* parent) {
    const lysc_node* child = nullptr;
    while ((child = lys_getnext(child, parent, nullptr, 0)) != nullptr) {
      if (child->nodetype != LYS_LIST) continue;
      if (!FramesIn(child, nullptr).empty() || HasListWithFrames(child)) return true;
    }
    return false;
  }

  lyd_node* Make(lyd_node* parent, const lysc_node* frame) {
    lyd_node* node = nullptr;
    if (lyd_new_inner(parent, frame->module, frame->name, 0, &node) != LY_SUCCESS ||
        (parent == nullptr && lyd_insert_sibling(*first_, node, first_) != LY_SUCCESS)) {
      throw std::bad_alloc();
    }
    return node;
  }

  lyd_node** first_;
  std::map<std::pair<const lysc_node*, const lysc_module*>, Schemas> frames_;
};

}  // namespace

void Normalize(const ly_ctx* context, Tree* tree) {
  TreeBuilder builder(tree);
  Normalizer normalizer(builder);
  normalizer.Strip();
  uint32_t at = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context, &at)) {
    if (module->implemented != 0) normalizer.Complete(nullptr, module->compiled);
  }
}

}  // namespace host
