// Edits as RFC 6241 defines them, and refusals with their reasons.
#include <string>

#include "tests/host/cdb/support.h"

namespace host {
namespace {

const std::string kBase =
    Config(Profiles(Profile("l2", "A", 5, Entry(10, Match("<vlan>7</vlan><dscp>ef</dscp>"))) +
                    Profile("l3", "B", 6)) +
           Interface("eth0", Bind("A")) + Interface("eth3", Bind("A") + Bind("B")));

std::string Vlan(const std::string& value, const std::string& operation = "") {
  return Config(Profiles(Profile(
      "l2", "A", -1, Entry(10, Match("<vlan" + Operate(operation) + ">" + value + "</vlan>")))));
}
std::string InEntry(const std::string& match, const std::string& entry_operation = "") {
  return Config(Profiles(Profile("l2", "A", -1, Entry(10, Match(match), entry_operation))));
}

struct EditCase {
  std::string name;
  std::string edit;
  DefaultOperation default_operation;
  std::string tag;           // of the one error, empty for success
  std::string path_end;      // of the error
  std::string message_part;  // of the error; after success a part of the new configuration
  std::string absent;        // after success not a part of it
};

std::ostream& operator<<(std::ostream& out, const EditCase& test) { return out << test.name; }

class EditTest : public testing::TestWithParam<EditCase> {};

TEST_P(EditTest, GivesTheStatedResult) {
  const EditCase& test = GetParam();
  DatastoreOptions datastore_options;
  datastore_options.group_capacity = 2;
  auto datastore = OpenDatastore(datastore_options);
  ASSERT_EQ("", ToText(Edit(datastore.get(), kBase)));
  const std::string before = Snapshot(datastore->Running());
  const uint64_t id = datastore->TransactionId();
  EditOptions options;
  options.default_operation = test.default_operation;
  const DatastoreErrors errors = Edit(datastore.get(), test.edit, options);
  const std::string after = Snapshot(datastore->Running());
  if (test.tag.empty()) {
    ASSERT_EQ("", ToText(errors));
    EXPECT_NE(std::string::npos, after.find(test.message_part)) << after;
    if (!test.absent.empty()) {
      EXPECT_EQ(std::string::npos, after.find(test.absent)) << after;
    }
    return;
  }
  ASSERT_FALSE(errors.empty()) << after;
  const DatastoreError& error = errors.front();
  EXPECT_EQ(test.tag, error.tag) << ToText(errors);
  EXPECT_TRUE(error.path.size() >= test.path_end.size() &&
              error.path.compare(error.path.size() - test.path_end.size(), std::string::npos,
                                 test.path_end) == 0)
      << ToText(errors);
  EXPECT_NE(std::string::npos, error.message.find(test.message_part)) << ToText(errors);
  EXPECT_EQ(before, after);
  EXPECT_EQ(id, datastore->TransactionId());
}

constexpr auto kMerge = DefaultOperation::kMerge;
constexpr auto kNone = DefaultOperation::kNone;
constexpr auto kReplace = DefaultOperation::kReplace;

const EditCase kOperations[] = {
    {"merge_sets", Vlan("8"), kMerge, "", "", "/vlan = 8", "/vlan = 7"},
    {"create_new", InEntry("<pcp nc:operation=\"create\">3</pcp>"), kMerge, "", "", "/pcp = 3", ""},
    {"create_existing", Vlan("7", "create"), kMerge, "data-exists", "/match/vlan", "exists", ""},
    {"create_container",
     InEntry("<source-ipv4-address nc:operation=\"create\"><no-mask>"
             "<ip>1.2.3.4</ip></no-mask></source-ipv4-address>"),
     kMerge, "", "", "no-mask/ip = 1.2.3.4", ""},
    {"delete_without_value", Vlan("", "delete"), kMerge, "", "", "dscp = ef", "/vlan"},
    {"delete_missing", InEntry("<pcp nc:operation=\"delete\"/>"), kMerge, "data-missing",
     "[ace-priority='10']/match/pcp", "does not exist", ""},
    {"delete_empty_container", InEntry("<source-ipv4-address nc:operation=\"delete\"/>"), kMerge,
     "data-missing", "/source-ipv4-address", "", ""},
    {"remove_missing", InEntry("<pcp nc:operation=\"remove\"/>"), kMerge, "", "", "/vlan = 7", ""},
    {"remove_entry", InEntry("", "remove"), kMerge, "", "", "[acl-name='A']", "ace-priority"},
    {"replace_entry", InEntry("<pcp>1</pcp>", "replace"), kMerge, "", "", "/pcp = 1", "/vlan"},
    {"replace_all", Config(Profiles(Profile("l2", "C", 1))), kReplace, "", "", "[acl-name='C']",
     "acl-name='A'"},
    {"none_changes_nothing", Vlan("8"), kNone, "", "", "/vlan = 7", "/vlan = 8"},
    {"none_with_operation", Vlan("8", "merge"), kNone, "", "", "/vlan = 8", ""},
    {"none_needs_the_entry",
     Config(Profiles(
         Profile("l2", "A", -1, Entry(11, Match("<vlan nc:operation=\"merge\">1</vlan>"))))),
     kNone, "data-missing", "access-list-entry[ace-priority='11']", "does not exist", ""},
    {"delete_frame",
     Config("<acl-profile nc:operation=\"delete\"/>" + Interface("eth0", "", "delete") +
            Interface("eth3", "", "delete")),
     kMerge, "", "", "", "acl-name"},
    {"other_case_ends", InEntry("<tos>4</tos>"), kMerge, "", "", "/tos = 4", "/dscp"},
    {"bare_case_ends_nothing", InEntry("<source-ipv4-address><mask/></source-ipv4-address>"),
     kMerge, "", "", "/vlan", ""},
    {"rebind", Config(Interface("eth0", Bind("A", "delete") + Bind("B"))), kMerge, "", "",
     "[interface-name='eth0']/ingress[.='B'] = B", "[interface-name='eth0']/ingress[.='A'] = A"},
    {"move_to_other_type",
     Config(Profiles(Profile("l2", "A", -1, "", "delete") + Profile("l3", "A", 9))), kMerge, "", "",
     "[acl-type='l3'][acl-name='A']", "[acl-type='l2'][acl-name='A']"},
};
INSTANTIATE_TEST_SUITE_P(Operations, EditTest, testing::ValuesIn(kOperations));

const EditCase kRefusals[] = {
    {"unknown_element", InEntry("<speed>9</speed>"), kMerge, "unknown-element",
     "[ace-priority='10']/match/speed", "speed is no element of match", ""},
    {"unknown_namespace", InEntry("<vlan xmlns=\"urn:other\">9</vlan>"), kMerge,
     "unknown-namespace", "/match/vlan", "urn:other", ""},
    {"range", Vlan("4095"), kMerge, "invalid-value", "/match/vlan", "expected 1..4094", ""},
    {"pattern", InEntry("<source-mac-address>02:00</source-mac-address>"), kMerge, "invalid-value",
     "/source-mac-address", "written aa:bb:cc:dd:ee:ff", ""},
    {"union", InEntry("<ip-protocol>tpc</ip-protocol>"), kMerge, "invalid-value", "/ip-protocol",
     "tcp, egp, udp", ""},
    {"text_in_number", Vlan("x"), kMerge, "invalid-value", "/vlan", "1..4094", ""},
    {"missing_key", Config(Profiles("<access-list><acl-name>A</acl-name></access-list>")), kMerge,
     "missing-element", "/access-list", "its key acl-type", ""},
    {"bad_key", Config(Interface("a b")), kMerge, "invalid-value", "interface/interface-name",
     "has no blanks", ""},
    {"state", "<status xmlns=\"urn:acl-app:acl\"/>", kMerge, "unknown-element", "/acl-app:status",
     "is state", ""},
    {"twice", InEntry("<vlan>1</vlan><vlan>2</vlan>"), kMerge, "bad-element", "/vlan", "twice", ""},
    {"two_cases", InEntry("<dscp>1</dscp><tos>1</tos>"), kMerge, "bad-element", "/tos",
     "excludes dscp", ""},
    {"mask_alone", InEntry("<source-mac-address-mask>ff:ff:ff:00:00:00</source-mac-address-mask>"),
     kMerge, "operation-failed", "/source-mac-address-mask", "needs its address", ""},
    {"no_priority", Config(Profiles(Profile("l2", "C", -1))), kMerge, "data-missing",
     "[acl-type='l2'][acl-name='C']/acl-priority-l2/priority", "priority", ""},
    {"wrong_priority",
     Config(Profiles(
         Profile("l2", "A", -1, "<acl-priority-l3><priority>1</priority></acl-priority-l3>"))),
     kMerge, "unknown-element", "/acl-priority-l3", "acl-type", ""},
    {"priority_changes", Config(Profiles(Profile("l2", "A", 6))), kMerge, "operation-failed",
     "[acl-name='A']/acl-priority-l2/priority", "delete the profile in one commit and create", ""},
    {"name_with_other_type", Config(Profiles(Profile("l3", "A", 6))), kMerge, "operation-failed",
     "[acl-type='l3'][acl-name='A']", "unique across both", ""},
    {"same_priority_bound", Config(Profiles(Profile("l3", "C", 5)) + Interface("eth0", Bind("C"))),
     kMerge, "operation-failed", "[interface-name='eth0']/ingress[.='C']",
     "profiles \"A\" and \"C\" of the interface \"eth0\" have the same priority 5", ""},
    {"same_priority_by_other_type",
     Config(Profiles(Profile("l2", "A", -1, "", "delete") + Profile("l3", "A", 6))), kMerge,
     "operation-failed", "[acl-type='l3'][acl-name='A']", "same priority 6", ""},
    {"does_not_fit", Config(Interface("eth1", Bind("A"))), kMerge, "resource-denied", "",
     "the L2 group would need 3 entries, and has room for 2; most are needed by \"A\" on \"eth0\" "
     "(1), \"A\" on \"eth1\" (1), \"A\" on \"eth3\" (1)",
     ""},
    {"no_such_profile", Config(Interface("eth1", Bind("Z"))), kMerge, "data-missing",
     "[interface-name='eth1']/ingress[.='Z']", "no profile \"Z\"", ""},
    {"bound_profile_goes", Config(Profiles(Profile("l2", "A", -1, "", "delete"))), kMerge, "in-use",
     "[acl-name='A']", "bound to the interface \"eth0\"", ""},
    {"format_characters", Config(Interface("a%s%n{x}")), kMerge, "invalid-value",
     "interface/interface-name", "\"a%s%n{x}\"", ""},
    {"long_name", Config(Interface(std::string(65, 'a'))), kMerge, "invalid-value",
     "interface/interface-name", "an interface name has 1 to 64 characters", ""},
};
INSTANTIATE_TEST_SUITE_P(Refusals, EditTest, testing::ValuesIn(kRefusals));

TEST(DatastoreTest, TestOnlyAndEmptyEditsMakeNoCommit) {
  auto datastore = OpenDatastore();
  EditOptions options;
  options.test_option = TestOption::kTestOnly;
  EXPECT_EQ("", ToText(Edit(datastore.get(), kBase, options)));
  EXPECT_EQ("", Snapshot(datastore->Running()));
  EXPECT_FALSE(Edit(datastore.get(), Config(Interface("eth1", Bind("Z"))), options).empty());
  EXPECT_EQ("", ToText(Edit(datastore.get(), kBase)));
  const uint64_t id = datastore->TransactionId();
  EXPECT_EQ("", ToText(Edit(datastore.get(), kBase)));
  EXPECT_EQ(id, datastore->TransactionId());
}

struct StartupCase {
  const char* file;
  const char* content;  // null: there is no such file
  const char* message_part;
};

TEST(DatastoreTest, ABadStartupFileIsAnErrorThatNamesIt) {
  const std::string clash = Config(Profiles(Profile("l2", "A", 4) + Profile("l3", "B", 4)) +
                                   Interface("e", Bind("A") + Bind("B")));
  const StartupCase cases[] = {
      {"a.json", nullptr, "No such file"},
      {"b.json", "", "is empty"},
      {"c.json", "{\"acl-app:config\":", "not well-formed"},
      {"d.xml", "<config xmlns=\"urn:acl-app:acl\"><access-list>", "end-of-input"},
      {"e.json", R"({"acl-app:config":{"access-list":{"speed":1}}})", "speed"},
      {"f.json", R"({"acl-app:config":{"access-list":{"interface":[{"interface-name":"e",
           "ingress":["Z"]}]}}})",
       "no profile \"Z\""},
      {"i.xml", clash.c_str(), "\"A\" and \"B\" of the interface \"e\" have the same priority 4"},
      {"g.yaml", "{}", ".json or .xml"},
      {"h.json", R"({"acl-app:config":{"access-list":{"acl-profile":{"ingress":{"access-list":[
           {"acl-type":"l2","acl-name":"A"}]}}}}})",
       "priority"},
  };
  const ScratchDirectory scratch;
  for (const StartupCase& test : cases) {
    const std::string path = scratch.path() + "/" + test.file;
    if (test.content != nullptr) scratch.Write(test.file, test.content);
    DatastoreErrors errors;
    EXPECT_EQ(nullptr, OpenDatastore(path, &errors)) << test.file;
    const std::string text = ToText(errors);
    EXPECT_NE(std::string::npos, text.find(path)) << text;
    EXPECT_NE(std::string::npos, text.find(test.message_part)) << text;
  }
}

TEST(DatastoreTest, AStartupFileOfEitherFormIsLoaded) {
  const ScratchDirectory scratch;
  const std::string json = scratch.Write("a.json", R"({"acl-app:config":{"access-list":{
      "acl-profile":{"ingress":{"access-list":[{"acl-type":"l3","acl-name":"A",
      "acl-priority-l3":{"priority":4}}]}},"interface":[{"interface-name":"e","ingress":["A"]}]}}})");
  const std::string xml =
      scratch.Write("b.xml", Config(Profiles(Profile("l3", "A", 4)) + Interface("e", Bind("A"))));
  const auto from_json = OpenDatastore(json);
  const auto from_xml = OpenDatastore(xml);
  EXPECT_EQ(Snapshot(from_json->Running()), Snapshot(from_xml->Running()));
  // What was loaded counts for what joins units.
  EXPECT_EQ("in-use",
            Edit(from_xml.get(), Config(Profiles(Profile("l3", "A", -1, "", "delete"))))[0].tag);
}

}  // namespace
}  // namespace host
