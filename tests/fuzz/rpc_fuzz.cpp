// Fuzzes everything from the text of a message to the text of its reply, on a real datastore. Every
// reply must be well-formed, and running must stay what the datastore itself would accept.
#include <libyang/libyang.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"
#include "host/cdb/tree_pages.h"
#include "host/netconf/operations/dispatcher.h"
#include "host/runtime/event_loop.h"
#include "host/runtime/log.h"

namespace host {
namespace {

class Nobody : public SessionControl {
  bool KillSession(uint32_t, const SessionInfo&) override { return false; }
};

// Stands in for the server around the dispatcher.
class Fixture : public CommitObserver {
 public:
  Fixture() {
    std::string reason;
    if (!OpenLog("rpc_fuzz", "stderr", "error", &reason)) std::abort();
    DatastoreErrors errors;
    DatastoreOptions options;
    options.yang_directory = ACL_YANG_DIR;
    datastore_ = Datastore::Open(options, &errors);
    if (datastore_ == nullptr) std::abort();
    candidate_ = std::make_unique<Candidate>(*datastore_);
    confirmed_ = std::make_unique<ConfirmedCommit>(*datastore_, *loop_);
    dispatcher_ = std::make_unique<Dispatcher>(
        OperationContext{*datastore_, *candidate_, *confirmed_, locks_, nobody_}, *xml_, 64);
    datastore_->AddObserver(this);
  }

  // Readers keep pages of running.
  void BeforeCommit(const lyd_node* diff) override { DetachTouched(datastore_->Running(), diff); }
  void OnCommit(const lyd_node*, const CommitInfo&) override {}

  void Run(std::string message) {
    Dispatcher::Reply reply =
        dispatcher_->Handle(std::move(message), {false, true, false}, {1, "fuzz", true, log_});
    while (reply.stream != nullptr &&
           reply.stream->Next(&reply.xml) == ReplyStream::Progress::kMore) {
    }
    std::string error;
    if (xml_->Parse(reply.xml, &error) == nullptr) {
      std::fprintf(stderr, "no XML: %s\n%s\n", error.c_str(), reply.xml.c_str());
      std::abort();
    }
    if (datastore_->TransactionId() == checked_) return;
    checked_ = datastore_->TransactionId();
    CheckRunning();
  }

 private:
  void CheckRunning() {
    Tree copy = CopyTree(datastore_->Running());
    lyd_node* raw = copy.release();
    const bool valid =
        lyd_validate_all(&raw, datastore_->Context(), LYD_VALIDATE_NO_STATE, nullptr) == LY_SUCCESS;
    copy.reset(raw);
    if (!valid) std::abort();
    if (checked_ % 64 == 0) {  // keep it small
      datastore_->Edit(nullptr, {DefaultOperation::kReplace, TestOption::kSet}, {});
    }
  }

  std::unique_ptr<GenericXml> xml_ = GenericXml::Create();
  std::shared_ptr<EventLoop> loop_ = EventLoop::Create();
  std::shared_ptr<PeerLog> log_ = std::make_shared<PeerLog>(*loop_, 0, false);
  std::unique_ptr<Datastore> datastore_;
  std::unique_ptr<Candidate> candidate_;
  std::unique_ptr<ConfirmedCommit> confirmed_;
  Locks locks_;
  Nobody nobody_;
  std::unique_ptr<Dispatcher> dispatcher_;
  uint64_t checked_ = 0;
};

}  // namespace
}  // namespace host

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto* const fixture = new host::Fixture;
  fixture->Run(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
