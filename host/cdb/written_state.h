// The state that the process writes through the cdb_* calls: a libyang tree, whose deleted nodes
// stay for a while.
//
// After each commit whole lists are deleted and written anew, mostly with the entries and values
// that they had. To build an entry takes libyang some microseconds (types, patterns, dictionary,
// tables of hashes), and so does finding one, for which it builds another; there are hundreds of
// both. So a deleted node is only marked, is taken again when it is created again, and all nodes
// are found by a table of our own.
//
// The mark is the time (the generation) at which a node was created last, 0 once it is deleted. A
// node is there when its parent is, and when it is not older than that. So what goes takes all
// below with it, and what comes back comes back empty, in one store. An entry's keys have no mark:
// they are there when it is.
//
// Those who walk the tree see it through Shown(), which first frees what is deleted, and moves
// entries that came back to where they belong: state has the order in which it was created. Those
// who look up one node after the other ask IsThere().
//
// Invariants: below one parent no two nodes are the same, whether there or not, so libyang's own
// tables hold. The nodes that are kept are at most twice those that there were when nodes were last
// freed, and kSpare.
#ifndef HOST_CDB_WRITTEN_STATE_H_
#define HOST_CDB_WRITTEN_STATE_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace host {

class WrittenState {
 public:
  // Names a node among its siblings, with its schema: the canonical texts of an entry's keys, or of
  // a leaf-list element's value. Empty for others.
  using Keys = std::vector<std::string>;

  explicit WrittenState(const ly_ctx* context) : context_(context) {}

  // What was written, null when nothing is. Valid until the next write.
  const lyd_node* Shown();

  // The same with nodes that are deleted. Valid until the next write.
  const lyd_node* Kept() const { return tree_.get(); }
  // Whether a node below Kept() whose parent is there is so, too.
  static bool IsThere(const lyd_node* node);
  // The node of `schema` below `parent`, which is there (null: at the top, where there
  // are no lists); null when it is not there.
  const lyd_node* Find(const lyd_node* parent, const lysc_node* schema, const Keys& keys) const;

  // Creates such a node, which is not there; `value` is that of a leaf. Null with the reason in
  // `error` when the schema refuses it.
  const lyd_node* Create(const lyd_node* parent, const lysc_node* schema, const Keys& keys,
                         const char* value, std::string* error);
  // Gives a leaf that is there another value. False with the reason in `error` when the schema
  // refuses it.
  bool Change(const lyd_node* leaf, const char* value, std::string* error);
  // Deletes a node with all below it; false when it is not there, or is an entry's key.
  bool Delete(const lyd_node* node);

  // Grows with every change of what was written.
  uint64_t generation() const { return generation_; }
  // Grows whenever nodes go: until then a pointer to a node that is there stays good.
  uint64_t losses() const { return losses_; }
  // How many nodes are kept, whether there or not; keys are not counted.
  size_t kept() const { return places_.size(); }

 private:
  // What lyd_node::priv of all nodes but keys leads to.
  struct Place {
    lyd_node* node;
    uint64_t created;
  };
  // By what names the node.
  using Places = std::unordered_multimap<size_t, Place>;

  static Place* PlaceOf(const lyd_node* node) { return static_cast<Place*>(node->priv); }
  static size_t HashOf(const lyd_node* parent, const lysc_node* schema, const Keys& keys);
  Place* PlaceOf(const lyd_node* parent, const lysc_node* schema, const Keys& keys) const;
  lyd_node* Make(const lyd_node* parent, const lysc_node* schema, const Keys& keys,
                 const char* value, std::string* error);
  bool Succeeded(LY_ERR result, std::string* error) const;
  void FreeDeleted();
  static void SortLists(lyd_node* parent);

  static constexpr size_t kSpare = 1024;

  const ly_ctx* context_;
  host::Tree tree_;
  Places places_;
  bool is_tidy_ = true;
  size_t most_kept_ = kSpare;
  uint64_t generation_ = 1, losses_ = 1;
};

}  // namespace host

#endif  // HOST_CDB_WRITTEN_STATE_H_
