// Conversion of configured values into matches and actions of an entry.
#include <arpa/inet.h>

#include <stdexcept>

#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::ACL_ERR_INVALID_VALUE;
using acl_app::ACL_MATCH_TPID;
using acl_app::ACL_OK;

// Entry 5 of profile P, before or after the profile has its priority.
class MatchesTest : public ModelTest, public testing::WithParamInterface<const char*> {
 protected:
  MatchesTest() {
    Run(R"(
      CreateAclProfile 1 P | 0
      CreateEntry P 3      | 0
      CreateEntry P 5      | 0
      $stage               | 0)",
        {{"$stage", GetParam()}});
    stage_ = Dump(model_)[0];
  }
  // What follows the id in the text of entry 5.
  std::string EntryText() {
    const Lines lines = Dump(model_);
    EXPECT_EQ(lines[0], stage_);
    EXPECT_EQ(lines[1], "P 3/0 ->") << "the other entry";
    EXPECT_EQ(lines[2].substr(0, 6), "P 5/0 ");
    return lines[2].substr(6);
  }

  std::string stage_;
};
INSTANTIATE_TEST_SUITE_P(Stages, MatchesTest,
                         testing::Values("RemoveEntry unknown 5", "SetAclPrio P 1"));

TEST_P(MatchesTest, EveryKindConvertsItsValues) {
  for (const Lines& row : Rows(R"(
      0          | 0x021122334455                | dst-mac 0x021122334455 ->
      1          | 0x021122334455                | src-mac 0x021122334455 ->
      0          | 0x021122334455 0xffffff000001 | dst-mac 0x021122334455 mask 0x000000fffffe ->
      1          | 0x021122334455 0xffffff000001 | src-mac 0x021122334455 mask 0x000000fffffe ->
      2          | u16 4095 0xffffff000001       | vlan 4095 ->
      3          | enum 0x88a8                   | tpid 34984 ->
      3          | enum 0x7fff8100               | tpid 33024 ->
      3          | "8100"                        | tpid 33024 ->
      3          | "0x88A8,more"                 | tpid 34984 ->
      3          | "zz"                          | tpid 0 ->
      3          | ""                            | tpid 0 ->
      3          | "10000"                       | tpid 65535 ->
      4          | u8 7                          | pcp 7 ->
      5          | u8 63                         | dscp 63 ->
      5          | enum 0x12e                    | dscp 46 ->
      6          | u8 255                        | tos 255 ->
      7          | 10.1.2.3                      | src-ip 10.1.2.3 ->
      7          | 10.1.2.3/8                    | src-ip 10.1.2.3 mask 255.0.0.0 ->
      8          | 10.1.2.3                      | dst-ip 10.1.2.3 ->
      8          | 10.1.2.3/0                    | dst-ip 10.1.2.3 mask 0.0.0.0 ->
      9          | u8 255                        | protocol 255 ->
      9          | enum 0x10006                  | protocol 6 ->
      10         | u16 65535                     | dst-port 65535 ->
      10         | enum 0x10050                  | dst-port 80 ->
      11         | u8 1                          | ->
      0xffffffff | u8 1                          | ->)")) {
    SCOPED_TRACE(row[0] + ' ' + row[1]);
    EXPECT_EQ(Do("CreateMatch P 65541 " + row[0] + ' ' + row[1]), "0");
    EXPECT_EQ(EntryText(), row[2]);
    EXPECT_EQ(Do("RemoveMatch P 65541 " + row[0]), row[2] == "->" ? "-5" : "0");
    EXPECT_EQ(EntryText(), "->");
  }
  // Texts are read up to their NUL byte and from behind white space.
  const Value text(std::string("\"  81\0ff\"", 9));
  EXPECT_EQ(model_.CreateMatch("P", 5, ACL_MATCH_TPID, text.get(), nullptr), ACL_OK);
  EXPECT_EQ(EntryText(), "tpid 129 ->");
}

TEST_P(MatchesTest, FailuresLeaveTheEntryAlone) {
  Run(R"(
      CreateMatch P 5 5 u8 10        | 0
      CreateMatch P 5 2 u16 1        | 0
      CreateMatch unknown 5 4        | -5
      CreateMatch unknown 5 4 u8 1   | -3
      CreateMatch P 6 4 u8 1         | -3
      CreateMatch P 6 11 u8 1        | -3
      CreateMatch P 5 2 u16 2        | -1
      CreateMatch P 5 6 u8 1         | -1
      CreateMatch P 5 2 u8 1         | -1
      CreateMatch P 5 7 u32 1        | -7
      CreateMatch P 5 8 "10.0.0.1"   | -7
      CreateMatch P 5 4 u8 8         | -4
      RemoveMatch P 5 11             | -5
      RemoveMatch unknown 5 11       | -5
      RemoveMatch unknown 5 4        | -3
      RemoveMatch P 6 4              | -3
      RemoveMatch P 5 4              | 0)");
  EXPECT_THROW(Do("CreateMatch P 5 7 10.0.0.1/33"), std::out_of_range);
  EXPECT_EQ(EntryText(), "vlan 1 dscp 10 ->");
  EXPECT_EQ(Do("RemoveMatch P 5 6"), "0");
  EXPECT_EQ(EntryText(), "vlan 1 ->") << "removing ToS removes the DSCP";
}

TEST_P(MatchesTest, ActionsAreSetOncePerKind) {
  Run(R"(
      CreateAction P 5 1 0x0203      | 0
      CreateAction P 5 6 u8 5        | 0
      CreateAction P 5 1             | -1
      CreateAction P 5 6             | -1
      CreateAction P 5 2             | -5
      CreateAction P 3 6             | -5
      CreateAction P 3 6 u8 8        | -4
      CreateAction P 4 1             | -3
      CreateAction unknown 5 1       | -3
      RemoveAction unknown 5 1       | -3
      RemoveAction P 4 1             | -3
      RemoveAction P 5 0             | 0
      RemoveAction P 5 99            | 0)");
  EXPECT_EQ(EntryText(), "-> deny set-pcp 5");
  Run(R"(
      RemoveAction P 65541 1         | 0
      CreateAction P 65541 0         | 0
      CreateMatch P 5 4 u8 1         | 0)");
  EXPECT_EQ(EntryText(), "pcp 1 -> permit set-pcp 5");
  model_.SetAclPrio("P", 1);
  EXPECT_EQ(Dump(model_).back(), "P 5/0 pcp 1 -> permit set-pcp 5") << "kept in the group";
}

TEST_F(ModelTest, Ipv4Getters) {
  in_addr out{0x11223344};
  EXPECT_EQ(model_.GetIpv4Addr(*Value("u32 1").get(), out), ACL_ERR_INVALID_VALUE);
  EXPECT_EQ(model_.GetIpv4Mask(*Value("10.0.0.1").get(), out), ACL_ERR_INVALID_VALUE);
  EXPECT_EQ(out.s_addr, 0x11223344u) << "left alone";
  for (const char* value : {"10.0.0.1", "10.0.0.1/24"}) {
    out.s_addr = 0;
    EXPECT_EQ(model_.GetIpv4Addr(*Value(value).get(), out), ACL_OK);
    EXPECT_EQ(ntohl(out.s_addr), 0x0a000001u);
  }
  for (unsigned int length = 0; length <= 32; ++length) {
    ASSERT_EQ(model_.GetIpv4Mask(*Value("10.0.0.2/" + std::to_string(length)).get(), out), ACL_OK);
    EXPECT_EQ(ntohl(out.s_addr), length == 0 ? 0 : ~0u << (32 - length)) << length;
  }
}

// A value of a type that the schema cannot deliver ends the process.
TEST_F(ModelTest, WrongTypeOfAValueIsAnAssertion) {
  Run("CreateAclProfile 1 P | 0 \n CreateEntry P 5 | 0");
  for (const Lines& row : Rows(R"(
      CreateMatch P 5 0 u32 1            | value1 | C_BINARY
      CreateMatch P 5 1 u32 1            | value1 | C_BINARY
      CreateMatch P 5 0 0x021122334455 u32 1 | value2 | C_BINARY
      CreateMatch P 5 1 0x021122334455 u32 1 | value2 | C_BINARY
      CreateMatch P 5 2 u32 1            | value1 | C_UINT16
      CreateMatch P 5 3 u16 1            | value1 | C_BUF
      CreateMatch P 5 4 u32 1            | value1 | C_UINT8
      CreateMatch P 5 5 u32 1            | value1 | C_UINT8
      CreateMatch P 5 6 enum 1           | value1 | C_UINT8
      CreateMatch P 5 9 u32 1            | value1 | C_UINT8
      CreateMatch P 5 10 u32 1           | value1 | C_UINT16
      CreateAction P 5 6 u16 1           | value  | C_UINT8)")) {
    EXPECT_DEATH(Do(row[0]), ": filter:[0-9]+: .*: Assertion `\\(" + row[1] +
                                 "\\)->type == " + row[2] + "' failed");
  }
}

}  // namespace
}  // namespace acl_test
