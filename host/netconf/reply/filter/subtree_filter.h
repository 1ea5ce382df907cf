// Subtree filters (RFC 6241 section 6).
//
// A filter is read from the message as plain XML and matched against data by name, namespace and
// value. Its nodes are of three kinds: containment nodes (with child elements), selection nodes
// (empty) and content match nodes (with text). The keys of a list entry are always selected with
// it, so that what comes out is valid data.
#ifndef HOST_NETCONF_REPLY_FILTER_SUBTREE_FILTER_H_
#define HOST_NETCONF_REPLY_FILTER_SUBTREE_FILTER_H_

#include <string>
#include <utility>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace host {

class SubtreeFilter {
 public:
  struct Node {
    bool any_namespace = false;  // an element without namespace matches all
    std::string name_space;
    std::string name;
    std::string content;
    bool never = false;       // has attributes, which no configuration or state data have
    bool only_tests = false;  // a condition on its parent, of presence or content; selects nothing
    std::vector<Node> children;
    bool IsTest() const { return only_tests || (children.empty() && !content.empty()); }
  };
  // Nodes of the filter that bear on the siblings at some place in the data.
  using NodeRefs = std::vector<const Node*>;

  // `filter` is the <filter> element as GenericXml reads it. Data are matched in `context`, which
  // gives content match nodes their canonical value.
  SubtreeFilter(const lyd_node* filter, const ly_ctx* context);
  explicit SubtreeFilter(std::vector<Node> nodes) : nodes_(std::move(nodes)) {}

  // The canonical form of `text` as a value of `schema`; the text itself where it is none.
  static std::string Canonical(const ly_ctx* context, const lysc_node* schema,
                               const std::string& text);

  // True when the filter may select something of the top-level node `name` of `module`.
  bool MaySelect(const lys_module* module, const char* name) const;

  // The nodes that bear on the top-level nodes of the data. They, and those that Enter() gives, are
  // valid as long as the filter.
  NodeRefs Top() const;
  // True when `nodes` select something of `data`, if it is there: all (`*whole` is set), or what
  // the nodes that are added to `*below` select of its children.
  static bool Enter(const NodeRefs& nodes, const lyd_node* data, bool* whole, NodeRefs* below);
  // True when one of `below` selects a key of the list entry `data`. An entry of which nothing but
  // its keys is left counts only then.
  static bool AsksForKey(const NodeRefs& below, const lyd_node* data);
  // What `nodes` select of `data` and what is below it: all (`*whole` is set and nothing is
  // returned), a copy of a part, or nothing (null).
  static Tree Select(const NodeRefs& nodes, const lyd_node* data, bool* whole);

 private:
  static std::vector<Node> Compile(const lyd_node* element, const lysc_node* schema,
                                   const ly_ctx* context);
  static bool MatchesName(const Node& node, const lys_module* module, const char* name);
  static bool MatchesContent(const Node& node, const lyd_node* parent);
  static bool Wants(const Node& node, const lyd_node* data, bool* whole, NodeRefs* below);
  static void SelectBelow(const NodeRefs& nodes, const lyd_node* data, lyd_node* copy);

  std::vector<Node> nodes_;
};

}  // namespace host

#endif  // HOST_NETCONF_REPLY_FILTER_SUBTREE_FILTER_H_
