// Conversion of configured values into matches and actions of an entry.
#include <arpa/inet.h>

#include <stdexcept>

#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using namespace acl_app;
using FiltersCommon::FILTERS_ACTION_DENY;
using FiltersCommon::FILTERS_ACTION_PERMIT;
using FiltersCommon::FILTERS_ACTION_SET_PCP_AND_QUEUE;
using FiltersCommon::filtersAction_t;

const Value kMac("0x021122334455");
const Value kMask("0xffffff000001");

aclFiltersMatch_t Kind(unsigned int kind) { return static_cast<aclFiltersMatch_t>(kind); }

// Entry 5 of profile P, before (-1) or after the profile has its priority.
class MatchesTest : public ModelTest, public testing::WithParamInterface<int> {
 protected:
  MatchesTest() { AddProfile("P", 1, GetParam(), {3, 5, 7}); }

  aclErr_t Create(unsigned int kind, const Value& value) {
    return model_.CreateMatch("P", 5, Kind(kind), value.get(), nullptr);
  }
  aclErr_t CreateAction(filtersAction_t kind, const confd_value_t* value = nullptr) {
    return model_.CreateAction("P", 5, kind, value);
  }
};
INSTANTIATE_TEST_SUITE_P(Stages, MatchesTest, testing::Values(-1, 10));

TEST_P(MatchesTest, EveryKindConvertsItsValues) {
  const struct {
    unsigned int kind;
    std::string value;
    const char* text;
  } rows[] = {
      {0, "0x021122334455", "dst-mac 0x021122334455 ->"},
      {1, "0x021122334455", "src-mac 0x021122334455 ->"},
      {2, "u16 4095", "vlan 4095 ->"},
      {3, "enum 0x88a8", "tpid 34984 ->"},
      {3, "enum 0x7fff8100", "tpid 33024 ->"},
      {3, "\"8100\"", "tpid 33024 ->"},
      {3, "\"  0x88A8 and more\"", "tpid 34984 ->"},
      {3, "\"zz\"", "tpid 0 ->"},
      {3, "\"\"", "tpid 0 ->"},
      {3, "\"10000\"", "tpid 65535 ->"},
      {3, std::string("\"81\0ff\"", 7), "tpid 129 ->"},
      {4, "u8 7", "pcp 7 ->"},
      {5, "u8 63", "dscp 63 ->"},
      {5, "enum 0x12e", "dscp 46 ->"},
      {6, "u8 255", "tos 255 ->"},
      {7, "10.1.2.3", "src-ip 10.1.2.3 ->"},
      {7, "10.1.2.3/8", "src-ip 10.1.2.3 mask 255.0.0.0 ->"},
      {8, "10.1.2.3", "dst-ip 10.1.2.3 ->"},
      {8, "10.1.2.3/17", "dst-ip 10.1.2.3 mask 255.255.128.0 ->"},
      {8, "10.1.2.3/32", "dst-ip 10.1.2.3 mask 255.255.255.255 ->"},
      {8, "10.1.2.3/0", "dst-ip 10.1.2.3 mask 0.0.0.0 ->"},
      {9, "u8 255", "protocol 255 ->"},
      {9, "enum 0x10006", "protocol 6 ->"},
      {10, "u16 65535", "dst-port 65535 ->"},
      {10, "enum 0x10050", "dst-port 80 ->"},
      {11, "u8 1", "->"},
      {0xffffffff, "u8 1", "->"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.kind) + ' ' + row.value);
    EXPECT_EQ(Create(row.kind, row.value), ACL_OK);
    EXPECT_EQ(EntryText("P", 5), row.text);
    EXPECT_EQ(EntryText("P", 3), "->");
    EXPECT_EQ(model_.RemoveMatch("P", 5, Kind(row.kind)),
              row.kind <= ACL_MATCH_DST_PORT ? ACL_OK : ACL_ERR_INVALID_ARG);
    EXPECT_EQ(EntryText("P", 5), "->");
  }
}

TEST_P(MatchesTest, MacMaskReachesTheLibraryComplemented) {
  for (aclFiltersMatch_t kind : {ACL_MATCH_DST_MAC, ACL_MATCH_SRC_MAC}) {
    EXPECT_EQ(model_.CreateMatch("P", 5, kind, kMac.get(), kMask.get()), ACL_OK);
  }
  EXPECT_EQ(EntryText("P", 5),
            "dst-mac 0x021122334455 mask 0x000000fffffe "
            "src-mac 0x021122334455 mask 0x000000fffffe ->");
  EXPECT_EQ(model_.CreateMatch("P", 7, ACL_MATCH_VLAN, Value("u16 1").get(), kMask.get()), ACL_OK)
      << "other kinds ignore the second value";
}

TEST_P(MatchesTest, FailuresLeaveTheEntryAlone) {
  ASSERT_EQ(Create(ACL_MATCH_DSCP, "u8 10"), ACL_OK);
  ASSERT_EQ(Create(ACL_MATCH_VLAN, "u16 1"), ACL_OK);
  const Lines before = Dump(model_);
  const Value some("u8 1");
  EXPECT_EQ(model_.CreateMatch("unknown", 5, ACL_MATCH_PCP, nullptr, nullptr), ACL_ERR_INVALID_ARG);
  EXPECT_EQ(model_.CreateMatch("unknown", 5, ACL_MATCH_PCP, some.get(), nullptr),
            ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.CreateMatch("P", 6, ACL_MATCH_PCP, some.get(), nullptr), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.CreateMatch("P", 6, Kind(11), some.get(), nullptr), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(Create(ACL_MATCH_VLAN, "u16 2"), ACL_ERR_EXISTS);
  EXPECT_EQ(Create(ACL_MATCH_TOS, "u8 1"), ACL_ERR_EXISTS) << "DSCP and ToS are one kind";
  EXPECT_EQ(Create(ACL_MATCH_VLAN, some), ACL_ERR_EXISTS) << "before the value is looked at";
  EXPECT_EQ(Create(ACL_MATCH_SRC_IPV4, "u32 1"), ACL_ERR_INVALID_VALUE);
  EXPECT_EQ(Create(ACL_MATCH_DST_IPV4, "\"10.0.0.1\""), ACL_ERR_INVALID_VALUE);
  EXPECT_EQ(Create(ACL_MATCH_PCP, "u8 8"), ACL_ERR_FILTERS) << "out of the library's range";
  EXPECT_THROW(Create(ACL_MATCH_SRC_IPV4, "10.0.0.1/33"), std::out_of_range);
  EXPECT_EQ(model_.RemoveMatch("P", 5, Kind(11)), ACL_ERR_INVALID_ARG);
  EXPECT_EQ(model_.RemoveMatch("unknown", 5, Kind(11)), ACL_ERR_INVALID_ARG);
  EXPECT_EQ(model_.RemoveMatch("unknown", 5, ACL_MATCH_PCP), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.RemoveMatch("P", 6, ACL_MATCH_PCP), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.RemoveMatch("P", 5, ACL_MATCH_PCP), ACL_OK) << "not there is no error";
  EXPECT_EQ(Dump(model_), before);
  EXPECT_EQ(model_.RemoveMatch("P", 65536 + 5, ACL_MATCH_TOS), ACL_OK);
  EXPECT_EQ(EntryText("P", 5), "vlan 1 ->") << "removing ToS removes the DSCP";
}

TEST_P(MatchesTest, MatchesFollowTheirEntry) {
  ASSERT_EQ(Create(ACL_MATCH_PCP, "u8 1"), ACL_OK);
  ASSERT_EQ(model_.CreateMatch("P", 65536 + 5, ACL_MATCH_DST_PORT, Value("u16 80").get(), nullptr),
            ACL_OK);
  ASSERT_EQ(CreateAction(FILTERS_ACTION_DENY), ACL_OK);
  EXPECT_EQ(model_.SetAclPrio("P", 4), GetParam() < 0 ? ACL_OK : ACL_ERR_PRIO_SET);
  EXPECT_EQ(EntryText("P", 5), "dst-port 80 pcp 1 -> deny");
  std::shared_ptr<FiltersCommon::FiltersEntry> entry;
  ASSERT_EQ(model_.GetEntry("P", 5, entry), ACL_OK);
  EXPECT_EQ(entry->getId(), 5);
  EXPECT_EQ(entry->getPriority(), 0u) << "only the merge sets it";
}

TEST_P(MatchesTest, ActionsAreSetOncePerKind) {
  const Value pcp("u8 5");
  EXPECT_EQ(CreateAction(FILTERS_ACTION_DENY, kMac.get()), ACL_OK) << "the value is ignored";
  EXPECT_EQ(CreateAction(FILTERS_ACTION_SET_PCP_AND_QUEUE, pcp.get()), ACL_OK);
  EXPECT_EQ(EntryText("P", 5), "-> deny set-pcp 5");
  const Lines before = Dump(model_);
  EXPECT_EQ(CreateAction(FILTERS_ACTION_DENY), ACL_ERR_EXISTS);
  EXPECT_EQ(CreateAction(FILTERS_ACTION_SET_PCP_AND_QUEUE), ACL_ERR_EXISTS)
      << "before the value is looked at";
  EXPECT_EQ(CreateAction(static_cast<filtersAction_t>(2)), ACL_ERR_INVALID_ARG);
  EXPECT_EQ(model_.CreateAction("P", 3, FILTERS_ACTION_SET_PCP_AND_QUEUE, nullptr),
            ACL_ERR_INVALID_ARG);
  EXPECT_EQ(model_.CreateAction("P", 3, FILTERS_ACTION_SET_PCP_AND_QUEUE, Value("u8 8").get()),
            ACL_ERR_FILTERS);
  EXPECT_EQ(model_.CreateAction("P", 4, FILTERS_ACTION_DENY, nullptr), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.CreateAction("unknown", 5, FILTERS_ACTION_DENY, nullptr), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.RemoveAction("unknown", 5, FILTERS_ACTION_DENY), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.RemoveAction("P", 4, FILTERS_ACTION_DENY), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.RemoveAction("P", 5, FILTERS_ACTION_PERMIT), ACL_OK) << "not there is no error";
  EXPECT_EQ(model_.RemoveAction("P", 5, static_cast<filtersAction_t>(99)), ACL_OK);
  EXPECT_EQ(Dump(model_), before);
  EXPECT_EQ(model_.RemoveAction("P", 65536 + 5, FILTERS_ACTION_DENY), ACL_OK);
  EXPECT_EQ(CreateAction(FILTERS_ACTION_PERMIT), ACL_OK);
  EXPECT_EQ(EntryText("P", 5), "-> permit set-pcp 5");
}

TEST_F(ModelTest, Ipv4Getters) {
  in_addr out{0x11223344};
  for (const Value value : {"u32 1", "\"10.0.0.1\"", ""}) {
    EXPECT_EQ(model_.GetIpv4Addr(*value.get(), out), ACL_ERR_INVALID_VALUE);
    EXPECT_EQ(model_.GetIpv4Mask(*value.get(), out), ACL_ERR_INVALID_VALUE);
  }
  EXPECT_EQ(model_.GetIpv4Mask(*Value("10.0.0.1").get(), out), ACL_ERR_INVALID_VALUE);
  EXPECT_EQ(out.s_addr, 0x11223344u) << "left alone";
  EXPECT_EQ(model_.GetIpv4Addr(*Value("10.0.0.1").get(), out), ACL_OK);
  EXPECT_EQ(out.s_addr, htonl(0x0a000001));
  EXPECT_EQ(model_.GetIpv4Addr(*Value("10.0.0.2/24").get(), out), ACL_OK);
  EXPECT_EQ(out.s_addr, htonl(0x0a000002));
  for (unsigned int length = 0; length <= 32; ++length) {
    ASSERT_EQ(model_.GetIpv4Mask(*Value("10.0.0.2/" + std::to_string(length)).get(), out), ACL_OK);
    EXPECT_EQ(ntohl(out.s_addr), length == 0 ? 0 : ~0u << (32 - length)) << length;
  }
  try {
    model_.GetIpv4Mask(*Value("10.0.0.1/33").get(), out);
    FAIL() << "accepted a prefix length of 33";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "map::at");
  }
}

// A value of a type that the schema cannot deliver ends the process.
TEST_F(ModelTest, WrongTypeOfAValueIsAnAssertion) {
  const Value wrong("u32 1");
  const struct {
    aclFiltersMatch_t kind;
    const char* expression;
  } rows[] = {
      {ACL_MATCH_DST_MAC, "\\(value1\\)->type == C_BINARY"},
      {ACL_MATCH_SRC_MAC, "\\(value1\\)->type == C_BINARY"},
      {ACL_MATCH_VLAN, "\\(value1\\)->type == C_UINT16"},
      {ACL_MATCH_TPID, "\\(value1\\)->type == C_BUF"},
      {ACL_MATCH_PCP, "\\(value1\\)->type == C_UINT8"},
      {ACL_MATCH_DSCP, "\\(value1\\)->type == C_UINT8"},
      {ACL_MATCH_TOS, "\\(value1\\)->type == C_UINT8"},
      {ACL_MATCH_IP_PROTOCOL, "\\(value1\\)->type == C_UINT8"},
      {ACL_MATCH_DST_PORT, "\\(value1\\)->type == C_UINT16"},
  };
  const auto failed = [](const std::string& expression) {
    return ": filter:[0-9]+: .*: Assertion `" + expression + "' failed";
  };
  AddProfile("P", 1, 10, {5});
  for (const auto& row : rows) {
    EXPECT_DEATH(model_.CreateMatch("P", 5, row.kind, wrong.get(), nullptr),
                 failed(row.expression));
  }
  for (aclFiltersMatch_t kind : {ACL_MATCH_DST_MAC, ACL_MATCH_SRC_MAC}) {
    EXPECT_DEATH(model_.CreateMatch("P", 5, kind, kMac.get(), wrong.get()),
                 failed("\\(value2\\)->type == C_BINARY"));
  }
  EXPECT_DEATH(model_.CreateAction("P", 5, FILTERS_ACTION_SET_PCP_AND_QUEUE, Value("u16 1").get()),
               failed("\\(value\\)->type == C_UINT8"));
}

}  // namespace
}  // namespace acl_test
