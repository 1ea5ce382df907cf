// aclctl apply.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/edit_file.h"
#include "tools/aclctl/outcome.h"

namespace aclctl {
namespace {

// Tells who waits at a terminal for a large edit how far it is. Nothing elsewhere, nor for what is
// done before one has read it.
class Progress {
 public:
  explicit Progress(size_t octets) : shown_(octets >= kLarge && isatty(STDERR_FILENO) == 1) {
    if (!shown_) return;
    std::fprintf(stderr, "read: %.1f MB; the daemon checks and commits it\n",
                 static_cast<double>(octets) / (1 << 20));
  }
  // `step` is done.
  void Done(const char* step) const {
    if (!shown_) return;
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start_;
    std::fprintf(stderr, "%s after %.1f s\n", step, took.count());
  }

 private:
  static constexpr size_t kLarge = size_t{256} * 1024;

  const bool shown_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

Failure Apply(const Common& common, const EditFile& file) {
  Client client;
  std::string config;
  if (Failure failure = OpenWithEdit(common, file, &client, &config)) return failure;
  const Progress progress(config.size());
  CommitReport report;
  if (Failure failure = report.Begin(&client)) return failure;
  host::Tree reply;
  Failure failure =
      client.Call(std::string("<edit-config><target><running/></target><default-operation>") +
                      (file.replace ? "replace" : "merge") +
                      "</default-operation><error-option>rollback-on-error</error-option><config>" +
                      config + "</config></edit-config>",
                  &reply);
  if (failure.code == kRefused) {
    failure.message = "the daemon refused " + file.path + "; the configuration is unchanged";
  }
  if (!failure) progress.Done("checked and committed");
  if (failure) return failure;
  failure = report.Read(&client);
  if (common.form == Form::kJson) report.PrintJson();
  if (failure) return failure;
  progress.Done("applied");
  if (common.form == Form::kJson) return {};
  if (report.id().empty()) {
    std::puts("nothing to change");
  } else {
    std::printf("commit %s applied: %s\n", report.id().c_str(), report.in_force().c_str());
  }
  return {};
}

Run SetUp(Syntax* syntax) {
  const auto file = std::make_shared<EditFile>();
  AddEditFile(syntax, file.get());
  return [file](const Common& common) { return Apply(common, *file); };
}

}  // namespace

const Command kApply = {"apply", Group::kConfigure, "merge a configuration into the running one",
                        "aclctl apply examples/branch.json", SetUp};

}  // namespace aclctl
