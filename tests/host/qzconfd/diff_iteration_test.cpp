// Order and content of what an iteration delivers.
#include "host/qzconfd/diff_iteration.h"

#include <functional>
#include <string>

#include "host/cdb/calls/cdb_service.h"
#include "tests/host/cdb/support.h"

namespace host {
namespace {

constexpr char kProfiles[] = "/config/access-list/acl-profile/";
constexpr char kInterfaces[] = "/config/access-list/interface/";

// Notes what the iteration of one path delivers, a line each: operation, path below the
// subscription's, value.
class Recorder : public CommitObserver {
 public:
  Recorder(const CdbService& service, const char* path)
      : schema_(&service.schema()), printer_(schema_), path_(path) {}

  void OnCommit(const lyd_node* diff, const CommitInfo&) override {
    PathResolver resolver(schema_);
    std::string error;
    DiffIteration iteration(schema_, *resolver.Resolve(path_, PathTree(), &error));
    text_.clear();
    touched_ = iteration.Touched(diff);
    iteration.Run(diff, [this](confd_hkeypath_t* keypath, confd_iter_op operation, confd_value_t*,
                               confd_value_t* value) { return Note(*keypath, operation, value); });
  }

  std::string Take() { return std::move(text_); }
  bool touched() const { return touched_; }
  // What to answer, by the delivered path's last part; ITER_RECURSE for all others.
  std::function<confd_iter_ret(const std::string& line)> answer;

 private:
  confd_iter_ret Note(const confd_hkeypath_t& keypath, confd_iter_op operation,
                      const confd_value_t* value) {
    const char* names[] = {"", "created", "deleted", "modified", "set"};
    const std::string path = PrintKeypath(schema_, keypath);
    EXPECT_EQ(path, printer_.Print(keypath));
    std::string line = std::string(names[operation]) + " " + path.substr(strlen(path_) - 1);
    std::string content;
    if (value != nullptr && ToText(nullptr, *value, &content)) line += " " + content;
    text_ += line + "\n";
    return answer ? answer(line) : ITER_RECURSE;
  }

  const CdbSchema* schema_;
  KeypathPrinter printer_;  // goes on from keypath to keypath
  const char* path_;
  std::string text_;
  bool touched_ = false;
};

class DiffIterationTest : public testing::Test {
 protected:
  DiffIterationTest()
      : datastore_(OpenDatastore()),
        service_(datastore_.get()),
        profiles_(service_, kProfiles),
        interfaces_(service_, kInterfaces) {
    datastore_->AddObserver(&profiles_);
    datastore_->AddObserver(&interfaces_);
  }

  void Commit(const std::string& content) {
    ASSERT_EQ("", ToText(Edit(datastore_.get(), Config(content))));
  }
  // Commits a change of entry 1 of profile P and returns what is delivered below the entry.
  std::string ChangeEntry(const std::string& content) {
    Commit(Profiles(Profile("l2", "P", -1, Entry(1, content))));
    std::string text = profiles_.Take(), result;
    const std::string entry = "/ingress/access-list{l2 P}/access-list-entry{1}/";
    for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
      const std::string line = text.substr(at, end - at);
      const size_t below = line.find(entry);
      if (below == std::string::npos) continue;
      result += line.substr(0, below) + line.substr(below + entry.size()) + "\n";
    }
    return result;
  }

  std::unique_ptr<Datastore> datastore_;
  CdbService service_;
  Recorder profiles_;
  Recorder interfaces_;
};

TEST_F(DiffIterationTest, WholeEntriesComeBeforeTheirContent) {
  Commit(Profiles(Profile("l3", "B", 9) +
                  Profile("l2", "A", 5,
                          Entry(20) + Entry(3,
                                            "<action><packet-handling><deny/></packet-handling>"
                                            "</action><match><vlan>7</vlan></match>"))) +
         Interface("e1", Bind("B") + Bind("A")) + Interface("e0"));
  EXPECT_EQ(
      "modified /ingress\n"
      "created /ingress/access-list{l2 A}\n"
      "modified /ingress/access-list{l2 A}/acl-priority-l2\n"
      "set /ingress/access-list{l2 A}/acl-priority-l2/priority 5\n"
      "created /ingress/access-list{l2 A}/access-list-entry{3}\n"
      "modified /ingress/access-list{l2 A}/access-list-entry{3}/match\n"
      "set /ingress/access-list{l2 A}/access-list-entry{3}/match/vlan 7\n"
      "modified /ingress/access-list{l2 A}/access-list-entry{3}/action\n"
      "modified /ingress/access-list{l2 A}/access-list-entry{3}/action/packet-handling\n"
      "created /ingress/access-list{l2 A}/access-list-entry{3}/action/packet-handling/deny\n"
      "created /ingress/access-list{l2 A}/access-list-entry{20}\n"
      "created /ingress/access-list{l3 B}\n"
      "modified /ingress/access-list{l3 B}/acl-priority-l3\n"
      "set /ingress/access-list{l3 B}/acl-priority-l3/priority 9\n",
      profiles_.Take());
  EXPECT_EQ("created {e0}\ncreated {e1}\ncreated {e1}/ingress{A}\ncreated {e1}/ingress{B}\n",
            interfaces_.Take());
  // A deleted entry comes once, before what is created; untouched subscriptions get nothing.
  Commit(Profiles(Profile("l2", "A", -1, Entry(3, "", "delete") + Entry(1))));
  EXPECT_EQ(
      "modified /ingress\n"
      "modified /ingress/access-list{l2 A}\n"
      "deleted /ingress/access-list{l2 A}/access-list-entry{3}\n"
      "created /ingress/access-list{l2 A}/access-list-entry{1}\n",
      profiles_.Take());
  EXPECT_FALSE(interfaces_.touched());
  EXPECT_EQ("", interfaces_.Take());
  Commit(Interface("e1", Bind("A", "delete") + Bind("B", "delete")) + Interface("e0", Bind("B")));
  EXPECT_EQ(
      "modified {e0}\ncreated {e0}/ingress{B}\n"
      "modified {e1}\ndeleted {e1}/ingress{A}\ndeleted {e1}/ingress{B}\n",
      interfaces_.Take());
  EXPECT_FALSE(profiles_.touched());
  Commit(Interface("e1", "", "delete"));
  EXPECT_EQ("deleted {e1}\n", interfaces_.Take());
}

TEST_F(DiffIterationTest, DeletionsComeFirstAmongSiblings) {
  Commit(Profiles(Profile("l2", "P", 5, Entry(1, "<match><vlan>1</vlan><tos>2</tos></match>"))));
  EXPECT_EQ("modified match\ndeleted match/tos\nset match/dscp 46\n",
            ChangeEntry("<match><dscp>ef</dscp></match>"));
  EXPECT_EQ("modified match\ndeleted match/vlan\nset match/source-mac-address 02:00:00:00:00:01\n",
            ChangeEntry("<match><source-mac-address>02:00:00:00:00:01</source-mac-address>"
                        "<vlan nc:operation=\"delete\"/></match>"));
  const auto address = [](const std::string& form, const std::string& ip) {
    return "<match><source-ipv4-address><" + form + "><ip>" + ip + "</ip></" + form +
           "></source-ipv4-address></match>";
  };
  EXPECT_EQ(
      "modified match\nmodified match/source-ipv4-address\n"
      "modified match/source-ipv4-address/no-mask\n"
      "set match/source-ipv4-address/no-mask/ip 1.2.3.4\n",
      ChangeEntry(address("no-mask", "1.2.3.4")));
  EXPECT_EQ(
      "modified match\nmodified match/source-ipv4-address\n"
      "modified match/source-ipv4-address/no-mask\n"
      "deleted match/source-ipv4-address/no-mask/ip\n"
      "modified match/source-ipv4-address/mask\n"
      "set match/source-ipv4-address/mask/ip 1.2.3.4/8\n",
      ChangeEntry(address("mask", "1.2.3.4/8")));
  // The schema has "mask" first: the container whose content goes must still come before it.
  EXPECT_EQ(
      "modified match\nmodified match/source-ipv4-address\n"
      "modified match/source-ipv4-address/mask\n"
      "deleted match/source-ipv4-address/mask/ip\n"
      "modified match/source-ipv4-address/no-mask\n"
      "set match/source-ipv4-address/no-mask/ip 9.9.9.9\n",
      ChangeEntry(address("no-mask", "9.9.9.9")));
  ChangeEntry("<action><packet-handling><permit/></packet-handling></action>");
  EXPECT_EQ(
      "modified action\nmodified action/packet-handling\n"
      "deleted action/packet-handling/permit\ncreated action/packet-handling/deny\n",
      ChangeEntry("<action><packet-handling><deny/></packet-handling></action>"));
  // A container is never deleted, its leaves are.
  EXPECT_EQ(
      "modified action\nmodified action/packet-handling\ndeleted action/packet-handling/deny\n",
      ChangeEntry("<action nc:operation=\"delete\"/>"));
}

TEST_F(DiffIterationTest, AProfileThatMovesToTheOtherTypeGoesFirst) {
  Commit(Profiles(Profile("l3", "A", 5)));
  Commit(Profiles(Profile("l2", "A", 5) + Profile("l3", "A", -1, "", "delete")));
  EXPECT_EQ(
      "modified /ingress\n"
      "deleted /ingress/access-list{l3 A}\n"
      "created /ingress/access-list{l2 A}\n"
      "modified /ingress/access-list{l2 A}/acl-priority-l2\n"
      "set /ingress/access-list{l2 A}/acl-priority-l2/priority 5\n",
      profiles_.Take());
}

TEST_F(DiffIterationTest, TheCallbackSaysHowItGoesOn) {
  profiles_.answer = [](const std::string& line) {
    if (line.find("{l2 A}") != std::string::npos) return ITER_CONTINUE;
    if (line.find("{l2 C}") != std::string::npos) return ITER_STOP;
    return ITER_RECURSE;
  };
  Commit(Profiles(Profile("l2", "A", 1, Entry(1)) + Profile("l2", "B", 1) + Profile("l2", "C", 1) +
                  Profile("l2", "D", 1)) +
         Interface("e0"));
  EXPECT_EQ(
      "modified /ingress\ncreated /ingress/access-list{l2 A}\n"
      "created /ingress/access-list{l2 B}\n"
      "modified /ingress/access-list{l2 B}/acl-priority-l2\n"
      "set /ingress/access-list{l2 B}/acl-priority-l2/priority 1\n"
      "created /ingress/access-list{l2 C}\n",
      profiles_.Take());
  EXPECT_EQ("created {e0}\n", interfaces_.Take());  // one iteration's end is no other's
}

}  // namespace
}  // namespace host
