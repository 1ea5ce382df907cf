// The back end that enforces nothing: for trying out the daemon without privileges, and for tests.
#ifndef HOST_FILTER_MGR_MEMORY_BACKEND_H_
#define HOST_FILTER_MGR_MEMORY_BACKEND_H_

#include <map>
#include <memory>
#include <string>

#include "host/filter_mgr/backend.h"

namespace host {

class MemoryBackend : public Backend {
 public:
  const char* name() const override { return "memory"; }
  FilterMgrError Create(const FiltersCommon::FiltersGroup&) override { return FILTER_MGR_OK; }
  FilterMgrError Apply(const FiltersCommon::FiltersGroup&) override { return FILTER_MGR_OK; }
  std::unique_ptr<HitsReading> ReadHits(const FiltersCommon::FiltersGroup&) override {
    return nullptr;
  }
  std::map<std::string, PortState> Ports() const override { return {}; }
};

}  // namespace host

#endif  // HOST_FILTER_MGR_MEMORY_BACKEND_H_
