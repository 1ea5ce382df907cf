// What enforces the filter groups. A back end holds at most one group of each type.
#ifndef HOST_FILTER_MGR_BACKEND_H_
#define HOST_FILTER_MGR_BACKEND_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/filter_mgr/errors.h"
#include "platform/filters_common/filters_group.h"

namespace host {

// Frames that an entry decided.
struct Hits {
  uint64_t packets = 0;
  uint64_t bytes = 0;  // link layer header aside

  Hits operator+(const Hits& other) const { return {packets + other.packets, bytes + other.bytes}; }
  // Those since `earlier`; none if the counter was reset in between.
  Hits Since(const Hits& earlier) const {
    if (packets < earlier.packets || bytes < earlier.bytes) return {};
    return {packets - earlier.packets, bytes - earlier.bytes};
  }
};

// The hits of a group's entries, as they are read bit by bit.
class HitsReading {
 public:
  enum class Progress { kMore, kDone, kFailed };

  virtual ~HitsReading() = default;
  // Goes on for some milliseconds at most. Fails when the group has changed, or hits cannot be read
  // at the moment.
  virtual Progress Next() = 0;

  std::vector<Hits> hits;  // by entry id, once done
};

enum class PortState { kEnforced, kAbsent, kFailed };

class Backend {
 public:
  virtual ~Backend() = default;
  virtual const char* name() const = 0;
  // Ports on which filters of an earlier process are in force. To be called before the first
  // Apply().
  virtual size_t Left() const { return 0; }
  // Makes an empty group known. What an earlier run left in force for it stays in force until the
  // group's first Apply().
  virtual FilterMgrError Create(const FiltersCommon::FiltersGroup& group) = 0;
  // Puts the group's whole content in force, in place of what was. All or nothing: after a failure,
  // which is logged, the content before is still in force.
  virtual FilterMgrError Apply(const FiltersCommon::FiltersGroup& group) = 0;
  // Starts to read the hits of the group as last applied; the reading must end before the back end
  // does. Null where hits are not counted.
  virtual std::unique_ptr<HitsReading> ReadHits(const FiltersCommon::FiltersGroup& group) = 0;
  // Does what can wait until after an answer, such as giving back the memory of what was replaced.
  virtual void Idle() {}
  // The ports that the groups name.
  virtual std::map<std::string, PortState> Ports() const = 0;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_BACKEND_H_
