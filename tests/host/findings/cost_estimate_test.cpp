#include "host/search_cost/cost_estimate.h"

#include <gtest/gtest.h>

#include "host/classifier/classifier.h"
#include "host/filter_mgr/ebpf/entry_rule.h"
#include "tests/host/findings/random_configuration.h"

namespace host {
namespace {

using findings::Configuration;

EstimatedCost EstimateOf(const Configuration& configuration) {
  const auto worker = std::make_shared<CostWorker>();
  const auto content = std::make_shared<const Configuration>(configuration);
  { const CostEstimate unwanted(content, worker); }
  CostEstimate estimate(content, worker);
  while (estimate.Step()) {
  }
  return estimate.result();
}

// What the tables cost that the back end would make of the entries.
SearchCost CostOf(const std::string& port, const std::vector<findings::KnownEntry>& entries) {
  std::vector<classifier::Rule> rules;
  std::string reason;
  for (const auto& entry : entries) rules.push_back(*RuleOfEntry(entry.filter, &reason));
  classifier::HeapMemory memory;
  classifier::Classifier tables(&memory);
  classifier::Refusal refusal;
  EXPECT_TRUE(tables.Format() && tables.Replace(0, rules.data(), rules.size(), nullptr, &refusal));
  tables.Publish();
  const classifier::Cost cost = tables.CostOf(0, SearchSamples(rules.size()));
  return {port, SearchCost::Tables{cost.mean_tables, cost.worst_tables}, cost.worst_entries};
}

TEST(CostEstimateTest, IsThatOfTheCostliestPortOnceInForce) {
  std::mt19937 random(1);
  for (int round = 0; round < 100; ++round) {
    const findings::RandomConfiguration random_configuration(&random);
    const Configuration& configuration = random_configuration.configuration;
    const EstimatedCost estimate = EstimateOf(configuration);
    EXPECT_TRUE(estimate.refused.empty());
    for (const bool l3 : {false, true}) {
      std::optional<SearchCost> worst;
      for (const auto& [port, interface] : configuration.interfaces) {
        const auto entries = random_configuration.EntriesOf(port, l3);
        if (entries.empty()) continue;
        const SearchCost cost = CostOf(port, entries);
        if (!worst || *worst < cost) worst = cost;
      }
      const std::optional<SearchCost>& found = estimate.groups[l3 ? 1 : 0];
      ASSERT_EQ(worst.has_value(), found.has_value());
      if (!worst) continue;
      EXPECT_EQ(worst->port, found->port);
      EXPECT_EQ(worst->MeanText(), found->MeanText());
      EXPECT_EQ(worst->tables->worst, found->tables->worst);
      EXPECT_EQ(worst->entries_worst, found->entries_worst);
    }
  }
}

TEST(CostEstimateTest, TellsWhatTheTablesCannotHold) {
  std::mt19937 random(1);
  Configuration configuration;
  configuration.interfaces["port1"].profiles = {"masks"};
  configuration.interfaces["port2"].profiles = {"one"};
  configuration.profiles["one"].entries.resize(1);
  configuration.profiles["masks"].l3 = true;
  for (uint16_t i = 0; i < 4000; ++i) {
    findings::Entry entry;
    entry.ace_priority = i;
    entry.matches.Compare(findings::kSourceIpv4, 0, random());
    entry.matches.Compare(findings::kDestinationIpv4, 0, random());
    configuration.profiles["masks"].entries.push_back(entry);
  }
  const EstimatedCost estimate = EstimateOf(configuration);
  ASSERT_EQ(1u, estimate.refused.size());
  EXPECT_EQ("port1", estimate.refused[0].port);
  EXPECT_NE(std::string::npos, estimate.refused[0].text.find("cannot hold its L3 entries: "))
      << estimate.refused[0].text;
  EXPECT_EQ("port2", estimate.groups[0]->port);
  EXPECT_FALSE(estimate.groups[1]);
}

}  // namespace
}  // namespace host
