// The Filter Manager inside the daemon's own process: the client is its front.
#include "platform/filter_mgr/filter_mgr_client.h"

#include "host/filter_mgr/group_state.h"
#include "host/filter_mgr/group_table.h"
#include "host/filter_mgr/memory_backend.h"
#include "host/limid/limid.h"
#include "host/runtime/middleware.h"
#include "host/runtime/settings.h"

namespace FilterMgrClientApi {

using FiltersCommon::FiltersGroup;

class FilterMgrClient::Impl {
 public:
  explicit Impl(qzmw_t* mw)
      : backend_(MakeBackend()), table_(backend_.get(), host::ProcessSettings().filter_capacity) {
    registration_ = host::StateProvidersOf(mw)->Add(
        {"acl-app-filters", "filters", [this](const ly_ctx* context) {
           return host::BuildGroupState(context, table_, host::InterfaceNameOf);
         }});
  }

  host::GroupTable& table() { return table_; }

 private:
  static std::unique_ptr<host::Backend> MakeBackend() {
    const std::string& name = host::ProcessSettings().filter_backend;
    if (name == "memory") return std::make_unique<host::MemoryBackend>();
    host::FatalFault(__func__, "filter_mgr", __LINE__, "unknown filter_backend \"%s\"",
                     name.c_str());
  }

  std::unique_ptr<host::Backend> backend_;
  host::GroupTable table_;
  host::StateProviders::Registration registration_;  // ends before what it shows
};

FilterMgrClient::FilterMgrClient(qzmw_t* mw, const std::string& /*name*/)
    : impl_(std::make_unique<Impl>(mw)) {}

FilterMgrClient::~FilterMgrClient() = default;

int FilterMgrClient::createGroup(FiltersGroup group) { return impl_->table().Create(group); }

int FilterMgrClient::updateGroup(const FiltersGroup& group) { return impl_->table().Update(group); }

}  // namespace FilterMgrClientApi
