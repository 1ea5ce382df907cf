// The candidate and confirmed commits: against a reference at random, and through the protocol.
#include "host/netconf/operations/candidate.h"

#include <gmock/gmock.h>

#include <cstdlib>

#include "host/cdb/edit/edit.h"
#include "tests/host/netconf/random_edits.h"
#include "tests/host/netconf/server_fixture.h"
#include "tests/random_rounds.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr char kOk[] = "<ok/>";

// Lists in libyang keep the order of insertion, which is no part of the content.
std::multiset<std::string> Content(const lyd_node* tree) {
  std::multiset<std::string> lines;
  const lyd_node* node;
  LYD_TREE_DFS_BEGIN(tree, node) {
    if ((node->schema->nodetype & LYD_NODE_TERM) != 0) {
      lines.insert(PathOf(node) + "=" + lyd_get_value(node));
    }
    LYD_TREE_DFS_END(tree, node);
  }
  return lines;
}

TEST(CandidateTest, IsWhatItsEditsMakeItWhateverHappensToRunning) {
  DatastoreErrors errors;
  DatastoreOptions options;
  options.yang_directory = ACL_YANG_DIR;
  const auto datastore = Datastore::Open(options, &errors);
  ASSERT_NE(datastore, nullptr);
  const ly_ctx* context = datastore->Context();
  Candidate candidate(*datastore);
  RandomEdits edits(context, 4711);
  Tree reference = CopyTree(datastore->Running());
  const EditOptions kSet{DefaultOperation::kMerge, TestOption::kSet};
  int commits = 0, refused = 0;
  for (int step = 0; step < RandomRounds(4000); ++step) {
    const Tree edit = edits.Next();
    switch (edits.Below(8)) {
      case 0:
      case 1: {  // a commit to running meanwhile
        datastore->Edit(edit.get(), {}, {});
        if (!candidate.modified()) reference = CopyTree(datastore->Running());
        break;
      }
      case 2:
        if (candidate.Commit({}).empty()) {
          ++commits;
          ASSERT_EQ(Content(datastore->Running()), Content(reference.get())) << "step " << step;
        } else {  // running is untouched, and a whole replacement is refused, too
          ++refused;
          ASSERT_FALSE(datastore
                           ->Edit(candidate.Content(),
                                  {DefaultOperation::kReplace, TestOption::kTestOnly}, {})
                           .empty());
          if (edits.Below(2) != 0) candidate.Discard();
        }
        if (!candidate.modified()) reference = CopyTree(datastore->Running());
        break;
      default: {
        Tree expected = CopyTree(reference.get());
        const bool valid =
            candidate.Edit(edit.get(), {DefaultOperation::kMerge, TestOption::kTestOnly}, {})
                .empty();
        if (ApplyEdit(context, edit.get(), DefaultOperation::kMerge, &expected).empty()) {
          ASSERT_TRUE(candidate.Edit(edit.get(), kSet, {}).empty());
          ASSERT_EQ(candidate.Validate().empty(), valid) << "step " << step;
          reference = std::move(expected);
        } else {
          ASSERT_FALSE(valid || candidate.Edit(edit.get(), kSet, {}).empty());
        }
      }
    }
    ASSERT_EQ(Content(candidate.Content()), Content(reference.get())) << "step " << step;
  }
  EXPECT_GT(commits, RandomRounds(100));
  EXPECT_GT(refused, RandomRounds(20));
}

// The protocol's side.
class CommitOperationsTest : public ServerTest {
 protected:
  void SetUp() override {
    Start();
    one_ = std::make_unique<TestClient>(server_options_.socket_path);
    two_ = std::make_unique<TestClient>(server_options_.socket_path);
    one_->Open();
    two_->Open();
  }
  static std::string Edit(const std::string& name, const std::string& target = "candidate") {
    return "<edit-config><target><" + target +
           "/></target><config><config xmlns='urn:acl-app:acl'><access-list><interface>"
           "<interface-name>" +
           name + "</interface-name></interface></access-list></config></config></edit-config>";
  }
  static std::string Get(const std::string& source) {
    return "<get-config><source><" + source + "/></source></get-config>";
  }
  // Whether `name` is in running, perhaps a little later.
  bool Becomes(const std::string& name, bool there) {
    for (int i = 0; i < 300; ++i) {
      const bool found = two_->Rpc(Get("running")).find(">" + name + "<") != std::string::npos;
      if (found == there) return true;
      usleep(10000);
    }
    return false;
  }

  std::unique_ptr<TestClient> one_, two_;
};

std::string EditWith(const std::string& test_option, const std::string& interface) {
  return "<edit-config><target><candidate/></target>" + test_option +
         "<config><config xmlns='urn:acl-app:acl'><access-list><interface>" + interface +
         "</interface></access-list></config></config></edit-config>";
}

TEST_F(CommitOperationsTest, CandidateMayBeInvalidUntilItIsValidated) {
  const std::string binding = "<interface-name>bad</interface-name><ingress>none</ingress>";
  const std::string test_only = "<test-option>test-only</test-option>";
  const auto refused =
      AllOf(HasSubstr("<error-tag>data-missing<"), HasSubstr("acl-app:interface-name='bad'"));
  for (const std::string& option : {test_only, std::string("")}) {
    EXPECT_THAT(one_->Rpc(EditWith(option, binding)), refused);
    EXPECT_THAT(one_->Rpc(Get("candidate")), Not(HasSubstr("bad")));
  }
  EXPECT_THAT(one_->Rpc(EditWith("<test-option>set</test-option>", binding)), HasSubstr(kOk));
  // What is tested is the candidate with the edit, whoever made it invalid.
  for (const std::string& operation :
       {std::string("<validate><source><candidate/></source></validate>"), std::string("<commit/>"),
        EditWith(test_only, "<interface-name>c</interface-name>")}) {
    EXPECT_THAT(one_->Rpc(operation), refused);
  }
  EXPECT_THAT(one_->Rpc(Get("running")), Not(HasSubstr("bad")));
  EXPECT_THAT(one_->Rpc("<discard-changes/>"), HasSubstr(kOk));
  EXPECT_THAT(one_->Rpc("<validate><source><candidate/></source></validate>"), HasSubstr(kOk));
}

TEST_F(CommitOperationsTest, CopyConfigAndValidateTakeWholeConfigurations) {
  const std::string inline_config =
      "<config><config xmlns='urn:acl-app:acl'><access-list><interface><interface-name>x"
      "</interface-name></interface></access-list></config></config>";
  EXPECT_THAT(one_->Rpc(Edit("a", "running")), HasSubstr(kOk));
  EXPECT_THAT(one_->Rpc("<validate><source>" + inline_config + "</source></validate>"),
              HasSubstr(kOk));
  EXPECT_THAT(one_->Rpc("<copy-config><target><candidate/></target><source>" + inline_config +
                        "</source></copy-config>"),
              HasSubstr(kOk));
  EXPECT_THAT(one_->Rpc(Get("candidate")), AllOf(HasSubstr(">x<"), Not(HasSubstr(">a<"))));
  EXPECT_THAT(one_->Rpc("<copy-config><target><running/></target><source><candidate/></source>"
                        "</copy-config>"),
              HasSubstr(kOk));
  EXPECT_THAT(one_->Rpc(Get("running")), AllOf(HasSubstr(">x<"), Not(HasSubstr(">a<"))));
  EXPECT_THAT(one_->Rpc("<copy-config><target><running/></target><source><running/></source>"
                        "</copy-config>"),
              HasSubstr("<error-tag>invalid-value<"));
  EXPECT_THAT(one_->Rpc("<delete-config><target><running/></target></delete-config>"),
              HasSubstr("<rpc-error"));
}

TEST_F(CommitOperationsTest, LockOfTheCandidateGuardsItsChanges) {
  const std::string lock = "<lock><target><candidate/></target></lock>";
  const std::string unlock = "<unlock><target><candidate/></target></unlock>";
  const std::string named = "<interface-name>a</interface-name>";
  EXPECT_THAT(one_->Rpc(EditWith("<test-option>test-only</test-option>", named)), HasSubstr(kOk));
  EXPECT_THAT(two_->Rpc(lock), HasSubstr(kOk)) << "nothing was changed";
  EXPECT_THAT(two_->Rpc(Edit("b")), HasSubstr(kOk));
  EXPECT_THAT(two_->Rpc(unlock), HasSubstr(kOk)) << "which takes the change with it";
  EXPECT_THAT(one_->Rpc(Edit("a")), HasSubstr(kOk));
  EXPECT_THAT(two_->Rpc(lock),
              AllOf(HasSubstr("<error-tag>lock-denied<"), HasSubstr("<session-id>1</session-id>")));
  EXPECT_THAT(two_->Rpc(Get("candidate")), AllOf(HasSubstr(">a<"), Not(HasSubstr(">b<"))));
  EXPECT_THAT(one_->Rpc("<discard-changes/>"), HasSubstr(kOk));
  EXPECT_THAT(one_->Rpc(lock), HasSubstr(kOk));
  EXPECT_THAT(one_->Rpc(Edit("a")), HasSubstr(kOk));
  for (const std::string& operation :
       {Edit("b"), std::string("<commit/>"), std::string("<discard-changes/>")}) {
    EXPECT_THAT(two_->Rpc(operation), HasSubstr("<error-tag>in-use<"));
  }
  EXPECT_THAT(one_->Rpc("<close-session/>"), HasSubstr(kOk));
  EXPECT_THAT(two_->Rpc(Get("candidate")), Not(HasSubstr(">a<")));
}

TEST_F(CommitOperationsTest, ConfirmedCommitStaysOnlyIfConfirmed) {
  const std::string confirmed = "<commit><confirmed/><confirm-timeout>1</confirm-timeout></commit>";
  one_->Rpc(Edit("a"));
  EXPECT_THAT(one_->Rpc(confirmed), HasSubstr(kOk));
  EXPECT_TRUE(Becomes("a", true));
  EXPECT_THAT(two_->Rpc("<commit/>"), HasSubstr("<error-tag>in-use<"));
  EXPECT_THAT(two_->Rpc("<lock><target><running/></target></lock>"),
              HasSubstr("<error-tag>lock-denied<"));
  EXPECT_TRUE(Becomes("a", false)) << "the time is over";

  one_->Rpc(Edit("b"));
  EXPECT_THAT(one_->Rpc(confirmed), HasSubstr(kOk));
  one_->Rpc(Edit("c"));
  EXPECT_THAT(one_->Rpc("<commit/>"), HasSubstr(kOk));
  usleep(1200000);
  EXPECT_TRUE(Becomes("b", true) && Becomes("c", true)) << "confirmed";

  one_->Rpc(Edit("d"));
  EXPECT_THAT(one_->Rpc("<commit><confirmed/></commit>"), HasSubstr(kOk));
  EXPECT_THAT(two_->Rpc("<cancel-commit/>"), HasSubstr("<error-tag>invalid-value<"));
  EXPECT_THAT(one_->Rpc("<cancel-commit/>"), HasSubstr(kOk));
  EXPECT_TRUE(Becomes("d", false)) << "cancelled";
  EXPECT_THAT(one_->Rpc("<cancel-commit/>"), HasSubstr("<error-tag>operation-failed<"));

  one_->Rpc(Edit("e"));
  EXPECT_THAT(one_->Rpc("<commit><confirmed/></commit>"), HasSubstr(kOk));
  one_->Close();
  EXPECT_TRUE(Becomes("e", false)) << "its session ended";
  EXPECT_TRUE(Becomes("b", true));
}

TEST_F(CommitOperationsTest, PersistentCommitBelongsToItsToken) {
  one_->Rpc(Edit("a"));
  EXPECT_THAT(one_->Rpc("<commit><confirmed/><persist>t%s</persist></commit>"), HasSubstr(kOk));
  one_->Close();
  EXPECT_THAT(two_->Rpc("<commit><persist-id>other</persist-id></commit>"),
              HasSubstr("<error-tag>invalid-value<"));
  EXPECT_THAT(two_->Rpc("<commit/>"),
              AllOf(HasSubstr("in-use<"), HasSubstr("persist-id"), HasSubstr("taken back in 59")));
  two_->Rpc(Edit("b"));
  EXPECT_THAT(two_->Rpc("<commit><confirmed/><persist-id>t%s</persist-id><persist>u</persist>"
                        "</commit>"),
              HasSubstr(kOk));
  // Extended without another token it keeps the one it has, and outlives this session as well.
  TestClient three(server_options_.socket_path);
  three.Open();
  EXPECT_THAT(three.Rpc("<commit><confirmed/><persist-id>u</persist-id></commit>"), HasSubstr(kOk));
  three.Close();
  EXPECT_TRUE(Becomes("a", true) && Becomes("b", true));
  TestClient four(server_options_.socket_path);
  four.Open();
  const std::string cancel = "<cancel-commit><persist-id>u</persist-id></cancel-commit>";
  EXPECT_THAT(four.Rpc("<lock><target><running/></target></lock>"),
              HasSubstr("<error-tag>lock-denied<"));
  EXPECT_THAT(two_->Rpc(cancel), HasSubstr(kOk));
  EXPECT_TRUE(Becomes("a", false) && Becomes("b", false)) << "back to before the first one";
  EXPECT_THAT(two_->Rpc("<commit><persist-id>u</persist-id></commit>"),
              HasSubstr("<error-tag>invalid-value<"));
}

TEST_F(CommitOperationsTest, WhatIsTakenBackIsAllThatCameAfterIt) {
  const auto profile = [](const std::string& operation, int priority) {
    return "<edit-config><target><candidate/></target><config><config xmlns='urn:acl-app:acl'>"
           "<access-list><acl-profile><ingress><access-list "
           "xmlns:nc='urn:ietf:params:xml:ns:netconf:base:1.0' nc:operation='" +
           operation +
           "'><acl-type>l2</acl-type><acl-name>pq</acl-name><acl-priority-l2><priority>" +
           std::to_string(priority) +
           "</priority></acl-priority-l2></access-list></ingress></acl-profile></access-list>"
           "</config></config></edit-config>";
  };
  one_->Rpc(profile("create", 1));
  EXPECT_THAT(one_->Rpc("<commit/>"), HasSubstr(kOk));
  const std::string before = two_->Rpc(Get("running"));
  // Deleted, and made anew with another priority, which cannot be undone in one commit.
  one_->Rpc(profile("remove", 1));
  EXPECT_THAT(one_->Rpc("<commit><confirmed/></commit>"), HasSubstr(kOk));
  one_->Rpc(profile("create", 2));
  EXPECT_THAT(one_->Rpc("<commit><confirmed/></commit>"), HasSubstr(kOk));
  EXPECT_THAT(two_->Rpc(Edit("others", "running")), HasSubstr(kOk));
  EXPECT_TRUE(Becomes("others", true));
  // RFC 6241 section 7.9: killed, it takes its commit with it.
  const std::string hello = TestClient(server_options_.socket_path).Open();
  const int next = std::atoi(hello.c_str() + hello.find("<session-id>") + 12);
  EXPECT_THAT(two_->Rpc("<kill-session><session-id>" + std::to_string(next - 2) +
                        "</session-id></kill-session>"),
              HasSubstr(kOk));
  EXPECT_TRUE(Becomes("pq", true) && Becomes("others", false));
  EXPECT_EQ(before, two_->Rpc(Get("running")));
  EXPECT_THAT(two_->Rpc("<lock><target><running/></target></lock>"), HasSubstr(kOk));
}

}  // namespace
}  // namespace host
