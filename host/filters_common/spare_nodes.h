// Nodes of the maps of groups that are gone, for groups to come.
//
// To take a map apart takes as long as to build one. So a map that goes is kept as it is, with what
// its entries hold, and comes apart beside other work (map_dismantler.h), or node by node as the
// next map is built. That one mostly has the same entries in the same places, and then what a node
// holds need not even change. What nodes hold is freed when somebody has time for it (TakeApart).
//
// New nodes are made many at a time, side by side, and not in the gaps that other objects of their
// size have left: walking a group of scattered nodes takes two to three times as long. Nodes come
// back in the order that they had, which mostly is that of their addresses.
#ifndef HOST_FILTERS_COMMON_SPARE_NODES_H_
#define HOST_FILTERS_COMMON_SPARE_NODES_H_

#include <cstddef>
#include <deque>
#include <vector>

#include "host/filters_common/map_dismantler.h"
#include "platform/filters_common/filters_group.h"

namespace FiltersCommon {

class SpareNodes {
 public:
  using Entries = FiltersGroup::Entries;

  static SpareNodes& OfThread();

  // Takes the node if there is room.
  void Keep(Entries::node_type node);
  // Takes as many nodes as there is room for.
  void KeepAll(Entries* entries);
  // Puts a copy of `entry`, whose id is not taken, into `entries`, next to `hint`, and returns it.
  const FiltersEntry& Insert(const FiltersEntry& entry, Entries::iterator hint, Entries* entries);
  // Takes at most so many nodes out of maps, or frees what they hold. Whether more remain.
  bool TakeApart(size_t most);
  // How many there are.
  size_t size() const { return nodes_.size() + in_maps_ + dismantler_.size(); }

 private:
  static constexpr size_t kMost = size_t{2} * 65536;  // two groups as large as they can be
  static constexpr size_t kLarge = 4096;              // worth a word to another thread
  static constexpr unsigned short kSome = 1024;       // 80 kB

  Entries::node_type Take();
  // Gets a map into `maps_`: one that nobody has begun to take apart, or of new nodes.
  void FindMap();

  std::vector<Entries::node_type> nodes_;  // the last is taken first
  size_t empty_ = 0;                       // of the first `nodes_`, which hold nothing
  std::deque<Entries> maps_;               // none is empty; the first's first node is taken first
  size_t in_maps_ = 0;                     // their nodes
  MapDismantler dismantler_;
};

}  // namespace FiltersCommon

#endif  // HOST_FILTERS_COMMON_SPARE_NODES_H_
