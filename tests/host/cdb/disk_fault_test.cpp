// A disk that fails at every call in turn: nothing that was acknowledged is lost, nothing that was
// refused comes back, and the datastore goes on when the disk does.
#include <map>

#include "host/cdb/storage/storage.h"
#include "tests/host/cdb/fault_vfs.h"
#include "tests/host/cdb/support.h"

namespace host {
namespace {

struct Fault {
  const char* name;
  FaultVfs::Call call;
  int code;
  bool lasting;
};

std::ostream& operator<<(std::ostream& out, const Fault& fault) { return out << fault.name; }

constexpr Fault kFaults[] = {
    {"open", FaultVfs::kOpen, SQLITE_CANTOPEN, true},
    {"read", FaultVfs::kRead, SQLITE_IOERR_READ, false},
    {"write_once", FaultVfs::kWrite, SQLITE_IOERR_WRITE, false},
    {"disk_full", FaultVfs::kWrite, SQLITE_FULL, true},
    {"sync_once", FaultVfs::kSync, SQLITE_IOERR_FSYNC, false},
    {"sync_lasting", FaultVfs::kSync, SQLITE_IOERR_FSYNC, true},
    {"delete", FaultVfs::kDelete, SQLITE_IOERR_DELETE, true},
};

// Opens and commits, with a restart in between, as one disk call fails.
class Client {
 public:
  explicit Client(const std::string& directory) { options_.state_directory = directory; }

  // Refused or not, tells whether the answer leaves room for doubt.
  bool Commit(const std::string& change) {
    const uint64_t id = datastore_->TransactionId();
    const DatastoreErrors errors = Edit(datastore_.get(), change);
    EXPECT_EQ(errors.empty() ? id + 1 : id, datastore_->TransactionId());
    if (errors.empty()) configuration_ = Snapshot(datastore_->Running());
    EXPECT_EQ(configuration_, Snapshot(datastore_->Running()));
    if (errors.empty()) return false;
    EXPECT_NE(std::string::npos, errors[0].message.find("cannot be stored in ")) << ToText(errors);
    return errors[0].message.find("restart") != std::string::npos;
  }

  // False, with a reason, when the disk does not allow it.
  bool Start() {
    datastore_.reset();
    DatastoreErrors errors;
    datastore_ = OpenDatastore(options_, &errors);
    EXPECT_EQ(datastore_ == nullptr, !errors.empty());
    if (datastore_ == nullptr) {
      EXPECT_NE(std::string::npos, errors[0].message.find("configuration.db")) << ToText(errors);
      return false;
    }
    EXPECT_EQ(configuration_, Snapshot(datastore_->Running()));
    return true;
  }

  Datastore* datastore() { return datastore_.get(); }
  const std::string& configuration() const { return configuration_; }

 private:
  DatastoreOptions options_;
  std::unique_ptr<Datastore> datastore_;
  std::string configuration_;  // what was acknowledged
};

class DiskFaultTest : public testing::TestWithParam<Fault> {
 protected:
  static std::string Change(int round) {
    return Config(Profiles(Profile("l2", "A", 5, Entry(round), round == 1 ? "" : "merge")) +
                  Interface("eth" + std::to_string(round), Bind("A")));
  }

  // The files as they may be at the next start, by name: after the process was killed (all that was
  // written), or after the power failed (what was synced, or also what was being synced).
  std::vector<std::map<std::string, std::string>> Disks(const std::string& directory) const {
    std::vector<std::map<std::string, std::string>> disks(3);
    for (const char* name : {"/configuration.db", "/configuration.db-wal"}) {
      const std::string path = directory + name;
      if (!std::filesystem::exists(path)) continue;
      disks[0][name] = ReadWhole(path);
      const auto synced = vfs_.synced().find(path);
      if (synced != vfs_.synced().end()) disks[1][name] = disks[2][name] = synced->second;
      const auto unconfirmed = vfs_.unconfirmed().find(path);
      if (unconfirmed != vfs_.unconfirmed().end()) disks[2][name] = unconfirmed->second;
    }
    return disks;
  }

  static std::string StoredOn(const std::map<std::string, std::string>& disk,
                              const ly_ctx* context) {
    const ScratchDirectory copy;
    for (const auto& [name, content] : disk) copy.Write(name, content);
    bool begin = false;
    StorageProblem problem;
    const auto storage = Storage::Open(copy.path() + "/configuration.db", {}, &begin, &problem);
    EXPECT_EQ("", problem.why);
    if (storage == nullptr) return "";
    Tree tree;
    EXPECT_EQ("", ToText(storage->Load(context, &tree)));
    return Snapshot(tree.get());
  }

  // Looks what a start would find; without `doubt` that must be what was acknowledged. Returns how
  // many times it is not.
  int Look(const std::string& directory, Client* client, bool doubt) {
    vfs_.Pause(true);
    int others = 0;
    for (const auto& disk : Disks(directory)) {
      const std::string found = StoredOn(disk, client->datastore()->Context());
      EXPECT_TRUE(doubt || found == client->configuration()) << found;
      if (found != client->configuration()) ++others;
    }
    vfs_.Pause(false);
    return others;
  }

  FaultVfs vfs_;
};

TEST_P(DiskFaultTest, NothingAcknowledgedIsLostAndNothingRefusedComesBack) {
  const Fault& fault = GetParam();
  int faults = 0, doubts = 0;
  for (bool failed = true; failed; ++faults) {
    const ScratchDirectory scratch;
    SCOPED_TRACE(std::string(fault.name) + " " + std::to_string(faults + 1));
    vfs_.FailAt(fault.call, faults + 1, fault.code, fault.lasting);
    Client client(scratch.path());
    failed = false;
    for (int round = 1; round <= 4; ++round) {
      if (round % 2 == 1 && !client.Start()) {
        vfs_.Heal();
        ASSERT_TRUE(client.Start());
      }
      bool doubt = client.Commit(Change(round));
      if (failed || !vfs_.failed()) continue;
      failed = true;
      doubts += Look(scratch.path(), &client, doubt);
      doubt = client.Commit(Change(8)) || doubt;  // if the fault lasts, it fails as well
      doubts += Look(scratch.path(), &client, doubt);
      vfs_.Heal();
      EXPECT_FALSE(client.Commit(Change(9)));
      EXPECT_EQ(0, Look(scratch.path(), &client, false));
    }
    vfs_.Heal();
    ASSERT_TRUE(client.Start());
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(faults, 1);
  // There is doubt only with a disk that confirms nothing, and then there is.
  EXPECT_EQ(fault.call == FaultVfs::kSync && fault.lasting, doubts > 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, DiskFaultTest, testing::ValuesIn(kFaults));

}  // namespace
}  // namespace host
