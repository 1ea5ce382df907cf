// What it takes to look through configurations of any size for findings: findings_bench [ENTRIES].
//
// The rule sets of rule_sets.h, in one profile on one port and in two, and two sets that are made
// to be hard: entries that all compare other bits, and few values under many masks.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>

#include "bench/rule_sets.h"
#include "host/findings/analysis.h"

namespace {

using namespace host::findings;  // NOLINT

// CPU time of this process, in seconds.
double Now() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

Matches MatchesOf(const host::classifier::Rule& rule) {
  constexpr Field kFields[] = {kDestinationMac, kSourceMac,       kEthertype,  kVlan,
                               kSourceIpv4,     kDestinationIpv4, kIpProtocol, kDestinationPort};
  Matches rule_as_matches, matches;
  rule_as_matches.value = rule.value;
  rule_as_matches.mask = rule.mask;
  Matches mask;
  mask.value = rule.mask;
  for (const Field field : kFields) {
    if (mask.ValueOf(field) != 0) {
      matches.Compare(field, rule_as_matches.ValueOf(field), mask.ValueOf(field));
    }
  }
  return matches;
}

int BitsOf(const Matches& matches) {
  int bits = 0;
  for (const uint64_t word : matches.mask.word) bits += __builtin_popcountll(word);
  return bits;
}

void Report(const char* name, const std::vector<Matches>& entries, size_t profiles) {
  auto configuration = std::make_shared<Configuration>();
  Interface& port = configuration->interfaces["eth0"];
  std::mt19937 random(1);
  for (size_t i = 0; i < profiles; ++i) {
    const std::string profile_name = "p" + std::to_string(i);
    port.profiles.push_back(profile_name);
    Profile& profile = configuration->profiles[profile_name];
    profile.l3 = true;
    profile.priority = static_cast<int>(i);
    for (size_t at = i; at < entries.size(); at += profiles) {
      Entry entry;
      entry.ace_priority = static_cast<uint16_t>(at);
      entry.action = random() % 2 == 0 ? Entry::Action::kDeny : Entry::Action::kPermit;
      entry.matches = entries[at];
      profile.entries.push_back(entry);
    }
  }
  double longest = 0;
  const double start = Now();
  Analysis analysis(configuration);
  for (bool more = true; more;) {
    const double step = Now();
    more = analysis.Step(2000);
    longest = std::max(longest, Now() - step);
  }
  const double took = Now() - start;
  size_t covered = 0, several = 0;
  for (const Kind kind : {Kind::kRedundant, Kind::kContradictsCover}) {
    const auto count = analysis.result().count.find(kind);
    if (count != analysis.result().count.end()) covered += count->second;
  }
  for (const Finding& finding : analysis.result().list) several += finding.cover.size() > 1 ? 1 : 0;
  std::printf("%-6s  %7zu  %8zu  %6.2f s  %7.2f ms  %7zu  %7zu  %s\n", name, entries.size(),
              profiles, took, longest * 1e3, covered, several,
              analysis.result().complete ? "" : "not complete");
}

// Station addresses, each under a mask of its own.
std::vector<Matches> ManyMasks(size_t count, bool coarse) {
  std::mt19937_64 random(2);
  std::vector<Matches> entries(count);
  for (size_t i = 0; i < count; ++i) {
    // Coarse ones compare few bits, and the second half all: each of them has to be looked up under
    // every mask.
    const bool fine = coarse && i >= count / 2;
    const uint64_t mask = coarse ? random() & random() & random() & random() : random();
    entries[i].Compare(kSourceMac, random(), fine ? ~uint64_t{0} : mask);
  }
  return entries;
}

}  // namespace

int main(int argc, char** argv) {
  const size_t count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 65536;
  std::printf("%-6s  %7s  %8s  %8s  %10s  %7s  %7s\n", "SET", "ENTRIES", "PROFILES", "ALL",
              "LONGEST", "COVERED", "SEVERAL");
  for (const bench::Family family : bench::kFamilies) {
    std::vector<Matches> entries;
    for (const auto& rule : bench::MakeRules(family, count, 1)) entries.push_back(MatchesOf(rule));
    // As operators write them: what is special before what is general.
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Matches& a, const Matches& b) { return BitsOf(a) > BitsOf(b); });
    for (const size_t profiles : {1, 2}) Report(bench::NameOf(family), entries, profiles);
  }
  Report("masks", ManyMasks(count, false), 1);
  Report("coarse", ManyMasks(count, true), 1);
  return 0;
}
