// The Filter Manager inside the daemon's own process: the client is its front.
#include "platform/filter_mgr/filter_mgr_client.h"

#include <sys/epoll.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "host/filter_mgr/group_state.h"
#include "host/filter_mgr/group_table.h"
#include "host/filter_mgr/memory_backend.h"
#include "host/filter_mgr/nftables/nftables_backend.h"
#include "host/limid/limid.h"
#include "host/runtime/middleware.h"
#include "host/runtime/settings.h"

namespace FilterMgrClientApi {
namespace {

using FiltersCommon::FiltersGroup;

std::unique_ptr<host::NftablesBackend> OpenNftablesBackend() {
  host::NftablesOptions options;
  options.names = host::InterfaceNameOf;
  std::vector<std::string> missing;
  options.features = host::ProbeKernel(&missing);
  for (const std::string& line : missing) Log(host::LogLevel::kWarning, "%s", line.c_str());
  std::string reason;
  auto backend = host::NftablesBackend::Open(options, &reason);
  if (backend == nullptr) {
    host::FailStart(reason + " (\"filter_backend = memory\" does without)");
  }
  return backend;
}

// Lets the back end hear what the kernel announces, and try again what failed.
class KernelWatch {
 public:
  KernelWatch(host::NftablesBackend* backend, std::shared_ptr<host::EventLoop> loop)
      : backend_(backend), loop_(std::move(loop)) {
    for (int fd : backend->fds()) {
      watches_.push_back(loop_->OnIo(fd, EPOLLIN, [this](uint32_t) { Poll(); }));
    }
  }

  // To be called after each update.
  void AfterUpdate() {
    if (backend_->Pending() && retry_ == nullptr) Retry();
  }

 private:
  static constexpr std::chrono::seconds kFirstDelay{1}, kLongestDelay{60};

  void Poll() {
    retry_.reset();
    if (!backend_->Poll()) return Retry();
    delay_ = kFirstDelay;
  }

  void Retry() {
    retry_ = loop_->After(delay_, [this] { Poll(); });
    delay_ = std::min(2 * delay_, kLongestDelay);
  }

  host::NftablesBackend* backend_;
  std::shared_ptr<host::EventLoop> loop_;
  std::vector<std::unique_ptr<host::Watch>> watches_;
  std::unique_ptr<host::Watch> retry_;
  std::chrono::seconds delay_ = kFirstDelay;  // until the next attempt after a failure
};

}  // namespace

class FilterMgrClient::Impl {
 public:
  ~Impl() { submissions_->OnRelease(nullptr); }
  explicit Impl(qzmw_t* mw)
      : loop_(host::LoopOf(mw)),
        backend_(MakeBackend()),
        table_(backend_.get(), host::ProcessSettings().filter_capacity),
        submissions_(host::SubmissionsOf(mw)) {
    if (auto* kernel = dynamic_cast<host::NftablesBackend*>(backend_.get())) {
      watch_.emplace(kernel, loop_);
    }
    submissions_->SetLeftInForce(backend_->Left());
    submissions_->OnRelease([this] {
      for (const auto& [type, group] : std::exchange(held_, {})) Update(group);
    });
    registration_ = host::StateProvidersOf(mw)->Add(
        {"acl-app-filters", "filters",
         [this](const ly_ctx* context) {
           return host::BuildGroupState(context, table_, host::InterfaceNameOf);
         },
         [this] { return host::OpenGroupState(table_, host::InterfaceNameOf, alive_); }});
  }

  int Create(const FiltersGroup& group) { return Answer(table_.Create(group)); }
  // A group that is held back is taken all the same, for after a refusal the core sends no other:
  // the record of the commit tells that it is not in force.
  int Update(const FiltersGroup& group) {
    const char* const type = group.getType() == FiltersCommon::FILTERS_GROUP_TYPE_L2 ? "l2" : "l3";
    const size_t entries = group.getEntriesRef().size();
    if (!submissions_->held().empty()) {
      held_.insert_or_assign(group.getType(), group);
      submissions_->Add({type, entries, host::FILTER_MGR_ERR_HELD,
                         host::FilterMgrErrorText(host::FILTER_MGR_ERR_HELD)});
      return host::FILTER_MGR_OK;
    }
    table_.Accept(group.getType(), submissions_->accepted(type));
    const host::FilterMgrError result = table_.Update(group);
    submissions_->Add({type, entries, result,
                       result == host::FILTER_MGR_OK ? "" : host::FilterMgrErrorText(result)});
    return Answer(result);
  }

 private:
  static std::unique_ptr<host::Backend> MakeBackend() {
    const std::string& name = host::ProcessSettings().filter_backend;
    if (name == "memory") return std::make_unique<host::MemoryBackend>();
    if (name == "kernel") return OpenNftablesBackend();
    host::FatalFault(__func__, "filter_mgr", __LINE__, "unknown filter_backend \"%s\"",
                     name.c_str());
  }

  int Answer(host::FilterMgrError result) {
    if (watch_) watch_->AfterUpdate();
    idle_ = loop_->Soon([this] { backend_->Idle(); });
    return result;
  }

  std::shared_ptr<host::EventLoop> loop_;
  // Destroyed in reverse: what is shown goes before what it shows, watches before their back end.
  std::unique_ptr<host::Backend> backend_;
  host::GroupTable table_;
  std::shared_ptr<host::Submissions> submissions_;
  std::map<FiltersCommon::filtersGroupType_t, FiltersGroup> held_;  // not to be put in force yet
  std::optional<KernelWatch> watch_;
  std::unique_ptr<host::Watch> idle_;
  std::shared_ptr<const void> alive_ = std::make_shared<char>();
  host::StateProviders::Registration registration_;
};

FilterMgrClient::FilterMgrClient(qzmw_t* mw, const std::string& /*name*/)
    : impl_(std::make_unique<Impl>(mw)) {}

FilterMgrClient::~FilterMgrClient() = default;

int FilterMgrClient::createGroup(FiltersGroup group) { return impl_->Create(group); }

int FilterMgrClient::updateGroup(const FiltersGroup& group) { return impl_->Update(group); }

}  // namespace FilterMgrClientApi
