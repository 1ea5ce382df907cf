// XPath filters, the server's own state and schemas, and who may do what.
#include <gmock/gmock.h>

#include <cstring>
#include <set>

#include "host/netconf/peer/access.h"
#include "host/netconf/reply/filter/xpath_filter.h"
#include "tests/host/netconf/server_fixture.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr char kEdit[] =
    "<edit-config><target><running/></target><config><config xmlns='urn:acl-app:acl'><access-list>"
    "<acl-profile><ingress><access-list><acl-type>l3</acl-type><acl-name>p</acl-name>"
    "<acl-priority-l3><priority>1</priority></acl-priority-l3></access-list></ingress>"
    "</acl-profile><interface><interface-name>e0</interface-name><ingress>p</ingress></interface>"
    "<interface><interface-name>e1</interface-name></interface></access-list></config></config>"
    "</edit-config>";

class StateTest : public ServerTest {
 protected:
  void SetUp() override {
    Start();
    client_ = std::make_unique<TestClient>(server_options_.socket_path);
    client_->Open();
    ASSERT_THAT(client_->Rpc(kEdit), HasSubstr("<ok/>"));
  }
  std::string GetConfig(const std::string& select) {
    return client_->Rpc(
        "<get-config><source><running/></source><filter type='xpath' xmlns:a='urn:acl-app:acl' " +
        select + "/></get-config>");
  }
  std::string Get(const std::string& filter) {
    return client_->Rpc("<get><filter>" + filter + "</filter></get>");
  }
  std::unique_ptr<TestClient> client_;
};

TEST_F(StateTest, XPathSelects) {
  const std::string start = "<data><config xmlns=\"urn:acl-app:acl\"><access-list>";
  const std::string end = "</access-list></config></data>";
  const std::string e0 =
      "<interface><interface-name>e0</interface-name><ingress>p</ingress>"
      "</interface>";
  const std::string e1 = "<interface><interface-name>e1</interface-name></interface>";
  const std::pair<const char*, std::string> cases[] = {
      {"/a:config/a:access-list/a:interface", start + e0 + e1 + end},
      {"/a:config/a:access-list/a:interface[a:interface-name=\"e1\"]", start + e1 + end},
      {"//a:interface[a:ingress]", start + e0 + end},
      {"//a:interface[1]/a:interface-name | //a:interface[2]",
       start + "<interface><interface-name>e0</interface-name></interface>" + e1 + end},
      {"//a:acl-priority-l3",
       start +
           "<acl-profile><ingress><access-list><acl-type>l3</acl-type><acl-name>p</acl-name>"
           "<acl-priority-l3><priority>1</priority></acl-priority-l3></access-list></ingress>"
           "</acl-profile>" +
           end},
      {"//a:interface[a:interface-name=\"nope/..\"]", "<data></data>"},
      {"//a:interface[a:ingress=\"p\" and a:interface-name=\"e0\"]", start + e0 + end},
      {"/a:config//a:interface[a:interface-name=\"e0\"]/a:ingress[.=\"p\"]", start + e0 + end},
      {"//a:access-list[ a:acl-priority-l3 ]/a:acl-priority-l3/a:priority[.=1]",
       "<priority>1</priority></acl-priority-l3>"},
      {"/a:config/a:access-list/a:interface/a:interface-name",
       "<interface><interface-name>e1</interface-name></interface>"},
      {"//a:interface[a:none]|//a:nothing", "<data></data>"},
      {"/a:status", "<data></data>"},
  };
  for (const auto& [xpath, expected] : cases) {
    const std::string reply = GetConfig(std::string("select='") + xpath + "'");
    EXPECT_THAT(reply, HasSubstr(expected)) << xpath;
    // In parentheses it is no pattern, and libyang evaluates it.
    EXPECT_EQ(GetConfig(std::string("select='(") + xpath + ")'"), reply) << xpath;
  }
}

TEST_F(StateTest, XPathThatIsWrongIsRefused) {
  EXPECT_THAT(GetConfig(""), HasSubstr("<error-tag>missing-attribute<"));
  for (const char* xpath : {"/a:config[", "/b:config", "//a:interface[//a:ingress]"}) {
    EXPECT_THAT(GetConfig(std::string("select='") + xpath + "'"), HasSubstr("<rpc-error")) << xpath;
  }
}

TEST(XPathCostTest, OnlyWhatLooksDownIsAllowedInPredicates) {
  for (const char* xpath :
       {"/a:b/c[d='x']", "//c[d/e[f='1'] and not(g)]", "/a[b='//..::']", "/a/../b/child::c",
        "/a[child::b = 3 or */c]", "/a[.='x'][2]", "/a[count(b) > 2]/b[currently(.)]"}) {
    EXPECT_EQ(WhyTooCostly(xpath), "") << xpath;
  }
  for (const std::string& xpath :
       {std::string("/a[/b]"), std::string("/a[b = /c]"), std::string("/a[.//b]"),
        std::string("/a[../b]"), std::string("/a[b and /c]"), std::string("/a[b][c[//d]]"),
        std::string("/a[parent::b]"), std::string("/a/following::b"),
        std::string("/a[b=current()]"), std::string("/a[deref (b)]"),
        std::string("/a[preceding-sibling::b]"), std::string(5000, 'a')}) {
    EXPECT_NE(WhyTooCostly(xpath), "") << xpath;
  }
}

TEST_F(StateTest, DefaultsModesAreKnown) {
  const std::string start =
      "<get-config><source><running/></source><with-defaults "
      "xmlns='urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults'>";
  const std::string plain = client_->Rpc("<get-config><source><running/></source></get-config>");
  for (const char* mode : {"explicit", "trim", "report-all", "report-all-tagged"}) {
    EXPECT_THAT(client_->Rpc(start + mode + "</with-defaults></get-config>"),
                HasSubstr("<interface-name>e1</interface-name>"))
        << mode;
  }
  EXPECT_EQ(client_->Rpc(start + "explicit</with-defaults></get-config>"), plain);
  EXPECT_THAT(client_->Rpc(start + "some</with-defaults></get-config>"),
              HasSubstr("<error-tag>invalid-value<"));
  // What the modes rely on: no node has a default value.
  uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(datastore_->Context(), &index)) {
    if (std::strncmp(module->name, "acl-app", 7) != 0 || !module->implemented) continue;
    for (const lysc_node* top = module->compiled->data; top != nullptr; top = top->next) {
      lysc_tree_dfs_full(
          top,
          [](lysc_node* node, void*, ly_bool*) {
            const bool holds_value = (node->nodetype & LYD_NODE_TERM) != 0;
            EXPECT_FALSE(holds_value && (node->flags & LYS_SET_DFLT) != 0) << node->name;
            return LY_SUCCESS;
          },
          nullptr);
    }
  }
}

TEST_F(StateTest, MonitoringShowsSessionsLocksAndSchemas) {
  TestClient other(server_options_.socket_path);
  other.Open();
  other.Rpc("<lock><target><candidate/></target></lock>");
  other.Rpc("<lock><target><candidate/></target></lock>");
  other.SendMessage("no rpc");
  other.Receive();
  const std::string state =
      Get("<netconf-state xmlns='urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring'/>");
  EXPECT_THAT(state, AllOf(HasSubstr("<capability>urn:ietf:params:netconf:base:1.1<"),
                           HasSubstr("<name>candidate</name><locks><global-lock><locked-by-session>"
                                     "2</locked-by-session><locked-time>20"),
                           Not(HasSubstr("<name>running</name><locks>")),
                           HasSubstr("<identifier>acl-app</identifier><version>2"),
                           HasSubstr("<session-id>1</session-id>"),
                           HasSubstr("<in-rpcs>2</in-rpcs><in-bad-rpcs>1</in-bad-rpcs>"
                                     "<out-rpc-errors>2</out-rpc-errors>"),
                           HasSubstr("<in-sessions>2</in-sessions>")));
  EXPECT_THAT(Get("<yang-library xmlns='urn:ietf:params:xml:ns:yang:ietf-yang-library'/>"),
              AllOf(HasSubstr("<content-id>"), HasSubstr("<name>acl-app</name>")));
  EXPECT_THAT(
      client_->Rpc("<get><filter type='xpath' xmlns:y='urn:ietf:params:xml:ns:yang:"
                   "ietf-yang-library' select='/y:modules-state/y:module[y:name=\"acl-app\"]"
                   "/y:namespace'/></get>"),
      HasSubstr("<namespace>urn:acl-app:acl</namespace>"));
}

TEST_F(StateTest, SchemasAreGiven) {
  const auto get = [this](const std::string& parameters) {
    return client_->Rpc("<get-schema xmlns='urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring'>" +
                        parameters + "</get-schema>");
  };
  EXPECT_THAT(get("<identifier>acl-app-types</identifier>"), HasSubstr("module acl-app-types {"));
  EXPECT_THAT(get("<identifier>acl-app</identifier><version>2026-11-21</version>"
                  "<format>yang</format>"),
              HasSubstr("container access-list"));
  for (const char* parameters : {"<identifier>none</identifier>",
                                 "<identifier>acl-app</identifier><version>1999-01-01"
                                 "</version>",
                                 "<identifier>acl-app</identifier><format>xsd</format>"}) {
    EXPECT_THAT(get(parameters), HasSubstr("<error-tag>invalid-value<")) << parameters;
  }
  EXPECT_THAT(get(""), HasSubstr("<error-tag>missing-element<"));
}

class NobodyElse : public SessionControl {
  bool KillSession(uint32_t, const SessionInfo&) override { return true; }
};

TEST_F(StateTest, ReadersMayOnlyRead) {
  Stop();
  Candidate candidate(*datastore_);
  ConfirmedCommit confirmed(*datastore_, *loop_);
  Locks locks;
  NobodyElse nobody;
  const auto xml = GenericXml::Create();
  const OperationContext context{*datastore_, candidate, confirmed, locks, nobody};
  Dispatcher dispatcher(context, *xml, 64);
  const auto log = std::make_shared<PeerLog>(*loop_, 54321, false);
  const auto run = [&](const std::string& operation, bool may_write) {
    return TextOf(
        dispatcher.Handle(kRpcStart + operation + "</rpc>", {}, {7, "somebody", may_write, log}));
  };
  // That comes before what is wrong with the message.
  for (const char* denied : {kEdit, "<edit-config><x/></edit-config>",
                             "<validate><source><config><b/></config></source></validate>"}) {
    EXPECT_THAT(run(denied, false),
                AllOf(HasSubstr("<error-tag>access-denied<"), Not(HasSubstr("unknown-"))));
  }
  EXPECT_THAT(run(kEdit, true), HasSubstr("<ok/>"));
  // Of all operations of the schema readers have these and no others.
  const std::set<std::string> allowed = {
      "get",   "get-config",  "close-session", "get-schema",  "get-hits", "create-subscription",
      "trace", "get-history", "get-commit",    "get-findings"};
  uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(datastore_->Context(), &index)) {
    if (!module->implemented) continue;
    for (auto* rpc = module->compiled->rpcs; rpc != nullptr;
         rpc = reinterpret_cast<lysc_node_action*>(rpc->next)) {
      const Operation* operation = FindOperation(module->name, rpc->name);
      ASSERT_NE(operation, nullptr) << rpc->name;
      EXPECT_EQ(operation->kind != OperationKind::kChange, allowed.count(rpc->name) != 0)
          << rpc->name;
    }
  }
  EXPECT_THAT(run("<get-findings xmlns='urn:acl-app:findings'/>", false), Not(HasSubstr("error")));
  EXPECT_THAT(run("<get-findings xmlns='urn:acl-app:findings'><candidate/></get-findings>", false),
              HasSubstr("<error-tag>access-denied<"));
  // An expression that must be evaluated as a whole would hold up everybody else.
  const std::string costly = "<get><filter type='xpath' select='//*[2]'/></get>";
  EXPECT_THAT(run(costly, false), HasSubstr("<error-tag>resource-denied<"));
  EXPECT_THAT(run(costly, true), HasSubstr("<data>"));
  // So would a large message, even one that is only to be parsed.
  std::string large = "<edit-config><target><running/></target><config>";
  for (int i = 0; i < 2000; ++i) large += "<b/>";
  large += "</config></edit-config>";
  EXPECT_THAT(run(large, false), HasSubstr("<error-tag>too-big<"));
  EXPECT_THAT(run(large, true), Not(HasSubstr("too-big")));
  context.pages->kept.clear();  // as a server does at its end: each page keeps their memory
}

TEST(AccessTest, RootItselfAndTheWriteGroupMayWrite) {
  Peer peer;
  peer.uid = geteuid() + 1;
  peer.groups = {100, 200};
  EXPECT_FALSE(MayWrite(peer, std::nullopt));
  EXPECT_FALSE(MayWrite(peer, 300));
  EXPECT_TRUE(MayWrite(peer, 200));
  peer.uid = geteuid();
  EXPECT_TRUE(MayWrite(peer, std::nullopt));
}

}  // namespace
}  // namespace host
