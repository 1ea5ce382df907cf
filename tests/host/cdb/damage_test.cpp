// Damage to any one file of the state directory, in random ways and places: a start either has all
// that was acknowledged, or is in doubt and changes nothing until it is told what to make of it.
// ACL_DAMAGE_ROUNDS says how many; without it there are as many as take some seconds.
#include <cstdlib>
#include <functional>
#include <map>
#include <random>

#include "host/cdb/storage/sqlite.h"
#include "tests/host/cdb/edit_maker.h"
#include "tests/host/cdb/fault_vfs.h"
#include "tests/host/cdb/support.h"
#include "tests/random_rounds.h"

namespace host {
namespace {

using Files = std::map<std::string, std::string>;  // content by name

Files ReadFiles(const std::string& directory) {
  Files files;
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    files[entry.path().filename()] = ReadWhole(entry.path());
  return files;
}

void WriteFiles(const ScratchDirectory& directory, const Files& files) {
  for (const auto& entry : std::filesystem::directory_iterator(directory.path()))
    std::filesystem::remove(entry.path());
  for (const auto& [name, content] : files) directory.Write(name, content);
}

class DamageTest : public testing::Test {
 protected:
  DamageTest() { options_.state_directory = scratch_.path(); }

  std::unique_ptr<Datastore> Open() { return OpenDatastore(options_); }

  // Commits, with restarts, and keeps the directory as it is after each: on every other occasion as
  // after a kill, else as after a regular end.
  void MakeHistory(unsigned seed) {
    EditMaker maker(seed);
    auto datastore = Open();
    states_[1] = "";
    while (states_.size() < 25) {
      Edit(datastore.get(), maker.Make());
      const uint64_t id = datastore->TransactionId();
      if (!states_.emplace(id, Snapshot(datastore->Running())).second) continue;
      last_ = id;
      if (id % 5 == 0) {
        datastore.reset();
        copies_.push_back(ReadFiles(scratch_.path()));
        datastore = Open();
      } else if (id % 2 == 0) {
        copies_.push_back(ReadFiles(scratch_.path()));
      }
    }
    killed_ = ReadFiles(scratch_.path());
    datastore.reset();
    ended_ = ReadFiles(scratch_.path());
  }

  int Random(size_t count) { return static_cast<int>(random_() % count); }

  // Damages one file and tells what was done; empty when the dice had nothing to damage.
  std::string Damage(Files* files) {
    auto file = std::next(files->begin(), Random(files->size()));
    std::string& content = file->second;
    const std::string name = file->first;
    switch (Random(5)) {
      case 0: {
        const Files& older = copies_[Random(copies_.size())];
        const auto copy = older.find(name);
        if (copy == older.end()) return "";
        content = copy->second;
        return "older " + name;
      }
      case 1:
        files->erase(file);
        return "no " + name;
      case 2:
        if (content.empty()) return "";
        content.resize(Random(3) == 0 ? 0 : Random(content.size()));
        return name + " cut to " + std::to_string(content.size());
      default: {
        if (content.empty()) return "";
        const int at =
            Random(Random(2) == 0 ? std::min<size_t>(content.size(), 200) : content.size());
        content[at] = static_cast<char>(content[at] ^ (1 << Random(8)));
        return "a bit of " + name + " at " + std::to_string(at);
      }
    }
  }

  // What a directory must do that is in doubt.
  void CheckDoubt(std::unique_ptr<Datastore> datastore, const Files& damaged, const Files& whole) {
    const StateDoubt doubt = datastore->Doubt();
    EXPECT_FALSE(Edit(datastore.get(), Config(Interface("new"))).empty());
    EXPECT_FALSE(datastore->SetCheckpoint().empty());
    const std::string found = Snapshot(datastore->Running());
    if (doubt.found != 0 && doubt.sound) {
      EXPECT_EQ(states_[doubt.found], found);
    }
    datastore.reset();
    for (const auto& [name, content] : ReadFiles(scratch_.path())) {
      if (damaged.count(name) == 0) continue;
      EXPECT_TRUE(damaged.at(name) == content) << name << " was written";
    }
    // With the right file back, all is as it was.
    WriteFiles(scratch_, whole);
    datastore = Open();
    EXPECT_TRUE(datastore->Doubt().reasons.empty());
    EXPECT_EQ(states_[last_], Snapshot(datastore->Running()));
    datastore.reset();
    // Or the operator says what it is to be.
    WriteFiles(scratch_, damaged);
    datastore = Open();
    const bool accept = doubt.found != 0 && Random(2) == 0;
    EXPECT_FALSE(datastore->Recover({doubt.found + 1, nullptr}, {}).empty());
    ASSERT_EQ("", ToText(datastore->Recover({accept ? doubt.found : 0, nullptr}, {"anna", 1})));
    EXPECT_EQ(accept ? found : "", Snapshot(datastore->Running()));
    EXPECT_GT(datastore->TransactionId(), doubt.acknowledged);
    CheckUse(std::move(datastore));
  }

  // Commits are taken and kept.
  void CheckUse(std::unique_ptr<Datastore> datastore) {
    ASSERT_EQ("", ToText(Edit(datastore.get(), Config(Interface("new")))));
    const std::string state = Snapshot(datastore->Running());
    const uint64_t id = datastore->TransactionId();
    datastore.reset();
    datastore = Open();
    EXPECT_TRUE(datastore->Doubt().reasons.empty());
    EXPECT_EQ(state, Snapshot(datastore->Running()));
    EXPECT_EQ(id, datastore->TransactionId());
  }

  std::mt19937 random_{31};
  ScratchDirectory scratch_;
  DatastoreOptions options_;
  std::map<uint64_t, std::string> states_;  // by commit
  uint64_t last_ = 0;
  std::vector<Files> copies_;
  Files killed_, ended_;
};

TEST_F(DamageTest, NothingIsLostInSilence) {
  const char* const wanted = getenv("ACL_DAMAGE_ROUNDS");
  const int rounds = wanted != nullptr ? atoi(wanted) : RandomRounds(60);
  MakeHistory(5);
  int doubts = 0;
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    const Files& whole = round % 3 == 0 ? ended_ : killed_;
    Files damaged = whole;
    std::string what;
    while (what.empty() || damaged == whole) what = Damage(&damaged);
    SCOPED_TRACE("round " + std::to_string(round) + (round % 3 == 0 ? ", ended: " : ", killed: ") +
                 what);
    WriteFiles(scratch_, damaged);
    auto datastore = Open();
    ASSERT_NE(nullptr, datastore);
    if (wanted != nullptr) {
      printf("%s: %s\n", what.c_str(),
             datastore->Doubt().reasons.empty() ? "taken" : datastore->Doubt().reasons[0].c_str());
    }
    if (!datastore->Doubt().reasons.empty()) {
      ++doubts;
      CheckDoubt(std::move(datastore), damaged, whole);
      continue;
    }
    EXPECT_EQ(states_[last_], Snapshot(datastore->Running()));
    EXPECT_EQ(last_, datastore->TransactionId());
    EXPECT_EQ(last_ - 1, datastore->History(1000).size());
    CheckUse(std::move(datastore));
  }
  EXPECT_GT(doubts, rounds / 3);
  // One bit makes octets of a text, which nothing that looks for the text finds; and an entry may
  // be nowhere at all.
  for (const std::string change :
       {"place = CAST(place AS BLOB)", "list = CAST(list AS BLOB)", "keys = CAST(keys AS BLOB)",
        "content = CAST(content AS BLOB)", "place = '', list = ''"}) {
    WriteFiles(scratch_, ended_);
    {
      sqlite3* raw = nullptr;
      ASSERT_EQ(SQLITE_OK, sqlite3_open((scratch_.path() + "/configuration.db").c_str(), &raw));
      const SqlDatabase database(raw);
      const std::string update =
          "UPDATE unit SET " + change + " WHERE keys = (SELECT max(keys) FROM unit)";
      ASSERT_TRUE(Execute(raw, update.c_str()));
    }
    EXPECT_FALSE(Open()->Doubt().sound) << change;
  }
  if (wanted != nullptr) printf("%d damages, %d in doubt\n", rounds, doubts);
}

// All files gone at once, while filters of an earlier run are in force.
TEST_F(DamageTest, FiltersInForceAreEvidence) {
  options_.filters_in_force = 2;
  options_.startup_file = scratch_.Write("c.xml", Config(Interface("first")));
  auto datastore = Open();
  ASSERT_EQ(1u, datastore->Doubt().reasons.size());
  EXPECT_EQ("", Snapshot(datastore->Running()));
  Tree config = ParseEdit(datastore->Context(), Config(Interface("second")));
  EXPECT_EQ("", ToText(datastore->Recover({0, config.get()}, {"anna", 1})));
  config.reset();
  EXPECT_NE(std::string::npos, Snapshot(datastore->Running()).find("second"));
  CheckUse(std::move(datastore));
}

TEST_F(DamageTest, FilesThatOthersTouchAreNoticedAtTheNextCommit) {
  const auto change = [](int n) { return Config(Interface("e" + std::to_string(n))); };
  const std::string database = scratch_.path() + "/configuration.db";
  const std::string mark = scratch_.path() + "/configuration.mark";
  const auto replace = [](const std::string& path) {
    std::filesystem::copy_file(path, path + ".copy");
    std::filesystem::rename(path + ".copy", path);
  };
  const std::vector<std::pair<const char*, std::function<void()>>> kActs = {
      {"configuration.db was removed", [&] { std::filesystem::remove(database); }},
      {"configuration.db-wal was removed", [&] { std::filesystem::remove(database + "-wal"); }},
      {"configuration.mark was removed", [&] { std::filesystem::remove(mark); }},
      {"configuration.db was replaced", [&] { replace(database); }},
      {"configuration.db was changed", [&] { std::ofstream(database, std::ios::app) << "x"; }},
  };
  int n = 0;
  auto datastore = Open();
  for (const auto& [said, act] : kActs) {
    SCOPED_TRACE(said);
    ASSERT_EQ("", ToText(Edit(datastore.get(), change(++n))));
    const std::string state = Snapshot(datastore->Running());
    act();
    const std::string refusal = ToText(Edit(datastore.get(), change(++n)));
    EXPECT_NE(std::string::npos, refusal.find(said)) << refusal;
    EXPECT_EQ(state, Snapshot(datastore->Running()));
    // What is in memory is written anew.
    ASSERT_EQ("", ToText(datastore->Recover({datastore->TransactionId(), nullptr}, {"anna", 1})));
    ASSERT_EQ("", ToText(Edit(datastore.get(), change(++n))));
    const std::string after = Snapshot(datastore->Running());
    datastore.reset();
    datastore = Open();
    EXPECT_TRUE(datastore->Doubt().reasons.empty());
    EXPECT_EQ(after, Snapshot(datastore->Running()));
  }
}

TEST_F(DamageTest, ADatabaseOfTheFormatBeforeIsTakenOver) {
  ASSERT_EQ("", ToText(Edit(Open().get(), Config(Interface("a")))));
  ASSERT_EQ("", ToText(Edit(Open().get(), Config(Interface("b")))));
  const std::string state = Snapshot(Open()->Running());
  {
    sqlite3* raw = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open((scratch_.path() + "/configuration.db").c_str(), &raw));
    const SqlDatabase database(raw);
    ASSERT_TRUE(Execute(raw,
                        "ALTER TABLE unit DROP COLUMN digest; ALTER TABLE txn DROP COLUMN digest;"
                        "ALTER TABLE txn DROP COLUMN units; ALTER TABLE txn DROP COLUMN earlier;"
                        "DROP TABLE identity; DROP TABLE checkpoint; PRAGMA user_version = 1"));
  }
  // Beside a mark it can only be a copy of old.
  EXPECT_FALSE(Open()->Doubt().reasons.empty());
  std::filesystem::remove(scratch_.path() + "/configuration.mark");
  auto datastore = Open();
  EXPECT_TRUE(datastore->Doubt().reasons.empty());
  EXPECT_EQ(state, Snapshot(datastore->Running()));
  CheckUse(std::move(datastore));
}

}  // namespace
}  // namespace host
