// Sessions over a real socket: the exchange, the operations and what hostile peers try.
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/syscall.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/host/netconf/server_fixture.h"
#include "tests/random_rounds.h"

namespace host {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kOkReply[] = "<ok/>";

std::string EditConfig(const std::string& data, const std::string& options = "") {
  return "<edit-config><target><running/></target>" + options + "<config xmlns:nc='" +
         kNetconfNamespace + "'>" + data + "</config></edit-config>";
}
std::string AccessList(const std::string& content) {
  return "<config xmlns='urn:acl-app:acl'><access-list>" + content + "</access-list></config>";
}
std::string EditInterface(const std::string& name, const std::string& operation = "merge",
                          const std::string& options = "") {
  return EditConfig(AccessList("<interface nc:operation='" + operation + "'><interface-name>" +
                               name + "</interface-name></interface>"),
                    options);
}

std::string Rpc(const std::string& operation) { return kRpcStart + operation + "</rpc>"; }

constexpr char kGetRunning[] = "<get-config><source><running/></source></get-config>";

class SessionTest : public ServerTest {
 protected:
  // Sends one operation in a session of its own.
  std::string Ask(const std::string& operation) {
    TestClient client(server_options_.socket_path);
    client.Open();
    return client.Rpc(operation);
  }
};

TEST_F(SessionTest, HelloTellsSessionAndCapabilities) {
  Start();
  TestClient first(server_options_.socket_path), second(server_options_.socket_path);
  EXPECT_THAT(first.Open(), AllOf(HasSubstr("<session-id>1</session-id>"),
                                  HasSubstr("urn:ietf:params:netconf:base:1.1</capability>"),
                                  HasSubstr(":writable-running:1.0"),
                                  HasSubstr("urn:acl-app:acl?module=acl-app&amp;revision=")));
  EXPECT_THAT(second.Open(kHello10), HasSubstr("<session-id>2</session-id>"));
  EXPECT_THAT(first.Rpc("<get/>"), HasSubstr("<data>"));
  EXPECT_THAT(second.Rpc("<get/>"), HasSubstr("<data>"));
}

TEST_F(SessionTest, ReplyCarriesWhatTheRpcElementHad) {
  Start();
  TestClient client(server_options_.socket_path);
  client.Open();
  client.SendMessage(
      "<?xml version='1.0'?>\n<nc:rpc xmlns:nc='urn:ietf:params:xml:ns:netconf:base:1.0' "
      "xmlns:u='urn:unused' u:k=\"a&amp;b > c\" message-id='m 1'><nc:close-session/></nc:rpc>");
  EXPECT_EQ(client.Receive(),
            "<nc:rpc-reply xmlns:nc='urn:ietf:params:xml:ns:netconf:base:1.0' "
            "xmlns:u='urn:unused' u:k=\"a&amp;b > c\" message-id='m 1'>"
            "<ok xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"/></nc:rpc-reply>");
  EXPECT_EQ(client.Receive(), "CLOSED");
}

// Some clients leave namespaces out where there is no doubt; some begin with a byte order mark.
TEST_F(SessionTest, NamespacesMayBeLeftOutWhereThereIsNoDoubt) {
  Start();
  TestClient client(server_options_.socket_path);
  client.Open(std::string("\xef\xbb\xbf") + kHello11);
  const auto rpc = [&client](const std::string& operation) {
    client.SendMessage(
        "\xef\xbb\xbf<nc:rpc xmlns:nc='urn:ietf:params:xml:ns:netconf:base:1.0' message-id='1'>" +
        operation + "</nc:rpc>");
    return client.Receive();
  };
  const std::string start = "<nc:edit-config><nc:target><nc:running/></nc:target><config>",
                    list = "<config xmlns='urn:acl-app:acl'><access-list>",
                    end = "</access-list></config></config></nc:edit-config>";
  const auto interface = [](const std::string& name, const std::string& attribute = "") {
    return "<interface" + attribute + "><interface-name>" + name + "</interface-name></interface>";
  };
  EXPECT_THAT(rpc(start + list + interface("e0") + interface("e1") + end), HasSubstr("<ok xmlns="));
  EXPECT_THAT(rpc(start + list + interface("e0", " operation='remove'") +
                  interface("e1", " operation=\"create\"") + end),
              AllOf(HasSubstr("<error-tag>data-exists<"), HasSubstr("interface-name='e1'")));
  EXPECT_THAT(rpc(start + list + interface("e0", " operation='remove'") + end), HasSubstr("<ok "));
  for (const char* get : {"<get-config><source><running/></source></get-config>",
                          "<nc:get><filter type='subtree'><config/></filter></nc:get>"}) {
    EXPECT_THAT(rpc(get),
                AllOf(HasSubstr(">e1<"), Not(HasSubstr(">e0<")), Not(HasSubstr("status"))))
        << get;
  }
}

TEST_F(SessionTest, EditsShowInGetConfig) {
  Start();
  TestClient client(server_options_.socket_path);
  client.Open();
  EXPECT_THAT(client.Rpc(EditInterface("e0")), HasSubstr(kOkReply));
  EXPECT_THAT(client.Rpc(EditInterface("e1%s", "create")), HasSubstr(kOkReply));
  EXPECT_THAT(client.Rpc(kGetRunning),
              AllOf(HasSubstr("<interface-name>e0<"), HasSubstr("<interface-name>e1%s<")));
  EXPECT_THAT(client.Rpc("<get-config><source><running/></source><filter type='subtree'>"
                         "<config xmlns='urn:acl-app:acl'><access-list><interface>"
                         "<interface-name>e0</interface-name></interface></access-list></config>"
                         "</filter></get-config>"),
              AllOf(HasSubstr("<interface-name>e0<"), Not(HasSubstr("e1%s"))));
  EXPECT_THAT(client.Rpc(EditInterface("e0", "delete")), HasSubstr(kOkReply));
  EXPECT_THAT(client.Rpc(EditInterface("e2", "merge", "<test-option>test-only</test-option>")),
              HasSubstr(kOkReply));
  EXPECT_THAT(client.Rpc(kGetRunning), AllOf(Not(HasSubstr("e0")), Not(HasSubstr("e2"))));
  EXPECT_THAT(client.Rpc("<edit-config><target><running/></target>"
                         "<default-operation>replace</default-operation><config/></edit-config>"),
              HasSubstr(kOkReply));
  EXPECT_THAT(client.Rpc(kGetRunning), Not(HasSubstr("interface-name")));
}

TEST_F(SessionTest, ListsAreShownByKeyWhateverTheirHistory) {
  std::string shown, reversed;
  const auto entry = [](int priority) {
    return "<access-list-entry><ace-priority>" + std::to_string(priority) +
           "</ace-priority></access-list-entry>";
  };
  for (const int priority : {2, 9, 10, 100, 1000}) {
    shown += entry(priority);
    reversed.insert(0, entry(priority));
  }
  const auto list = [](const std::string& name, const std::string& entries) {
    return "<access-list><acl-type>l3</acl-type><acl-name>" + name +
           "</acl-name><acl-priority-l3>"
           "<priority>" +
           std::to_string(name.size()) + "</priority></acl-priority-l3>" + entries +
           "</access-list>";
  };
  std::string many;  // so that the list is read in pages
  for (int i = 0; i < 200; ++i) many += entry((i * 77) % 200 + 2000);
  const auto edit = [](const std::string& lists, const std::string& interfaces) {
    return EditConfig(
        AccessList("<acl-profile><ingress>" + lists + "</ingress></acl-profile>" + interfaces));
  };
  const auto interface = [](const std::string& name, const std::string& bound) {
    return "<interface><interface-name>" + name + "</interface-name>" + bound + "</interface>";
  };
  const std::string b = "<ingress>b</ingress>", bb = "<ingress>bb</ingress>";
  Start();
  EXPECT_THAT(Ask(edit(list("bb", reversed) + list("b", reversed) + list("bbb", many),
                       interface("e2", bb + b) + interface("e1", "") + interface("e10", ""))),
              HasSubstr(kOkReply));
  EXPECT_THAT(Ask(edit(list("aaaa", "") + list("bbb", reversed), interface("e0", ""))),
              HasSubstr(kOkReply));
  const std::string running = Ask(kGetRunning);
  EXPECT_THAT(running, AllOf(HasSubstr(list("aaaa", "") + list("b", shown) + list("bb", shown)),
                             HasSubstr(shown + entry(2000) + entry(2001) + entry(2002)),
                             HasSubstr(interface("e0", "") + interface("e1", "") +
                                       interface("e10", "") + interface("e2", b + bb))));
  const std::string evaluated =
      "<get-config><source><running/></source><filter type='xpath' select='(/*)'/></get-config>";
  EXPECT_EQ(Ask(evaluated), running);
  Stop();
  server_.reset();
  datastore_.reset();
  Start();
  EXPECT_EQ(Ask(kGetRunning), running) << "after a restart";
}

std::string EditEntry(const std::string& match, const std::string& profile = "l3") {
  const std::string priority = "acl-priority-" + profile;
  return EditConfig(AccessList(
      "<acl-profile><ingress><access-list><acl-type>l3</acl-type><acl-name>A</acl-name><" +
      priority + "><priority>1</priority></" + priority +
      "><access-list-entry><ace-priority>2</ace-priority><match>" + match +
      "</match></access-list-entry></access-list></ingress></acl-profile>"));
}
const std::string kEntryPath =
    "acl-app:access-list[acl-app:acl-type='l3'][acl-app:acl-name='A']"
    "/acl-app:access-list-entry[acl-app:ace-priority='2']/acl-app:match";

struct ErrorCase {
  const char* name;
  std::string operation;  // empty: `message` is all
  std::string tag;
  std::string parts;  // of the reply, with | between them
  std::string message = Rpc(operation);
};
void PrintTo(const ErrorCase& c, std::ostream* out) { *out << c.name; }

std::string Many(const std::string& one, int count = 500) {
  std::string many;
  for (int i = 0; i < count; ++i) many += one;
  return many;
}
std::string Validate(const std::string& config) {
  return "<validate><source><config>" + config + "</config></source></validate>";
}

const ErrorCase kErrors[] = {
    {"ManyParameters", "<get>" + Many("<x/>") + "</get>", "unknown-element",
     "bad-element>x<|there are more errors"},
    {"ManyUnknownNodes", Validate(Many("<b xmlns='urn:acl-app:acl'/>")), "unknown-element",
     "bad-element>b<|there are more errors"},
    {"ManyBadAttributes", EditEntry(Many("<vlan nc:foo='1'>5</vlan>")), "unknown-attribute",
     "bad-attribute>foo<|there are more errors"},
    {"Malformed", "", "malformed-message", "", std::string(kRpcStart) + "<get></rpc>"},
    {"NotXml", "", "malformed-message", "<error-type>rpc<", "hello?"},
    {"Doctype", "", "malformed-message", "", "<!DOCTYPE x>" + Rpc("<get/>")},
    {"SiblingsWithAndWithoutNamespace",
     EditConfig("<x xmlns=''/><x xmlns = \"\"/><x xmlns='urn:z'/>"), "unknown-namespace", ""},
    {"RootsWithAndWithoutNamespace", "", "unknown-namespace", "",
     "<rpc xmlns=''>x</rpc>" + Rpc("<get/>")},
    {"NoMessageId", "", "missing-attribute", "bad-attribute>message-id<|bad-element>rpc<",
     "<rpc xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'><get/></rpc>"},
    {"NotAnRpc", "", "unknown-element", "bad-element>run<",
     "<run xmlns='urn:ietf:params:xml:ns:netconf:base:1.0' message-id='1'/>"},
    {"RpcOfOtherNamespace", "", "unknown-namespace", "<bad-namespace>urn:x<",
     "<rpc xmlns='urn:x' message-id='1'><get/></rpc>"},
    {"NoOperation", "", "missing-element",
     "<error-type>rpc<|bad-element>rpcOperation<|message-id='1'"},
    {"RpcWithoutNamespace", "", "unknown-namespace", "bad-element>rpc<|has no namespace",
     "<rpc message-id='1'><get/></rpc>"},
    {"OperationOfAPrefixThatIsNone", "<x:get/>", "operation-not-supported",
     "no operation &quot;get&quot;"},
    {"ParameterOfAPrefixThatIsNone",
     "<get-config><source><running/></source><x:filter/></get-config>", "unknown-namespace",
     "bad-element>filter<"},
    {"DataWithoutNamespace", "", "unknown-namespace", "bad-element>top<|top has no namespace",
     "<n:rpc xmlns:n='urn:ietf:params:xml:ns:netconf:base:1.0' message-id='1'>" +
         EditConfig("<top><x/></top>") + "</n:rpc>"},
    {"TwoOperations", "<get/><lock/>", "unknown-element", "bad-element>lock<"},
    {"UnknownOperation", "<frob/>", "operation-not-supported", ""},
    {"OperationOfUnknownNamespace", "<frob xmlns='urn:x'/>", "operation-not-supported",
     "<error-type>protocol<"},
    {"UnknownParameter", "<get-config><source><running/></source><x/></get-config>",
     "unknown-element", "bad-element>x<"},
    {"BadParameter", EditConfig("", "<default-operation>create</default-operation>"),
     "invalid-value", "expected merge, replace, none"},
    {"MissingTarget", "<edit-config><config/></edit-config>", "missing-element",
     "bad-element>target<"},
    {"MissingConfig", "<edit-config><target><running/></target></edit-config>", "missing-element",
     "bad-element>config<"},
    {"MissingSource", "<get-config/>", "missing-element", "bad-element>source<"},
    {"BadFilterType", "<get><filter type='regex'/></get>", "bad-attribute",
     "bad-attribute>type<|bad-element>filter<"},
    {"UnknownEditOperation", EditInterface("e0", "zap"), "bad-attribute",
     "bad-attribute>operation<|bad-element>interface<"},
    {"ValueOutOfItsType", EditEntry("<vlan>5000</vlan>"), "invalid-value",
     kEntryPath + "|<error-type>application<|xmlns:acl-app=\"urn:acl-app:acl\"|expected 1..4094"},
    {"NumberThatIsNotDecimal", EditEntry("<ip-protocol>0x6</ip-protocol>"), "invalid-value",
     kEntryPath + "|/acl-app:ip-protocol<|or 0..255"},
    {"ElementsInAValue", EditEntry("<vlan>5<x/></vlan>"), "bad-element",
     kEntryPath + "|/acl-app:vlan<|has elements within"},
    {"UnknownAttribute", EditEntry("<vlan nc:foo='1'>5</vlan>"), "unknown-attribute",
     kEntryPath + "|bad-attribute>foo<|bad-element>vlan<"},
    {"AttributeWithoutNamespace", EditEntry("<vlan operations='delete'>5</vlan>"),
     "unknown-attribute", "bad-attribute>operations<|bad-element>vlan<"},
    {"OperationOfOtherNamespaceInASource",
     Validate(AccessList("<interface xmlns:n='urn:ietf:params:xml:ns:netconf:base:1.1' "
                         "n:operation='delete'><interface-name>e0</interface-name></interface>")),
     "unknown-attribute",
     "acl-app:interface[acl-app:interface-name='e0']<|bad-attribute>operation<"},
    {"MaskWithoutAddress",
     EditEntry("<source-mac-address-mask>00:00:00:00:00:01</source-mac-address-mask>"),
     "operation-failed", kEntryPath + "|<error-app-tag>must-violation<"},
    {"PriorityOfTheOtherType", EditEntry("", "l2"), "unknown-element",
     "acl-priority-l2 is only allowed where ../acl-type = 'l2'"},
    {"DeleteOfAKey",
     EditConfig(AccessList("<interface><interface-name nc:operation='delete'>here</interface-name>"
                           "</interface>")),
     "bad-attribute", "bad-attribute>operation<|bad-element>interface-name<"},
    {"TextForAConfiguration", EditConfig("hello"), "bad-element",
     "bad-element>config<|holds a text"},
    {"TextForASource", Validate("hello"), "bad-element", "bad-element>config<"},
    {"TwoTargets", "<edit-config><target><running/><candidate/></target><config/></edit-config>",
     "bad-element", "only one can be given"},
    {"XPathThatIsNone", "<get><filter type='xpath' select='///'/></get>", "bad-attribute",
     "bad-attribute>select<|is no XPath expression"},
    {"XPathThatIsTooLong",
     "<get><filter type='xpath' select='" + std::string(500000, '-') + "1'/></get>",
     "bad-attribute", "bad-attribute>select<|longer than 4096"},
    {"AttributeOfAnOperation", "<get foo='bar'/>", "unknown-attribute",
     "bad-attribute>foo<|bad-element>get<"},
    {"NothingToDelete", "<delete-config><target><running/></target></delete-config>",
     "operation-not-supported", ""},
    {"UnknownNode", EditConfig("<config xmlns='urn:acl-app:acl'><bogus/></config>"),
     "unknown-element", "bad-element>bogus<"},
    {"CreateOfWhatExists", EditInterface("here", "create"), "data-exists", ""},
    {"DeleteOfWhatDoesNot", EditInterface("none", "delete"), "data-missing", ""},
    {"UnlockWithoutLock", "<unlock><target><running/></target></unlock>", "operation-failed", ""},
    {"KillOfItself", "<kill-session><session-id>1</session-id></kill-session>", "invalid-value",
     ""},
    {"KillOfNobody", "<kill-session><session-id>9</session-id></kill-session>", "invalid-value",
     ""},
    {"TooDeep", Many("<a>", 100000) + Many("</a>", 100000), "too-big", "message-id='1'"},
    {"TooLong", "<get>" + std::string(3 << 20, ' ') + "</get>", "too-big", "message-id='1'"},
};

class ErrorTest : public SessionTest, public testing::WithParamInterface<ErrorCase> {};

TEST_P(ErrorTest, IsAnsweredAndChangesNothing) {
  server_options_.limits.message_bytes = 2 << 20;
  Start();
  TestClient client(server_options_.socket_path);
  client.Open();
  ASSERT_THAT(client.Rpc(EditInterface("here")), HasSubstr(kOkReply));
  const std::string before = client.Rpc(kGetRunning);
  client.SendMessage(GetParam().message);
  const std::string reply = client.Receive();
  EXPECT_THAT(reply, AllOf(HasSubstr("<rpc-error"), HasSubstr("<error-severity>error<"),
                           HasSubstr("<error-tag>" + GetParam().tag + "<"),
                           HasSubstr("<error-message"), EndsWith("rpc-reply>")));
  size_t errors = 0;
  for (size_t at = 0; (at = reply.find("<rpc-error ", at)) != std::string::npos; ++at) ++errors;
  EXPECT_LE(errors, kMaxErrors + 1);
  std::istringstream parts(GetParam().parts);
  for (std::string part; std::getline(parts, part, '|');) EXPECT_THAT(reply, HasSubstr(part));
  EXPECT_EQ(client.Rpc(kGetRunning), before);
}

INSTANTIATE_TEST_SUITE_P(Tags, ErrorTest, testing::ValuesIn(kErrors),
                         [](const auto& info) { return info.param.name; });

TEST_F(SessionTest, OldPeersNeverGetTheNewTag) {
  Start();
  TestClient client(server_options_.socket_path);
  client.Open(kHello10);
  client.SendMessage("<rpc");
  EXPECT_THAT(client.Receive(), HasSubstr("<error-tag>operation-failed<"));
}

TEST_F(SessionTest, LockKeepsOthersOutUntilItsSessionEnds) {
  Start();
  const std::string lock = "<lock><target><running/></target></lock>";
  const std::string unlock = "<unlock><target><running/></target></unlock>";
  TestClient holder(server_options_.socket_path), other(server_options_.socket_path);
  holder.Open();
  other.Open();
  EXPECT_THAT(holder.Rpc(lock), HasSubstr(kOkReply));
  EXPECT_THAT(holder.Rpc(lock), HasSubstr("<error-tag>lock-denied<"));
  EXPECT_THAT(other.Rpc(lock), AllOf(HasSubstr("<error-tag>lock-denied<"),
                                     HasSubstr("<error-info><session-id>1</session-id>")));
  EXPECT_THAT(other.Rpc(EditInterface("e0")), HasSubstr("<error-tag>in-use<"));
  EXPECT_THAT(other.Rpc(unlock), HasSubstr("<error-tag>operation-failed<"));
  EXPECT_THAT(holder.Rpc(EditInterface("e0")), HasSubstr(kOkReply));
  EXPECT_THAT(holder.Rpc(unlock), HasSubstr(kOkReply));
  EXPECT_THAT(other.Rpc(lock), HasSubstr(kOkReply));
  other.Close();
  // The server may see the next request before the end of the other session.
  std::string reply;
  for (int i = 0; i < 100 && reply.find(kOkReply) == std::string::npos; ++i)
    reply = holder.Rpc(lock);
  EXPECT_THAT(reply, HasSubstr(kOkReply));
}

TEST_F(SessionTest, KillEndsTheOtherSession) {
  Start();
  TestClient killer(server_options_.socket_path), victim(server_options_.socket_path);
  killer.Open();
  victim.Open();
  EXPECT_THAT(victim.Rpc("<lock><target><running/></target></lock>"), HasSubstr(kOkReply));
  EXPECT_THAT(killer.Rpc("<kill-session><session-id>2</session-id></kill-session>"),
              HasSubstr(kOkReply));
  EXPECT_EQ(victim.Receive(), "CLOSED");
  EXPECT_THAT(killer.Rpc(EditInterface("e0")), HasSubstr(kOkReply));
}

TEST_F(SessionTest, PipelinedRequestsAreAnsweredInOrder) {
  Start();
  TestClient client(server_options_.socket_path);
  client.Open();
  std::string burst;
  constexpr int kCount = 200;
  for (int i = 0; i < kCount; ++i) {
    const std::string rpc = "<rpc message-id='" + std::to_string(i) + "' xmlns='" +
                            kNetconfNamespace + "'>" + EditInterface("e" + std::to_string(i)) +
                            "</rpc>";
    burst += FramePrefix(Framing::kChunked, rpc.size()) + rpc +
             std::string(FrameSuffix(Framing::kChunked));
  }
  ASSERT_TRUE(client.Send(burst));
  for (int i = 0; i < kCount; ++i) {
    EXPECT_THAT(client.Receive(),
                AllOf(HasSubstr("message-id='" + std::to_string(i) + "'"), HasSubstr(kOkReply)));
  }
}

struct BadHello {
  const char* name;
  std::string bytes;
};
const BadHello kBadHellos[] = {
    {"NotXml", "GET / HTTP/1.1\r\n\r\n]]>]]>"},
    {"NotAHello", Rpc("<get/>") + "]]>]]>"},
    {"NoCommonBase", "<hello xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'/>]]>]]>"},
    {"SessionId",
     "<hello xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'><capabilities><capability>"
     "urn:ietf:params:netconf:base:1.0</capability></capabilities>"
     "<session-id>4</session-id></hello>]]>]]>"},
    {"TooLong", "<hello>" + std::string(100000, ' ')},
    {"ChunksTooEarly", "\n#5\n<get>\n##\n]]>]]>"},
    {"Deep", std::string(70, '<') + "]]>]]>"},
};

TEST_F(SessionTest, BadHellosEndTheSession) {
  Start();
  for (const BadHello& bad : kBadHellos) {
    TestClient client(server_options_.socket_path);
    EXPECT_THAT(client.Receive(), StartsWith("<hello")) << bad.name;
    client.Send(bad.bytes);
    EXPECT_EQ(client.Receive(), "CLOSED") << bad.name;
  }
  EXPECT_THAT(Ask("<get/>"), HasSubstr("<data>"));
}

TEST_F(SessionTest, BrokenFramesEndTheSession) {
  Start();
  TestClient client(server_options_.socket_path);
  client.Open();
  client.Send("\n#x\n");
  EXPECT_EQ(client.Receive(), "CLOSED");
}

TEST_F(SessionTest, SilentPeersAreDropped) {
  server_options_.limits.hello_timeout = server_options_.limits.stall_timeout =
      std::chrono::seconds(1);
  Start();
  TestClient mute(server_options_.socket_path), half(server_options_.socket_path);
  EXPECT_THAT(half.Open(), StartsWith("<hello"));
  half.Send("\n#1000\n<rpc");
  EXPECT_THAT(mute.Receive(), StartsWith("<hello"));
  EXPECT_EQ(mute.Receive(), "CLOSED");
  EXPECT_EQ(half.Receive(), "CLOSED");
}

// Peers that send half a message, never say hello, or never read must not hold up the others.
TEST_F(SessionTest, HostilePeersDoNotStallOthers) {
  constexpr int kInterfaces = RandomRounds(2000);
  server_options_.limits.all_input_bytes = 8 << 20;
  Start();
  TestClient worker(server_options_.socket_path);
  worker.Open();
  for (int i = 0; i < kInterfaces; ++i) {
    ASSERT_THAT(worker.Rpc(EditInterface("interface-" + std::to_string(i))), HasSubstr(kOkReply));
  }
  std::vector<std::unique_ptr<TestClient>> peers;
  for (int i = 0; i < 150; ++i) {
    peers.push_back(std::make_unique<TestClient>(server_options_.socket_path));
    TestClient& peer = *peers.back();
    if (i % 3 == 0) continue;  // no hello
    peer.Open();
    if (i % 3 == 1) {
      peer.Send("\n#100000\n<rpc" + std::string(1000, ' '));
    } else {  // asks for more than fits the socket, and never reads
      for (int k = 0; k < 20; ++k) peer.SendMessage(Rpc(kGetRunning));
    }
  }
  for (int i = 0; i < kInterfaces / 10; ++i) {
    EXPECT_THAT(worker.Rpc(EditInterface("interface-" + std::to_string(i * 10), "remove")),
                HasSubstr(kOkReply));
  }
  Stop();
  EXPECT_EQ(server_->session_count(), 151u);
  // A part of a reply each at most, and what the commits since changed of what they still show.
  EXPECT_LT(server_->usage().output, 50u * (64 << 10));
  EXPECT_LT(server_->pages().used, 4u << 20);
}

TEST_F(SessionTest, HalfMessagesHaveACommonBudget) {
  server_options_.limits.all_input_bytes = 4 << 20;
  Start();
  TestClient first(server_options_.socket_path), second(server_options_.socket_path);
  first.Open();
  second.Open();
  EXPECT_TRUE(first.Send("\n#9000000\n" + std::string(1 << 20, ' ')));
  second.Send("\n#9000000\n" + std::string(5 << 20, ' '));
  EXPECT_EQ(second.Receive(), "CLOSED");
  EXPECT_THAT(Ask("<get/>"), HasSubstr("<data>"));
}

TEST_F(SessionTest, SessionsAreCounted) {
  server_options_.limits.sessions = 2;
  Start();
  TestClient first(server_options_.socket_path), second(server_options_.socket_path);
  first.Open();
  second.Open();
  TestClient third(server_options_.socket_path);
  EXPECT_THAT(third.Receive(), AllOf(HasSubstr("resource-denied"), HasSubstr("too many sessions")));
  EXPECT_EQ(third.Receive(), "CLOSED");
  second.Close();
  std::string hello;
  for (int i = 0; i < 300 && hello.rfind("<hello", 0) != 0; ++i) {
    hello = TestClient(server_options_.socket_path).Receive();
    usleep(1000);
  }
  EXPECT_THAT(hello, StartsWith("<hello"));
}

// What runs as another user, in a group of his, on a thread that has given up being root.
void AsOther(uid_t user, gid_t group, const std::function<void()>& run) {
  std::thread([&] {
    ASSERT_EQ(syscall(SYS_setgroups, 1, &group), 0);
    ASSERT_EQ(syscall(SYS_setresuid, user, user, user), 0);
    run();
  }).join();
}

TEST_F(SessionTest, ReadersHaveSoManySessionsAndGroupsComeFromTheKernel) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  constexpr gid_t kGroup = 3;  // sys, in Debian and elsewhere
  server_options_.limits.user_sessions = 2;
  server_options_.socket_mode = 0666;
  server_options_.write_group = getgrgid(kGroup)->gr_name;
  chmod(directory_.c_str(), 0755);
  Start();
  std::vector<std::unique_ptr<TestClient>> clients;
  const auto hello = [&] {
    clients.push_back(std::make_unique<TestClient>(server_options_.socket_path));
    return clients.back()->Open();
  };
  AsOther(54321, 54321, [&] {
    EXPECT_THAT(hello(), HasSubstr("<hello"));
    EXPECT_THAT(hello(), HasSubstr("<hello"));
    EXPECT_THAT(clients[0]->Rpc(EditInterface("e0")), HasSubstr("access-denied"));
    EXPECT_THAT(hello(), HasSubstr("too many sessions of this user"));
  });
  AsOther(54322, 54321, [&] { EXPECT_THAT(hello(), HasSubstr("<hello")); });
  AsOther(54323, kGroup, [&] {
    for (int i = 0; i < 3; ++i) EXPECT_THAT(hello(), HasSubstr("<hello"));
    EXPECT_THAT(clients.back()->Rpc(EditInterface("e0")), HasSubstr(kOkReply));
  });
}

TEST_F(SessionTest, ReadersHaveSoManyLinesOfTheLog) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  server_options_.socket_mode = 0666;
  chmod(directory_.c_str(), 0755);
  testing::internal::CaptureStderr();
  Start();
  constexpr uint64_t kSessions = 150;
  const auto ask = [this] {
    for (uint64_t i = 0; i < kSessions; ++i) {
      TestClient client(server_options_.socket_path);
      client.Open();
      for (int request = 0; request < 2; ++request) client.Rpc("<zap/>");
    }
  };
  ask();
  AsOther(54321, 54321, ask);
  Stop();
  server_.reset();
  const std::string log = testing::internal::GetCapturedStderr();
  const size_t told = log.find(" lines on sessions of uid 54321 were left out\n");
  ASSERT_NE(told, std::string::npos);
  const uint64_t left_out = std::stoul(log.substr(log.rfind(' ', told - 1)));
  // Four lines a session: its begin, its two requests, its end.
  EXPECT_GT(left_out, 0);
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2 * kSessions * 4 - left_out + 1);
}

TEST_F(SessionTest, NobodyWaitsForASlowNameService) {
  std::promise<void> answer;
  std::shared_future<void> answered = answer.get_future();
  server_options_.user_name = [answered](uid_t) {
    answered.wait();
    return std::string("somebody");
  };
  server_options_.limits.name_timeout = std::chrono::milliseconds(1500);
  Start();
  const std::string sessions =
      "<get><filter><netconf-state xmlns='urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring'>"
      "<sessions/></netconf-state></filter></get>";
  TestClient early(server_options_.socket_path);
  EXPECT_THAT(early.Open(), HasSubstr("<hello")) << "after the time-out";
  TestClient waiting(server_options_.socket_path);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(early.Rpc(sessions), HasSubstr("<username>uid "));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1200));
  answer.set_value();
  EXPECT_THAT(waiting.Open(), HasSubstr("<hello"));
  EXPECT_THAT(early.Rpc(sessions),
              AllOf(HasSubstr("<username>somebody<"), Not(HasSubstr("<username>uid"))));
}

TEST_F(SessionTest, SocketMustBeFreeAndItsPlaceThere) {
  Start();
  struct {
    std::string path, group, reason;
  } cases[] = {
      {server_options_.socket_path, "", "is in use by a running process"},
      {directory_ + "/none/netconf.sock", "", "does not exist"},
      {directory_ + "/other.sock", "no-such-group", "the group no-such-group"},
      {directory_ + "/file", "", "is no socket"},
      {directory_ + "/" + std::string(200, 'x'), "", "too long"},
  };
  std::ofstream(directory_ + "/file") << "no socket";
  for (const auto& c : cases) {
    std::string error;
    EXPECT_LT(ListenAt(c.path, 0600, c.group, &error), 0) << c.path;
    EXPECT_THAT(error, HasSubstr(c.reason));
  }
  EXPECT_THAT(Ask("<get/>"), HasSubstr("<data>"));
}

TEST_F(SessionTest, SocketOfADeadProcessIsReplacedWithTheRightMode) {
  std::string error;
  server_options_.socket_mode = 0640;
  close(ListenAt(server_options_.socket_path, 0666, "", &error));
  Start();
  struct stat info {};
  stat(server_options_.socket_path.c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777, 0640u);
  EXPECT_THAT(Ask("<get/>"), HasSubstr("<data>"));
  Stop();
  server_.reset();
  EXPECT_NE(stat(server_options_.socket_path.c_str(), &info), 0);
}

}  // namespace
}  // namespace host
