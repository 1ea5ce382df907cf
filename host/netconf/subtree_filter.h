// Subtree filters (RFC 6241 section 6).
//
// A filter is read from the message as plain XML and matched against data by name, namespace and
// value. Its nodes are of three kinds: containment nodes (with child elements), selection nodes
// (empty) and content match nodes (with text). The keys of a list entry are always selected with
// it, so that what comes out is valid data.
#ifndef HOST_NETCONF_SUBTREE_FILTER_H_
#define HOST_NETCONF_SUBTREE_FILTER_H_

#include <string>
#include <vector>

#include "host/cdb/yang_tree.h"

namespace host {

class SubtreeFilter {
 public:
  // `filter` is the <filter> element as GenericXml reads it. Data are matched in `context`, which
  // gives content match nodes their canonical value.
  SubtreeFilter(const lyd_node* filter, const ly_ctx* context);

  // True when the filter may select something of the top-level node `name` of `module`.
  bool MaySelect(const lys_module* module, const char* name) const;

  // What the filter selects of one top-level node and what is below it: all (`*whole` is then true
  // and nothing is returned), a copy of a part, or nothing (null).
  Tree Select(const lyd_node* top, bool* whole) const;

 private:
  struct Node {
    bool any_namespace = false;  // an element without namespace matches all
    std::string name_space;
    std::string name;
    std::string content;
    bool never = false;  // has attributes, which no configuration or state data have
    std::vector<Node> children;
    bool IsContentMatch() const { return children.empty() && !content.empty(); }
  };
  using NodeRefs = std::vector<const Node*>;

  static std::vector<Node> Compile(const lyd_node* element, const lysc_node* schema,
                                   const ly_ctx* context);
  static bool MatchesName(const Node& node, const lys_module* module, const char* name);
  static bool MatchesContent(const Node& node, const lyd_node* parent);
  static bool Wants(const Node& node, const lyd_node* data, bool* whole, NodeRefs* below);
  static void SelectBelow(const NodeRefs& nodes, const lyd_node* data, lyd_node* copy);
  static Tree SelectNode(const NodeRefs& nodes, const lyd_node* data, bool* whole);

  std::vector<Node> nodes_;
};

}  // namespace host

#endif  // HOST_NETCONF_SUBTREE_FILTER_H_
