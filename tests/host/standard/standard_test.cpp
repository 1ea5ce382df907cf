// Conversions of access lists: no frame may be treated otherwise where the report says exact, and
// what does not carry over must be told.
#include <set>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "host/standard/configuration.h"
#include "host/standard/readers.h"
#include "host/standard/tags.h"
#include "host/standard/writers.h"
#include "tests/host/standard/evaluation.h"
#include "tests/packets/frames.h"
#include "tests/random_rounds.h"

namespace host::standard {
namespace {

using ::testing::HasSubstr;

AccessLists ReadLists(const std::string& text, bool openconfig = false) {
  Document document;
  EXPECT_EQ("", document.Read(text)) << text;
  AccessLists lists;
  EXPECT_EQ("", (openconfig ? ReadOpenConfig : ReadRfc8519)(document, kMostAlternatives, &lists));
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
    Report report;
    EXPECT_EQ(test.profiles,
              Summary(ToProfiles(ReadLists(test.document, test.openconfig), {}, &report)));
    EXPECT_GE(Outcome::kNoted, report.Worst()) << PrintReport(report, 0);
  }
}

// Many lists, in the envelope of a reply; and what is not read at all.
TEST(StandardTest, ReadsXml) {
  std::string lists;
  for (int i = 0; i < 300; ++i) lists += "<acl><name>l:" + std::to_string(i) + " </name></acl>";
  const std::string acls =
      "<acls xmlns='urn:ietf:params:xml:ns:yang:ietf-access-control-list' xmlns:l='urn:l'>" +
      lists + "</acls>";
  const AccessLists read =
      ReadLists("\xef\xbb\xbf<?xml version='1.0'?><rpc-reply message-id='1'><data>" + acls +
                "</data></rpc-reply>");
  ASSERT_EQ(300U, read.acls.size());
  EXPECT_EQ("l:299 ", read.acls[299].name);  // a name has no prefix
  std::string attribute = acls;
  attribute.insert(attribute.rfind("<name") + 5, " l:x='1' xml:lang='en'");
  EXPECT_EQ(1U, ReadLists(attribute).acls[299].problems.size());
  EXPECT_EQ(1U, ReadLists(attribute).notes.size());
  std::string deep;
  for (int i = 0; i < 70; ++i) deep += "<a>";
  for (const auto& [text, why] : std::vector<std::pair<std::string, std::string>>{
           {"<!DOCTYPE acls [<!ENTITY e 'x'>]><acls>&e;</acls>", "a document type declaration"},
           {"<a>\n<b/>c</a>", "line 2: text between the elements of <a>"},
           {"<a><x:b/></a>", "unbound prefix"},
           {acls.substr(0, acls.size() - 1), "unclosed token"},
           {R"({"a": {"b": 1, "c": 2, "b": 3}})", "the member /a/b stands twice"},
           {deep, "too deep"}}) {
    EXPECT_THAT(Document().Read(text), HasSubstr(why));
  }
}

// With what acl-app-standard adds, profiles come back as they were.
TEST(StandardTest, ProfilesComeBack) {
  std::mt19937 random(9899);
  for (int round = 0; round < RandomRounds(600); ++round) {
    const Profiles profiles = RandomProfiles(&random);
    ExportOptions options;
    const bool enhanced = round % 2 == 0;
    options.to = enhanced ? Standard::kRfc9899 : Standard::kRfc8519;
    Report report;
    Document written;
    WriteRfc8519(ToAccessLists(profiles, options, &report), enhanced, &written);
    const std::string text = written.Print(round % 4 < 2 ? Format::kJson : Format::kXml);
    ASSERT_EQ(Summary(profiles), Summary(ToProfiles(ReadLists(text), {}, &report))) << text;
    ASSERT_EQ(Outcome::kExact, report.Worst()) << PrintReport(report, 0) << text;
  }
}

// What is written is plain; what is no number, no value of its leaf or not known at all is not.
TEST(StandardTest, PlainConfigurationsComeBack) {
  std::mt19937 random(7950);
  for (int round = 0; round < 200; ++round) {
    const Profiles profiles = RandomProfiles(&random);
    const Format format = round % 2 == 0 ? Format::kJson : Format::kXml;
    Document written, read;
    WriteConfiguration(profiles, &written);
    const std::string text = written.Print(format);
    ASSERT_EQ("", read.Read(text));
    const auto plain = ReadPlainConfiguration(read, format);
    ASSERT_TRUE(plain) << text;
    ASSERT_EQ(Summary(profiles), Summary(*plain)) << text;
  }
  const std::string start = R"({"acl-app:config": {"access-list": {"acl-profile": {"ingress": {
      "access-list": [{"acl-type": "l3", "acl-name": "a", "access-list-entry": [{"ace-priority": 1)";
  for (const char* rest :
       {"", R"(, "match": {"vlan": 0})", R"(, "match": {"vlan": "5"})",
        R"(, "match": {"dscp": "ef"})", R"(, "match": {"dscp": 1, "tos": 4})",
        R"(, "match": {"ethertype": "arp"})",
        R"(, "match": {"source-ipv4-address": {"mask": {"ip": "10.0.0.0"}}})",
        R"(, "match": {"source-ipv4-address": {"mask": {"ip": "10.0.0.0/08"}}})",
        R"(, "match": {"source-mac-address-mask": "ff:ff:ff:ff:ff:ff"})", R"(, "match": {"x": 1})",
        R"(, "description": "é")", R"(, "action": {"set": {"pcp": 8}})", R"(, "v:x": 1)",
        R"(, "ace-priority": 2)"}) {
    Document document;
    if (!document.Read(start + rest + "}]}]}}}}}").empty()) continue;  // it stands twice
    EXPECT_EQ(*rest == '\0', ReadPlainConfiguration(document, Format::kJson).has_value()) << rest;
  }
}

// Without it they are treated alike: what the standards have, and what is left out is told.
TEST(StandardTest, StandardListsMeanTheSame) {
  std::vector<FrameFields> frames;
  for (const Frame& frame : AllFrames()) frames.push_back(ParseFrame(frame));
  std::mt19937 random(70000);
  int compared = 0;
  for (int round = 0; round < RandomRounds(600); ++round) {
    Profiles profiles = RandomProfiles(&random);
    ExportOptions options;
    options.standard_only = true;
    options.to = static_cast<Standard>(round % 3);
    const bool openconfig = options.to == Standard::kOpenConfig;
    for (Profile& profile : profiles.profiles) {
      if (round % 2 == 0) break;  // else most of what no standard has is left away
      for (ProfileEntry& entry : profile.entries) {
        for (const Field field : {kVlan, kPcp, kTos}) entry.matches[field].reset();
        entry.set_pcp.reset();
      }
    }
    Report report;
    const AccessLists wanted = ToAccessLists(profiles, options, &report);
    if (report.Worst() > Outcome::kNoted) continue;
    Document written;
    if (openconfig) {
      WriteOpenConfig(wanted, &written);
    } else {
      WriteRfc8519(wanted, options.to == Standard::kRfc9899, &written);
    }
    const std::string text = written.Print(round % 2 == 0 ? Format::kJson : Format::kXml);
    const Profiles back = ToProfiles(ReadLists(text, openconfig), {}, &report);
    // A port of TCP and UDP over either version of IP is one of each there, which ours has not.
    if (report.Worst() > Outcome::kNoted) {
      ASSERT_THAT(PrintReport(report, 0), HasSubstr("over IPv6 as well"));
      continue;
    }
    ++compared;
    for (const FrameFields& frame : frames) {
      ASSERT_EQ(Passes(profiles, frame), Passes(back, frame)) << Summary(profiles) << text;
    }
  }
  EXPECT_GT(compared, RandomRounds(80));
}

TEST(StandardTest, FramesAreTreatedAsTheListSays) {
  std::vector<FrameFields> frames;
  for (const Frame& frame : AllFrames()) frames.push_back(ParseFrame(frame));
  std::mt19937 random(8519);
  for (const bool openconfig : {false, true}) {
    int dropped = 0, passed = 0;
    for (int round = 0; round < RandomRounds(100); ++round) {
      ImportOptions options;
      options.end = openconfig && round % 2 == 0 ? End::kPermit : End::kDeny;
      const KnownLists known = openconfig ? RandomOpenConfig(options.end == End::kPermit, &random)
                                          : RandomRfc8519(&random);
      Report report;
      Document json;
      ASSERT_EQ("", json.Read(known.json));
      const std::string text =
          round % 3 == 0 ? "<data>" + json.Print(Format::kXml) + "</data>" : known.json;
      const Profiles profiles = ToProfiles(ReadLists(text, openconfig), options, &report);
      if (report.Worst() > Outcome::kNoted) {
        ASSERT_THAT(PrintReport(report, 0), HasSubstr("more than 256")) << known.json;
        continue;
      }
      for (const FrameFields& frame : frames) {
        const bool passes = known.passes(frame);
        ASSERT_EQ(passes, Passes(profiles, frame)) << known.json << Summary(profiles);
        ++(passes ? passed : dropped);
      }
    }
    EXPECT_GT(dropped, passed / 10);
    EXPECT_GT(passed, dropped / 10);
  }
}

// Whatever is done to a document, wherever: it is not read, or refused, or told of without a frame
// being treated otherwise. Where conditions may be dropped, a foreign one is, and leaves all
// others; what is in doubt is none.
TEST(StandardTest, DamageIsTold) {
  std::vector<FrameFields> frames;
  for (const Frame& frame : AllFrames()) frames.push_back(ParseFrame(frame));
  std::mt19937 random(7951);
  int refused = 0, told = 0;
  for (int round = 0; round < RandomRounds(1000); ++round) {
    const bool openconfig = round % 2 == 0;
    const KnownLists known = openconfig ? RandomOpenConfig(false, &random) : RandomRfc8519(&random);
    const Damage damage = DamageOf(known.json, &random);
    Report before, after;
    ToProfiles(ReadLists(known.json, openconfig), {}, &before);
    if (before.Worst() == Outcome::kRefused) continue;
    Document document;
    if (!document.Read(damage.text).empty()) continue;
    AccessLists lists;
    const std::string wrong =
        (openconfig ? ReadOpenConfig : ReadRfc8519)(document, kMostAlternatives, &lists);
    if (!wrong.empty()) continue;
    ImportOptions options;
    options.allowance.drop_conditions = true;
    const Profiles profiles = ToProfiles(lists, options, &after);
    ++(after.Worst() == Outcome::kRefused ? refused : told);
    if (after.Worst() == Outcome::kRefused) continue;
    // A set that is in doubt is one that is not there.
    const std::string report = PrintReport(after, 99);
    if (report.find("is not there, or not as it should be") != std::string::npos) continue;
    ASSERT_TRUE(damage.is_foreign || after.Worst() == Outcome::kNoted) << report << damage.text;
    ASSERT_NE(PrintReport(before, 99), report) << damage.text;
    for (const FrameFields& frame : frames) {
      ASSERT_EQ(known.passes(frame), Passes(profiles, frame)) << damage.text;
    }
  }
  EXPECT_GT(refused, RandomRounds(300));
  EXPECT_GT(told, RandomRounds(50));
}

// What contradicts itself, or has another form than it should, makes no entry wider in silence.
TEST(StandardTest, DoubtfulEntriesAreRefused) {
  constexpr const char* kAces[] = {
      R"("matches": {"ipv4": {"protocol": 6}, "tcp": {"flags": ""}}, "actions": {"forwarding": "accept"})",
      R"("matches": {"ipv4": {"ttl": ""}}, "actions": {"forwarding": "accept"})",
      R"("actions": {"forwarding": "drop", "acl-app-standard:no-action": [null]})",
      R"("matches": {"tcp": {"destination-port": {"lower-port": 1, "upper-port": 2, "port": 3}}}, "actions": {"forwarding": "drop"})",
      R"("matches": {"ietf-acl-enh:vlan-filter": {"vlan": [1], "upper-vlan": 2}}, "actions": {"forwarding": "drop"})",
      R"("matches": {"ipv4": {"source-ipv4-network": "10.0.0.0\u0000x/8"}}, "actions": {"forwarding": "drop"})",
      R"("actions": {"forwarding": "drop"}}, {"name": "x", "actions": {"forwarding": "accept"})"};
  for (const char* ace : kAces) {
    const std::string text = R"({"ietf-access-control-list:acls": {"acl": [{"name": "a", "type":
        "ipv4-acl-type", "aces": {"ace": [{"name": "x", )" +
                             std::string(ace) + "}]}}]}}";
    Report report;
    ToProfiles(ReadLists(text), {}, &report);
    EXPECT_EQ(Outcome::kRefused, report.Worst()) << text;
  }
  const std::string narrow = R"({"ietf-access-control-list:acls": {"acl": [{"name": "a", "type":
      "ipv4-acl-type", "aces": {"ace": [{"name": "e", "acl-app-standard:end-of-profile": [null],
      "matches": {"ipv4": {"source-ipv4-network": "10.0.0.0/8"}}, "actions": {"forwarding": "accept"}}]}}]}})";
  // Nor is anything bound that names two lists or interfaces.
  for (
      const char* interface : {
          R"({"id": "e", "ingress-acl-sets": {"ingress-acl-set": [{"set-name": "a", "type": "ACL_IPV4",
               "config": {"set-name": "b", "type": "ACL_IPV4"}}]}})",
          R"({"id": "e", "config": {"id": "f"}, "ingress-acl-sets": {"ingress-acl-set": [
               {"set-name": "a", "type": "ACL_IPV4"}]}})"}) {
    const std::string text = R"({"openconfig-acl:acl": {"acl-sets": {"acl-set": [
        {"name": "a", "type": "ACL_IPV4"}, {"name": "b", "type": "ACL_IPV4"}]},
        "interfaces": {"interface": [)" +
                             std::string(interface) + "]}}}";
    Report report;
    ImportOptions options;
    options.allowance.skip_entries = true;
    const Profiles profiles = ToProfiles(ReadLists(text, true), options, &report);
    EXPECT_EQ(Outcome::kLeftOut, report.Worst()) << text;
    for (const auto& [name, bound] : profiles.bindings) EXPECT_TRUE(bound.empty()) << text;
  }
  const AccessLists twice = ReadLists(
      R"(<acls xmlns="urn:ietf:params:xml:ns:yang:ietf-access-control-list"><acl><name>a</name></acl>
         <attachment-points><interface><interface-id>e</interface-id><ingress><acl-sets><acl-set>
         <name>a</name><name>b</name></acl-set></acl-sets></ingress></interface></attachment-points>
         </acls>)");
  for (const Attachment& attachment : twice.attachments) EXPECT_TRUE(attachment.acls.empty());
  Report report;
  EXPECT_EQ(2u, ToProfiles(ReadLists(narrow), {}, &report).profiles.at(0).entries.size());
}

// Names and numbers come back, of lists whose names ours cannot have as they are, too.
TEST(StandardTest, NamesComeBack) {
  const std::vector<std::string> lists = {"web/in", "web_in", "a]b \\c", std::string(64, '/'),
                                          "10"};
  std::string longest;  // in characters, as all that is not ASCII may be in these names
  while (longest.size() < 128) longest += "\u00e9";
  const std::vector<std::string> aces = {"20",       "10",    "x]y",
                                         "[ace 10]", longest, std::string(64, 'n')};
  Report report;
  ExportOptions options;
  // Those of entries that have numbers of ours, too, in their order or not.
  for (const char* own : {"", "up", "down"}) {
    AccessLists wanted;
    for (const std::string& name : lists) {
      Acl& acl = wanted.acls.emplace_back();
      acl.name = name;
      if (*own != '\0') acl.priority = 7;
      for (const std::string& ace_name : aces) {
        Ace& ace = acl.aces.emplace_back();
        ace.name = ace_name;
        ace.handling = Handling::kDeny;
        ace.conditions[kIpProtocol] = {{6, 255}};
        const uint16_t up = static_cast<uint16_t>(10 * acl.aces.size());
        if (*own != '\0') ace.ace_priority = *own == 'u' ? up : static_cast<uint16_t>(100 - up);
      }
    }
    options.standard_only = *own == '\0';
    const Profiles profiles = ToProfiles(wanted, {}, &report);
    const AccessLists back = ToAccessLists(profiles, options, &report);
    for (size_t i = 0; i < lists.size(); ++i) {
      EXPECT_EQ(lists[i], back.acls.at(i).name);
      for (size_t j = 0; j < aces.size(); ++j) EXPECT_EQ(aces[j], back.acls[i].aces.at(j).name);
    }
    const bool anew = PrintReport(report, 99).find("numbered anew") != std::string::npos;
    EXPECT_EQ(*own == 'd', anew);
  }
  // A list's name beside that of its profile.
  const std::string both = R"({"ietf-access-control-list:acls": {"acl": [{"name": "web/in",
      "acl-app-standard:profile-name": "web_in"}]}})";
  EXPECT_EQ("[acl web/in]", ToProfiles(ReadLists(both), {}, &report).profiles.at(0).description);
  UniqueNames names(" ", 64);
  EXPECT_EQ(longest, names.Take(longest));
  EXPECT_EQ(longest.substr(0, 124) + " 2", names.Take(longest));
  options.standard_only = true;
  // Sets of OpenConfig are named by their types as well; numbers beyond ours are kept in order.
  const std::string sets =
      R"json({"openconfig-acl:acl": {"acl-sets": {"acl-set": [
      {"name": "in", "type": "ACL_IPV4", "acl-entries": {"acl-entry": [
        {"sequence-id": 70000, "config": {"description": "[x"}, "actions": {"config": {"forwarding-action": "DROP"}}}]}},
      {"name": "in", "type": "ACL_L2", "config": {"description": "second"}},
      {"name": "in (ACL_L2)", "type": "ACL_MIXED"}, {"name": "in (ACL_L2)", "type": "ACL_IPV4"}]},
      "interfaces": {"interface": [
      {"id": "eth0", "ingress-acl-sets": {"ingress-acl-set": [{"set-name": "in (ACL_L2)", "type": "ACL_IPV4"}]}},
      {"id": "eth1", "ingress-acl-sets": {"ingress-acl-set": [{"set-name": "in", "type": "ACL_L2"}]}}]}}})json";
  options.to = Standard::kOpenConfig;
  Document written;
  WriteOpenConfig(ToAccessLists(ToProfiles(ReadLists(sets, true), {}, &report), options, &report),
                  &written);
  const Node& acl = written.root.children.at(0);
  std::vector<std::string> sets_written;
  for (const Node& set : acl.Find("acl-sets")->children) {
    sets_written.push_back(set.ValueOf("name") + ": " + set.ValueOf("type"));
  }
  EXPECT_THAT(sets_written,
              testing::ElementsAre("in: ACL_IPV4", "in: ACL_L2", "in (ACL_L2): ACL_MIXED",
                                   "in (ACL_L2): ACL_IPV4"));
  const std::string text = written.Print(Format::kXml);
  for (const char* part : {"<sequence-id>70000<", "<description>[x<", "<description>second<"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
  std::string bound;
  for (const Node& interface : acl.Find("interfaces")->children) {
    const Node& set = interface.Find("ingress-acl-sets")->children.at(0);
    bound += set.ValueOf("set-name") + ": " + set.ValueOf("type") + "; ";
  }
  EXPECT_EQ("in (ACL_L2): ACL_IPV4; in: ACL_L2; ", bound);
}

// What is not in the result without a frame being treated otherwise is told all the same, and what
// leaving an entry out means.
TEST(StandardTest, ExportsTellWhatTheyLeaveOut) {
  Profiles profiles;
  Profile& profile = profiles.profiles.emplace_back();
  profile = {"p", true, 7, "why", {}};
  for (const uint16_t number : {1, 2}) {
    ProfileEntry& entry = profile.entries.emplace_back();
    entry.ace_priority = number;
    entry.description = number == 1 ? "[seq 5] ticket" : "[seq 4]";
    entry.handling = number == 1 ? Handling::kDeny : Handling::kPermit;
    entry.matches[kIpProtocol] = {6, 255};
    entry.matches[kVlan] = {5, 0xfff};
  }
  ExportOptions options;
  options.standard_only = true;
  ProfileEntry& icmp = profile.entries.emplace_back();
  icmp.ace_priority = 3;
  icmp.matches[kIpProtocol] = {1, 255};
  icmp.matches[kDestinationPort] = {80, 65535};
  const struct {
    Standard to;
    Allowance allowance;
    std::vector<const char*> told;
  } kCases[] = {
      {Standard::kRfc8519,
       {},
       {"refused: /", "a VLAN: the standard has nothing like it", "noted: /", "the priority 7",
        "the description \"why\""}},
      {Standard::kRfc8519,
       {true, false},
       {"WARNING: left-out", "the entry passes more than it says", "the entry drops more",
        "\"ticket\""}},
      {Standard::kRfc8519,
       {false, true},
       {"a VLAN: the whole entry is left out: what it dropped is "
        "decided by the entries behind it, and may pass",
        "WARNING"}},
      {Standard::kOpenConfig,
       {true, false},
       {"sequence ids in descriptions that are not in the order",
        "'3']: a port of a protocol that has none: no frame matches: no entry"}},
  };
  for (const auto& test : kCases) {
    options.to = test.to;
    options.allowance = test.allowance;
    Report report;
    const AccessLists lists = ToAccessLists(profiles, options, &report);
    for (const char* part : test.told) EXPECT_THAT(PrintReport(report, 99), HasSubstr(part));
    if (test.to == Standard::kOpenConfig) {
      EXPECT_EQ("[seq 5] ticket", lists.acls.at(0).aces.at(0).description);
    }
  }
  // Texts are cut to so many characters, without control characters; the report has those escaped.
  Report cut;
  AccessLists lists;
  const std::string name = "\xc2\x9b[2J\n";
  Acl& acl = lists.acls.emplace_back();
  acl.path = acl.name = name;
  for (int i = 0; i < 300; ++i) acl.description += "\xc3\xa9";
  const Profiles described = ToProfiles(lists, {}, &cut);
  EXPECT_EQ(2U * 255 - std::string("[acl  [2J ] ").size(),
            described.profiles[0].description.size());
  const std::string printed = PrintReport(cut, 9);
  EXPECT_THAT(printed, HasSubstr("noted: \\xc2\\x9b[2J\\x0a: control characters in a text"));
  EXPECT_THAT(printed, HasSubstr("a text of more than 255 characters: cut"));
  EXPECT_EQ(std::string::npos, (printed + ReportAsJson(cut)).find('\xc2'));
  // The tags of several entries of one are not of one length.
  Ace& ace = acl.aces.emplace_back();
  acl.description.clear();
  ace.name = "x";
  ace.description = std::string(255 - std::string("[ace x (1 of 10)] ").size(), 't');
  ace.handling = Handling::kDeny;
  for (uint64_t port = 0; port < 10; ++port) {
    ace.conditions[kDestinationPort].push_back({port, 0xffff});
  }
  ace.conditions[kIpProtocol] = {{6, 255}};
  Report tags;
  ToProfiles(lists, {}, &tags);
  EXPECT_THAT(PrintReport(tags, 9), HasSubstr("a text of more than 255 characters: cut"));
}

// Many entries that name a large set are refused before they take the memory; many alternatives and
// many lists of one name take no longer than they are many.
TEST(StandardTest, AmountsAreBounded) {
  std::string prefixes, entries;
  for (int i = 0; i < 256; ++i) {
    prefixes += (i > 0 ? ",\"10.0." : "\"10.0.") + std::to_string(i) + ".0/24\"";
  }
  for (int i = 0; i < 20000; ++i) {
    entries += (i > 0 ? "," : "") + std::string(R"({"name":"a","matches":{"ipv4":{)") +
               R"("ietf-acl-enh:source-ipv4-prefix-list":"p"}},"actions":{"forwarding":"drop"}})";
  }
  const std::string json = R"({"ietf-access-control-list:acls":{"ietf-acl-enh:defined-sets":{
      "ipv4-prefix-sets":{"prefix-set":[{"name":"p","prefix":[)" +
                           prefixes + R"(]}]}},"acl":[{"name":"l","aces":{"ace":[)" + entries +
                           "]}}]}}";
  Document document;
  ASSERT_EQ("", document.Read(json));
  AccessLists lists;
  EXPECT_THAT(ReadRfc8519(document, 256, &lists), HasSubstr("more than 4000000 values"));
  AccessLists many;
  for (int i = 0; i < 5; ++i) {
    Acl& acl = many.acls.emplace_back();
    acl.aces.resize(60000);
    for (Ace& ace : acl.aces) ace.handling = Handling::kDeny;
  }
  Report report;
  ToProfiles(many, {}, &report);
  EXPECT_THAT(PrintReport(report, 0), HasSubstr("a conversion has at most 262144"));
}

// One entry of an IPv4 list with a statement that ours has not, and what comes of it.
TEST(StandardTest, NothingIsLostInSilence) {
  constexpr char kDrop[] = R"({"forwarding": "drop"})", kAccept[] = R"({"forwarding": "accept"})";
  const struct {
    const char* matches;
    const char* action;
    const char* told;  // in the refusal
  } kCases[] = {
      {R"({"ipv4": {"ttl": 1}})", kDrop, "/matches/ipv4/ttl: a time to live of 1"},
      {R"({"ipv4": {"flags": "fragment"}})", kAccept, "the IPv4 flags"},
      {R"({"ipv4": {"ietf-acl-enh:ipv4-fragment": {"type": "isf"}}})", kAccept, "fragments"},
      {R"({"tcp": {"source-port": {"port": 1}}})", kDrop, "a source port"},
      {R"({"tcp": {"flags": "syn"}})", kDrop, "the TCP flags"},
      {R"({"icmp": {"type": 8}})", kAccept, "an ICMP type of 8"},
      {R"({"ipv6": {"destination-ipv6-network": "::/0"}})", kDrop, "IPv6"},
      {R"({"egress-interface": "eth1"})", kAccept, "the egress interface"},
      {R"({"tcp": {"destination-port": {"operator": "neq", "port": 1}}})", kDrop,
       "is 65535 values"},
      {R"({"eth": {"source-mac-address-mask": "ff:ff:ff:ff:ff:ff"}})", kDrop,
       "a mask without its address"},
      {R"({"ietf-acl-enh:vlan-filter": {"vlan": [0]}})", kDrop, "a VLAN id of 0"},
      {R"({"ietf-acl-enh:vlan-filter": {"operator": "neq", "lower-vlan": 0,
                                                  "upper-vlan": 4095}})",
       kDrop, "no VLAN at all"},
      {R"({"vendor-acl:vlan": 5})", kDrop, "a statement that is not known here"},
      {R"({"ipv4": {"dscp": 64}})", kDrop, "\"64\" is no value"},
      {R"({"ipv4": {"protocol": "ietf-access-control-list:6"}})", kDrop, "is no value"},
      {R"({"ipv4": {"ietf-acl-enh:source-ipv4-prefix-list": "none"}})", kDrop,
       "the prefix set none is not there"},
      {"{}", R"({"forwarding": "reject"})", "an ICMP error"},
      {"{}", R"({"forwarding": "drop", "logging": "log-syslog"})", "a log"},
      {"{}", R"({"forwarding": "accept", "ietf-acl-enh:rate-limit": "1.00"})",
       "no more than 1.00 bytes"}};
  for (const auto& test : kCases) {
    const std::string json =
        std::string(
            R"({"ietf-access-control-list:acls": {"acl": [{"name": "a", "type": "ipv4-acl-type",
                "aces": {"ace": [{"name": "x", "matches": )") +
        test.matches + ", \"actions\": " + test.action + "}]}}]}}";
    const AccessLists lists = ReadLists(json);
    Report refused, dropped, skipped;
    ToProfiles(lists, {}, &refused);
    EXPECT_EQ(Outcome::kRefused, refused.Worst()) << json;
    EXPECT_THAT(PrintReport(refused, 0), HasSubstr(test.told));
    ImportOptions options;
    options.allowance.skip_entries = true;
    const Profiles without = ToProfiles(lists, options, &skipped);
    EXPECT_EQ(Outcome::kLeftOut, skipped.Worst()) << json;
    EXPECT_EQ(1U, without.profiles.at(0).entries.size()) << json;  // the end alone
    const bool deny = std::string(test.action).find("accept") == std::string::npos;
    EXPECT_EQ(deny, PrintReport(skipped, 0).find("WARNING") != std::string::npos) << json;
    options.allowance = {true, false};
    const Profiles wider = ToProfiles(lists, options, &dropped);
    EXPECT_EQ(Outcome::kLeftOut, dropped.Worst()) << json;
    EXPECT_EQ("[ace x]", wider.profiles.at(0).entries.at(0).description);
  }
  // What another model calls the same goes, and takes nothing of ours with it.
  Report report;
  ImportOptions options;
  options.allowance = {true, false};
  const Profiles namesake = ToProfiles(
      ReadLists(
          R"({"openconfig-acl:acl": {"acl-sets": {"acl-set": [{"name": "a", "type": "ACL_IPV4",
          "acl-entries": {"acl-entry": [{"sequence-id": 1, "ipv4": {"config": {"v:dscp-set": [1],
          "dscp-set": [0, 46]}}, "actions": {"config": {"forwarding-action": "DROP"}}}]}}]}}})",
          true),
      options, &report);
  const auto& entries = namesake.profiles.at(0).entries;
  EXPECT_EQ(2, std::count_if(entries.begin(), entries.end(),
                             [](const auto& entry) { return entry.matches[kTos].has_value(); }));
}

}  // namespace
}  // namespace host::standard
