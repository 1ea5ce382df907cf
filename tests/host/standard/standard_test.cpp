// Conversions of access lists: no frame may be treated otherwise where the report says exact, and
// what does not carry over must be told.
#include <set>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "host/standard/configuration.h"
#include "host/standard/readers.h"
#include "host/standard/writers.h"
#include "tests/host/standard/evaluation.h"
#include "tests/packets/frames.h"

namespace host::standard {
namespace {

using ::testing::HasSubstr;

AccessLists ReadLists(const std::string& text) {
  Document document;
  EXPECT_EQ("", document.Read(text)) << text;
  AccessLists lists;
  EXPECT_EQ("", ReadRfc8519(document, kMostAlternatives, &lists));
  return lists;
}

// A line for each profile and entry: what people would compare.
std::string Summary(const Profiles& profiles) {
  static constexpr const char* kNames[] = {"dmac", "smac", "type", "vlan",  "pcp",
                                           "tos",  "src",  "dst",  "proto", "port"};
  std::string text;
  for (const Profile& profile : profiles.profiles) {
    text += (profile.l3 ? "l3 " : "l2 ") + profile.name + " " + std::to_string(profile.priority) +
            " \"" + profile.description + "\"\n";
    for (const ProfileEntry& entry : profile.entries) {
      text += std::to_string(entry.ace_priority);
      for (size_t field = 0; field < kFieldCount; ++field) {
        const auto& value = entry.matches[field];
        if (!value) continue;
        text += std::string(" ") + kNames[field] + " ";
        const bool ip = field == kSourceIpv4 || field == kDestinationIpv4;
        const bool whole = ip || value->mask == FullMask(static_cast<Field>(field));
        text += ip ? PrefixText(*value, false) : std::to_string(value->value);
        if (!whole) text += "/" + std::to_string(value->mask);
      }
      static constexpr const char* kHandlings[] = {"none", "permit", "deny"};
      text += std::string(" ") + kHandlings[static_cast<size_t>(entry.handling)];
      if (entry.set_pcp) text += " pcp " + std::to_string(*entry.set_pcp);
      text += " \"" + entry.description + "\"\n";
    }
  }
  for (const auto& [interface, bound] : profiles.bindings) {
    text += interface + ":";
    for (const std::string& name : std::set<std::string>(bound.begin(), bound.end()))
      text += " " + name;
    text += "\n";
  }
  return text;
}

// Documents as the standards' texts have them, and what becomes of them.
TEST(StandardTest, ReadsWhatTheStandardsPrint) {
  const struct {
    bool openconfig;
    const char* document;
    const char* profiles;
  } kCases[] = {
      // RFC 8519, section 4.3, with an attachment.
      {false,
       R"(<config><acls xmlns="urn:ietf:params:xml:ns:yang:ietf-access-control-list"><acl>
          <name>sample-ipv4-acl</name><type>ipv4-acl-type</type><aces><ace><name>rule1</name>
          <matches><ipv4><protocol>6</protocol>
          <destination-ipv4-network>198.51.100.0/24</destination-ipv4-network>
          <source-ipv4-network>192.0.2.0/24</source-ipv4-network></ipv4></matches>
          <actions><forwarding>drop</forwarding></actions></ace></aces></acl>
          <attachment-points><interface><interface-id>eth0</interface-id><ingress><acl-sets>
          <acl-set><name>sample-ipv4-acl</name></acl-set></acl-sets></ingress></interface>
          </attachment-points></acls></config>)",
       "l3 sample-ipv4-acl 100 \"\"\n"
       "10 src 192.0.2.0/24 dst 198.51.100.0/24 proto 6 deny \"[ace rule1]\"\n"
       "20 dst 0.0.0.0/0 deny \"[end]\"\n"
       "eth0: sample-ipv4-acl\n"},
      // Sets of RFC 9899, and names that ours cannot have.
      {false,
       R"({"ietf-access-control-list:acls": {"ietf-acl-enh:defined-sets": {
          "ipv4-prefix-sets": {"prefix-set": [{"name": "p", "prefix": ["10.0.0.0/8", "192.0.2.7/32"]}]},
          "port-sets": {"port-set": [{"name": "w", "port": [
            {"id": "1", "port-range-or-operator": {"port": 80}},
            {"id": "2", "port-range-or-operator": {"lower-port": 80, "upper-port": 81}}]}]}},
          "acl": [{"name": "web/in", "type": "ietf-access-control-list:ipv4-acl-type", "aces": {
          "ace": [{"name": "a", "matches": {"ipv4": {"ietf-acl-enh:source-ipv4-prefix-list": "p"},
          "tcp": {"ietf-acl-enh:destination-tcp-port-set": "w"}},
          "actions": {"forwarding": "ietf-access-control-list:accept"}}, {"name": "b",
          "actions": {"forwarding": "drop"}}]}}]}})",
       "l3 web_in 100 \"[acl web/in]\"\n"
       "10 src 10.0.0.0/8 proto 6 port 80 permit \"[ace a (1 of 4)]\"\n"
       "20 src 10.0.0.0/8 proto 6 port 81 permit \"[ace a (2 of 4)]\"\n"
       "30 src 192.0.2.7/32 proto 6 port 80 permit \"[ace a (3 of 4)]\"\n"
       "40 src 192.0.2.7/32 proto 6 port 81 permit \"[ace a (4 of 4)]\"\n"
       "50 dst 0.0.0.0/0 deny \"[ace b]\"\n"},
      // OpenConfig: numbers that fit stay, a port alone is TCP's and UDP's.
      {true,
       R"({"openconfig-acl:acl": {"acl-sets": {"acl-set": [{"name": "in", "type": "ACL_IPV4",
          "config": {"name": "in", "type": "ACL_IPV4", "description": "edge"},
          "acl-entries": {"acl-entry": [
          {"sequence-id": 20, "config": {"sequence-id": 20, "description": "dns"},
          "transport": {"config": {"destination-port": 53}},
          "actions": {"config": {"forwarding-action": "openconfig-acl:ACCEPT"}}},
          {"sequence-id": 5, "ipv4": {"config": {"protocol": "openconfig-packet-match-types:IP_ICMP",
          "dscp-set": [0, 46]}}, "actions": {"config": {"forwarding-action": "DROP"}}}]}}]},
          "interfaces": {"interface": [{"id": "if 1", "interface-ref": {"config":
          {"interface": "eth1", "subinterface": 0}}, "ingress-acl-sets": {"ingress-acl-set": [
          {"set-name": "in", "type": "ACL_IPV4"}]}}]}}})",
       "l3 in 100 \"edge\"\n"
       "5 tos 0/252 proto 1 deny \"[seq 5 (1 of 2)]\"\n"
       "6 tos 184/252 proto 1 deny \"[seq 5 (2 of 2)]\"\n"
       "20 proto 6 port 53 permit \"[seq 20 (1 of 2)] dns\"\n"
       "21 proto 17 port 53 permit \"[seq 20 (2 of 2)] dns\"\n"
       "30 dst 0.0.0.0/0 deny \"[end]\"\n"
       "eth1: in\n"},
      // Numbers beyond ours; a set less another.
      {true,
       R"({"openconfig-defined-sets:defined-sets": {"ipv4-prefix-sets": {"ipv4-prefix-set": [
          {"name": "s", "config": {"prefix": ["10.0.0.0/30"], "exclude-prefix": ["10.0.0.1/32"]}}]}},
          "openconfig-acl:acl": {"acl-sets": {"acl-set": [{"name": "m", "type": "ACL_MIXED",
          "acl-entries": {"acl-entry": [{"sequence-id": 70000, "ipv4": {"config":
          {"source-address-prefix-set": "s"}}, "actions": {"config": {"forwarding-action": "DROP"}}},
          {"sequence-id": 80000, "l2": {"config": {"source-mac": "02:00:00:00:00:01",
          "ethertype": "ETHERTYPE_ARP"}}, "transport": {"config": {"destination-port": 80}},
          "actions": {"config": {"forwarding-action": "ACCEPT"}}}]}}]}}})",
       "l3 m 100 \"\"\n"
       "10 src 10.0.0.0/32 deny \"[seq 70000 (1 of 2)]\"\n"
       "20 src 10.0.0.2/31 deny \"[seq 70000 (2 of 2)]\"\n"
       "30 smac 2199023255553 type 2054 port 80 permit \"[seq 80000]\"\n"
       "40 deny \"[end]\"\n"},
  };
  for (const auto& test : kCases) {
    Document document;
    ASSERT_EQ("", document.Read(test.document));
    AccessLists lists;
    ASSERT_EQ("", (test.openconfig ? ReadOpenConfig : ReadRfc8519)(document, 256, &lists));
    Report report;
    EXPECT_EQ(test.profiles, Summary(ToProfiles(lists, {}, &report)));
    EXPECT_EQ(Outcome::kExact, report.Worst()) << PrintReport(report, 0);
  }
}

// Many lists, in the envelope of a reply; and what is not read at all.
TEST(StandardTest, ReadsXml) {
  std::string lists;
  for (int i = 0; i < 300; ++i) lists += "<acl><name>l" + std::to_string(i) + "</name></acl>";
  const std::string acls =
      "<acls xmlns='urn:ietf:params:xml:ns:yang:ietf-access-control-list'>" + lists + "</acls>";
  EXPECT_EQ(300U, ReadLists("\xef\xbb\xbf<?xml version='1.0'?><rpc-reply message-id='1'><data>" +
                            acls + "</data></rpc-reply>")
                      .acls.size());
  std::string deep;
  for (int i = 0; i < 70; ++i) deep += "<a>";
  for (const auto& [text, why] : std::vector<std::pair<std::string, std::string>>{
           {"<!DOCTYPE acls [<!ENTITY e 'x'>]><acls>&e;</acls>", "a document type declaration"},
           {"<a>\n<b/>c</a>", "line 2: text between the elements of <a>"},
           {"<a><x:b/></a>", "unbound prefix"},
           {acls.substr(0, acls.size() - 1), "unclosed token"},
           {deep, "too deep"}}) {
    EXPECT_THAT(Document().Read(text), HasSubstr(why));
  }
}

// With what acl-app-standard adds, profiles come back as they were.
TEST(StandardTest, ProfilesComeBack) {
  std::mt19937 random(9899);
  for (int round = 0; round < 400; ++round) {
    const Profiles profiles = RandomProfiles(&random);
    ExportOptions options;
    const bool enhanced = round % 2 == 0;
    options.to = enhanced ? Standard::kRfc9899 : Standard::kRfc8519;
    Report report;
    Document written, read;
    WriteRfc8519(ToAccessLists(profiles, options, &report), enhanced, &written);
    const std::string text = written.Print(round % 4 < 2 ? Format::kJson : Format::kXml);
    ASSERT_EQ("", read.Read(text)) << text;
    AccessLists lists;
    ASSERT_EQ("", ReadRfc8519(read, kMostAlternatives, &lists));
    ASSERT_EQ(Summary(profiles), Summary(ToProfiles(lists, {}, &report))) << text;
    ASSERT_EQ(Outcome::kExact, report.Worst()) << PrintReport(report, 0) << text;
  }
}

// Without it they are treated alike: what the standards have, and what is left out is told.
TEST(StandardTest, StandardListsMeanTheSame) {
  std::vector<FrameFields> frames;
  for (const Frame& frame : AllFrames()) frames.push_back(ParseFrame(frame));
  std::mt19937 random(70000);
  int compared = 0;
  for (int round = 0; round < 500; ++round) {
    const Profiles profiles = RandomProfiles(&random);
    ExportOptions options;
    options.standard_only = true;
    options.to = static_cast<Standard>(round % 3);
    const bool openconfig = options.to == Standard::kOpenConfig;
    Report report;
    const AccessLists wanted = ToAccessLists(profiles, options, &report);
    if (report.Worst() != Outcome::kExact) continue;
    Document written, read;
    if (openconfig) {
      WriteOpenConfig(wanted, &written);
    } else {
      WriteRfc8519(wanted, options.to == Standard::kRfc9899, &written);
    }
    const std::string text = written.Print(round % 2 == 0 ? Format::kJson : Format::kXml);
    ASSERT_EQ("", read.Read(text)) << text;
    AccessLists lists;
    ASSERT_EQ("", (openconfig ? ReadOpenConfig : ReadRfc8519)(read, kMostAlternatives, &lists));
    const Profiles back = ToProfiles(lists, {}, &report);
    // A port of TCP and UDP over either version of IP is one of each there, which ours has not.
    if (report.Worst() != Outcome::kExact) {
      ASSERT_THAT(PrintReport(report, 0), HasSubstr("over IPv6 as well"));
      continue;
    }
    ++compared;
    for (const FrameFields& frame : frames) {
      ASSERT_EQ(Passes(profiles, frame), Passes(back, frame)) << Summary(profiles) << text;
    }
  }
  EXPECT_GT(compared, 40);
}

TEST(StandardTest, FramesAreTreatedAsTheListSays) {
  std::vector<FrameFields> frames;
  for (const Frame& frame : AllFrames()) frames.push_back(ParseFrame(frame));
  std::mt19937 random(8519);
  int dropped = 0, passed = 0;
  for (int round = 0; round < 150; ++round) {
    const KnownLists known = RandomRfc8519(&random);
    Report report;
    const Profiles profiles = ToProfiles(ReadLists(known.json), {}, &report);
    if (report.Worst() != Outcome::kExact) {
      ASSERT_THAT(PrintReport(report, 0), HasSubstr("more than 256")) << known.json;
      continue;
    }
    for (const FrameFields& frame : frames) {
      const bool passes = known.passes(frame);
      ASSERT_EQ(passes, Passes(profiles, frame)) << known.json;
      ++(passes ? passed : dropped);
    }
  }
  EXPECT_GT(dropped, passed / 10);
  EXPECT_GT(passed, dropped / 10);
}

// One entry of an IPv4 list, with what comes of it.
struct LossCase {
  const char* matches;
  const char* action;
  const char* told;  // in the refusal
};

class LossTest : public ::testing::TestWithParam<LossCase> {};

TEST_P(LossTest, NothingIsLostInSilence) {
  const std::string json =
      std::string(
          "{\"ietf-access-control-list:acls\": {\"acl\": [{\"name\": \"a\", \"type\": "
          "\"ipv4-acl-type\", \"aces\": {\"ace\": [{\"name\": \"x\", \"matches\": ") +
      GetParam().matches + ", \"actions\": " + GetParam().action + "}]}}]}}";
  const AccessLists lists = ReadLists(json);
  Report refused, dropped, skipped;
  ToProfiles(lists, {}, &refused);
  EXPECT_EQ(Outcome::kRefused, refused.Worst());
  EXPECT_THAT(PrintReport(refused, 0), HasSubstr(GetParam().told));
  ImportOptions options;
  options.allowance.skip_entries = true;
  const Profiles without = ToProfiles(lists, options, &skipped);
  EXPECT_EQ(Outcome::kLeftOut, skipped.Worst());
  EXPECT_EQ(1U, without.profiles.at(0).entries.size());  // the end alone
  const bool deny = std::string(GetParam().action).find("accept") == std::string::npos;
  EXPECT_EQ(deny, PrintReport(skipped, 0).find("WARNING") != std::string::npos);
  options.allowance = {true, false};
  const Profiles wider = ToProfiles(lists, options, &dropped);
  EXPECT_EQ(Outcome::kLeftOut, dropped.Worst());
  EXPECT_EQ("[ace x]", wider.profiles.at(0).entries.at(0).description);
}

constexpr char kDrop[] = R"({"forwarding": "drop"})", kAccept[] = R"({"forwarding": "accept"})";

INSTANTIATE_TEST_SUITE_P(
    Rfc8519, LossTest,
    ::testing::Values(
        LossCase{R"({"ipv4": {"ttl": 1}})", kDrop, "/matches/ipv4/ttl: a time to live of 1"},
        LossCase{R"({"ipv4": {"flags": "fragment"}})", kAccept, "the IPv4 flags"},
        LossCase{R"({"ipv4": {"ietf-acl-enh:ipv4-fragment": {"type": "isf"}}})", kAccept,
                 "fragments"},
        LossCase{R"({"tcp": {"source-port": {"port": 1}}})", kDrop, "a source port"},
        LossCase{R"({"tcp": {"flags": "syn"}})", kDrop, "the TCP flags"},
        LossCase{R"({"icmp": {"type": 8}})", kAccept, "an ICMP type of 8"},
        LossCase{R"({"ipv6": {"destination-ipv6-network": "::/0"}})", kDrop, "IPv6"},
        LossCase{R"({"egress-interface": "eth1"})", kAccept, "the egress interface"},
        LossCase{R"({"tcp": {"destination-port": {"operator": "neq", "port": 1}}})", kDrop,
                 "is 65535 values"},
        LossCase{R"({"eth": {"source-mac-address-mask": "ff:ff:ff:ff:ff:ff"}})", kDrop,
                 "a mask without its address"},
        LossCase{R"({"ietf-acl-enh:vlan-filter": {"vlan": [0]}})", kDrop, "a VLAN id of 0"},
        LossCase{R"({"ietf-acl-enh:vlan-filter": {"operator": "neq", "lower-vlan": 0,
                                                  "upper-vlan": 4095}})",
                 kDrop, "no VLAN at all"},
        LossCase{R"({"vendor-acl:vlan": 5})", kDrop, "a condition that is not known here"},
        LossCase{R"({"ipv4": {"dscp": 64}})", kDrop, "\"64\" is no value"},
        LossCase{R"({"ipv4": {"ietf-acl-enh:source-ipv4-prefix-list": "none"}})", kDrop,
                 "the prefix set none is not there"},
        LossCase{"{}", R"({"forwarding": "reject"})", "an ICMP error"},
        LossCase{"{}", R"({"forwarding": "drop", "logging": "log-syslog"})", "a log"},
        LossCase{"{}", R"({"forwarding": "accept", "ietf-acl-enh:rate-limit": "1.00"})",
                 "no more than 1.00 bytes"}));

}  // namespace
}  // namespace host::standard
