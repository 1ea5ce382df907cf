#include "app/application.h"

#include <new>
#include <vector>

#include "app/fault.h"
#include "confd/confd_manager.h"

namespace acl_app {
namespace {

const char kName[] = "acl";  // of the client, the trace category and the framework object
constexpr auto kPhase = static_cast<ELEM_CONFD_PHASE_ET>(2);
constexpr int kOptions = 0;

}  // namespace

Application::Application(std::string name) : owner_(true), filter_mgr_client_(nullptr) {
  qzmw_ = qzmw_init(name.c_str());
  if (qzmw_ == nullptr) {
    RaiseFatalFault("Application", "application", __LINE__, "acl_app could not instantiate qzmw_");
  }
  filter_mgr_client_ = new (std::nothrow) FilterMgrClientApi::FilterMgrClient(qzmw_, kName);
  if (filter_mgr_client_ == nullptr) {
    RaiseFatalFault("Application", "application", __LINE__,
                    "Filter Manager Client could not be instantiated");
  }
  init(qzmw_, filter_mgr_client_);
}

Application::Application(qzmw_t* mw, FilterMgrClientApi::FilterMgrClient* fmc)
    : owner_(false), qzmw_(mw), filter_mgr_client_(fmc) {
  init(mw, fmc);
}

Application::~Application() {
  if (owner_) {
    delete filter_mgr_client_;
    if (qzmw_ != nullptr) qzmw_finish(&qzmw_);
  }
}

void Application::init(qzmw_t* mw, FilterMgrClientApi::FilterMgrClient* /*fmc*/) {
  log_.reset(new (std::nothrow) AclLog(qzmw_));
  if (!log_) {
    RaiseFault("init", "application", __LINE__, "acl_app could not instantiate log_");
  }
  AclLog::SendDebug("Initializing ACL Application");
  trace_ = qzmw_trace_init(mw, kName);

  confd_manager_.reset(new (std::nothrow) ConfDManager(trace_, filter_mgr_client_));
  if (!confd_manager_) {
    RaiseFatalFault("init", "application", __LINE__, "could not instantiate ConfDManager");
  }
  {
    const std::vector<qzconfd::ConfigHandler*> config_handlers = {confd_manager_.get()};
    const std::vector<qzconfd::ActionHandler*> action_handlers;
    const std::vector<qzconfd::DataHandler*> data_handlers;
    app_interface_.reset(new (std::nothrow) qzconfd::AppInterface(
        qzmw_, trace_, kName, config_handlers, action_handlers, data_handlers, kPhase, kOptions));
  }
  if (!app_interface_) {
    RaiseFatalFault("init", "application", __LINE__, "could not instantiate AppInterface");
  }
  running_ = true;
}

int Application::Listen() { return qzmw_loop_while(qzmw_, &running_); }

}  // namespace acl_app
