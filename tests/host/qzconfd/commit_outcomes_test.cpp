// What is made of what was seen of a commit, and how it is shown.
#include "host/qzconfd/commit_outcomes.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include "host/cdb/datastore.h"
#include "host/qzconfd/commit_state.h"

namespace host {
namespace {

CommitInfo Commit(uint64_t id) { return {id, 0, {"alice", 4, ""}, 1}; }

class CommitOutcomesTest : public testing::Test {
 protected:
  // Adds the commit after the last one; the line that it logs.
  std::string Add(CommitFacts facts, bool at_start = false) {
    testing::internal::CaptureStderr();
    outcomes_.Add(Commit(++last_), at_start, std::move(facts), std::chrono::microseconds(1500));
    const std::string line = testing::internal::GetCapturedStderr();
    const size_t start = line.find("commit ");
    return line.substr(start, line.find('\n') - start);
  }

  CommitOutcomes outcomes_;
  uint64_t last_ = 0;
};

TEST_F(CommitOutcomesTest, EachKindOfFailureHasItsReason) {
  const Submission l2{"l2", 9, {}}, l3{"l3", 20, {}};
  const Submission refused{"l3", 21, {Standing::kRefused, 6, "the kernel refused"}};
  const struct {
    CommitFacts facts;
    bool at_start;
    const char* line;
    uint64_t applied;
  } cases[] = {
      {{true, 0, "", {}, {"no priority"}},
       true,
       "commit 1 by alice (session 4) at the start: it stands, but is not applied: no groups were "
       "sent to the Filter Manager: no priority; in force: what was before the start",
       0},
      {{true, 0, "", {l2, l3}, {"Error creating match"}},
       true,
       "commit 2 by alice (session 4) at the start: it stands, but is not applied: not all of it "
       "could be loaded: Error creating match; in force: L2 9 entries of commit 2, L3 20 entries "
       "of "
       "commit 2",
       0},
      {{true, 0, "", {l2, l3}, {}},
       false,
       "commit 3 by alice (session 4): applied in 1.5 ms; L2 9 entries, L3 20 entries",
       3},
      {{true, 0, "", {{"l2", 1, {Standing::kRefused, 8, ""}}, refused}, {"port eth0: no", "later"}},
       false,
       "commit 4 by alice (session 4): it stands, but is not applied: the Filter Manager refused "
       "the "
       "L3 group (filtMgrErr 6, the kernel refused): port eth0: no; in force: L2 9 entries of "
       "commit 3, L3 20 entries of commit 3",
       3},
      {{},
       false,
       "commit 5 by alice (session 4): it stands, but is not applied: the Filter Manager refused "
       "the "
       "L3 group (filtMgrErr 6, the kernel refused): port eth0: no; in force: L2 9 entries of "
       "commit 3, L3 20 entries of commit 3",
       3},
      {{true, 0, "", {l2, l3}, {"an error that did no harm"}},
       false,
       "commit 6 by alice (session 4): applied in 1.5 ms; L2 9 entries, L3 20 entries",
       6},
      {{true, 2, "/a/b", {l2, l3}, {"error creating match"}},
       false,
       "commit 7 by alice (session 4): it stands, but is not applied: 2 changes could not be taken "
       "over, first /a/b: error creating match; in force: L2 9 entries of commit 7, L3 20 entries "
       "of "
       "commit 7",
       6},
      {{true, 0, "", {l2, l3}, {}},
       false,
       "commit 8 by alice (session 4): it stands, but is not applied: a change of commit 7 could "
       "not "
       "be taken over; restart the daemon to load the configuration anew; in force: L2 9 entries "
       "of "
       "commit 8, L3 20 entries of commit 8",
       6},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.line, Add(c.facts, c.at_start));
    EXPECT_EQ(c.applied, outcomes_.applied());
  }
}

TEST_F(CommitOutcomesTest, WhatIsPendingIsCorrected) {
  const Standing pending{Standing::kPending, 0, "busy"}, partial{Standing::kPartial, 0, "port a"},
      refused{Standing::kRefused, 6, "no"};
  const auto send = [this](const Standing& standing) {
    return Add({true, 0, "", {{"l2", 1, standing}, {"l3", 2, standing}}, {}});
  };
  const auto results = [this] {
    std::string text = std::to_string(outcomes_.applied()) + ":";
    for (const CommitOutcome& outcome : outcomes_.all()) text += "APFS"[outcome.result];
    const auto group = outcomes_.in_force().find("l3");
    return text + (group == outcomes_.in_force().end() ? "" : std::to_string(group->second.commit));
  };
  EXPECT_EQ(
      "commit 1 by alice (session 4): it stands, and is not in force yet: busy; in force: what was "
      "before the start",
      send(pending));
  EXPECT_EQ("0:P", results());
  EXPECT_TRUE(outcomes_.Settle(Standing()));
  EXPECT_EQ("1:A1", results());
  EXPECT_FALSE(outcomes_.Settle(Standing())) << "nothing waits any more";
  send(pending);
  Add({});  // changes nothing, and so stands as the one before
  EXPECT_EQ("1:APP1", results());
  send(refused);  // does not take the place of what is pending
  EXPECT_EQ("1:APPF1", results());
  send(pending);
  EXPECT_EQ("1:ASSFP1", results());
  outcomes_.Settle(refused);
  EXPECT_EQ("1:ASSFF1", results());
  send(partial);
  EXPECT_EQ("1:ASSFFP6", results()) << "in force, but for a port";
  outcomes_.Settle(Standing());
  EXPECT_EQ("6:ASSFFA6", results());
  const CommitCounts& counts = outcomes_.counts();
  EXPECT_EQ((std::array<uint64_t, 4>{2, 2, 2, 0}),
            (std::array<uint64_t, 4>{counts.applied, counts.failed, counts.superseded,
                                     outcomes_.pending()}));
  EXPECT_EQ(0, counts.up_to_bound.front()) << "each took 1.5 ms";
  EXPECT_EQ(2, counts.up_to_bound.back());
}

TEST_F(CommitOutcomesTest, TheStateIsBoundedAndWhatItsModuleSays) {
  const Submission refused{"l2", 70000, {Standing::kRefused, 3, "more entries than a group holds"}};
  for (size_t i = 0; i < CommitOutcomes::kMost + 10; ++i) {
    Add({true, 0, "", {{"l2", 1, {}}, {"l3", 2, {}}}, {}}, i == 0);
  }
  Add({true, 0, "", {refused}, {"a line with a \x01 in it", "another"}});
  DatastoreErrors errors;
  DatastoreOptions options;
  options.yang_directory = ACL_YANG_DIR;
  const auto datastore = Datastore::Open(options, &errors);
  ASSERT_NE(nullptr, datastore);
  const Tree tree(BuildCommitState(datastore->Context(), last_, outcomes_));
  ASSERT_NE(nullptr, tree);
  const auto value = [&](const std::string& path) -> std::string {
    lyd_node* node = nullptr;
    if (lyd_find_path(tree.get(), ("/acl-app-commits:commits/" + path).c_str(), 0, &node) !=
        LY_SUCCESS)
      return "none";
    return lyd_get_value(node);
  };
  const std::string last = std::to_string(last_), before = std::to_string(last_ - 1);
  EXPECT_EQ(last, value("running"));
  EXPECT_EQ(before, value("applied"));
  EXPECT_EQ(before, value("group[type='l2']/commit"));
  EXPECT_EQ("2", value("group[type='l3']/entries"));
  EXPECT_EQ("none", value("commit[id='11']/id")) << "the oldest go";
  EXPECT_EQ("12", value("commit[id='12']/id"));
  const std::string commit = "commit[id='" + last + "']/";
  EXPECT_EQ("alice", value(commit + "user"));
  EXPECT_EQ("failed", value(commit + "result"));
  EXPECT_EQ("1500", value(commit + "duration"));
  EXPECT_EQ("3", value(commit + "group[type='l2']/error"));
  EXPECT_EQ("another", value(commit + "error[2]"));
}

}  // namespace
}  // namespace host
