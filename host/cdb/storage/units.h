// The units in which a configuration is stored: each list entry with its own content, without the
// entries of lists within. All configuration is in list entries; the containers around them hold
// nothing of their own.
#ifndef HOST_CDB_STORAGE_UNITS_H_
#define HOST_CDB_STORAGE_UNITS_H_

#include <functional>
#include <string>

#include "host/cdb/schema/yang_tree.h"

namespace host {

// Where a unit is: the path of the node that its list is in, the list's name, and its keys as the
// path's predicates have them.
struct UnitKey {
  std::string place;
  std::string list;
  std::string keys;

  std::string Path() const { return place + "/" + list + keys; }
};

// What a difference does to one unit. `content` is the entry as a JSON object; empty when the unit
// goes, and with it all units within.
struct UnitChange {
  UnitKey key;
  std::string content;
  bool is_new = false;  // whether the unit comes with this change
};

// Called with each change; false ends it.
using UnitVisitor = std::function<bool(const UnitChange&)>;

// Visits the units that `diff` changes; `after` is the configuration after it, or the part of it
// that the difference is in. Units that go come before those that come. False when `visit` has
// ended it, or (`in_units` then is false) the difference changes something that is in no list
// entry.
bool VisitUnitChanges(const lyd_node* diff, const lyd_node* after, const UnitVisitor& visit,
                      bool* in_units);

// Adds units below `parent`, a node of a normalized configuration, that are all in one list.
// `contents` is their JSON objects, separated by commas. False when they cannot be parsed (libyang
// has noted why).
bool AddUnits(lyd_node* parent, const std::string& list, const std::string& contents);

}  // namespace host

#endif  // HOST_CDB_STORAGE_UNITS_H_
