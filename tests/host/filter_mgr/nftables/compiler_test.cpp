// From entries to rules, and from rules to what the kernel is told and back. What the rules do to
// frames is proved with frames; here are the form, the refusals and the sharing.
#include "host/filter_mgr/nftables/plan/compiler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include "host/filter_mgr/nftables/kernel/codec.h"
#include "host/filter_mgr/nftables/kernel/objects.h"
#include "tests/host/filter_mgr/groups_for_test.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT
using ::testing::HasSubstr;

constexpr filtersGroupType_t kL2Type = FILTERS_GROUP_TYPE_L2;

std::vector<RulePtr> Compile(const FiltersEntry& entry) {
  std::string reason;
  return CompileEntry(entry, true, &reason).value();
}

template <class... Parts>
FiltersEntry Entry(const Parts&... parts) {
  FiltersEntry entry(0);
  [[maybe_unused]] const auto add = [&entry](const auto& part) {  // unused without parts
    if constexpr (std::is_base_of_v<Match, std::decay_t<decltype(part)>>) {
      EXPECT_EQ(FILTERS_OK, entry.setMatch(part));
    } else {
      EXPECT_EQ(FILTERS_OK, entry.setAction(part));
    }
  };
  (add(parts), ...);
  return entry;
}

CompilerOptions Options(bool can_set_pcp = true) {
  return {[](limid_t id) { return id < 100 ? "eth" + std::to_string(id) : std::string(); },
          can_set_pcp};
}

TEST(CompilerTest, PutsTheRarestTestFirstAndGuardsLast) {
  const auto rules = Compile(Entry(MatchIpProtocol(6), MatchDstL4Port(22), MatchDSCP(46),
                                   MatchSrcIPv4(Ipv4(0x0a000000), Netmask(8)),
                                   MatchDstIPv4(Ipv4(0x0a000001)), ActionDeny()));
  ASSERT_EQ(1u, rules.size());
  std::vector<int> offsets;
  for (const FieldTest& test : rules[0]->tests) offsets.push_back(test.offset);
  EXPECT_EQ((std::vector<int>{16, 2, 12, 1, 9, 0}), offsets);
  EXPECT_EQ(Source::kEtherType, rules[0]->tests.back().source);
  EXPECT_EQ(Verdict::kDrop, rules[0]->outcome.verdict);
}

TEST(CompilerTest, RefusesWhatItCannotEnforceAndNamesTheEntry) {
  CompileError error;
  FiltersGroup no_port = GroupOf(kL2Type, {{DenyTo(1)}});
  FiltersEntry entry = DenyTo(2);
  entry.setId(7);
  entry.setPriority(7);
  no_port.insertEntry(entry);
  EXPECT_FALSE(CompileGroup(no_port, nullptr, Options(), &error));
  EXPECT_EQ(7, error.entry);
  EXPECT_THAT(error.reason, HasSubstr("no ingress port"));
  EXPECT_THAT(error.reason, HasSubstr("destination-ipv4-address 0.0.0.2: deny"));

  EXPECT_FALSE(
      CompileGroup(GroupOf(kL2Type, {{DenyTo(1)}, {DenyTo(1), {}}}), nullptr, Options(), &error));
  EXPECT_EQ(1, error.entry);
  EXPECT_THAT(error.reason, HasSubstr("no ingress port"));

  EXPECT_FALSE(CompileGroup(GroupOf(kL2Type, {{DenyTo(1)}, {DenyTo(1), {100}}}), nullptr, Options(),
                            &error));
  EXPECT_EQ(1, error.entry);
  EXPECT_THAT(error.reason, HasSubstr("port 100 is not known"));

  const FiltersGroup setting = GroupOf(kL2Type, {{Entry(ActionSetPcpAndQueue(1))}});
  EXPECT_TRUE(CompileGroup(setting, nullptr, Options(), &error));
  EXPECT_FALSE(CompileGroup(setting, nullptr, Options(false), &error));
  EXPECT_THAT(error.reason, HasSubstr("sets the PCP"));
}

TEST(CompilerTest, GivesEachPortItsEntriesInOrderOfPriority) {
  FiltersGroup group = GroupOf(kL2Type, {{DenyTo(1), {1, 2, 1}}, {DenyTo(2), {2}}});
  FiltersEntry first = DenyTo(4);
  first.setId(9);
  first.setMatch(MatchIngressPorts({2}));  // priority 0, id 9: behind entry 0, before entry 1
  group.insertEntry(first);
  CompileError error;
  const auto compiled = CompileGroup(group, nullptr, Options(), &error);
  ASSERT_TRUE(compiled);
  ASSERT_EQ(2u, compiled->ports.size());
  EXPECT_EQ(1u, compiled->ports.at("eth1").rules.size());
  std::vector<int> ids;
  for (const PortEntry& entry : compiled->ports.at("eth2").entries) ids.push_back(entry.id);
  EXPECT_EQ((std::vector<int>{0, 9, 1}), ids);
}

TEST(CompilerTest, TakesUnchangedEntriesFromThePreviousGroup) {
  std::vector<PlacedEntry> entries;
  for (uint32_t i = 0; i < 40; ++i) {
    entries.push_back(
        {i % 3 == 0 ? Entry(ActionSetPcpAndQueue(1), MatchIpProtocol(i)) : DenyTo(i), {1 + i % 2}});
  }
  CompileError error;
  const auto before = CompileGroup(GroupOf(kL2Type, entries), nullptr, Options(), &error);
  entries.erase(entries.begin() + 5, entries.begin() + 11);
  entries.insert(entries.begin() + 20, {DenyTo(1000), {1}});
  entries[25].entry.setMatch(MatchPcp(4));
  const auto after = CompileGroup(GroupOf(kL2Type, entries), &*before, Options(), &error);
  const auto fresh = CompileGroup(GroupOf(kL2Type, entries), nullptr, Options(), &error);
  for (const auto& [port, rules] : fresh->ports) {
    const PortRules& reused = after->ports.at(port);
    ASSERT_EQ(rules.rules.size(), reused.rules.size());
    size_t shared = 0;
    for (size_t i = 0; i < rules.rules.size(); ++i) {
      EXPECT_TRUE(SameRule(*rules.rules[i], *reused.rules[i])) << port << " " << i;
      const auto& old = before->ports.at(port).rules;
      shared += static_cast<size_t>(std::count(old.begin(), old.end(), reused.rules[i]));
    }
    EXPECT_GE(shared + 3, rules.rules.size());
    for (size_t i = 0; i < rules.entries.size(); ++i) {
      EXPECT_EQ(rules.entries[i].id, reused.entries[i].id);
      EXPECT_EQ(rules.entries[i].rule_count, reused.entries[i].rule_count);
    }
  }
}

TEST(RuleCodecTest, ReadsBackWhatItWrites) {
  const ether_addr mac = {{2, 0, 0, 0, 0, 1}}, ignored = {{0, 0, 0, 0, 0xf0, 0}};
  std::vector<RulePtr> rules = {GoTo(12), JumpTo(12, {}),
                                JumpTo(12, GuardOf(*Compile(Entry(MatchIpProtocol(6)))[0]))};
  for (const FiltersEntry& entry :
       {Entry(), Entry(ActionDeny()), Entry(ActionSetPcpAndQueue(7)), Entry(MatchDstL4Port(53)),
        Entry(MatchDstMac(mac), MatchSrcMac(mac, ignored), MatchExternalVlanId(0), MatchPcp(7)),
        Entry(MatchTPID(0x88a8), MatchToS(3), MatchSrcIPv4(Ipv4(1), Netmask(31)), ActionDeny()),
        Entry(MatchDstIPv4(Ipv4(1), Ipv4(0x00ff00ff)), MatchDstL4Port(65535), MatchDSCP(1))}) {
    for (const RulePtr& rule : Compile(entry)) rules.push_back(rule);
  }
  for (const RulePtr& rule : rules) {
    const bool leads = !rule->outcome.counted;
    const GroupSlot slot = rule->tests.size() % 2 == 0 ? kL2 : kL3, other = slot == kL2 ? kL3 : kL2;
    Guard guard = leads ? Guard{} : GuardOf(*rule);
    for (;; guard.erase(guard.begin())) {  // with each guard that the rule fits
      const RuleObjectPtr written(nftnl_rule_alloc()), read(nftnl_rule_alloc());
      ASSERT_TRUE(FitsGuard(*rule, guard));
      EncodeRule(*rule, guard, slot, {5, 500}, written.get());
      char buffer[4096];
      nlmsghdr* message = nftnl_nlmsg_build_hdr(buffer, NFT_MSG_NEWRULE, NFPROTO_NETDEV, 0, 1);
      nftnl_rule_nlmsg_build_payload(message, written.get());
      ASSERT_EQ(0, nftnl_rule_nlmsg_parse(message, read.get()));
      Hits hits;
      EXPECT_TRUE(SameRule(*rule, DecodeRule(read.get(), guard, slot, &hits)));
      EXPECT_EQ(leads ? 0u : 5u, hits.packets);
      // A jump is a jump within its own group, whose permits are its own as well; a rule with more
      // to it is none of ours.
      EXPECT_EQ(rule->outcome.verdict != Verdict::kDrop,
                DecodeRule(read.get(), guard, other, &hits).foreign);
      nftnl_rule_add_expr(read.get(), nftnl_expr_alloc("notrack"));
      EXPECT_TRUE(DecodeRule(read.get(), guard, slot, &hits).foreign);
      if (guard.empty()) break;
    }
  }
}

TEST(NftNamesTest, NamesAreTakenApartAsTheyAreMade) {
  EXPECT_EQ("eth0.100", PortOfTable(TableName("eth0.100")));
  EXPECT_FALSE(PortOfTable("acl-app/"));
  EXPECT_FALSE(PortOfTable("filter"));
  EXPECT_EQ(std::make_pair(kL3, 70000u), ParseChunkName(ChunkName(kL3, 70000)).value());
  for (const char* name : {"l2", "l2-", "l2-01", "l2-x", "l4-1", "l2-9999999999", ""}) {
    EXPECT_FALSE(ParseChunkName(name)) << name;
  }
  EXPECT_TRUE(IsInterfaceName("eth0.100"));
  for (const char* name : {"", ".", "..", "gigabit-ethernet-1/1/1", "sixteen-letters-", "a:1"}) {
    EXPECT_FALSE(IsInterfaceName(name)) << name;
  }
}

}  // namespace
}  // namespace host
