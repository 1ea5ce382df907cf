// What is kept on disk: restarts, kills, faults of the disk, history.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "host/cdb/storage/sqlite.h"
#include "tests/host/cdb/edit_maker.h"
#include "tests/host/cdb/fault_vfs.h"
#include "tests/host/cdb/support.h"
#include "tests/random_rounds.h"

namespace host {
namespace {

constexpr int kEdits = RandomRounds(800), kKills = RandomRounds(48);

class StorageTest : public testing::Test {
 protected:
  StorageTest() { options_.state_directory = scratch_.path(); }

  std::string Database() const { return scratch_.path() + "/configuration.db"; }
  std::unique_ptr<Datastore> Open() { return OpenDatastore(options_); }
  // Opens what must not be opened and returns why.
  std::string WhyNot() {
    DatastoreErrors errors;
    EXPECT_EQ(nullptr, OpenDatastore(options_, &errors));
    return ToText(errors);
  }
  static std::string Vlans(int value) {
    const std::string match = Match("<vlan>" + std::to_string(value) + "</vlan>");
    return Config(Profiles(Profile("l2", "A", 5, Entry(1, match) + Entry(2, match))));
  }

  ScratchDirectory scratch_;
  DatastoreOptions options_;
};

TEST_F(StorageTest, EveryEditSurvivesARestart) {
  EditMaker maker(7);
  auto datastore = Open();
  for (int round = 0; round < kEdits; ++round) {
    const EditOptions edit_options = maker.Options();
    const std::string xml = maker.Make();
    Edit(datastore.get(), xml, edit_options);
    if (round % 10 != 0) continue;
    const std::string before = Snapshot(datastore->Running());
    const uint64_t id = datastore->TransactionId();
    datastore.reset();
    datastore = Open();
    ASSERT_EQ(before, Snapshot(datastore->Running())) << "seed 7, round " << round << "\n" << xml;
    ASSERT_EQ(id, datastore->TransactionId());
  }
  EXPECT_GT(datastore->TransactionId(), static_cast<uint64_t>(kEdits / 20));
}

// A child commits as fast as it can and tells of each acknowledged commit; it is killed at a random
// moment. Nothing that it told of may be lost, and no commit may be half there.
TEST_F(StorageTest, AKilledProcessLosesNothingAcknowledged) {
  std::mt19937 random(11);
  int committed = 0;
  for (int round = 0; round < kKills; ++round) {
    int pipe_fds[2];
    ASSERT_EQ(0, pipe(pipe_fds));
    const pid_t child = fork();
    if (child == 0) {
      auto datastore = OpenDatastore(options_);
      for (int value = committed + 1;; ++value) {
        if (!Edit(datastore.get(), Vlans(value % 4000 + 1)).empty()) _exit(1);
        if (write(pipe_fds[1], &value, sizeof(value)) != sizeof(value)) _exit(1);
      }
    }
    close(pipe_fds[1]);
    int acknowledged = committed, value = 0;
    if (read(pipe_fds[0], &value, sizeof(value)) == sizeof(value)) acknowledged = value;
    usleep(static_cast<useconds_t>(random() % 5000));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child ended by itself";
    while (read(pipe_fds[0], &value, sizeof(value)) == sizeof(value)) acknowledged = value;
    close(pipe_fds[0]);

    const auto datastore = Open();
    ASSERT_NE(nullptr, datastore);
    // Each commit counts one, the first has id 2; the last one may not have been told of.
    committed = static_cast<int>(datastore->TransactionId()) - 1;
    ASSERT_GE(committed, acknowledged);
    ASSERT_LE(committed, acknowledged + 1);
    const auto expected = OpenDatastore();
    ASSERT_EQ("", ToText(Edit(expected.get(), Vlans(committed % 4000 + 1))));
    ASSERT_EQ(Snapshot(expected->Running()), Snapshot(datastore->Running())) << "round " << round;
  }
}

TEST_F(StorageTest, TheStartupFileIsForTheFirstStartOnly) {
  options_.startup_file = scratch_.Write("first.xml", Config(Interface("first")));
  uint64_t id = 0;
  {
    auto datastore = Open();
    EXPECT_NE(std::string::npos, Snapshot(datastore->Running()).find("first"));
    ASSERT_EQ("", ToText(Edit(datastore.get(), Config(Interface("first", "", "delete")))));
    id = datastore->TransactionId();
  }
  auto datastore = Open();
  EXPECT_EQ("",
            Snapshot(datastore->Running()));  // that nothing is configured is what was committed
  EXPECT_EQ(id, datastore->TransactionId());
}

TEST_F(StorageTest, OneProcessOwnsTheDatabase) {
  const auto datastore = Open();
  const std::string why = WhyNot();
  EXPECT_NE(std::string::npos, why.find("another process uses it")) << why;
  EXPECT_NE(std::string::npos, why.find(Database())) << why;
}

// Content that is at fault, with what is said of it. Nothing is enforced of it, nothing written.
TEST_F(StorageTest, WhatCannotBeUsedIsInDoubtAndLeftAlone) {
  const struct {
    const char* sql;  // null: the file is overwritten
    const char* said;
  } kCases[] = {
      {nullptr, "no database"},
      {"PRAGMA application_id = 7", "another program"},
      {"PRAGMA user_version = 99", "format 99"},
      {"UPDATE unit SET content = replace(content, '7', '9')", "2 of 3 stored entries are damaged"},
      {"DELETE FROM unit WHERE list = 'access-list-entry'", "not those of its last commit"},
      {"UPDATE txn SET comment = 'x' WHERE id = 2", "1 of 2 commits of the history are damaged"},
      {"DELETE FROM txn WHERE id = 2", "commits of its history are missing"},
      {"DELETE FROM txn WHERE id = 3", "commit 3 was acknowledged, but cannot be found"},
      {"UPDATE checkpoint SET id = 2", "checkpoint is damaged"},
      {"UPDATE identity SET database = randomblob(16)", "identity or its checkpoint"},
      {"DROP TABLE txn", "no such table"},
  };
  for (const auto& [sql, said] : kCases) {
    SCOPED_TRACE(said);
    const ScratchDirectory scratch;
    options_.state_directory = scratch.path();
    const std::string path = scratch.path() + "/configuration.db";
    { ASSERT_EQ("", ToText(Edit(Open().get(), Vlans(8)))); }
    { ASSERT_EQ("", ToText(Edit(Open().get(), Vlans(7)))); }
    if (sql != nullptr) {
      sqlite3* raw = nullptr;
      ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &raw));
      const SqlDatabase database(raw);
      ASSERT_TRUE(Execute(raw, sql)) << sqlite3_errmsg(raw);
    } else {
      scratch.Write("configuration.db", std::string(8192, 'x'));
    }
    const std::string before = ReadWhole(path);
    auto datastore = Open();
    std::string reasons;
    for (const std::string& reason : datastore->Doubt().reasons) reasons += reason + "\n";
    EXPECT_NE(std::string::npos, reasons.find(said)) << reasons;
    const std::string refusal = ToText(Edit(datastore.get(), Vlans(5)));
    EXPECT_NE(std::string::npos, refusal.find("aclctl recover")) << refusal;
    datastore.reset();
    EXPECT_EQ(before, ReadWhole(path));
  }
  options_.state_directory += "/missing";
  EXPECT_NE(std::string::npos, WhyNot().find("unable to open"));
}

TEST_F(StorageTest, RollbackMakesANewCommitOfAnOldState) {
  std::vector<std::string> states = {"", ""};  // by transaction id
  EditMaker maker(23);
  auto datastore = Open();
  while (states.size() < 60) {
    Edit(datastore.get(), maker.Make());
    if (datastore->TransactionId() == states.size())
      states.push_back(Snapshot(datastore->Running()));
  }
  int done = 0;
  for (uint64_t id = 59; id >= 1; --id) {
    const uint64_t before = datastore->TransactionId();
    const std::string unchanged = Snapshot(datastore->Running());
    const DatastoreErrors errors = datastore->Rollback(id, Origin{"anna", 1});
    if (!errors.empty()) {  // only a profile's priority may stand against it
      EXPECT_NE(std::string::npos, errors[0].message.find("priority")) << ToText(errors);
      EXPECT_EQ(unchanged, Snapshot(datastore->Running()));
      continue;
    }
    ++done;
    EXPECT_EQ(states[id], Snapshot(datastore->Running())) << id;
    if (datastore->TransactionId() == before) continue;
    EXPECT_EQ("rollback to " + std::to_string(id), datastore->History(1)[0].origin.comment);
  }
  EXPECT_GT(done, 20);
  const std::string last = Snapshot(datastore->Running());
  EXPECT_FALSE(datastore->Rollback(1000, {}).empty());
  datastore.reset();
  EXPECT_EQ(last, Snapshot(Open()->Running()));
}

TEST_F(StorageTest, TheHistoryIsBounded) {
  options_.history.commits = 5;
  auto datastore = Open();
  for (int i = 1; i <= 20; ++i) ASSERT_EQ("", ToText(Edit(datastore.get(), Vlans(i))));
  EXPECT_EQ(5u, datastore->History(100).size());
  const DatastoreErrors errors = datastore->Rollback(3, {});
  ASSERT_EQ(1u, errors.size());
  EXPECT_NE(std::string::npos, errors[0].message.find("has no commit"));
  datastore.reset();
  options_.history = {100, 1};  // by size: only the last is kept
  datastore = Open();
  ASSERT_EQ("", ToText(Edit(datastore.get(), Vlans(30))));
  EXPECT_EQ(1u, datastore->History(100).size());
  EXPECT_EQ(22u, datastore->TransactionId());
}

TEST_F(StorageTest, ACheckpointHoldsTheHistoryBackUntilItIsCleared) {
  options_.history.commits = 1;
  auto datastore = Open();
  const std::string two_entries = Profiles(Profile("l2", "A", 5, Entry(1) + Entry(2)));
  ASSERT_EQ("", ToText(Edit(datastore.get(), Config(two_entries + Interface("e", Bind("A"))))));
  const std::string state = Snapshot(datastore->Running());
  ASSERT_EQ("", ToText(datastore->SetCheckpoint()));
  for (int i = 2; i <= 9; ++i) {
    ASSERT_EQ("", ToText(Edit(datastore.get(), Vlans(i))));
    datastore.reset();
    datastore = Open();
    ASSERT_EQ(2u, datastore->Checkpoint());
  }
  // The way back is open to the daemon alone when what was in force does not fit any more.
  ASSERT_EQ("", ToText(Edit(datastore.get(), Config(Interface("e", "", "delete")))));
  datastore.reset();
  options_.group_capacity = 1;
  datastore = Open();
  EXPECT_NE("", ToText(datastore->Rollback(datastore->Checkpoint(), Origin{"anna", 1})));
  ASSERT_EQ("", ToText(datastore->Rollback(datastore->Checkpoint(), {})));
  EXPECT_EQ(state, Snapshot(datastore->Running()));
  ASSERT_EQ("", ToText(datastore->ClearCheckpoint()));
  datastore.reset();
  datastore = Open();
  EXPECT_EQ(0u, datastore->Checkpoint());
  ASSERT_EQ("", ToText(Edit(datastore.get(), Vlans(10))));
  EXPECT_EQ(1u, datastore->History(100).size());
}

}  // namespace
}  // namespace host
