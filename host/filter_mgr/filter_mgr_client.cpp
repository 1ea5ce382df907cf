// The Filter Manager inside the daemon's own process: the client is its front.
#include "platform/filter_mgr/filter_mgr_client.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host/filter_mgr/backends.h"
#include "host/filter_mgr/filters_line.h"
#include "host/filter_mgr/flush.h"
#include "host/filter_mgr/group_state.h"
#include "host/filter_mgr/group_summary.h"
#include "host/filter_mgr/group_table.h"
#include "host/filter_mgr/hits_answer.h"
#include "host/filter_mgr/interface_state.h"
#include "host/filter_mgr/interface_watch.h"
#include "host/filter_mgr/linux/link_state.h"
#include "host/filter_mgr/origin_hits.h"
#include "host/filter_mgr/trace_operation.h"
#include "host/limid/limid.h"
#include "host/runtime/middleware.h"
#include "host/runtime/settings.h"

namespace FilterMgrClientApi {
namespace {

using FiltersCommon::FiltersGroup;

host::OpenedBackend OpenBackend() {
  const std::string& setting = host::ProcessSettings().filter_backend;
  host::OpenedBackend opened = host::OpenBackend(setting, host::InterfaceNameOf);
  if (opened.backend == nullptr) {
    host::FailStart(opened.why +
                    " (\"filter_backend = memory\" filters nothing and needs no privileges)");
  }
  Log(opened.second_best || !opened.enforces ? host::LogLevel::kWarning : host::LogLevel::kInfo,
      "filters are enforced by %s: %s", opened.enforces ? opened.backend->name() : "nothing",
      opened.why.c_str());
  return opened;
}

host::LeftInForce FindLeft(const host::OpenedBackend& opened) {
  host::LeftInForce left{opened.backend->Left(), host::LeftByBackends(opened.backend->name())};
  if (left.own != 0) {
    Log(host::LogLevel::kInfo, "an earlier run has left filters on %zu ports", left.own);
  }
  for (const auto& [backend, filters] : left.others) {
    const char* const until = !filters.out_of_reach.empty() ? filters.out_of_reach.c_str()
                              : opened.enforces             ? "until the groups are in force"
                                                            : "\"aclctl flush\" removes them";
    Log(host::LogLevel::kInfo, "an earlier run has left filters of %s on %zu ports: they stay (%s)",
        backend.c_str(), filters.ports, until);
  }
  return left;
}

// Lets the back end hear what the kernel announces, and try again what failed.
class BackendWatch {
 public:
  // Neither is owned but the loop. `on_polled` is called whenever the back end has done something,
  // with how the groups stand that were taken last if that has changed.
  using OnPolled = std::function<void(const std::optional<host::Standing>& changed)>;
  BackendWatch(host::GroupTable* table, std::shared_ptr<host::EventLoop> loop, OnPolled on_polled)
      : table_(table), loop_(std::move(loop)), on_polled_(std::move(on_polled)) {
    for (int fd : table->backend().fds()) {
      watches_.push_back(loop_->OnIo(fd, EPOLLIN, [this](uint32_t) { Poll(); }));
    }
  }

  // Attempts to put in force what had failed before.
  uint64_t retries() const { return retries_; }

  // To be called after each update.
  void AfterUpdate() {
    if (retry_ != nullptr || !table_->backend().Pending()) return;
    delay_ = kFirstDelay;
    Retry();
  }

 private:
  // What stands in the way of an update is often gone at once; and a port may be open meanwhile.
  static constexpr std::chrono::milliseconds kFirstDelay{10}, kLongestDelay{5000};

  void Poll() {
    retry_.reset();
    std::optional<host::Standing> changed;
    const bool done = table_->Poll(&changed);
    on_polled_(changed);
    if (!done) return Retry();
    delay_ = kFirstDelay;
  }

  void Retry() {
    retry_ = loop_->After(delay_, [this] {
      ++retries_;
      Poll();
    });
    delay_ = std::min(2 * delay_, kLongestDelay);
  }

  host::GroupTable* table_;
  std::shared_ptr<host::EventLoop> loop_;
  OnPolled on_polled_;
  std::vector<std::unique_ptr<host::Watch>> watches_;
  std::unique_ptr<host::Watch> retry_;
  uint64_t retries_ = 0;
  std::chrono::milliseconds delay_ = kFirstDelay;  // until the next attempt after a failure
};

}  // namespace

class FilterMgrClient::Impl : private host::FilterControl {
 public:
  explicit Impl(qzmw_t* mw)
      : loop_(host::LoopOf(mw)),
        opened_(OpenBackend()),
        left_(FindLeft(opened_)),
        events_(host::EventsOf(mw)),
        table_(opened_.backend.get(), host::ProcessSettings().filter_capacity, opened_.why,
               host::ProcessSettings().filter_threshold_l2,
               host::ProcessSettings().filter_threshold_l3, events_.get(),
               host::ProcessSettings().state_directory),
        interface_watch_(*opened_.backend, host::ReadLinkStates, *loop_, *events_),
        submissions_(host::SubmissionsOf(mw)),
        origins_(host::OriginsOf(mw)),
        board_(host::StatusBoardOf(mw)),
        providers_(host::StateProvidersOf(mw)),
        watch_(&table_, loop_, [this](const std::optional<host::Standing>& changed) {
          if (changed) {
            NoteInForce(*changed);
            submissions_->Settle(*changed);
          }
          TakeOver();
          interface_watch_.MayHaveChanged();
        }) {
    opened_.backend->SetEvents(events_.get());
    registration_ = providers_->Add(
        {"acl-app-filters", "filters",
         [this](const ly_ctx* context) {
           return host::BuildGroupState(context, table_, host::InterfaceNameOf);
         },
         [this] { return host::OpenGroupState(table_, host::InterfaceNameOf, alive_); }});
    interfaces_ =
        providers_->Add({"acl-app-filters", "interfaces", [this](const ly_ctx* context) {
                           return host::BuildInterfaceState(context, table_, host::InterfaceNameOf,
                                                            host::ReadLinkStates());
                         }});
    summary_ = providers_->Add({"acl-app-filters", "groups",
                                [this](const ly_ctx* context) {
                                  return host::BuildGroupSummary(context, table_, watch_.retries());
                                },
                                [this] {
                                  return host::OpenGroupSummary(
                                      table_, [this] { return watch_.retries(); }, alive_);
                                }});
    providers_->SetLongAnswer(kGetHits, [this](const lyd_node* input) {
      return host::AnswerHits(input, table_, alive_);
    });
    providers_->SetHits([this] {
      return host::ReadOriginHits(
          table_, [this] { return origins_->trusted(); }, alive_);
    });
    providers_->SetAnswer(kTrace, [this](const lyd_node* input, std::string* error) {
      return host::AnswerTrace(input, table_, host::InterfaceNameOf, error);
    });
    submissions_->SetLeftInForce(PortsLeft());
    submissions_->SetControl(this);
    board_->Show(kPart, [this] { return host::FiltersLine(opened_, table_, left_); });
    board_->Show(kGroupsPart, [this] { return host::GroupsLine(table_); });
  }
  ~Impl() override {
    for (const char* part : {kPart, kGroupsPart}) board_->Show(part, nullptr);
    providers_->SetAnswer(kTrace, nullptr);
    providers_->SetLongAnswer(kGetHits, nullptr);
    providers_->SetHits(nullptr);
    submissions_->SetControl(nullptr);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  int Create(const FiltersGroup& group) {
    const host::FilterMgrError result = table_.Create(Sent(group));
    Afterwards();
    return result;
  }

  // A group that is taken and not in force yet is answered as taken: nothing that the client could
  // do would help, and what it tells its users of the group's size holds as soon as the group is in
  // force. What it is not told stands in the record of the commit, which says "pending" until then.
  int Update(const FiltersGroup& group) {
    const char* const type = TypeOf(group);
    submissions_->Add({type, group.getEntriesRef().size(), {}});
    table_.Accept(group.getType(), submissions_->accepted(type));
    if (!submissions_->held().empty()) table_.Hold(submissions_->held());
    // What is replaced goes when the answer is out.
    for (const auto& [key, held] : table_.groups()) retired_.push_back(held);
    const std::optional<host::Standing> standing = table_.Update(Sent(group));
    Resolve(standing);
    Afterwards();
    return standing ? standing->error : host::FILTER_MGR_OK;
  }

 private:
  static constexpr char kPart[] = "filters", kGroupsPart[] = "groups";  // of the status board
  static constexpr char kTrace[] = "trace", kGetHits[] = "get-hits";    // operations

  // FilterControl.
  void Finish() override { Resolve(table_.Finish()); }
  void Release() override {
    for (const auto& [key, group] : table_.pending()) {
      submissions_->Add({TypeOf(group.content()), group->getEntriesRef().size(), {}});
    }
    Resolve(table_.Release());
    Afterwards();
  }
  host::Coverage Covered() const override {
    host::Coverage coverage;
    for (const auto& [name, state] : opened_.backend->Ports()) {
      ++coverage.interfaces;
      coverage.in_force += state == host::PortState::kEnforced ? 1 : 0;
    }
    return coverage;
  }

  host::SentGroup Sent(const FiltersGroup& group) const {
    return {group, origins_->Of(TypeOf(group)), host::InterfaceNameOf};
  }

  static const char* TypeOf(const FiltersGroup& group) {
    return group.getType() == FiltersCommon::FILTERS_GROUP_TYPE_L2 ? "l2" : "l3";
  }

  void Resolve(const std::optional<host::Standing>& standing) {
    if (!standing) return;
    NoteInForce(*standing);
    constexpr host::FilterMgrError kWithdrawn = host::FILTER_MGR_ERR_WITHDRAWN;
    submissions_->Resolve(
        *standing, {host::Standing::kRefused, kWithdrawn, host::FilterMgrErrorText(kWithdrawn)});
    watch_.AfterUpdate();
  }

  void Afterwards() {
    watch_.AfterUpdate();
    idle_ = loop_->Soon([this] {
      Finish();
      retired_.clear();
      TakeOver();
      interface_watch_.MayHaveChanged();
      opened_.backend->Idle();
    });
  }

  // Ports that are filtered at the start, and that this process could change. Nothing that is kept
  // in memory does: so it need not be what the filters came from.
  size_t PortsLeft() const {
    size_t ports = left_.own;
    for (const auto& [backend, filters] : left_.others) {
      if (opened_.enforces && filters.out_of_reach.empty()) ports += filters.ports;
    }
    return ports;
  }

  void NoteInForce(const host::Standing& standing) {
    const bool in_force = standing.taken() && standing.state != host::Standing::kPending;
    updated_ = updated_ || in_force;
    if (in_force) left_.own = 0;
  }

  // What another back end left in force goes once all of this one's filters are in force, not
  // before: so a change of back end has no moment without a filter, and no port without one.
  void TakeOver() {
    if (taken_over_ || !opened_.enforces || !updated_ || !submissions_->held().empty()) return;
    if (opened_.backend->standing().state != host::Standing::kInForce) return;
    if (take_over_again_ != nullptr) return;
    host::LeftFilters filters;
    const int error = host::FlushBackends(opened_.backend->name(), &filters);
    if (error != 0) return TakeOverLater(error, filters);
    taken_over_ = true;
    left_.others.clear();
    if (filters.ports > 0) {
      Log(host::LogLevel::kInfo, "the filters of another back end are removed from %zu interfaces",
          filters.ports);
    }
  }

  // Whatever stands in the way may pass: a shortage, or somebody who has the lock.
  void TakeOverLater(int error, const host::LeftFilters& filters) {
    constexpr std::chrono::milliseconds kFirstDelay{50}, kLongestDelay{10000};
    if (error != take_over_error_) {
      Log(host::LogLevel::kWarning,
          "the filters of another back end, if there are any, cannot be removed: %s; it is tried "
          "again (\"aclctl flush\" removes all, while no daemon runs)",
          filters.out_of_reach.empty() ? std::strerror(-error) : filters.out_of_reach.c_str());
    }
    take_over_error_ = error;
    take_over_delay_ = std::clamp(2 * take_over_delay_, kFirstDelay, kLongestDelay);
    take_over_again_ = loop_->After(take_over_delay_, [this] {
      take_over_again_.reset();
      TakeOver();
    });
  }

  std::shared_ptr<host::EventLoop> loop_;
  // Destroyed in reverse: what is shown goes before what it shows, watches before their back end.
  host::OpenedBackend opened_;
  host::LeftInForce left_;
  std::shared_ptr<host::Events> events_;
  host::GroupTable table_;
  host::InterfaceWatch interface_watch_;
  std::vector<host::SentGroup> retired_;  // that were in force since the loop was idle last
  std::shared_ptr<host::Submissions> submissions_;
  std::shared_ptr<host::EntryOriginSource> origins_;
  std::shared_ptr<host::StatusBoard> board_;
  std::shared_ptr<host::StateProviders> providers_;
  BackendWatch watch_;
  bool updated_ = false;     // groups came into force since the start; until then what was left is
  bool taken_over_ = false;  // what other back ends had left
  int take_over_error_ = 0;  // why that has failed last, a negative errno
  std::chrono::milliseconds take_over_delay_{0};
  std::unique_ptr<host::Watch> take_over_again_;
  std::unique_ptr<host::Watch> idle_;
  std::shared_ptr<const void> alive_ = std::make_shared<char>();
  host::StateProviders::Registration registration_, interfaces_, summary_;
};

FilterMgrClient::FilterMgrClient(qzmw_t* mw, const std::string& /*name*/)
    : impl_(std::make_unique<Impl>(mw)) {}

FilterMgrClient::~FilterMgrClient() = default;

int FilterMgrClient::createGroup(FiltersGroup group) { return impl_->Create(group); }

int FilterMgrClient::updateGroup(const FiltersGroup& group) { return impl_->Update(group); }

}  // namespace FilterMgrClientApi
