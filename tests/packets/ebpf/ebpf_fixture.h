// A back end of tables in a network and a BPF file system of its own.
#ifndef TESTS_PACKETS_EBPF_EBPF_FIXTURE_H_
#define TESTS_PACKETS_EBPF_EBPF_FIXTURE_H_

#include <net/if.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "host/filter_mgr/ebpf/ebpf_backend.h"
#include "host/filter_mgr/entry_text.h"
#include "tests/packets/backend_fixture.h"
#include "tests/packets/ebpf/bpf_lab.h"

namespace host {

class EbpfTest : public BackendTest {
 protected:
  using Groups = std::vector<const FiltersCommon::FiltersGroup*>;

  void SetUp() override {
    std::string why_not;
    options_.directory = PrivateBpfFs(&why_not);
    if (options_.directory.empty()) GTEST_SKIP() << why_not;
    BackendTest::SetUp();
    options_.directory += "/acl-app";
    options_.names = Names();
  }

  static void AddPort(const std::string& port) {
    PacketLab::Run("ip link add " + port + " type veth peer name " + port +
                   "-peer && ip link set " + port + " up && ip link set " + port + "-peer up");
  }

  // (Re)starts the back end: closes what there is first.
  void Open() {
    ebpf_.reset();
    std::string reason;
    ebpf_ = EbpfBackend::Open(options_, &reason);
    ASSERT_NE(nullptr, ebpf_) << reason;
  }

  Backend* backend() override { return ebpf_.get(); }

  // Puts the groups in force; the number of publications that changed anything.
  size_t WritesOf(const Groups& groups) {
    const size_t before = ebpf_->writes();
    Apply(groups);
    return ebpf_->writes() - before;
  }

  // Puts the frames to the program as if they came in through a port, and compares what becomes of
  // them with the reference.
  void ExpectAsReference(const Groups& groups, limid_t port, const std::vector<Frame>& frames) {
    const auto interface = static_cast<int>(if_nametoindex(ports_[port - 1].c_str()));
    for (const Frame& frame : frames) {
      const ProgramRun run = RunProgram(ebpf_->store().program(), interface, frame);
      const std::optional<Frame> want = ReferenceFilter(groups, port, frame);
      ASSERT_EQ(want.has_value(), run.passed) << Describe(groups, frame);
      if (want) {
        ASSERT_EQ(*want, run.frame) << Describe(groups, frame);
      }
    }
  }

  static std::string Describe(const Groups& groups, const Frame& frame) {
    std::string text = "frame " + ::testing::PrintToString(frame);
    for (const auto* group : groups) {
      for (const auto& [id, entry] : group->getEntriesRef()) text += "\n" + EntryText(entry);
    }
    return text;
  }

  // Lets the grace periods pass that something waits for.
  void Settle() {
    for (int i = 0; i < 4; ++i) {
      ebpf_->Idle();
      usleep(30000);
      ebpf_->Poll();
    }
  }

  EbpfOptions options_;
  std::unique_ptr<EbpfBackend> ebpf_;
};

}  // namespace host

#endif  // TESTS_PACKETS_EBPF_EBPF_FIXTURE_H_
