// A kernel back end in a network of its own.
#ifndef TESTS_PACKETS_KERNEL_FIXTURE_H_
#define TESTS_PACKETS_KERNEL_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>

#include <memory>
#include <string>
#include <vector>

#include "host/filter_mgr/nftables/nftables_backend.h"
#include "tests/host/filter_mgr/captured_log.h"
#include "tests/host/filter_mgr/groups_for_test.h"
#include "tests/packets/frames.h"
#include "tests/packets/packet_lab.h"
#include "tests/packets/reference.h"

namespace host {

constexpr FiltersCommon::filtersGroupType_t kL2Type = FiltersCommon::FILTERS_GROUP_TYPE_L2;
constexpr FiltersCommon::filtersGroupType_t kL3Type = FiltersCommon::FILTERS_GROUP_TYPE_L3;

class KernelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why_not;
    lab_ = PacketLab::Create(&why_not);
    if (lab_ == nullptr) GTEST_SKIP() << why_not;
    std::vector<std::string> missing;
    options_.features = ProbeKernel(&missing);
    ASSERT_TRUE(options_.features.set_pcp) << ::testing::PrintToString(missing);
    options_.names = [this](limid_t id) {
      return id <= ports_.size() ? ports_[id - 1] : std::string();
    };
    CapturedLog().clear();
  }

  // (Re)starts the back end: closes what there is first.
  void Open() {
    backend_.reset();
    std::string reason;
    backend_ = NftablesBackend::Open(options_, &reason);
    ASSERT_NE(nullptr, backend_) << reason;
  }

  // Applies; the number of messages written. Fails the test unless it succeeds.
  size_t Apply(const FiltersCommon::FiltersGroup& group) {
    const size_t before = backend_->writes();
    EXPECT_EQ(FILTER_MGR_OK, backend_->Apply(group)) << ::testing::PrintToString(CapturedLog());
    return backend_->writes() - before;
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
    const auto reading = backend_->ReadHits(group);
    if (reading == nullptr) return ADD_FAILURE() << "hits are not counted", 0;
    HitsReading::Progress progress;
    while ((progress = reading->Next()) == HitsReading::Progress::kMore) {
    }
    EXPECT_EQ(HitsReading::Progress::kDone, progress);
    return reading->hits.at(id).packets;
  }

  std::unique_ptr<PacketLab> lab_;
  std::vector<std::string> ports_ = {"p1", "p2", "p3"};  // by logical interface id, from 1
  NftablesOptions options_;
  std::unique_ptr<NftablesBackend> backend_;
};

}  // namespace host

#endif  // TESTS_PACKETS_KERNEL_FIXTURE_H_
