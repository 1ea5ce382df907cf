// The framework: opens the datastore, serves it, and calls the handlers back.
//
// The initial load runs from the event loop, before anything else can reach the datastore. A commit
// calls the handlers from within Datastore::Edit(), after it is persistent: when the operator has
// the answer, the handlers have done their part, and what came of it can be read
// (commit_outcomes.h).
#include <chrono>
#include <cinttypes>
#include <optional>
#include <string>
#include <utility>

#include "host/cdb/calls/cdb_service.h"
#include "host/cdb/datastore.h"
#include "host/cdb/diff.h"
#include "host/cdb/operational_store.h"
#include "host/netconf/server/server.h"
#include "host/qzconfd/commit_outcomes.h"
#include "host/qzconfd/commit_state.h"
#include "host/qzconfd/daemon_state.h"
#include "host/qzconfd/diff_iteration.h"
#include "host/runtime/date_and_time.h"
#include "host/runtime/error_watch.h"
#include "host/runtime/event_loop.h"
#include "host/runtime/memory.h"
#include "host/runtime/middleware.h"
#include "host/runtime/settings.h"
#include "platform/qzconfd/qzconfd.h"

namespace qzconfd {
namespace {

using host::Datastore;
using host::DiffIteration;

constexpr char kFile[] = "app_interface";

// A difference of that many nodes is a bulk change: what it took is given back to the system soon
// after, when the client's message and its answer are gone as well.
constexpr size_t kBulkNodes = 10000;
constexpr std::chrono::milliseconds kTrimDelay{200};

// The capacity may have been lowered since the configuration was committed. What was accepted is
// enforced all the same, for the other choice were to enforce nothing; the operator has to reduce
// it.
void AcceptStored(const Datastore& datastore, host::Submissions* submissions) {
  const std::optional<uint32_t> capacity = datastore.GroupCapacity();
  for (const auto& [group, entries] : datastore.Needs()) {
    if (!capacity.has_value() || entries <= *capacity) continue;
    submissions->Accept(group, static_cast<size_t>(entries));
    host::Log(host::LogLevel::kWarning,
              "the stored configuration needs %" PRId64
              " entries in the %s group, which has room "
              "for %" PRIu32
              " (filter_capacity): it is enforced, and can only be made smaller until it fits",
              entries, group.c_str(), *capacity);
  }
}

// Says what is in doubt. What was left in force stays so then, and damaged content is not put in
// force at all; but an older configuration is better than none.
void Doubt(const host::StateDoubt& doubt, host::Submissions* submissions) {
  for (const std::string& reason : doubt.reasons)
    host::Log(host::LogLevel::kError, "the stored configuration is in doubt: %s", reason.c_str());
  const bool hold = submissions->left_in_force() != 0 || !doubt.sound || doubt.found == 0;
  if (hold) submissions->Hold("the stored configuration is in doubt: " + doubt.reasons.front());
  host::Log(host::LogLevel::kError,
            "nothing can be changed until an operator has settled that (aclctl show status, aclctl "
            "recover); %s",
            !hold                               ? "what was found is enforced meanwhile"
            : submissions->left_in_force() != 0 ? "the filters in force stay as they are"
                                                : "no filters are in force");
}

std::unique_ptr<Datastore> OpenDatastore(host::Submissions* submissions) {
  const host::Settings& settings = host::ProcessSettings();
  host::DatastoreOptions options;
  options.yang_directory = settings.yang_directory;
  options.startup_file = settings.startup_file;
  options.state_directory = settings.state_directory;
  options.history.commits = settings.history_commits;
  options.group_capacity = settings.filter_capacity;
  options.filters_in_force = submissions->left_in_force();
  host::DatastoreErrors errors;
  std::unique_ptr<Datastore> datastore = Datastore::Open(options, &errors);
  if (datastore != nullptr) {
    const host::StateDoubt doubt = datastore->Doubt();
    if (!doubt.reasons.empty()) {
      Doubt(doubt, submissions);
    } else {
      host::Log(host::LogLevel::kInfo, "configuration of transaction %" PRIu64 " loaded",
                datastore->TransactionId());
    }
    return datastore;
  }
  std::string reason;
  for (const host::DatastoreError& error : errors) {
    reason = error.message + (error.path.empty() ? "" : " at " + error.path);
    if (errors.size() > 1) host::Log(host::LogLevel::kError, "%s", reason.c_str());
  }
  if (errors.size() > 1) reason = std::to_string(errors.size()) + " errors, the last: " + reason;
  host::FailStart("cannot load the configuration: " + reason);
}

std::unique_ptr<host::NetconfServer> Listen(Datastore& datastore, qzmw_t* mw) {
  const host::Settings& settings = host::ProcessSettings();
  host::NetconfServerOptions options;
  options.socket_path = settings.netconf_socket;
  options.socket_mode = settings.netconf_socket_mode;
  options.socket_group = settings.netconf_socket_group;
  options.write_group = settings.netconf_write_group;
  options.notification_directory = settings.state_directory;
  options.events = host::EventsOf(mw);
  std::string error;
  auto server = host::NetconfServer::Create(options, datastore, host::LoopOf(mw),
                                            host::StateProvidersOf(mw), &error);
  if (server == nullptr) host::FailStart("cannot serve NETCONF: " + error);
  return server;
}

// A handler and its subscriptions.
class HandlerSubscriptions {
 public:
  HandlerSubscriptions(ConfigHandler* handler, const host::CdbSchema& schema) : handler_(handler) {
    for (const SubscriptionPoint& point : handler->GetSubscriptionPoints()) {
      host::PathResolver resolver(&schema);
      std::string error;
      const host::PathSteps* steps = resolver.Resolve(point.path, host::PathTree(), &error);
      if (steps == nullptr)
        host::FatalFault("AppInterface", kFile, __LINE__, "cannot subscribe to %s: %s", point.path,
                         error.c_str());
      points_.emplace_back(DiffIteration(&schema, *steps), point.diff_iterator);
    }
  }

  void Load(int socket) {
    handler_->LoadInitialConfig(socket);
    handler_->ApplyInitialConfig();
  }

  // Tells `origins` when a part is not taken, before what was taken is submitted.
  void OnCommit(const lyd_node* diff, host::EntryOriginSource* origins, host::CommitFacts* facts) {
    bool touched = false;
    for (const auto& [iteration, callback] : points_) touched = touched || iteration.Touched(diff);
    if (!touched) return;
    facts->handled = true;
    handler_->StartCommit();
    for (auto& [iteration, callback] : points_) {
      const DiffIteration::NotTaken not_taken = iteration.Run(diff, callback);
      if (facts->not_taken == 0) facts->first_not_taken = not_taken.first;
      facts->not_taken += not_taken.count;
    }
    if (facts->not_taken > 0) origins->Distrust();
    handler_->ApplyCommitConfig();
  }

 private:
  ConfigHandler* handler_;
  std::vector<std::pair<DiffIteration, DiffIterator>> points_;
};

}  // namespace

class AppInterface::Impl : private host::CommitObserver {
 public:
  Impl(qzmw_t* mw, const std::vector<ConfigHandler*>& config_handlers,
       const std::vector<BaseHandler*>& handlers, ELEM_CONFD_PHASE_ET phase)
      : loop_(host::LoopOf(mw)),
        submissions_(host::SubmissionsOf(mw)),
        board_(host::StatusBoardOf(mw)),
        origins_(host::OriginsOf(mw)),
        events_(host::EventsOf(mw)),
        outcomes_(events_.get()),
        datastore_(OpenDatastore(submissions_.get())),
        service_(datastore_.get()),
        interface_(service_.OpenSession(CDB_RUNNING)) {
    origins_->Set([this](const std::string& type) { return datastore_->OriginsOf(type); });
    const auto providers = host::StateProvidersOf(mw);
    datastore_->Operational().SetProviders(providers);
    shown_ = providers->Add({"acl-app-commits", "commits", [this](const ly_ctx* context) {
                               return host::BuildCommitState(context, datastore_->TransactionId(),
                                                             outcomes_);
                             }});
    board_->Show("storage", [this] { return host::StorageLine(*datastore_); });
    board_->Show("commits", [this] { return outcomes_.Line(); });
    status_ = providers->Add({"acl-app-status", "daemon", [this](const ly_ctx*) {
                                return host::BuildDaemonState(*datastore_, *board_,
                                                              submissions_->held(), started_us_);
                              }});
    for (ConfigHandler* handler : config_handlers)
      subscriptions_.emplace_back(handler, service_.schema());
    server_ = Listen(*datastore_, mw);
    for (BaseHandler* handler : handlers) {
      handler->SetInterface(&interface_);
      handler->ConfdConnected(phase);
    }
    submissions_->SetOnSettled([this](const host::Standing& standing) {
      if (outcomes_.Settle(standing)) TellStatus();
    });
    initial_load_ = loop_->Soon([this] { LoadInitial(); });
  }

  ~Impl() override {
    origins_->Set(nullptr);
    submissions_->SetOnSettled(nullptr);
    datastore_->RemoveObserver(this);
    for (const char* part : {"storage", "commits"}) board_->Show(part, nullptr);
  }

 private:
  void LoadInitial() {
    AcceptStored(*datastore_, submissions_.get());
    const std::vector<host::CommitInfo> last = datastore_->History(1);
    host::CommitInfo commit;
    if (!last.empty()) commit = last.front();
    commit.id = datastore_->TransactionId();
    Watched(commit, /*at_start=*/true, [this](host::CommitFacts* facts) {
      facts->handled = true;
      const int socket = service_.OpenSession(CDB_RUNNING);
      for (HandlerSubscriptions& subscriptions : subscriptions_) subscriptions.Load(socket);
      service_.CloseSession(socket);
    });
    datastore_->AddObserver(this);
    host::NotifyReady();
  }

  // Runs the handlers, and tells what came of it.
  template <class Run>
  void Watched(const host::CommitInfo& commit, bool at_start, const Run& run_handlers) {
    const host::LogFields fields = host::FieldsOf(commit);
    const host::ErrorWatch errors;
    host::CommitFacts facts;
    submissions_->Take();  // the creation of groups is not part of it
    const auto start = std::chrono::steady_clock::now();
    run_handlers(&facts);
    const auto took = std::chrono::steady_clock::now() - start;
    facts.sent = submissions_->Take();
    facts.errors = errors.lines();
    facts.coverage = submissions_->Covered();
    outcomes_.Add(commit, at_start, std::move(facts),
                  std::chrono::duration_cast<std::chrono::microseconds>(took));
    TellStatus();
  }

  // Tells the service manager what became of the last commit.
  void TellStatus() const {
    const host::CommitOutcome& last = outcomes_.all().back();
    std::string what = " not applied: " + last.reason;
    if (last.result == host::CommitOutcome::kApplied) what = " applied";
    if (last.result == host::CommitOutcome::kPending) what = " pending: " + last.reason;
    host::NotifyStatus("commit " + std::to_string(last.commit.id) + what);
  }

  void OnCommit(const lyd_node* diff, const host::CommitInfo& commit) override {
    Watched(commit, /*at_start=*/false, [this, diff](host::CommitFacts* facts) {
      for (HandlerSubscriptions& subscriptions : subscriptions_)
        subscriptions.OnCommit(diff, origins_.get(), facts);
    });
    if (host::CountNodes(diff) >= kBulkNodes)
      trim_ = loop_->After(kTrimDelay, [] { host::GiveBackMemory(); });
  }

  // What was held back can be put in force now, and with it the commit that ended the doubt.
  void OnRecovery(const lyd_node* diff, const host::CommitInfo& commit) override {
    Watched(commit, /*at_start=*/false, [this, diff](host::CommitFacts* facts) {
      for (HandlerSubscriptions& subscriptions : subscriptions_) {
        if (diff != nullptr) subscriptions.OnCommit(diff, origins_.get(), facts);
      }
      if (submissions_->held().empty()) return;
      submissions_->Take();  // was held back
      facts->handled = true;
      submissions_->Release();
    });
  }

  const std::shared_ptr<host::EventLoop> loop_;
  const std::shared_ptr<host::Submissions> submissions_;
  const std::shared_ptr<host::StatusBoard> board_;
  const std::shared_ptr<host::EntryOriginSource> origins_;
  const int64_t started_us_ = host::NowMicroseconds();
  const std::shared_ptr<host::Events> events_;
  host::CommitOutcomes outcomes_;
  const std::unique_ptr<Datastore> datastore_;
  host::CdbService service_;
  QzConfdInterface interface_;
  std::vector<HandlerSubscriptions> subscriptions_;
  std::unique_ptr<host::NetconfServer> server_;
  host::StateProviders::Registration shown_, status_;
  std::unique_ptr<host::Watch> initial_load_;
  std::unique_ptr<host::Watch> trim_;
};

AppInterface::AppInterface(qzmw_t* mw, zlog_category_s* /*trace*/, const char* /*name*/,
                           const std::vector<ConfigHandler*>& config_handlers,
                           const std::vector<ActionHandler*>& action_handlers,
                           const std::vector<DataHandler*>& data_handlers,
                           ELEM_CONFD_PHASE_ET phase, int /*options*/) {
  std::vector<BaseHandler*> handlers(config_handlers.begin(), config_handlers.end());
  handlers.insert(handlers.end(), action_handlers.begin(), action_handlers.end());
  handlers.insert(handlers.end(), data_handlers.begin(), data_handlers.end());
  impl_ = std::make_unique<Impl>(mw, config_handlers, handlers, phase);
}

AppInterface::~AppInterface() = default;

}  // namespace qzconfd

QzConfdCdbSessionBase::QzConfdCdbSessionBase(QzConfdInterface* interface, cdb_db_type db,
                                             bool /*flag*/)
    : socket_(-1) {
  host::CdbService* service = host::CdbService::Instance();
  if (interface != nullptr && service != nullptr) socket_ = service->OpenSession(db);
}

QzConfdCdbSessionBase::~QzConfdCdbSessionBase() {
  host::CdbService* service = host::CdbService::Instance();
  if (service != nullptr) service->CloseSession(socket_);
}
