// The maps and the program as the kernel keeps them: made, taken over, grown, replaced.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <thread>

#include "host/filter_mgr/ebpf/port_hooks.h"
#include "host/filter_mgr/ebpf/store.h"
#include "tests/packets/ebpf/bpf_lab.h"
#include "tests/packets/frames.h"

namespace host {
namespace {

constexpr int kLoopback = 1;

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why_not;
    directory_ = PrivateBpfFs(&why_not);
    if (directory_.empty()) GTEST_SKIP() << why_not;
    ASSERT_EQ(0, unshare(CLONE_NEWNET));
    directory_ += "/acl-app";
    Open();
  }

  void Open() {
    store_.reset();
    std::string reason;
    store_ = FilterStore::Open(directory_, &reason);
    ASSERT_NE(nullptr, store_) << reason;
  }

  void Complete() {
    std::string reason;
    ASSERT_EQ(0, store_->Complete(&reason)) << reason;
  }

  // Makes loopback a port without entries.
  void AddLoopback() {
    store_->ports()[kLoopback] = {kLoopback, 0};
    store_->control()->layout = CLS_LAYOUT_VERSION;
    store_->control()->generation = 1;
  }

  // Sets one of the counters pinned for an edition, behind the store's back.
  void SetCount(const std::string& edition, size_t counter, uint64_t packets) {
    int error = 0;
    const auto pins = PinDirectory::Make(directory_ + "/" + edition, &error);
    const auto map = FilterMap::Take(kMapCounters, pins->Get("counters", &error), &error);
    ASSERT_EQ(0, error);
    map->As<filter_counter>()[counter].packets = packets;
  }

  size_t editions() const {
    int error = 0;
    return PinDirectory::Make(directory_, &error)->Directories().size() - 1;  // "links" aside
  }

  std::string directory_;
  std::unique_ptr<FilterStore> store_;
};

TEST_F(StoreTest, WithoutEntriesEveryFrameOfAPortPasses) {
  AddLoopback();
  Complete();
  for (const Frame& frame : AllFrames()) {
    const ProgramRun outcome = RunProgram(store_->program(), kLoopback, frame);
    EXPECT_TRUE(outcome.passed);
    EXPECT_EQ(frame, outcome.frame);
  }
  store_->ports()[kLoopback] = {};
  EXPECT_FALSE(RunProgram(store_->program(), kLoopback, AllFrames()[0]).passed);
  EXPECT_EQ(1u, store_->config()->unknown_interface);
}

TEST_F(StoreTest, IsTakenOverAsItIs) {
  EXPECT_EQ(FilterStore::Found::kNothing, store_->found());
  std::string reason;
  EXPECT_EQ(nullptr, FilterStore::Open(directory_, &reason)) << "locked";
  std::thread other([this] {
    usleep(50000);
    store_.reset();
  });
  auto next = FilterStore::Open(directory_, &reason);
  other.join();
  ASSERT_NE(nullptr, next) << "locked for a moment: " << reason;
  store_ = std::move(next);
  AddLoopback();
  Complete();
  store_->port_names()[3] = {"eth0"};
  const uint32_t program = ProgramId(store_->program());
  Open();
  EXPECT_EQ(FilterStore::Found::kOurs, store_->found());
  EXPECT_FALSE(store_->incomplete());
  EXPECT_EQ(program, ProgramId(store_->program()));
  EXPECT_STREQ("eth0", store_->port_names()[3].name);
  // What could not be pinned any more is not taken over.
  store_.reset();
  const std::string mounted = directory_.substr(0, directory_.rfind('/'));
  const unsigned long remount = MS_REMOUNT | MS_BIND;  // NOLINT(google-runtime-int): mount(2)'s
  ASSERT_EQ(0, mount(nullptr, mounted.c_str(), nullptr, remount | MS_RDONLY, nullptr));
  EXPECT_EQ(nullptr, FilterStore::Open(directory_, &reason));
  EXPECT_EQ(directory_ + ": nothing can be pinned: Read-only file system", reason);
  ASSERT_EQ(0, mount(nullptr, mounted.c_str(), nullptr, remount, nullptr));
  Open();
  // Of another build: the same maps, a new program.
  store_->config()->program ^= 1;
  Open();
  EXPECT_EQ(FilterStore::Found::kOurs, store_->found());
  Complete();
  EXPECT_NE(program, ProgramId(store_->program()));
  EXPECT_STREQ("eth0", store_->port_names()[3].name);
  // Of another layout: left alone until the new one is complete and settled.
  store_->config()->layout ^= 1;
  Open();
  EXPECT_EQ(FilterStore::Found::kForeign, store_->found());
  EXPECT_EQ(1u, editions());
  Complete();
  EXPECT_EQ(2u, editions());
  store_->Settle();
  EXPECT_EQ(1u, editions());
  // Of damaged ones not even the counts, also where a process dies before it is settled.
  SetCount("edition-2", 5, 70);
  ASSERT_TRUE(store_->StartOver(&reason));
  AddLoopback();
  Complete();
  Open();
  EXPECT_EQ(FilterStore::Found::kOurs, store_->found());
  EXPECT_EQ(0u, store_->Count(5).packets);
  store_.reset();
  EXPECT_EQ(0, RemovePins(directory_));
}

TEST_F(StoreTest, GrowsInAnotherEditionAndKeepsCounts) {
  AddLoopback();
  Complete();
  const auto first = static_cast<uint32_t>(ProgramId(store_->program()));
  auto* entry = store_->At<cls_entry>(CLS_ENTRIES, 5);
  ASSERT_NE(nullptr, entry);
  entry->counter = 77;
  const uint32_t entries = store_->Capacity(CLS_ENTRIES);
  ASSERT_EQ(0, store_->Grow(CLS_ENTRIES, entries + 1));
  EXPECT_TRUE(store_->incomplete());
  EXPECT_LT(entries, store_->capacity(CLS_ENTRIES));
  EXPECT_EQ(entry, store_->At<cls_entry>(CLS_ENTRIES, 5)) << "pointers stay valid";
  EXPECT_EQ(77u, store_->At<cls_entry>(CLS_ENTRIES, 5)->counter);
  // What is written now is not for the program in force.
  store_->ports()[kLoopback] = {};
  EXPECT_TRUE(RunProgram(store_->program(), kLoopback, AllFrames()[0]).passed);
  EXPECT_EQ(first, ProgramId(store_->program()));
  SetCount("edition-1", 5, 70);
  ASSERT_EQ(0, store_->GrowCounters(store_->counter_slots() + 1));
  Complete();
  // As if a process had died here, while it moved the counts.
  SetCount("edition-2", store_->Capacity(kMapCounters) - store_->counter_slots() + 5, 70);
  SetCount("edition-2", 5, 1);
  Open();
  EXPECT_EQ(71u, store_->Count(5).packets);
  EXPECT_FALSE(RunProgram(store_->program(), kLoopback, AllFrames()[0]).passed);
  EXPECT_EQ(2u, editions());
  // What one that died before left under a later name is nobody's.
  int error = 0;
  PinDirectory::Make(directory_ + "/edition-9", &error);
  Open();
  store_->Settle();
  EXPECT_EQ(1u, editions());
  Open();
  EXPECT_EQ(71u, store_->Count(5).packets);
  EXPECT_EQ(77u, store_->At<cls_entry>(CLS_ENTRIES, 5)->counter);
}

}  // namespace
}  // namespace host
