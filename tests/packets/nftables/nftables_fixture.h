// The nftables back end in a network of its own, and what the kernel holds of it.
#ifndef TESTS_PACKETS_NFTABLES_NFTABLES_FIXTURE_H_
#define TESTS_PACKETS_NFTABLES_NFTABLES_FIXTURE_H_

#include <linux/netlink.h>

#include <memory>
#include <string>
#include <vector>

#include "host/filter_mgr/nftables/nftables_backend.h"
#include "tests/packets/backend_fixture.h"

namespace host {

class NftablesTest : public BackendTest {
 protected:
  void SetUp() override {
    BackendTest::SetUp();
    if (lab_ == nullptr) return;
    std::vector<std::string> missing;
    options_.features = ProbeKernel(&missing);
    ASSERT_TRUE(options_.features.set_pcp) << ::testing::PrintToString(missing);
    options_.names = Names();
  }

  Backend* backend() override { return backend_.get(); }

  // (Re)starts the back end: closes what there is first.
  void Open() {
    backend_.reset();
    std::string reason;
    backend_ = NftablesBackend::Open(options_, &reason);
    ASSERT_NE(nullptr, backend_) << reason;
  }

  // Puts one group in force; the number of messages written. Fails the test unless it succeeds.
  size_t Apply(const FiltersCommon::FiltersGroup& group) {
    const size_t before = backend_->writes();
    BackendTest::Apply({&group});
    return backend_->writes() - before;
  }

  // Tries to put one group in force; how it stands then.
  Standing Try(const FiltersCommon::FiltersGroup& group) {
    const FilterMgrError error = backend_->Prepare(group);
    return error == FILTER_MGR_OK ? backend_->Publish() : Standing{Standing::kRefused, error, ""};
  }

  // What the kernel holds, read by a reader of its own.
  static HeldTables ReadKernel() {
    int error = 0;
    const auto socket = OpenNetlink({NETLINK_NETFILTER, 0, 0}, &error);
    HeldTables tables;
    EXPECT_EQ(0, KernelReader(socket.get()).ReadTables(&tables));
    return tables;
  }

  // Whether the kernel's rules for the groups (either may be null) are the compiled ones, in order.
  void ExpectInKernel(const std::vector<const FiltersCommon::FiltersGroup*>& groups) {
    const HeldTables tables = ReadKernel();
    for (const auto* group : groups) {
      CompileError error;
      const auto compiled = CompileGroup(*group, nullptr, {options_.names, true}, &error);
      ASSERT_TRUE(compiled) << error.reason;
      const GroupSlot slot = SlotOf(group->getType());
      for (const std::string& port : ports_) {
        std::vector<RulePtr> want, have;
        const auto wanted = compiled->ports.find(port);
        if (wanted != compiled->ports.end()) want = wanted->second.rules;
        const auto held = tables.find(port);
        if (held != tables.end()) {
          EXPECT_TRUE(held->second.sound) << port;
          for (uint32_t number : held->second.groups[slot].order) {
            const HeldChain& chunk = held->second.groups[slot].chunks.at(number);
            for (const HeldRule& rule : chunk.rules) have.push_back(rule.rule);
          }
        }
        ASSERT_EQ(want.size(), have.size()) << port;
        for (size_t i = 0; i < want.size(); ++i) {
          ASSERT_TRUE(SameRule(*want[i], *have[i])) << port << " rule " << i;
        }
      }
    }
  }

  // Frames that the group's entry has decided so far.
  uint64_t HitsOf(const FiltersCommon::FiltersGroup& group, unsigned short id) {
    return BackendTest::HitsOf(SlotOf(group.getType()), id);
  }

  NftablesOptions options_;
  std::unique_ptr<NftablesBackend> backend_;
};

}  // namespace host

#endif  // TESTS_PACKETS_NFTABLES_NFTABLES_FIXTURE_H_
