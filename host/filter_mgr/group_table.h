// The filter groups that the Filter Manager holds: what a client sent and a back end took.
//
// Every change is checked here first (known type and stage, capacity), then put in force by the
// back end, and only then held; so the table always shows what is in force.
#ifndef HOST_FILTER_MGR_GROUP_TABLE_H_
#define HOST_FILTER_MGR_GROUP_TABLE_H_

#include <map>
#include <utility>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/errors.h"
#include "platform/filters_common/filters_group.h"

namespace host {

class GroupTable {
 public:
  using Key = std::pair<FiltersCommon::filtersGroupStage_t, unsigned short>;  // stage, id
  using Groups = std::map<Key, FiltersCommon::FiltersGroup>;

  // `backend` is not owned. `capacity` is the number of entries that one group holds at most.
  GroupTable(Backend* backend, unsigned int capacity) : backend_(backend), capacity_(capacity) {}

  // Makes a group known. FILTER_MGR_ERR_EXISTS when a group of its id and stage is.
  FilterMgrError Create(const FiltersCommon::FiltersGroup& group);
  // Lets the group have so many entries, whatever the capacity.
  void Accept(FiltersCommon::filtersGroupType_t type, size_t entries) { accepted_[type] = entries; }
  // Replaces the group of the same id and stage whole. A group that is not known, for instance as
  // its creation failed, is made known: the content is what counts.
  FilterMgrError Update(const FiltersCommon::FiltersGroup& group);

  const Groups& groups() const { return groups_; }
  unsigned int capacity() const { return capacity_; }
  Backend& backend() const { return *backend_; }

 private:
  // Whether the group can be held at all; logs why not.
  FilterMgrError Check(const FiltersCommon::FiltersGroup& group) const;

  Backend* backend_;
  unsigned int capacity_;
  std::map<FiltersCommon::filtersGroupType_t, size_t> accepted_;
  Groups groups_;
};

// "L2" or "L3", "?" for no valid type.
const char* GroupTypeName(FiltersCommon::filtersGroupType_t type);

}  // namespace host

#endif  // HOST_FILTER_MGR_GROUP_TABLE_H_
