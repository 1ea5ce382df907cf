// The client of the Filter Manager, the service that programs filter groups into the data path.
#ifndef PLATFORM_FILTER_MGR_FILTER_MGR_CLIENT_H_
#define PLATFORM_FILTER_MGR_FILTER_MGR_CLIENT_H_

#include <memory>
#include <string>

#include "platform/filters_common/filters_group.h"
#include "platform/qzmw/qzmw.h"

namespace FilterMgrClientApi {

// Both operations return after the Filter Manager has answered: 0 when it took the group, otherwise
// its error code, and then nothing has changed.
//
// The virtual table is part of the interface: the destructor's entries, createGroup, updateGroup.
class FilterMgrClient {
 public:
  // Connects the process to the Filter Manager under `name`.
  FilterMgrClient(qzmw_t* mw, const std::string& name);
  FilterMgrClient(const FilterMgrClient&) = delete;
  FilterMgrClient& operator=(const FilterMgrClient&) = delete;
  virtual ~FilterMgrClient();

  // Makes a group known under its id and stage, with its type, priority and entries.
  virtual int createGroup(FiltersCommon::FiltersGroup group);
  // Replaces the whole content of the group with the same id and stage.
  virtual int updateGroup(const FiltersCommon::FiltersGroup& group);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace FilterMgrClientApi

#endif  // PLATFORM_FILTER_MGR_FILTER_MGR_CLIENT_H_
