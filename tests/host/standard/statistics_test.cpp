// Counters stand with the entries that they are of, or are not there.
#include "host/standard/statistics.h"

#include <algorithm>

#include "gtest/gtest.h"
#include "host/standard/writers.h"

namespace host::standard {
namespace {

TEST(StatisticsTest, CountersStandWithTheirEntries) {
  Profile profile;
  profile.name = "p";
  profile.l3 = true;
  ProfileEntry port, address;
  port.ace_priority = 10;
  port.handling = Handling::kDeny;
  port.matches[kDestinationPort] = Value{80, FullMask(kDestinationPort)};
  address.ace_priority = 20;
  address.description = "[seq 70000] ticket";
  address.handling = Handling::kPermit;
  address.matches[kDestinationIpv4] = Value{0x0a000000, 0xff000000};
  ProfileEntry vlan = address;  // which matches more where there are no VLANs
  vlan.ace_priority = 5;
  vlan.description.clear();
  vlan.matches[kVlan] = Value{5, FullMask(kVlan)};
  profile.entries = {vlan, port, address};
  const Profiles profiles = {{profile}, {{"eth0", {"p"}}, {"eth1", {"p"}}}};
  const HitsByOrigin hits = {
      {{"eth1", "p"}, {{5, {1, 1}}, {10, {3, 96}}, {20, {2, 64}}, {30, {9, 9}}}},
      {{"eth0", "other"}, {{10, {7, 7}}}}};
  const std::string packets10 =
                        "<matched-packets>3</matched-packets>"
                        "<matched-octets>96</matched-octets>",
                    packets20 =
                        "<matched-packets>2</matched-packets>"
                        "<matched-octets>64</matched-octets>";
  const auto rfc = [](const std::string& name, const std::string& values) {
    return "<ace-statistics><name>" + name + "</name>" + values + "</ace-statistics>";
  };
  const auto openconfig = [](const std::string& number, const std::string& values) {
    return "<acl-entry><sequence-id>" + number + "</sequence-id><state><sequence-id>" + number +
           "</sequence-id>" + values + "</state></acl-entry>";
  };
  const struct {
    Standard to;
    bool standard_only;
    std::string expected;
    int counters;  // in all
    std::vector<const char*> told;
  } kCases[] = {
      {Standard::kRfc8519, false, rfc("10", packets10) + rfc("20", packets20), 3, {}},
      // Nobody counts TCP and UDP apart.
      {Standard::kRfc8519,
       true,
       rfc("70000", packets20),
       1,
       {"'10']: what it has hit: left out: nobody counts apart",
        "'5']: what it has hit: left out"}},
      {Standard::kOpenConfig,
       true,
       "<acl-entries>" + openconfig("10", packets10) + openconfig("70000", packets20) +
           "</acl-entries>",
       2,
       {"'5']: what it has hit: left out: it is of the conditions that the entry had"}},
  };
  for (const auto& known : kCases) {
    ExportOptions options;
    options.to = known.to;
    options.standard_only = known.standard_only;
    options.allowance.drop_conditions = true;
    Report report;
    const AccessLists lists = ToAccessLists(profiles, options, &report);
    Document document;
    if (known.to == Standard::kOpenConfig) {
      WriteOpenConfig(lists, &document);
    } else {
      WriteRfc8519(lists, false, &document);
    }
    AddStatistics(lists, hits, known.to, &document, &report);
    std::string text = document.Print(Format::kXml);
    for (const char c : {' ', '\n'})
      text.erase(std::remove(text.begin(), text.end(), c), text.end());
    EXPECT_NE(text.find(known.expected), std::string::npos) << text;
    int counters = 0;
    for (size_t at = 0; (at = text.find("<matched-packets>", at)) != std::string::npos; ++at) {
      ++counters;
    }
    EXPECT_EQ(counters, known.counters) << text;
    const std::string told = PrintReport(report, 99);
    for (const char* part : known.told) EXPECT_NE(told.find(part), std::string::npos) << told;
    EXPECT_EQ(known.told.empty(), told.find("has hit") == std::string::npos) << told;
  }
}

}  // namespace
}  // namespace host::standard
