// The operational state: what the process writes through the cdb_* calls (the "status" tree of
// acl-app, kept in memory), and beside it what the parts of the process build when somebody asks.
#ifndef HOST_CDB_OPERATIONAL_STORE_H_
#define HOST_CDB_OPERATIONAL_STORE_H_

#include <functional>
#include <memory>
#include <string>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"
#include "host/cdb/written_state.h"
#include "host/runtime/state_providers.h"

namespace host {

class OperationalStore {
 public:
  static std::unique_ptr<OperationalStore> Create(const ly_ctx* context);

  // What the process writes.
  WrittenState& written() { return written_; }

  // Where the state comes from that is built on demand. Until it is set there is none.
  void SetProviders(std::shared_ptr<StateProviders> providers) {
    providers_ = std::move(providers);
  }

  // Where that state comes from; null until it is set.
  const std::shared_ptr<StateProviders>& providers() const { return providers_; }

  // The state below the top-level nodes that `wanted` (module and node name) accepts, built now.
  // Nodes that are not wanted cost nothing. Null when there is no such state; null as well, with
  // the reason in `errors`, when a part of it cannot be built, or is only given in pieces and these
  // are more than what others may have to wait for.
  using Wanted = std::function<bool(const std::string& module, const std::string& node)>;
  Tree Read(const Wanted& wanted, DatastoreErrors* errors);

 private:
  explicit OperationalStore(const ly_ctx* context) : context_(context), written_(context) {}

  const ly_ctx* context_;
  WrittenState written_;
  std::shared_ptr<StateProviders> providers_;
};

}  // namespace host

#endif  // HOST_CDB_OPERATIONAL_STORE_H_
