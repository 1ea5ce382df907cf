// Findings against what the filter does with frames: none is wrong, and no cover by one entry is
// missed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "host/filter_mgr/match/entry_match.h"
#include "host/findings/analysis.h"
#include "tests/host/findings/random_configuration.h"

namespace host::findings {
namespace {

bool Takes(const KnownEntry& entry, const Frame& frame) {
  return EntryMatches(entry.filter, ParseFrame(frame));
}

// A key that has the entry's values, and those of `other` elsewhere.
cls_key KeyOf(const KnownEntry& entry, const cls_key& other) {
  cls_key key;
  for (int i = 0; i < 4; ++i) {
    key.word[i] = entry.matches.value.word[i] | (other.word[i] & ~entry.matches.mask.word[i]);
  }
  return key;
}

cls_key Complement(const cls_key& key) {
  return {{~key.word[0], ~key.word[1], ~key.word[2], ~key.word[3]}};
}

cls_key RandomKey(std::mt19937& random) {
  const auto part = [&](uint64_t base) { return base | random() % 4; };
  const uint64_t types[] = {0x0806, 0x9000};
  return {
      {part(0x020000000000) << 16 | types[random() % 2],
       part(0x020000000000) << 16 | (random() % 2) << 13 | (1 + random() % 3),
       part(0x0a000000) << 32 | part(0x0a000000),
       (random() % 2 == 0 ? uint64_t{6} : 17) << 24 | (random() % 5) << 16 | (80 + random() % 3)}};
}

class Checker {
 public:
  Checker(const RandomConfiguration& random_configuration, std::mt19937& random)
      : config_(random_configuration), random_(random) {
    Analysis analysis(std::make_shared<Configuration>(config_.configuration));
    while (analysis.Step(1)) {
    }
    findings_ = analysis.result();
  }

  void Check() {
    EXPECT_TRUE(findings_.complete);
    const auto place = [](const Finding& finding) {
      return std::pair(finding.kind, finding.interfaces ? finding.interfaces->front() : "");
    };
    EXPECT_TRUE(std::is_sorted(findings_.list.begin(), findings_.list.end(),
                               [&place](auto& a, auto& b) { return place(a) < place(b); }));
    for (const auto& [name, entries] : config_.entries) {
      CheckAlone(entries);
      CheckCovers(entries, false);
    }
    for (const bool l3 : {false, true}) CheckCovers(config_.EntriesOf("p1", l3), true);
    CheckIpv6();
  }

  size_t single = 0, several = 0, empty = 0, ipv6 = 0;  // findings that were right

 private:
  const Finding* Find(const KnownEntry& entry, std::vector<Kind> kinds, bool anywhere) const {
    for (const Finding& finding : findings_.list) {
      const bool same = finding.entry && finding.entry->profile == entry.profile &&
                        finding.entry->ace_priority == entry.ace_priority;
      const bool here = anywhere || finding.interfaces == nullptr;
      if (same && here && std::count(kinds.begin(), kinds.end(), finding.kind) != 0)
        return &finding;
    }
    return nullptr;
  }

  void CheckAlone(const std::vector<KnownEntry>& entries) {
    for (const KnownEntry& entry : entries) {
      bool taken = false;
      for (const Shape& shape : AllShapes()) {
        taken = taken || Takes(entry, FrameOf(shape, KeyOf(entry, RandomKey(random_))));
      }
      EXPECT_EQ(Find(entry, {Kind::kNoFrame}, false) == nullptr, taken);
      empty += taken ? 0 : 1;
    }
  }

  // `entries` are those of one group in their order, or of one profile.
  void CheckCovers(const std::vector<KnownEntry>& entries, bool group) {
    for (size_t at = 0; at < entries.size(); ++at) {
      if (Find(entries[at], {Kind::kNoFrame}, false) != nullptr) continue;
      const Finding* finding =
          Find(entries[at], {Kind::kRedundant, Kind::kContradictsCover}, group);
      if (finding != nullptr) {
        CheckCovered(entries, at, *finding);
      } else {
        for (size_t before = 0; before < at; ++before) {
          EXPECT_TRUE(IsBeyond(entries[at], entries[before]))
              << entries[before].profile << " " << entries[before].ace_priority << " covers "
              << entries[at].profile << " " << entries[at].ace_priority;
        }
      }
    }
  }

  // All frames of the entry that are tried are those of the cover's, and earlier.
  void CheckCovered(const std::vector<KnownEntry>& entries, size_t at, const Finding& finding) {
    std::vector<const KnownEntry*> cover;
    for (const EntryName& name : finding.cover) {
      for (size_t i = 0; i < at; ++i) {
        if (entries[i].profile == name.profile && entries[i].ace_priority == name.ace_priority) {
          cover.push_back(&entries[i]);
        }
      }
    }
    ASSERT_EQ(cover.size(), finding.cover.size()) << "what covers does not come before";
    const bool complete_only = finding.text.find("but for frames") != std::string::npos;
    for (const Shape& shape : AllShapes()) {
      if (complete_only && !shape.complete()) continue;
      for (int round = cover.size() == 1 ? 4 : 40; round > 0; --round) {
        const Frame frame = FrameOf(shape, KeyOf(entries[at], RandomKey(random_)));
        if (!Takes(entries[at], frame)) break;
        EXPECT_TRUE(std::any_of(cover.begin(), cover.end(), [&](const KnownEntry* entry) {
          return Takes(*entry, frame);
        })) << finding.text;
      }
    }
    ++(cover.size() == 1 ? single : several);
  }

  // Whether the entry has a frame that `before` has not.
  static bool IsBeyond(const KnownEntry& entry, const KnownEntry& before) {
    for (const Shape& shape : AllShapes()) {
      const Frame frame = FrameOf(shape, KeyOf(entry, Complement(before.matches.value)));
      if (shape.complete() && Takes(entry, frame) && !Takes(before, frame)) return true;
    }
    return false;
  }

  void CheckIpv6() {
    const std::vector<KnownEntry> l2 = config_.EntriesOf("p1", false);
    const std::vector<KnownEntry> l3 = config_.EntriesOf("p1", true);
    bool named = false, passes = false;
    for (uint64_t macs = 0; macs < 25; ++macs) {
      const auto mac = [](uint64_t number) { return (0x020000000000 | number) << 16; };
      const Frame frame =
          FrameOf({0x86dd, false, Payload::kIpv6}, {{mac(macs % 5), mac(macs / 5), 0, 0}});
      const auto takes = [&](const KnownEntry& entry) { return Takes(entry, frame); };
      named = named || std::any_of(l3.begin(), l3.end(), takes);
      const auto decider = std::find_if(l2.begin(), l2.end(), takes);
      passes = passes || decider == l2.end() || !decider->deny;
    }
    const bool denies =
        std::any_of(l3.begin(), l3.end(), [](const KnownEntry& entry) { return entry.deny; });
    const bool told =
        std::any_of(findings_.list.begin(), findings_.list.end(), [](const Finding& finding) {
          return finding.kind == Kind::kIpv6Passes && finding.interfaces->front() == "p1";
        });
    EXPECT_EQ(told, denies && passes && !named);
    ipv6 += told ? 1 : 0;
  }

  const RandomConfiguration& config_;
  std::mt19937& random_;
  Findings findings_;
};

// ACL_FINDINGS_ROUNDS sets the number of configurations.
TEST(FindingsTest, AgreeWithTheFilter) {
  const char* wanted = std::getenv("ACL_FINDINGS_ROUNDS");
  const int rounds = wanted != nullptr ? std::atoi(wanted) : 2000;
  std::mt19937 random(20261122);
  size_t single = 0, several = 0, empty = 0, ipv6 = 0;
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    const RandomConfiguration configuration(&random);
    Checker checker(configuration, random);
    checker.Check();
    single += checker.single;
    several += checker.several;
    empty += checker.empty;
    ipv6 += checker.ipv6;
  }
  std::printf("covered by one: %zu, by several: %zu; without frames: %zu; IPv6 passes: %zu\n",
              single, several, empty, ipv6);
  EXPECT_GT(std::min({single, several, empty, ipv6}), 50U) << "hardly anything was tried";
}

TEST(FindingsTest, SayWhatIsWrong) {
  auto configuration = std::make_shared<Configuration>();
  Profile& profile = configuration->profiles["guests"];
  profile.l3 = true;
  const auto add = [&](Entry::Action action, std::vector<std::pair<Field, uint64_t>> matches) {
    Entry entry;
    entry.ace_priority = static_cast<uint16_t>(profile.entries.size());
    entry.action = action;
    for (const auto& [field, value] : matches) entry.matches.Compare(field, value);
    profile.entries.push_back(entry);
  };
  add(Entry::Action::kDeny, {{kDestinationPort, 80}, {kIpProtocol, 1}});
  add(Entry::Action::kDeny, {{kEthertype, 0x86dd}, {kTos, 16}});
  add(Entry::Action::kDeny, {{kIpProtocol, 6}});
  add(Entry::Action::kDeny, {{kIpProtocol, 17}});
  add(Entry::Action::kNone, {{kDestinationPort, 53}, {kSourceIpv4, 1}});
  add(Entry::Action::kDeny, {{kDestinationPort, 80}, {kIpProtocol, 6}});
  configuration->interfaces["eth0"] = {true, {"guests"}};
  Analysis analysis(configuration);
  while (analysis.Step(1000)) {
  }
  const char* const kExpected[] = {
      "absent-interface: there is no such interface; what is bound to it filters nothing until "
      "there is",
      "no-frame 0: no frame can match: destination-port is TCP's or UDP's, over IPv4 or IPv6, but "
      "ip-protocol is 1",
      "no-frame 1: no frame can match: tos is IPv4's, whose ethertype is 0x0800, behind a tag "
      "0x8100 or 0x88a8, but ethertype is 0x86dd",
      "contradicting-cover 4 by 2 3: never decides: 2 earlier entries together have all of its "
      "frames, and do not all do the same",
      "redundant 5 by 2: never decides: an earlier entry has all of its frames, and denies them as "
      "well",
      "no-action 4: has no action, and so permits",
      "ipv6-passes: IPv6 passes: no L3 entry is about it",
  };
  std::vector<std::string> told;
  for (const Finding& finding : analysis.result().list) {
    std::string line = NameOf(finding.kind);
    if (finding.entry) line += " " + std::to_string(finding.entry->ace_priority);
    if (!finding.cover.empty()) line += " by";
    for (const EntryName& name : finding.cover) line += " " + std::to_string(name.ace_priority);
    told.push_back(line + ": " + finding.text);
  }
  EXPECT_EQ(told, std::vector<std::string>(std::begin(kExpected), std::end(kExpected)));
}

}  // namespace
}  // namespace host::findings
