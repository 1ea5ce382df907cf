// A kernel that gives no maps or programs: what passes is tried again, what lasts is refused, and
// what is in force stays so.
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <dlfcn.h>

#include <cerrno>
#include <cstring>
#include <random>

#include "tests/packets/ebpf/ebpf_fixture.h"

namespace {

// From the `left`-th call on each fails with `error`; 0: none does.
struct Fault {
  int error = 0, left = 0;
  bool Strikes() { return error != 0 && left-- <= 0; }
} map_fault, load_fault;

template <class F>
F* Real(const char* name) {
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// In place of libbpf's.
int bpf_map_create(bpf_map_type type, const char* name, uint32_t key_size, uint32_t value_size,
                   uint32_t entries, const bpf_map_create_opts* options) {
  static auto* const real = Real<decltype(bpf_map_create)>("bpf_map_create");
  if (!map_fault.Strikes()) return real(type, name, key_size, value_size, entries, options);
  errno = map_fault.error;
  return -errno;
}
int bpf_object__load(bpf_object* object) {
  static auto* const real = Real<decltype(bpf_object__load)>("bpf_object__load");
  return load_fault.Strikes() ? -load_fault.error : real(object);
}

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT

class ShortageTest : public EbpfTest {
 protected:
  void SetUp() override {
    EbpfTest::SetUp();
    if (lab_ != nullptr) AddPort("p1");
  }
  void TearDown() override { map_fault = load_fault = {}; }

  static FiltersGroup Content(filtersGroupType_t type, size_t size) {
    std::mt19937 random(7);
    std::vector<PlacedEntry> entries;
    for (size_t i = 0; i < size; ++i) entries.push_back({RandomEntry(&random), {1}});
    return GroupOf(type, entries);
  }

  // Starts anew with the small groups in force, and prepares and publishes a larger one by a kernel
  // with the fault.
  Standing Grow(Fault* fault, Fault how) {
    ebpf_.reset();
    map_fault = load_fault = {};
    RemovePins(options_.directory);
    Open();
    Apply({&l2_, &small_});
    *fault = how;
    const FilterMgrError error = ebpf_->Prepare(large_);
    if (error != FILTER_MGR_OK) return {Standing::kRefused, error, CapturedLog().back()};
    return ebpf_->Publish();
  }

  const std::vector<Frame> frames_ = AllFrames();
  const FiltersGroup l2_ = Content(kL2Type, 10), small_ = Content(kL3Type, 10),
                     large_ = Content(kL3Type, 500);
};

TEST_F(ShortageTest, AShortageIsTriedAgain) {
  for (Fault* fault : {&load_fault, &map_fault}) {
    for (int call = 0;; ++call) {
      const Standing standing = Grow(fault, {ENOMEM, call});
      if (fault->left >= 0) break;  // so many calls there are not
      SCOPED_TRACE(call);
      ASSERT_EQ(Standing::kPending, standing.state) << standing.reason;
      EXPECT_NE(std::string::npos, standing.reason.find(strerror(ENOMEM))) << standing.reason;
      EXPECT_TRUE(ebpf_->Pending());
      EXPECT_FALSE(ebpf_->Poll()) << "still short";
      EXPECT_EQ(standing, ebpf_->standing());
      ExpectAsReference({&l2_, &small_}, 1, frames_);
      *fault = {};
      EXPECT_TRUE(ebpf_->Poll());
      EXPECT_EQ(Standing::kInForce, ebpf_->standing().state);
      EXPECT_FALSE(ebpf_->Pending());
      ExpectAsReference({&l2_, &large_}, 1, frames_);
    }
  }
}

TEST_F(ShortageTest, WhatLastsIsRefusedByItsCause) {
  const std::pair<int, FilterMgrError> cases[] = {{EPERM, FILTER_MGR_ERR_PRIVILEGE},
                                                  {EINVAL, FILTER_MGR_ERR_KERNEL}};
  for (Fault* fault : {&load_fault, &map_fault}) {
    for (const auto& [error, code] : cases) {
      const Standing standing = Grow(fault, {error, 0});
      EXPECT_EQ(Standing::kRefused, standing.state);
      EXPECT_EQ(code, standing.error);
      EXPECT_NE(std::string::npos, standing.reason.find(strerror(error))) << standing.reason;
      EXPECT_FALSE(ebpf_->Pending());
      ExpectAsReference({&l2_, &small_}, 1, frames_);
      // A refusal for a lasting reason may also follow on a shortage.
      *fault = {ENOMEM, 0};
      ASSERT_EQ(FILTER_MGR_OK, ebpf_->Prepare(large_));
      EXPECT_EQ(Standing::kPending, ebpf_->Publish().state);
      *fault = {error, 0};
      EXPECT_TRUE(ebpf_->Poll());
      EXPECT_EQ(code, ebpf_->standing().error);
      *fault = {};
    }
  }
}

TEST_F(ShortageTest, WhoCannotGrowDoesNotTakeOver) {
  for (Fault* fault : {&load_fault, &map_fault}) {
    Grow(fault, {});
    ebpf_.reset();
    *fault = {EPERM, 0};
    std::string reason;
    EXPECT_EQ(nullptr, EbpfBackend::Open(options_, &reason));
    EXPECT_NE(std::string::npos, reason.find(strerror(EPERM))) << reason;
    *fault = {ENOMEM, 0};
    Open();
    EXPECT_EQ(1u, ebpf_->Left()) << "in force all the time, and a shortage passes";
    ExpectAsReference({&l2_, &large_}, 1, frames_);
    *fault = {};
  }
}

}  // namespace
}  // namespace host
