// The operational state: what the process writes through the cdb_* calls (the "status" tree of
// acl-app, kept in memory), and beside it what the parts of the process build when somebody asks.
#ifndef HOST_CDB_OPERATIONAL_STORE_H_
#define HOST_CDB_OPERATIONAL_STORE_H_

#include <functional>
#include <memory>
#include <string>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"
#include "host/runtime/state_providers.h"

namespace host {

class OperationalStore {
 public:
  static std::unique_ptr<OperationalStore> Create(const ly_ctx* context);

  // What was written, null when nothing is. Valid until the next write.
  const lyd_node* Written() const { return written_.get(); }

  // Creates a node of `schema` below `parent`, a written one (null: at the top). `content` is the
  // value of a leaf or leaf-list element, the predicates of all keys of a list entry, null for
  // others. Null with the reason in `error` when the schema refuses it.
  const lyd_node* Create(const lyd_node* parent, const lysc_node* schema, const char* content,
                         std::string* error);
  // Gives a written leaf another value. False with the reason in `error` when the schema refuses
  // it.
  bool Change(const lyd_node* leaf, const char* value, std::string* error);
  // Deletes a written node with all below it; false when it is not part of what was written.
  bool Delete(const lyd_node* node);
  // Grows with every change of what was written.
  uint64_t generation() const { return generation_; }
  // Grows whenever nodes go: until then a pointer to a written node stays good.
  uint64_t losses() const { return losses_; }

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
  Tree Read(const Wanted& wanted, DatastoreErrors* errors) const;

 private:
  explicit OperationalStore(const ly_ctx* context) : context_(context) {}

  bool Succeeded(LY_ERR result, std::string* error) const;

  const ly_ctx* context_;
  Tree written_;
  uint64_t generation_ = 1, losses_ = 1;
  std::shared_ptr<StateProviders> providers_;
};

}  // namespace host

#endif  // HOST_CDB_OPERATIONAL_STORE_H_
