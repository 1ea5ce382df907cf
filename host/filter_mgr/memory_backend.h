// The back end that enforces nothing: for trying out the daemon without privileges, and for tests.
#ifndef HOST_FILTER_MGR_MEMORY_BACKEND_H_
#define HOST_FILTER_MGR_MEMORY_BACKEND_H_

#include <map>
#include <memory>
#include <string>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/backend_names.h"

namespace host {

class MemoryBackend : public Backend {
 public:
  const char* name() const override { return kMemoryBackend; }
  FilterMgrError Prepare(const SentGroup&) override { return FILTER_MGR_OK; }
  Standing Publish() override { return {}; }
  void Discard() override {}
  const Standing& standing() const override { return standing_; }
  std::unique_ptr<HitsReading> ReadHits(GroupSlot) override { return nullptr; }
  std::map<std::string, PortState> Ports() const override { return {}; }

 private:
  const Standing standing_ = {};
};

}  // namespace host

#endif  // HOST_FILTER_MGR_MEMORY_BACKEND_H_
