// The cdb_* calls: values, paths, positions, operational data.
#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

#include "host/cdb/calls/cdb_service.h"
#include "host/cdb/operational_store.h"
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_lib.h"
#include "tests/host/cdb/support.h"
#include "yang_tags.h"

namespace host {
namespace {

constexpr char kList[] = "/config/access-list/acl-profile/ingress/access-list/";

class CdbCallsTest : public testing::Test {
 protected:
  CdbCallsTest() : datastore_(OpenDatastore()), service_(datastore_.get()) {
    running_ = service_.OpenSession(CDB_RUNNING);
    status_ = service_.OpenSession(CDB_OPERATIONAL);
  }

  void Commit(const std::string& content) {
    ASSERT_EQ("", ToText(Edit(datastore_.get(), Config(content))));
  }

  // Type and content of the value at the path, such as "15:10.0.0.1".
  std::string Get(const std::string& path) {
    confd_value_t value;
    if (cdb_get(running_, &value, "%s", path.c_str()) != CONFD_OK) return "error";
    std::string text = std::to_string(value.type) + ":";
    if (value.type == C_LIST) {
      for (unsigned int i = 0; i < value.val.list.size; ++i) {
        EXPECT_EQ(C_BUF, value.val.list.ptr[i].type);
        text += std::string(reinterpret_cast<char*>(value.val.list.ptr[i].val.buf.ptr)) + ",";
      }
    } else {
      std::string content;
      EXPECT_TRUE(ToText(nullptr, value, &content));
      text += content;
      if (value.type == C_BUF) {
        EXPECT_EQ(strlen(reinterpret_cast<char*>(value.val.buf.ptr)), value.val.buf.size);
      }
    }
    confd_free_value(&value);
    return text;
  }

  std::string Position() {
    char text[512];
    EXPECT_EQ(CONFD_OK, cdb_getcwd(running_, sizeof(text), text));
    return text;
  }

  std::unique_ptr<Datastore> datastore_;
  CdbService service_;
  int running_ = -1;
  int status_ = -1;
};

TEST_F(CdbCallsTest, ValuesHaveTheirTypes) {
  struct Case {
    const char* leaf;
    const char* text;
    const char* value;  // type code and content
  };
  const Case cases[] = {
      {"source-mac-address", "02:Ab:00:ff:10:01", "39:02:ab:00:ff:10:01"},
      {"destination-mac-address", "00:00:00:00:00:00", "39:00:00:00:00:00:00"},
      {"vlan", "4094", "11:4094"},
      {"pcp", "7", "10:7"},
      {"dscp", "ef", "28:46"},
      {"dscp", "63", "10:63"},
      {"dscp", "0", "10:0"},
      {"tos", "255", "10:255"},
      {"ethertype", "ipv6", "28:34525"},
      {"ethertype", "0x88A8", "5:0x88A8"},
      {"ethertype", "86dd", "5:86dd"},
      {"ip-protocol", "tcp", "28:6"},
      {"ip-protocol", "255", "10:255"},
      {"destination-port", "https", "28:443"},
      {"destination-port", "65535", "11:65535"},
      {"source-ipv4-address/no-mask/ip", "10.0.0.255", "15:10.0.0.255"},
      {"source-ipv4-address/mask/ip", "10.1.2.3/8", "48:10.1.2.3/8"},
      {"destination-ipv4-address/mask/ip", "255.255.255.255/0", "48:255.255.255.255/0"},
      {"destination-ipv4-address/mask/ip", "1.2.3.4/32", "48:1.2.3.4/32"},
  };
  Commit(Profiles(Profile("l2", "A", 5, Entry(1))));
  for (const Case& test : cases) {
    // a/b/c=text as nested elements
    std::string open, close, names = test.leaf;
    for (size_t at = 0; at != std::string::npos;) {
      const size_t slash = names.find('/', at);
      const std::string name = names.substr(at, slash == std::string::npos ? slash : slash - at);
      open += "<" + name + ">";
      close = "</" + name + ">" + close;
      at = slash == std::string::npos ? slash : slash + 1;
    }
    Commit(Profiles(Profile("l2", "A", -1, Entry(1, Match(open + test.text + close)))));
    EXPECT_EQ(test.value, Get(std::string(kList) + "[0]/access-list-entry[0]/match/" + test.leaf))
        << test.leaf << " " << test.text;
  }
  confd_value_t value;
  ASSERT_EQ(CONFD_OK, cdb_get(running_, &value, "%s[0]/access-list-entry[0]/match/%s", kList,
                              "source-ipv4-address/mask/ip"));
  EXPECT_EQ(htonl(0x0a010203), value.val.ipv4prefix.ip.s_addr);
}

TEST_F(CdbCallsTest, TypedReads) {
  Commit(Profiles(Profile("l3", "A%s", 65535, Entry(7)) + Profile("l2", "B", 0)));
  unsigned char* name = nullptr;
  int length = 0;
  int32_t number = -1;
  ASSERT_EQ(CONFD_OK, cdb_get_buf(running_, &name, &length, "%s[1]/acl-name", kList));
  EXPECT_STREQ("A%s", reinterpret_cast<char*>(name));
  EXPECT_EQ(3, length);
  free(name);
  EXPECT_EQ(CONFD_OK, cdb_get_enum_value(running_, &number, "%s[1]/acl-type", kList));
  EXPECT_EQ(1, number);
  EXPECT_EQ(CONFD_OK, cdb_get_int32(running_, &number, "%s[1]/acl-priority-l3/priority", kList));
  EXPECT_EQ(65535, number);
  EXPECT_EQ(CONFD_OK,
            cdb_get_int32(running_, &number, "%s[1]/access-list-entry[0]/ace-priority", kList));
  EXPECT_EQ(7, number);
  // Each refuses what is of another type or absent, and says so.
  EXPECT_EQ(CONFD_ERR, cdb_get_int32(running_, &number, "%s[1]/acl-name", kList));
  EXPECT_EQ(CONFD_ERR, cdb_get_enum_value(running_, &number, "%s[1]/acl-name", kList));
  EXPECT_EQ(CONFD_ERR, cdb_get_buf(running_, &name, &length, "%s[1]/acl-type", kList));
  EXPECT_EQ(CONFD_ERR, cdb_get_int32(running_, &number, "%s[0]/acl-priority-l3/priority", kList));
  EXPECT_NE(std::string::npos, std::string(confd_lasterr()).find("does not exist"));
}

TEST_F(CdbCallsTest, LeafListsAreSortedAndMayBeEmpty) {
  Commit(Profiles(Profile("l2", "b", 1) + Profile("l2", "a", 2)) +
         Interface("eth0", Bind("b") + Bind("a")) + Interface("eth1"));
  EXPECT_EQ("31:a,b,", Get("/config/access-list/interface/[0]/ingress"));
  EXPECT_EQ("31:", Get("/config/access-list/interface/[1]/ingress"));
  EXPECT_EQ("error", Get("/config/access-list/interface/[2]/ingress"));
  EXPECT_EQ("error", Get("/config/access-list/interface{eth7}/ingress"));
}

TEST_F(CdbCallsTest, PathsOfEveryForm) {
  struct Case {
    const char* path;
    int exists;  // as cdb_exists answers
  };
  const Case cases[] = {
      {"/", 1},
      {"/config/access-list/acl-profile/ingress/access-list/", 1},
      {"/config/access-list/interface", 1},
      {"/config/access-list/interface/", 1},
      {"/config/access-list/interface[0]", 1},
      {"/config/access-list/interface/[0]/", 1},
      {"/config/access-list/interface[1]", -1},
      {"/config/access-list/interface[-1]", -1},
      {"/config/access-list/interface[99999999999999999999]", -1},
      {"/config/access-list/interface[0", -1},
      {"/config/access-list/interface[0][0]", -1},
      {"/config/access-list/interface{g-1/1/1}", 1},
      {"/config/access-list/interface{g-1/1/1}/ingress", 1},
      {"/config/access-list/interface{g-1/1/1}/ingress{A}", 1},
      {"/config/access-list/interface{g-1/1/1}/ingress{B}", 0},
      {"/config/access-list/interface{\"g-1/1/1\"}", 1},
      {"/config/access-list/interface{\"g-1/1/1\"}/interface-name", 1},
      {"/config/access-list/interface", 1},
      {"/config/access-list/interface/interface-name", -1},
      {"/config/access-list/interface{g-1/1}", 0},
      {"/config/access-list/interface{g-1/1}/ingress", 0},
      {"/config/access-list/interface{a b}", -1},
      {"/config/access-list/interface{}", -1},
      {"/config/access-list/interface{x", -1},
      {"/config/access-list/acl-profile/ingress/access-list{l2 A}", 1},
      {"/config/access-list/acl-profile/ingress/access-list{0 A}/acl-name", 1},
      {"/config/access-list/acl-profile/ingress/access-list{\"l2\" \"A\"}/acl-type", 1},
      {"/config/access-list/acl-profile/ingress/access-list{l3 A}", 0},
      {"/config/access-list/acl-profile/ingress/access-list{A}", -1},
      {"/config/access-list/acl-profile/ingress/access-list{l4 A}", -1},
      {"/config/access-list/acl-profile/ingress/access-list{l2 A}/access-list-entry{5}", 1},
      {"/config/access-list/acl-profile/ingress/access-list{l2 A}/access-list-entry{6}/match", 0},
      {"/config/access-list/acl-profile/ingress/access-list[0]/access-list-entry[0]/match/tos", 0},
      {"/config/access-list/acl-profile/ingress/access-list[0]/access-list-entry[0]/match/vlan", 1},
      {"/config/access-list/acl-profile/ingress/access-list[0]/access-list-entry[0]/match/x", -1},
      {"/config/access-list/acl-profile/ingress/access-list[0]/access-list-entry[0]/action", 1},
      {"/config/access-list/acl-profile/../interface[0]/..", 1},
      {"/nothing", -1},
      {"/config{1}", -1},
      {"[0]", -1},
      {"{x}", -1},
  };
  Commit(Profiles(Profile("l2", "A", 5, Entry(5, Match("<vlan>1</vlan>")))) +
         Interface("g-1/1/1", Bind("A")));
  // In both directions, for each call starts from the steps of the one before.
  const size_t count = std::size(cases);
  for (size_t i = 0; i < 2 * count; ++i) {
    const Case& test = cases[i < count ? i : 2 * count - 1 - i];
    EXPECT_EQ(test.exists, cdb_exists(running_, "%s", test.path)) << test.path;
  }
  EXPECT_EQ(1, cdb_num_instances(running_, "%s[0]/access-list-entry", kList));
  EXPECT_EQ(1, cdb_num_instances(running_, "%s", kList));
  EXPECT_EQ(0, cdb_num_instances(status_, "/status/acl-resources/interface"));
  EXPECT_GT(0, cdb_num_instances(running_, "%s[0]/acl-name", kList));
  EXPECT_EQ(CONFD_ERR, cdb_exists(12345, "/config"));
  EXPECT_EQ(CONFD_ERR, cdb_set_namespace(running_, 1));
  EXPECT_EQ(CONFD_OK, cdb_set_namespace(running_, yang_tags::kNamespace));
}

TEST_F(CdbCallsTest, PositionsFollowTheCommits) {
  Commit(Profiles(Profile("l2", "B", 5, Entry(30) + Entry(4))));
  int32_t priority = 0;
  EXPECT_EQ(CONFD_OK,
            cdb_get_int32(running_, &priority, "%s[0]/access-list-entry[0]/ace-priority", kList));
  EXPECT_EQ(4, priority);  // numbers in their order, not the texts'
  // A session is where it was, whatever comes before.
  ASSERT_EQ(CONFD_OK, cdb_cd(running_, "%s[0]/access-list-entry[1]/match", kList));
  Commit(Profiles(Profile("l2", "A", 5, Entry(9))));
  EXPECT_EQ(std::string(kList, sizeof(kList) - 2) + "{l2 B}/access-list-entry{30}/match",
            Position());
  EXPECT_EQ(2, cdb_num_instances(running_, "%s", kList));
  EXPECT_EQ(CONFD_OK,
            cdb_get_int32(running_, &priority, "%s[0]/access-list-entry[0]/ace-priority", kList));
  EXPECT_EQ(9, priority);
}

TEST_F(CdbCallsTest, ThePositionNeedNotExist) {
  Commit(Profiles(Profile("l2", "A", 5,
                          Entry(5, Match("<source-mac-address>02:00:00:00:00:01"
                                         "</source-mac-address>")))));
  const std::string match =
      "/config/access-list/acl-profile/ingress/access-list{l2 A}/access-list-entry{5}/match";
  ASSERT_EQ(CONFD_OK, cdb_cd(running_, "%s/source-mac-address-mask", match.c_str()));
  ASSERT_EQ(CONFD_OK, cdb_cd(running_, ".."));
  EXPECT_EQ(match, Position());
  EXPECT_EQ(1, cdb_exists(running_, "source-mac-address"));
  EXPECT_EQ(1, cdb_exists(running_, "../match/source-mac-address"));
  EXPECT_EQ(0, cdb_exists(running_, "source-mac-address-mask"));
  EXPECT_EQ(CONFD_ERR, cdb_cd(running_, "speed"));
  EXPECT_EQ(match, Position());
  ASSERT_EQ(CONFD_OK, cdb_cd(running_, "/"));
  EXPECT_EQ("/", Position());
  char small[4];
  ASSERT_EQ(CONFD_OK, cdb_cd(running_, "config"));
  EXPECT_EQ(CONFD_ERR, cdb_getcwd(running_, sizeof(small), small));
}

TEST_F(CdbCallsTest, KeypathsHaveTagsAndKeysAndPrintAsPaths) {
  Commit(Profiles(Profile("l3", "A", 5, Entry(5, Match("<vlan>1</vlan>")))));
  ASSERT_EQ(CONFD_OK, cdb_cd(running_, "%s[0]/access-list-entry[0]/match/vlan", kList));
  confd_hkeypath_t* keypath = nullptr;
  ASSERT_EQ(CONFD_OK, cdb_getcwd_kpath(running_, &keypath));
  ASSERT_EQ(10, keypath->len);
  EXPECT_EQ(yang_tags::kVlan, keypath->v[0][0].val.xmltag.tag);
  EXPECT_EQ(5, keypath->v[2][0].val.i32);
  EXPECT_EQ(C_NOEXISTS, keypath->v[2][1].type);
  EXPECT_EQ(C_ENUM_VALUE, keypath->v[4][0].type);
  EXPECT_EQ(1, keypath->v[4][0].val.enumvalue);
  EXPECT_STREQ("A", reinterpret_cast<char*>(keypath->v[4][1].val.buf.ptr));
  EXPECT_EQ(yang_tags::kConfig, keypath->v[9][0].val.xmltag.tag);
  char text[256], cut[8];
  const int length = confd_pp_kpath(text, sizeof(text), keypath);
  EXPECT_EQ(strlen(text), static_cast<size_t>(length));
  EXPECT_EQ(Position(), text);
  EXPECT_EQ(length, confd_pp_kpath(cut, sizeof(cut), keypath));
  EXPECT_STREQ("/config", cut);
  confd_free_hkeypath(keypath);
  confd_free_hkeypath(nullptr);
}

TEST_F(CdbCallsTest, AnyNameSurvivesPrintingAndReading) {
  const CdbSchema& schema = service_.schema();
  const CdbNode* list = schema.root()->Child("status")->Child("acl-resources")->Child("interface");
  for (const std::string name :
       {"a", "%s%n", "a b", "a}b", "{", "a\\b", "a\"b", "", "a/b", "[0]"}) {
    confd_hkeypath_t keypath;
    keypath.len = 1;
    keypath.v[0][0] = TextValue(name);
    keypath.v[0][1].type = C_NOEXISTS;
    const std::string printed = PrintKeypath(&schema, keypath);
    FreeKeypathValues(&keypath);
    // The reader sees the key; the schema then says whether it can be one.
    const std::string path = "/status/acl-resources/" + list->name + printed;
    const int exists = cdb_exists(status_, "%s", path.c_str());
    const bool allowed = name.find_first_of(" {}\"\\[") == std::string::npos && !name.empty();
    EXPECT_EQ(allowed ? 0 : -1, exists) << path;
    if (!allowed) {
      EXPECT_NE(std::string::npos, std::string(confd_lasterr()).find("\"" + name + "\""))
          << path << ": " << confd_lasterr();
    }
  }
}

TEST_F(CdbCallsTest, OperationalDataIsWrittenAndRead) {
  confd_value_t value{}, read;
  value.type = C_UINT32;
  value.val.u32 = 4000000000u;
  const char* const name = "eth0/1.%d";
  EXPECT_EQ(CONFD_OK, cdb_set_elem(status_, &value, "/status/acl-resources/l2/used-entries"));
  ASSERT_EQ(CONFD_OK, cdb_cd(status_, "/status/acl-resources"));
  EXPECT_EQ(CONFD_OK, cdb_create(status_, "interface{%s}", name));
  value.val.u32 = 7;
  EXPECT_EQ(CONFD_OK, cdb_set_elem(status_, &value, "interface{%s}/l2/total", name));
  ASSERT_EQ(CONFD_OK, cdb_get(status_, &read, "interface[0]/l2/total"));
  EXPECT_EQ(C_UINT32, read.type);
  EXPECT_EQ(7u, read.val.u32);
  // What was found once is found anew: a place in a list is another's when an entry comes before.
  EXPECT_EQ(CONFD_OK, cdb_create(status_, "interface{%s}", "a"));
  EXPECT_EQ(CONFD_ERR, cdb_get(status_, &read, "interface[0]/l2/total"));
  EXPECT_EQ(CONFD_OK, cdb_delete(status_, "interface"));
  // Neither configuration nor the running datastore can be written.
  EXPECT_EQ(CONFD_ERR, cdb_create(status_, "/config/access-list/interface{x}"));
  EXPECT_EQ(CONFD_ERR, cdb_create(running_, "/config/access-list/interface{x}"));
  EXPECT_EQ("/acl-app:status/acl-resources/l2/used-entries = 4000000000\n",
            Snapshot(datastore_->Operational().written().Shown()));
}

TEST_F(CdbCallsTest, StateIsBuiltOnlyWhenWanted) {
  auto providers = std::make_shared<StateProviders>();
  int built = 0;
  auto registration =
      providers->Add({"acl-app", "status", [&](const ly_ctx* context) {
                        ++built;
                        lyd_node* top = nullptr;
                        lyd_new_path(nullptr, context, "/acl-app:status", nullptr, 0, &top);
                        return top;
                      }});
  datastore_->Operational().SetProviders(providers);
  const auto nothing = [](const std::string&, const std::string&) { return false; };
  const auto all = [](const std::string&, const std::string&) { return true; };
  DatastoreErrors errors;
  EXPECT_EQ(nullptr, datastore_->Operational().Read(nothing, &errors));
  EXPECT_EQ(0, built);
  EXPECT_NE(nullptr, datastore_->Operational().Read(all, &errors));
  EXPECT_EQ(1, built);
}

TEST_F(CdbCallsTest, TransactionIdsFollowTheCommits) {
  cdb_txid first, second;
  ASSERT_EQ(CONFD_OK, cdb_get_txid(running_, &first));
  Commit(Interface("eth0"));
  ASSERT_EQ(CONFD_OK, cdb_get_txid(running_, &second));
  EXPECT_NE(first.s2, second.s2);
  EXPECT_STREQ(first.primary, second.primary);
}

}  // namespace
}  // namespace host
