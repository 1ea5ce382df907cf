// Takes maps apart in a thread of its own, and hands back their nodes.
//
// To take a large map apart is to rebalance its tree once for each node: a quarter of the time that
// building the next one takes. Nobody needs the old tree meanwhile, so another processor does it.
//
// What the thread may touch: the tree, that is, nodes' links and colours. Never what nodes hold,
// which counts its owners by plain numbers and belongs to the thread of the maps. So nodes leave as
// they came, and those that are still here at the end are freed by the owner.
//
// The owner's thread never waits: where the other one has nothing ready it gets nothing.
#ifndef HOST_FILTERS_COMMON_MAP_DISMANTLER_H_
#define HOST_FILTERS_COMMON_MAP_DISMANTLER_H_

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/filters_common/filters_group.h"

namespace FiltersCommon {

class MapDismantler {
 public:
  using Entries = FiltersGroup::Entries;
  using Nodes = std::vector<Entries::node_type>;

  MapDismantler() = default;
  MapDismantler(const MapDismantler&) = delete;
  MapDismantler& operator=(const MapDismantler&) = delete;
  // Waits for some ten microseconds at most.
  ~MapDismantler();

  // Takes the map, and leaves an empty one. False, and no change, where no thread can be had, or
  // it would have to be waited for.
  bool Add(Entries* map);
  // Adds nodes that are ready to the end of `nodes`, those of the highest keys first.
  void Take(Nodes* nodes);
  // Gives back a map that was not begun; an empty one when there is none.
  Entries TakeBack();
  // Nodes that were added and not taken.
  size_t size() const { return size_; }

 private:
  static constexpr size_t kAtOnce = 1024;  // nodes, some 20 us

  // The thread, from here on.
  void Run();

  size_t size_ = 0;   // the owner's
  std::mutex mutex_;  // of all below but the thread; never held for long
  std::condition_variable changed_;
  bool ending_ = false;
  std::deque<Entries> maps_;  // not begun; none is empty
  Nodes ready_;
  std::thread thread_;
};

}  // namespace FiltersCommon

#endif  // HOST_FILTERS_COMMON_MAP_DISMANTLER_H_
