// Entries as people read them.
#include "host/filter_mgr/entry_text.h"

#include <gtest/gtest.h>

#include "tests/host/filter_mgr/groups_for_test.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT

TEST(EntryTextTest, HasEachLeafWithTheBitsThatAreCompared) {
  const ether_addr mac = {{0x02, 0xa1, 0xb2, 0xc3, 0xd4, 0xe5}};
  const ether_addr ignored = {{0x80, 0x0f, 0xf0, 0xff, 0x55, 0x81}};
  FiltersEntry entry(0);
  EXPECT_EQ("any frame: no action", EntryText(entry));
  entry.setAction(ActionDeny());
  EXPECT_EQ("any frame: deny", EntryText(entry));
  entry.setMatch(MatchIngressPorts({1}));
  entry.setMatch(MatchExternalVlanId(4094));
  entry.setMatch(MatchTPID(0x806));
  entry.setMatch(MatchDstMac(mac));
  entry.setMatch(MatchDstL4Port(65535));
  entry.setMatch(MatchSrcMac(mac, ignored));
  entry.setMatch(MatchSrcIPv4(Ipv4(0x0a000001)));
  entry.setMatch(MatchDstIPv4(Ipv4(0xffffffff), Ipv4(0xfffffeff)));
  entry.setMatch(MatchPcp(7));
  entry.setMatch(MatchIpProtocol(17));
  entry.setMatch(MatchToS(255));
  entry.setAction(ActionSetPcpAndQueue(5));
  EXPECT_EQ(
      "vlan 4094, ethertype 0x0806, destination-mac-address 02:a1:b2:c3:d4:e5, "
      "destination-port 65535, source-mac-address 02:a1:b2:c3:d4:e5, "
      "source-mac-address-mask 7f:f0:0f:00:aa:7e, source-ipv4-address 10.0.0.1, "
      "destination-ipv4-address 255.255.255.255/255.255.254.255, pcp 7, ip-protocol 17, tos 255: "
      "deny, set-pcp 5",
      EntryText(entry));
  for (const int length : {0, 1, 31, 32}) {
    EXPECT_EQ("source-ipv4-address 128.0.0.0/" + std::to_string(length),
              MatchText(MatchSrcIPv4(Ipv4(0x80000000), Netmask(length))));
  }
  EXPECT_EQ("dscp 63", MatchText(MatchDSCP(63)));
}

}  // namespace
}  // namespace host
