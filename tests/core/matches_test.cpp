// Conversion of configured values into matches and actions of an entry.
#include <arpa/inet.h>

#include <stdexcept>

#include "tests/core/platform/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::ACL_ERR_INVALID_VALUE;
using acl_app::ACL_OK;

// Entry 5 of profile P, before or after the profile has its priority.
class MatchesTest : public ModelTest, public testing::WithParamInterface<bool> {
 protected:
  MatchesTest() {
    model_.CreateAclProfile(1, "P");
    for (int entry : {3, 5}) model_.CreateEntry("P", entry);
    if (GetParam()) model_.SetAclPrio("P", 1);
    profile_ = Dump(model_)[0];
  }
  // Expects this text behind the id of entry 5, and nothing else to have changed.
  void ExpectEntry(const std::string& text) {
    EXPECT_EQ(Dump(model_), Lines({profile_, "P 3/0 ->", "P 5/0 " + text}));
  }
  int RemoveMatch(const std::string& profile, int prio, unsigned int kind) {
    return model_.RemoveMatch(profile, prio, static_cast<acl_app::aclFiltersMatch_t>(kind));
  }
  int CreateAction(const std::string& profile, int prio, int kind, const std::string& text = {}) {
    return model_.CreateAction(profile, prio, static_cast<FiltersCommon::filtersAction_t>(kind),
                               Value(text));
  }
  int RemoveAction(const std::string& profile, int prio, int kind) {
    return model_.RemoveAction(profile, prio, static_cast<FiltersCommon::filtersAction_t>(kind));
  }

  std::string profile_;
};
INSTANTIATE_TEST_SUITE_P(Stages, MatchesTest, testing::Bool());

TEST_P(MatchesTest, EveryKindConvertsItsValues) {
  for (const Lines& row : Rows(R"(
      0  | 0x02112233445566 |              | dst-mac 0x021122334455 ->
      1  | 0x021122334455 |                | src-mac 0x021122334455 ->
      0  | 0x021122334455 | 0xffffff000001 | dst-mac 0x021122334455 mask 0x000000fffffe ->
      1  | 0x021122334455 | 0xffffff000001 | src-mac 0x021122334455 mask 0x000000fffffe ->
      2  | u16 4095       | 0xffffff000001 | vlan 4095 ->
      3  | enum 0x88a8    |                | tpid 34984 ->
      3  | enum 0x7fff8100 |               | tpid 33024 ->
      3  | "8100"         |                | tpid 33024 ->
      3  | "0x88A8,more"  |                | tpid 34984 ->
      3  | "zz"           |                | tpid 0 ->
      3  | ""             |                | tpid 0 ->
      3  | "10000"        |                | tpid 65535 ->
      4  | u8 7           |                | pcp 7 ->
      5  | u8 63          |                | dscp 63 ->
      5  | enum 0x12e     |                | dscp 46 ->
      6  | u8 255         |                | tos 255 ->
      7  | 10.1.2.3       |                | src-ip 10.1.2.3 ->
      7  | 10.1.2.3/8     |                | src-ip 10.1.2.3 mask 255.0.0.0 ->
      8  | 10.1.2.3       |                | dst-ip 10.1.2.3 ->
      8  | 10.1.2.3/0     |                | dst-ip 10.1.2.3 mask 0.0.0.0 ->
      9  | u8 255         |                | protocol 255 ->
      9  | enum 0x100fe   |                | protocol 254 ->
      10 | u16 65535      |                | dst-port 65535 ->
      10 | enum 0x11f90   |                | dst-port 8080 ->
      11 | u8 1           |                | ->
      0xffffffff | u8 1   |                | ->)")) {
    SCOPED_TRACE(row[0] + ' ' + row[1]);
    const auto kind = static_cast<unsigned int>(std::stoul(row[0], nullptr, 0));
    EXPECT_EQ(CreateMatch("P", 65541, kind, row[1], row[2]), 0);
    ExpectEntry(row[3]);
    EXPECT_EQ(RemoveMatch("P", 65541, kind), row[3] == "->" ? -5 : 0);
    ExpectEntry("->");
  }
  // Texts are read up to their NUL byte, whatever their length, and from behind white space.
  Value text("\"  81\"");
  confd_value_t cut = *text;
  cut.val.buf.size = 3;
  EXPECT_EQ(model_.CreateMatch("P", 5, acl_app::ACL_MATCH_TPID, &cut, nullptr), ACL_OK);
  ExpectEntry("tpid 129 ->");
}

TEST_P(MatchesTest, FailuresLeaveTheEntryAlone) {
  EXPECT_EQ(CreateMatch("P", 5, 5, "u8 10"), 0);
  EXPECT_EQ(CreateMatch("P", 5, 2, "u16 1"), 0);
  EXPECT_EQ(model_.CreateMatch("unknown", 5, acl_app::ACL_MATCH_PCP, nullptr, nullptr), -5);
  EXPECT_EQ(CreateMatch("unknown", 5, 4, "u8 1"), -3);
  EXPECT_EQ(CreateMatch("P", 6, 11, "u8 1"), -3);
  EXPECT_EQ(CreateMatch("P", 5, 2, "u8 1"), -1) << "before the value is looked at";
  EXPECT_EQ(CreateMatch("P", 5, 6, "u8 1"), -1) << "ToS and DSCP are one kind";
  EXPECT_EQ(CreateMatch("P", 5, 7, "u32 1"), -7);
  EXPECT_EQ(CreateMatch("P", 5, 8, "\"10.0.0.1\""), -7);
  EXPECT_EQ(CreateMatch("P", 5, 4, "u8 8"), -4);
  EXPECT_EQ(CreateMatch("P", 3, 2, "u16 4097"), -4);
  EXPECT_EQ(CreateMatch("P", 3, 5, "enum 0x14a"), -4);
  EXPECT_EQ(RemoveMatch("unknown", 5, 11), -5);
  EXPECT_EQ(RemoveMatch("unknown", 5, 4), -3);
  EXPECT_EQ(RemoveMatch("P", 6, 4), -3);
  EXPECT_EQ(RemoveMatch("P", 5, 4), 0);
  EXPECT_THROW(CreateMatch("P", 5, 7, "10.0.0.1/33"), std::out_of_range);
  ExpectEntry("vlan 1 dscp 10 ->");
  EXPECT_EQ(RemoveMatch("P", 5, 6), 0);
  ExpectEntry("vlan 1 ->");
}

TEST_P(MatchesTest, ActionsAreSetOncePerKind) {
  EXPECT_EQ(CreateAction("P", 5, 1, "0x0203"), 0) << "a value means nothing to a deny";
  EXPECT_EQ(CreateAction("P", 5, 6, "u8 5"), 0);
  for (int kind : {1, 6}) EXPECT_EQ(CreateAction("P", 5, kind), -1);
  for (int kind : {2, 6}) EXPECT_EQ(CreateAction("P", 3, kind), -5);
  EXPECT_EQ(CreateAction("P", 3, 6, "u8 8"), -4);
  for (const auto& [profile, entry] : {std::pair("P", 4), {"unknown", 5}}) {
    for (int kind : {1, 99}) EXPECT_EQ(CreateAction(profile, entry, kind), -3);
    EXPECT_EQ(RemoveAction(profile, entry, 1), -3);
  }
  for (int absent : {0, 99}) EXPECT_EQ(RemoveAction("P", 5, absent), 0);
  ExpectEntry("-> deny set-pcp 5");
  EXPECT_EQ(RemoveAction("P", 65541, 1), 0);
  EXPECT_EQ(CreateAction("P", 65541, 0), 0);
  ExpectEntry("-> permit set-pcp 5");
  model_.SetAclPrio("P", 1);
  EXPECT_EQ(Dump(model_).back(), "P 5/0 -> permit set-pcp 5") << "kept in the group";
}

TEST_F(ModelTest, Ipv4Getters) {
  in_addr out{0x11223344};
  EXPECT_EQ(model_.GetIpv4Addr(*Value("u32 1"), out), ACL_ERR_INVALID_VALUE);
  EXPECT_EQ(model_.GetIpv4Mask(*Value("10.0.0.1"), out), ACL_ERR_INVALID_VALUE);
  EXPECT_EQ(out.s_addr, 0x11223344u) << "left alone";
  for (unsigned int length = 0; length <= 32; ++length) {
    Value value("10.0.0.2/" + std::to_string(length));
    EXPECT_EQ(model_.GetIpv4Addr(*value, out), ACL_OK);
    EXPECT_EQ(ntohl(out.s_addr), 0x0a000002u);
    EXPECT_EQ(model_.GetIpv4Mask(*value, out), ACL_OK);
    EXPECT_EQ(ntohl(out.s_addr), length == 0 ? 0 : ~0u << (32 - length)) << length;
  }
}

// A value of a type that the schema cannot deliver ends the process.
TEST_P(MatchesTest, WrongTypeOfAValueIsAnAssertion) {
  for (const Lines& row : Rows(R"(
      0  | u32 1          |       | value1 | C_BINARY
      1  | u32 1          |       | value1 | C_BINARY
      0  | 0x021122334455 | u32 1 | value2 | C_BINARY
      1  | 0x021122334455 | u32 1 | value2 | C_BINARY
      2  | enum 1         |       | value1 | C_UINT16
      3  | u16 1          |       | value1 | C_BUF
      4  | enum 1         |       | value1 | C_UINT8
      5  | u32 1          |       | value1 | C_UINT8
      6  | enum 1         |       | value1 | C_UINT8
      9  | u32 1          |       | value1 | C_UINT8
      10 | u32 1          |       | value1 | C_UINT16)")) {
    EXPECT_DEATH(
        CreateMatch("P", 5, std::stoi(row[0]), row[1], row[2]),
        ": filter:[0-9]+: .*: Assertion `\\(" + row[3] + "\\)->type == " + row[4] + "' failed");
  }
  EXPECT_DEATH(CreateAction("P", 5, 6, "u16 1"),
               ": filter:[0-9]+: .*: Assertion `\\(value\\)->type == C_UINT8' failed");
}

}  // namespace
}  // namespace acl_test
