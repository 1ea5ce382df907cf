// Back ends in a network of their own. Each back end that enforces anything has a row in
// BackendsUnderTest(), and tests that are every back end's run over all of them.
#ifndef TESTS_PACKETS_BACKEND_FIXTURE_H_
#define TESTS_PACKETS_BACKEND_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/port_names.h"
#include "tests/host/filter_mgr/captured_log.h"
#include "tests/host/filter_mgr/groups_for_test.h"
#include "tests/packets/frames.h"
#include "tests/packets/packet_lab.h"
#include "tests/packets/reference.h"

namespace host {

constexpr FiltersCommon::filtersGroupType_t kL2Type = FiltersCommon::FILTERS_GROUP_TYPE_L2;
constexpr FiltersCommon::filtersGroupType_t kL3Type = FiltersCommon::FILTERS_GROUP_TYPE_L3;

struct BackendUnderTest {
  const char* name;
  // Opens it in the network namespace of the process; null, with the reason, where the kernel does
  // not have what it takes.
  std::unique_ptr<Backend> (*open)(const PortNames& names, std::string* why_not);
};
const std::vector<BackendUnderTest>& BackendsUnderTest();

class BackendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why_not;
    lab_ = PacketLab::Create(&why_not);
    if (lab_ == nullptr) GTEST_SKIP() << why_not;
    CapturedLog().clear();
  }

  // Names of the ports by logical interface id, from 1.
  PortNames Names() {
    return [this](limid_t id) { return id <= ports_.size() ? ports_[id - 1] : std::string(); };
  }
  virtual Backend* backend() = 0;

  // Puts the groups in force in one switch. Fails the test unless that succeeds.
  void Apply(const std::vector<const FiltersCommon::FiltersGroup*>& groups) {
    for (const auto* group : groups) {
      EXPECT_EQ(FILTER_MGR_OK, backend()->Prepare(*group))
          << ::testing::PrintToString(CapturedLog());
    }
    const Standing standing = backend()->Publish();
    EXPECT_EQ(Standing::kInForce, standing.state)
        << standing.reason << ::testing::PrintToString(CapturedLog());
  }

  // Frames that an entry of the group in force has decided so far.
  uint64_t HitsOf(GroupSlot slot, unsigned short id) {
    const auto reading = backend()->ReadHits(slot);
    if (reading == nullptr) return ADD_FAILURE() << "hits are not counted", 0;
    while (reading->Next() == HitsReading::Progress::kMore) {
    }
    return reading->hits.at(id).packets;
  }

  std::unique_ptr<PacketLab> lab_;
  std::vector<std::string> ports_ = {"p1", "p2", "p3"};
};

// A test of what every back end does. The parameter is a row of BackendsUnderTest() and one of the
// test's own.
template <class Own>
class EveryBackendTest : public BackendTest,
                         public ::testing::WithParamInterface<std::tuple<BackendUnderTest, Own>> {
 protected:
  Backend* backend() override { return backend_.get(); }
  Own own_parameter() const { return std::get<1>(this->GetParam()); }

  // To be called when the ports are there.
  void Open() {
    std::string why_not;
    backend_ = std::get<0>(this->GetParam()).open(Names(), &why_not);
    if (backend_ == nullptr) GTEST_SKIP() << why_not;
  }

  std::unique_ptr<Backend> backend_;
};

}  // namespace host

#endif  // TESTS_PACKETS_BACKEND_FIXTURE_H_
