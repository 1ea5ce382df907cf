// Running as access lists: in pieces that are bounded, or not at all.
#include <gmock/gmock.h>

#include "host/netconf/view/standard_view.h"
#include "host/runtime/hits.h"
#include "tests/host/netconf/server_fixture.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr int kEntries = 2000;

// What every entry of the profile has hit.
class AllHits : public OriginHitsReading {
 public:
  explicit AllHits(int entries) : entries_(entries) {}
  bool Next(HitsByOrigin* hits) override {
    for (int i = 0; i < entries_; ++i) {
      (*hits)[{"e0", "p"}].push_back({static_cast<uint16_t>(i), {1, 1}});
    }
    return true;
  }

 private:
  const int entries_;
};

class BrokenPieces : public StateProviders::Pieces {
 public:
  lyd_node* Next(const ly_ctx* /*context*/) override { return nullptr; }
  bool failed() const override { return true; }
};

class StandardViewTest : public ServerTest {
 protected:
  void SetUp() override {
    Start();
    providers_->SetHits([this] { return std::make_unique<AllHits>(entries_); });
    client_ = std::make_unique<TestClient>(server_options_.socket_path);
    client_->Open();
  }
  void Configure(int entries) {
    entries_ = entries;
    std::string edit =
        "<edit-config><target><running/></target><config><config xmlns='urn:acl-app:acl'>"
        "<access-list><acl-profile><ingress><access-list><acl-type>l3</acl-type>"
        "<acl-name>p</acl-name><acl-priority-l3><priority>1</priority></acl-priority-l3>";
    for (int i = 0; i < entries; ++i) {
      edit += "<access-list-entry><ace-priority>" + std::to_string(i) +
              "</ace-priority></access-list-entry>";
    }
    ASSERT_THAT(client_->Rpc(edit + "</access-list></ingress></acl-profile><interface>"
                                    "<interface-name>e0</interface-name><ingress>p</ingress>"
                                    "</interface></access-list></config></config></edit-config>"),
                HasSubstr("<ok/>"));
  }
  std::string Get(const std::string& xpath) {
    return client_->Rpc(
        "<get><filter type='xpath' xmlns:a='urn:ietf:params:xml:ns:yang:ietf-access-control-list' "
        "xmlns:o='urn:acl-app:acl' select='" +
        xpath + "'/></get>");
  }

  std::unique_ptr<TestClient> client_;
  int entries_ = 0;
};

TEST_F(StandardViewTest, PiecesAreBounded) {
  Configure(kEntries);
  Stop();
  const auto known =
      std::find_if(providers_->entries().begin(), providers_->entries().end(),
                   [](const StateProviders::Entry& entry) { return entry.top_node == "acls"; });
  const auto pieces = known->open();
  size_t entries = 0, counters = 0;
  while (const Tree piece{pieces->Next(datastore_->Context())}) {
    size_t here = 0;
    const lyd_node* node;
    LYD_TREE_DFS_BEGIN(piece.get(), node) {
      const std::string name = LYD_NAME(node);
      entries += name == "ace" ? 1 : 0;
      counters += name == "ace-statistics" ? 1 : 0;
      here += name == "ace" || name == "ace-statistics" ? 1 : 0;
      LYD_TREE_DFS_END(piece.get(), node);
    }
    EXPECT_LE(here, 130u);
  }
  EXPECT_FALSE(pieces->failed());
  EXPECT_EQ(kEntries + 1u, entries);
  EXPECT_EQ(static_cast<size_t>(kEntries), counters);
}

// An expression that has to be evaluated takes all of the state at once, and says so when it does
// not get it.
TEST_F(StandardViewTest, ExpressionsSeeAllOrAreRefused) {
  const char* const twins = "/a:acls/a:acl[count(a:aces/a:ace) > 1]/a:name";
  Configure(100);
  EXPECT_THAT(Get(twins), HasSubstr("<acl><name>p</name></acl>"));
  EXPECT_THAT(Get("/acls/acl[count(aces/ace) > 1]/name"), HasSubstr("<acl><name>p</name></acl>"));
  EXPECT_THAT(Get("//a:ace[a:name > 98]/a:name"),
              AllOf(HasSubstr("<name>99</name>"), Not(HasSubstr("<name>98</name>"))));
  Configure(kEntries);
  for (const char* select : {twins, "//a:ace[a:name > 98]", "//*[2]", "/", "//a:acl/.."}) {
    EXPECT_THAT(Get(select), AllOf(HasSubstr("<error-tag>resource-denied<"),
                                   HasSubstr(":acls</error-path>"), Not(HasSubstr("<data>"))))
        << select;
  }
  EXPECT_THAT(Get("/a:acls/a:acl/a:name"), HasSubstr("<acl><name>p</name></acl>"));
  // What selects nothing there does not build it.
  EXPECT_THAT(Get("//o:access-list-entry[ace-priority > 1998 and string(.)]/ace-priority"),
              HasSubstr("<ace-priority>1999</ace-priority>"));
  const auto broken = providers_->Add(
      {"acl-app", "status", nullptr, [] { return std::make_unique<BrokenPieces>(); }});
  EXPECT_THAT(Get("/o:status[count(*) = 0]"),
              AllOf(HasSubstr("<error-tag>operation-failed<"), Not(HasSubstr("<data>"))));
}

}  // namespace
}  // namespace host
