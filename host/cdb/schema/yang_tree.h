// Ownership and small helpers for libyang's schema context and data trees.
#ifndef HOST_CDB_SCHEMA_YANG_TREE_H_
#define HOST_CDB_SCHEMA_YANG_TREE_H_

#include <libyang/libyang.h>

#include <memory>
#include <string>
#include <vector>

namespace host {

struct ContextDeleter {
  void operator()(ly_ctx* context) const { ly_ctx_destroy(context); }
};
using ContextPtr = std::unique_ptr<ly_ctx, ContextDeleter>;

// Owns a whole tree: the node, its siblings and everything below.
struct TreeDeleter {
  void operator()(lyd_node* node) const { lyd_free_all(node); }
};
using Tree = std::unique_ptr<lyd_node, TreeDeleter>;

// A tree that is being changed: libyang's calls take the address of its first node.
class TreeBuilder {
 public:
  explicit TreeBuilder(Tree* tree) : tree_(tree), first_(tree->release()) {}
  TreeBuilder(const TreeBuilder&) = delete;
  TreeBuilder& operator=(const TreeBuilder&) = delete;
  ~TreeBuilder() { tree_->reset(first_); }
  // NOLINTNEXTLINE(google-explicit-constructor): stands where those calls take the address
  operator lyd_node**() { return &first_; }

 private:
  Tree* tree_;
  lyd_node* first_;
};

// Instance path of a node, such as /acl-app:config/access-list/interface[interface-name='eth0'].
std::string PathOf(const lyd_node* node);

// The content of `node` under its parent: list entries and leaf-list elements by key or value,
// others by schema. Null when `siblings` (may be null) has no such node.
lyd_node* FindSame(const lyd_node* siblings, const lyd_node* node);
// The leaf or container of `schema` among `siblings` (may be null), null when there is none.
lyd_node* FindBySchema(const lyd_node* siblings, const lysc_node* schema);

bool IsKey(const lyd_node* node);
bool IsPlainContainer(const lysc_node* schema);  // a container without presence

// Appends what names an instance of a list or leaf-list, as libyang wants it: "[name='value']" for
// each key, "[.='value']" for an element. False when one cannot be written so: it has both kinds of
// quotes.
bool AppendPredicates(const lysc_node* schema, const std::vector<std::string>& keys,
                      std::string* text);

// Canonical text of a leaf or leaf-list element.
inline const char* TextOf(const lyd_node* node) { return lyd_get_value(node); }
// Canonical text of the child leaf `name`, empty when it is absent.
std::string ChildText(const lyd_node* node, const char* name);

// True for containers without presence that lists are in, directly or deeper. A part of a
// configuration always has all of them on its paths, so that an empty one says nothing about the
// whole.
bool IsFrame(const lysc_node* schema);
// A container without presence exists by what it holds, other nodes by themselves.
bool HoldsSomething(const lyd_node* node);

// Brings a tree into the form in which running is kept: without implicit nodes and empty
// containers, but for the frame, which is complete. It costs least, and it is the same however the
// content was reached, so that the difference of two parts is the difference of the wholes. An
// empty part of the frame has the flag LYD_DEFAULT, so that it is not printed.
void Normalize(const ly_ctx* context, Tree* tree);

// Adds a copy of `node` below `parent`, or beside `*first` where that is null; a list entry comes
// with its keys. `options` are those of lyd_dup_single(); metadata stays behind.
lyd_node* AddCopy(const lyd_node* node, lyd_node* parent, uint32_t options, lyd_node** first);
// Frees `node` with all below; `*first` is the tree's first node.
void FreeNode(lyd_node* node, lyd_node** first);

// The siblings from `first` on, with everything below; without metadata. Null for null.
Tree CopyTree(const lyd_node* first);

}  // namespace host

#endif  // HOST_CDB_SCHEMA_YANG_TREE_H_
