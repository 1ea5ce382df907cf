// Resolution of the cdb_* calls' paths.
//
// A path names a node by its place in the schema and, as far as it is there, in a data tree:
//   /config/access-list/interface{eth0}/ingress     an entry by its keys, quoted where needed
//   /config/access-list/interface[3]/interface-name  an entry by its position, from 0
//   /config/access-list/interface/[3]/               the same; slashes do not matter
//   ../ingress                                      from the session's position
// All between the braces of a list with one key is the key; a '/' in there separates nothing.
//
// Consecutive calls mostly share the front of their paths. A resolver keeps the steps of the last
// path and goes on where the next one differs, so that a whole list is read in linear time. What
// differs are mostly the same few names, entry by entry: it remembers what they lead to. Reading
// a path takes the schema alone, unless it has positions; where the steps lead in the data is only
// looked up for those who ask (Resolve()), since most who move a session never do.
#ifndef HOST_CDB_CALLS_CDB_PATH_H_
#define HOST_CDB_CALLS_CDB_PATH_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/cdb/calls/values.h"
#include "host/cdb/schema/cdb_schema.h"
#include "host/cdb/written_state.h"

namespace host {

// The entries of the lists of one tree in the order of their keys, found by position. libyang keeps
// the order in which entries were made, which means nothing. Built when first asked for.
class ListIndex {
 public:
  // The entries of `list` among the siblings that `first` starts; of those that were `written`, as
  // far as they are there. Valid until Clear().
  const std::vector<const lyd_node*>& Entries(const CdbNode& list, const lyd_node* first,
                                              bool written);
  // To be called when the tree has changed.
  void Clear() { entries_.clear(); }

 private:
  struct Key {
    const lyd_node* first;
    const CdbNode* list;
    bool operator==(const Key& other) const { return first == other.first && list == other.list; }
  };
  struct Hash {
    size_t operator()(const Key& key) const {
      return std::hash<const void*>()(key.first) * 31 + std::hash<const void*>()(key.list);
    }
  };
  std::unordered_map<Key, std::vector<const lyd_node*>, Hash> entries_;
};

struct PathStep {
  const CdbNode* node = nullptr;
  const lyd_node* data = nullptr;  // null when it is not there; always for a list without keys
  bool is_entry = false;           // a list entry or leaf-list element, not the list as such
  std::vector<std::string> keys;   // of an entry that was named by its keys
  size_t end = 0;                  // where the step's text ends in the path
};

// Steps from the top; the root has none.
using PathSteps = std::vector<PathStep>;

// A tree that paths are resolved in. `generation` changes whenever the tree does, `losses` whenever
// more happens to it than that nodes are added or leaves get other values.
struct PathTree {
  const lyd_node* first = nullptr;
  uint64_t generation = 0, losses = 0;
  ListIndex* index = nullptr;
  // Whose tree it is, which has deleted nodes; null: running.
  const WrittenState* written = nullptr;
};

class PathResolver {
 public:
  explicit PathResolver(const CdbSchema* schema) : schema_(schema) {}

  // Resolves an absolute path. Null with a reason in `error` when it is no path of the schema, or
  // names a position that is not there. The steps are valid until the next call.
  const PathSteps* Resolve(std::string_view path, const PathTree& tree, std::string* error);
  // The same, but `data` of the steps means nothing, except of those that were named by position.
  const PathSteps* Read(std::string_view path, const PathTree& tree, std::string* error);

 private:
  // Names that a path went on with, and what they led to from a node.
  struct Tail {
    const CdbNode* from = nullptr;  // null: nothing is here
    std::string text;
    std::vector<std::pair<const CdbNode*, size_t>> nodes;  // with where they end in the text
  };

  bool Parse(std::string_view path, size_t at, const PathTree& tree, std::string* error);
  // The place for what `tail` leads to from the last step; null when nothing can come there.
  Tail* TailOf(std::string_view tail);
  bool AddNode(std::string_view name, std::string* error);
  bool AddKeys(std::string_view path, size_t* at, std::string* error);
  bool CheckKey(const CdbNode& node, std::string* key, std::string* why);
  bool AddPosition(std::string_view path, size_t* at, const PathTree& tree, std::string* error);
  // Drops what does not hold for the tree any more.
  void Follow(const PathTree& tree);
  size_t KeepCommonSteps(std::string_view path);
  // Looks up the data of the first `count` steps.
  void Locate(size_t count, const PathTree& tree);

  const CdbSchema* schema_;
  std::string path_;
  bool goes_up_ = false;  // path_ has "..": its text does not tell its steps
  PathSteps steps_;
  std::vector<Tail> tails_;  // a table by hash; of two with one place the later stays
  // Texts that are keys and canonical, of each that was named: to read one as a value takes long.
  std::unordered_map<const CdbNode*, std::unordered_set<std::string>> checked_keys_;
  size_t located_ = 0;  // so many steps have their data
  uint64_t generation_ = 0, losses_ = 0;
};

// Whether the node that the steps lead to is there. A container without presence is where its
// parent is; a list or leaf-list as such is there when it has an entry.
bool Exists(const PathSteps& steps, const PathTree& tree);

// The first entry of a list or leaf-list from `node` (may be null) on, in the tree's order; null
// when none follows.
const lyd_node* EntryFrom(const lyd_node* node, const CdbNode& list, const PathTree& tree);

// The siblings among which the last step's node is or would be; null when there are none.
const lyd_node* SiblingsOf(const PathSteps& steps, const PathTree& tree);

// The steps, all entries by their keys, as a keypath, which then owns its values. False when it
// would be too deep.
bool ToKeypath(const PathSteps& steps, confd_hkeypath_t* keypath);
void FreeKeypathValues(confd_hkeypath_t* keypath);

// The steps as a path of libyang. False when a key cannot be written in one.
bool ToDataPath(const PathSteps& steps, std::string* path);

// Prints the steps, all entries by their keys, as PrintKeypath() prints their keypath.
std::string PrintSteps(const PathSteps& steps);

// Prints a keypath in a form that a resolver reads. `schema` may be null: nodes then have the
// names of their tags, enumeration keys are numbers.
std::string PrintKeypath(const CdbSchema* schema, const confd_hkeypath_t& keypath);

// Prints one keypath after the other. Those of a commit mostly share their front, and some are
// printed twice; so it goes on where a keypath parts from the last one.
class KeypathPrinter {
 public:
  // `schema` as above; it must outlive the printer.
  explicit KeypathPrinter(const CdbSchema* schema) : schema_(schema) {}

  // As PrintKeypath(); valid until the next call.
  const std::string& Print(const confd_hkeypath_t& keypath);

 private:
  struct Element {
    bool is_tag;  // or keys
    uint32_t tag;
    const CdbNode* node;  // that the path leads to here, null when it is not known
    size_t end;           // of its text
  };

  void PrintKeys(const confd_value_t* element, const CdbNode* node);

  const CdbSchema* schema_;
  std::string text_;  // of the last keypath
  std::vector<Element> elements_;
  std::string keys_, key_;  // members to save allocations
};

}  // namespace host

#endif  // HOST_CDB_CALLS_CDB_PATH_H_
